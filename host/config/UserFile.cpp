#include "host/config/UserFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Host {

bool readUserFile(const std::string& path, std::string& text, std::string& error)
{
    // Opened without blocking, so that a pipe with no writer cannot hold the program; what is
    // opened is then checked, not the path, so that it cannot change in between.
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
    {
        error = "cannot read " + path + ": " + std::strerror(errno);
        return false;
    }
    struct stat status = {};
    bool ok = ::fstat(fd, &status) == 0;
    if (!ok)
        error = "cannot read " + path + ": " + std::strerror(errno);
    else if (!S_ISREG(status.st_mode))
        ok = false, error = path + " is not a file";
    else if (static_cast<std::size_t>(status.st_size) > kUserFileLimit)
        ok = false, error = path + " is too large (" + std::to_string(status.st_size) + " bytes; at most " +
                            std::to_string(kUserFileLimit) + ")";
    text.clear();
    char buffer[65536];
    while (ok)
    {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            ok = false, error = "cannot read " + path + ": " + std::strerror(errno);
        else if (got == 0)
            break;
        else if (text.size() + static_cast<std::size_t>(got) > kUserFileLimit) // it grew while read
            ok = false, error = path + " is too large (more than " + std::to_string(kUserFileLimit) + " bytes)";
        else
            text.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(fd);
    return ok;
}

} // namespace Host
