#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IUrlOpener;

/// The desktop's shell: opens addresses in the user's web browser. Any thread.
class ISystemShell : public IUnknown
{
public:
    /// Opens `url`, which must be an absolute URL of ASCII characters allowed in URLs (anything
    /// else percent-encoded), starting with a scheme ("https:"). With a registered opener the
    /// host opens it and its result is returned. Otherwise, for http, https and mailto only:
    /// in a desktop session (DISPLAY or WAYLAND_DISPLAY set and xdg-open on the PATH) the URL
    /// goes to xdg-open as its single argument, never through a command interpreter; without
    /// one it is written to standard output for the user to open. Since a query may carry
    /// sign-in values, the query and fragment are left out (and the line says so) unless
    /// standard output is a terminal, so that they never reach a log.
    /// kResultOk when the URL was handed over (xdg-open started, or the line written);
    /// kInvalidArgument for a null or malformed URL, or another scheme without an opener;
    /// kUnexpected when xdg-open cannot be started or standard output cannot be written.
    virtual tresult openUrl(const char* url) = 0;

    /// Registers the host's opener, held by reference until it is replaced; null goes back to
    /// the desktop.
    virtual void setUrlOpener(IUrlOpener* opener) = 0;

    static constexpr UID kIID = UID::fromString("{7466169F-FCE7-42B0-9895-744E6297209B}");
};

} // namespace KVX
