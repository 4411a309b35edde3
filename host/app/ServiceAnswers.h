#pragma once

#include "framework/core/Object.h"
#include "framework/services/ICallObserver.h"

#include <mutex>
#include <string>
#include <vector>

namespace Host {

/// Listens to the service's answers to the plug-in's calls and keeps the reason of each refusal:
/// an answer whose envelope's "status_code" is not 200, with the message its "data" gives. The
/// plug-in shows only that something failed ("Upload failed!"); the host adds why. Only the
/// request's method and path are kept: its query may carry the session's token.
class ServiceAnswers : public KVX::Object, public KVX::Web::ICallObserver
{
public:
    struct Refusal
    {
        std::string request; ///< "POST tracks"
        int statusCode = 0;  ///< the envelope's status code
        std::string message; ///< the service's reason, or empty when it gave none
    };

    void onCallAnswered(const KVX::Web::AnsweredCall& call) override;

    /// The refusals since the previous call, oldest first.
    std::vector<Refusal> takeRefusals();
    /// A refusal as a sentence: "the service refused POST tracks: <reason>".
    static std::string describe(const Refusal& refusal);

    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    std::mutex mutex_;
    std::vector<Refusal> refusals_;
};

} // namespace Host
