#pragma once

#include "framework/core/Object.h"
#include "framework/services/ICallObserver.h"
#include "framework/services/IWebService.h"
#include "platform/kvxnet/TransferSettings.h"

#include <mutex>

namespace KVX::Net {

/// The web service: makes request objects with the current settings.
class WebService : public Object, public Web::IWebService
{
    KVX_DECLARE_CLASS(WebService, Object)
public:
    WebService();

    tresult createRequest(Web::IXMLHttpRequest** request) override;
    void setCertificateAuthorityFile(const char* path) override;
    void setTimeouts(uint32 connectMs, uint32 stallMs) override;
    uint32 takeLastFailure(char* buffer, uint32 size) override;
    void setCallObserver(Web::ICallObserver* observer) override;

    /// Notes the outcome of a call that ended without a usable answer (see takeLastFailure).
    static void noteFailure(const CString& text);
    /// Tells the host's observer, if any, of an answered call.
    static void noteAnswer(const Web::AnsweredCall& call);
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::mutex mutex_;
    TransferSettings settings_;
};

} // namespace KVX::Net
