#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/ISystemShell.h"
#include "framework/services/IUrlOpener.h"

#include <mutex>
#include <string>
#include <string_view>

namespace KVX::Gui {

/// ISystemShell: hands addresses to the host's opener, to xdg-open, or to the user on standard
/// output.
class SystemShell : public Object, public ISystemShell
{
    KVX_DECLARE_CLASS(SystemShell, Object)
public:
    tresult openUrl(const char* url) override;
    void setUrlOpener(IUrlOpener* opener) override;
    KVX_FORWARD_UNKNOWN(Object)

    /// Whether `url` is a scheme, a colon and at least one more character, all of them ASCII
    /// characters that a URL may hold, with every "%" starting an escape.
    static bool isWellFormed(std::string_view url);

private:
    /// Writes the address to standard output for the user to open.
    static tresult printForUser(std::string_view url);
    /// Starts xdg-open at `program` with `url` as its only argument, in a session of its own.
    static tresult launch(const std::string& program, const char* url);

    std::mutex mutex_;
    Ref<IUrlOpener> opener_;
};

} // namespace KVX::Gui
