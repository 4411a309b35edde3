#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IAlertPresenter.h"
#include "framework/services/IAlertService.h"

#include <mutex>
#include <string>
#include <string_view>

namespace KVX::Gui {

/// IAlertService: hands alerts to the host's presenter, or writes them to standard error.
class AlertService : public Object, public IAlertService
{
    KVX_DECLARE_CLASS(AlertService, Object)
public:
    tresult showAlert(const char* text, int32 kind) override;
    void setPresenter(IAlertPresenter* presenter) override;
    KVX_FORWARD_UNKNOWN(Object)

    /// The line written without a presenter, line break included.
    static std::string formatLine(std::string_view text, int32 kind);

private:
    std::mutex mutex_;
    Ref<IAlertPresenter> presenter_;
};

} // namespace KVX::Gui
