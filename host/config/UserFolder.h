#pragma once

#include <cstdlib>
#include <filesystem>

namespace Host {

/// A base folder of the user's, by the XDG rules: the variable `variable` (XDG_CONFIG_HOME,
/// XDG_STATE_HOME, ...) when it holds an absolute path, else `fallback` (".config",
/// ".local/state", ...) under $HOME, else `fallback` under the current folder.
inline std::filesystem::path userFolder(const char* variable, const char* fallback)
{
    if (const char* xdg = std::getenv(variable); xdg && *xdg == '/')
        return xdg;
    if (const char* home = std::getenv("HOME"); home && *home)
        return std::filesystem::path(home) / fallback;
    return fallback;
}

} // namespace Host
