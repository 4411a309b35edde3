#include "platform/kvxgui/AlertService.h"

#include <cstdio>

namespace KVX::Gui {

KVX_DEFINE_CLASS(AlertService, Object, "AlertService")

tresult AlertService::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAlertService)
    return Object::queryInterface(iid, object);
}

std::string AlertService::formatLine(std::string_view text, int32 kind)
{
    std::string line = "Sorvel";
    if (kind == kWarning)
        line += " warning";
    else if (kind == kError)
        line += " error";
    line += ": ";
    for (size_t i = 0; i < text.size(); ++i)
    {
        const auto c = static_cast<unsigned char>(text[i]);
        // C1 controls (U+0080 to U+009F) are written as 0xC2 0x80 to 0xC2 0x9F in UTF-8.
        const bool c1Control =
            c == 0xC2 && i + 1 < text.size() && (static_cast<unsigned char>(text[i + 1]) & 0xE0) == 0x80;
        if ((c < 0x20 && c != '\n' && c != '\t') || c == 0x7F || c1Control)
        {
            line += '?';
            if (c1Control)
                ++i;
        }
        else
            line += static_cast<char>(c);
    }
    line += '\n';
    return line;
}

tresult AlertService::showAlert(const char* text, int32 kind)
{
    if (!text || kind < kInformation || kind > kError)
        return kInvalidArgument;
    Ref<IAlertPresenter> presenter;
    {
        std::lock_guard lock(mutex_);
        presenter = presenter_;
    }
    if (presenter)
        return presenter->presentAlert(text, kind);

    const std::string line = formatLine(text, kind);
    const bool written = std::fwrite(line.data(), 1, line.size(), stderr) == line.size();
    return written && std::fflush(stderr) == 0 ? kResultOk : kUnexpected;
}

void AlertService::setPresenter(IAlertPresenter* presenter)
{
    Ref<IAlertPresenter> replaced; // released after the lock, in case its destructor calls back
    std::lock_guard lock(mutex_);
    replaced = std::move(presenter_);
    presenter_ = presenter;
}

} // namespace KVX::Gui
