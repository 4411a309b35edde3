#include "platform/kvxgui/SystemShell.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <thread>

extern char** environ;

namespace KVX::Gui {

KVX_DEFINE_CLASS(SystemShell, Object, "SystemShell")

tresult SystemShell::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISystemShell)
    return Object::queryInterface(iid, object);
}

namespace {

// Far above any address a browser takes, and far below the limit of a command line.
constexpr size_t kLongestUrl = 32 * 1024;

bool isAlpha(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The unreserved, general delimiter and sub-delimiter characters of RFC 3986.
bool isUrlCharacter(char c)
{
    static constexpr std::string_view kOthers = "-._~:/?#[]@!$&'()*+,;=";
    return isAlpha(c) || isDigit(c) || kOthers.find(c) != std::string_view::npos;
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

// The addresses that the desktop may open without a host to judge them: web pages and mail.
// Anything else (a file, a desktop entry, a custom scheme) could start a program.
bool isWebAddress(std::string_view url)
{
    const std::string lower = lowerCase(url.substr(0, 8));
    return (lower.starts_with("http://") && url.size() > 7) ||
           (lower.starts_with("https://") && url.size() > 8) ||
           (lower.starts_with("mailto:") && url.size() > 7);
}

bool hasDesktopSession()
{
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"})
        if (const char* value = std::getenv(name); value && *value)
            return true;
    return false;
}

// The executable file `name` in a directory of PATH, or empty. Empty entries, which would mean
// the working directory, are skipped.
std::string findOnPath(std::string_view name)
{
    const char* path = std::getenv("PATH");
    std::string_view directories = path ? path : "";
    while (!directories.empty())
    {
        const size_t colon = directories.find(':');
        const std::string_view directory = directories.substr(0, colon);
        directories = colon == std::string_view::npos ? std::string_view() : directories.substr(colon + 1);
        if (directory.empty())
            continue;
        std::string candidate = std::string(directory) + "/" + std::string(name);
        struct stat status = {};
        if (::stat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
            ::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

} // namespace

bool SystemShell::isWellFormed(std::string_view url)
{
    const size_t colon = url.find(':');
    if (colon == std::string_view::npos || colon == 0 || colon + 1 >= url.size() || url.size() > kLongestUrl)
        return false;
    if (!isAlpha(url[0]))
        return false;
    for (char c : url.substr(0, colon))
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.')
            return false;
    for (size_t i = colon + 1; i < url.size(); ++i)
    {
        if (url[i] == '%')
        {
            if (i + 2 >= url.size() || !isHexDigit(url[i + 1]) || !isHexDigit(url[i + 2]))
                return false;
            i += 2;
        }
        else if (!isUrlCharacter(url[i]))
            return false;
    }
    return true;
}

tresult SystemShell::openUrl(const char* url)
{
    if (!url || !isWellFormed(url))
        return kInvalidArgument;
    Ref<IUrlOpener> opener;
    {
        std::lock_guard lock(mutex_);
        opener = opener_;
    }
    if (opener)
        return opener->openUrl(url);

    if (!isWebAddress(url))
        return kInvalidArgument;
    if (hasDesktopSession())
        if (const std::string program = findOnPath("xdg-open"); !program.empty())
            return launch(program, url);

    return printForUser(url);
}

tresult SystemShell::printForUser(std::string_view url)
{
    // An address may carry sign-in values in its query. A person at a terminal needs them to
    // open it; a pipe or a file may end up in a log, so it gets the address without them.
    std::string line = "Open this address in a web browser: ";
    const size_t query = url.find_first_of("?#");
    if (query == std::string_view::npos || ::isatty(STDOUT_FILENO))
        line.append(url);
    else
        line.append(url.substr(0, query))
            .append(" (its parameters are left out: the output is not a terminal)");
    line += '\n';
    const bool written = std::fwrite(line.data(), 1, line.size(), stdout) == line.size();
    return written && std::fflush(stdout) == 0 ? kResultOk : kUnexpected;
}

tresult SystemShell::launch(const std::string& program, const char* url)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return kUnexpected;
    if (posix_spawnattr_init(&attributes) != 0)
    {
        posix_spawn_file_actions_destroy(&actions);
        return kUnexpected;
    }
    // The browser must not read the host's terminal, inherit its descriptors, its blocked or
    // ignored signals, or die with the host's terminal session.
    sigset_t noSignals, allSignals;
    sigemptyset(&noSignals);
    sigfillset(&allSignals);
    sigdelset(&allSignals, SIGKILL);
    sigdelset(&allSignals, SIGSTOP);
    int error = posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (error == 0)
        error = posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    if (error == 0)
        error = posix_spawnattr_setsigmask(&attributes, &noSignals);
    if (error == 0)
        error = posix_spawnattr_setsigdefault(&attributes, &allSignals);
    if (error == 0)
        error = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                                          POSIX_SPAWN_SETSID);
    pid_t child = 0;
    if (error == 0)
    {
        // The URL is one element of the argument vector: no command interpreter ever sees it.
        char* const arguments[] = {const_cast<char*>("xdg-open"), const_cast<char*>(url), nullptr};
        error = posix_spawn(&child, program.c_str(), &actions, &attributes, arguments, environ);
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        return kUnexpected;

    // xdg-open may stay until the browser closes; a thread of its own collects its exit status
    // so that it leaves no zombie behind.
    try
    {
        std::thread([child] {
            int status = 0;
            while (::waitpid(child, &status, 0) < 0 && errno == EINTR)
            {
            }
        }).detach();
    }
    catch (const std::system_error&)
    {
        // Out of threads: xdg-open still runs, and stays a zombie until the host exits.
    }
    return kResultOk;
}

void SystemShell::setUrlOpener(IUrlOpener* opener)
{
    Ref<IUrlOpener> replaced; // released after the lock, in case its destructor calls back
    std::lock_guard lock(mutex_);
    replaced = std::move(opener_);
    opener_ = opener;
}

} // namespace KVX::Gui
