#include "platform/kvxsystem/FileSystem.h"

#include "framework/core/Ref.h"
#include "framework/data/Url.h"
#include "platform/kvxsystem/AsciiText.h"
#include "platform/kvxsystem/FileReadStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace KVX::System {

KVX_DEFINE_CLASS(FileSystem, Object, "FileSystem")

tresult FileSystem::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IFileSystem)
    return Object::queryInterface(iid, object);
}

namespace {

thread_local std::string lastError;

tresult fail(tresult result, std::string text)
{
    lastError = std::move(text);
    return result;
}

std::string systemReason(int error)
{
    char buffer[256];
    return strerror_r(error, buffer, sizeof(buffer)); // the GNU form returns the text
}

// The native path of a local file URL, or empty when the URL is not one.
std::string localPath(const char* text)
{
    Url url;
    if (!url.setFromDisplayString(text) || !equalsIgnoringCase(url.protocol().view(), "file"))
        return {};
    if (!url.host().isEmpty() && !equalsIgnoringCase(url.host().view(), "localhost"))
        return {};
    // A query or fragment has no meaning for a file; a "?" or "#" in a file name is encoded.
    if (std::string_view(text).find_first_of("?#") != std::string_view::npos)
        return {};
    std::string path = url.nativePath().toUtf8();
    if (!path.starts_with('/') || path.find('\0') != std::string::npos)
        return {};
    return path;
}

} // namespace

tresult FileSystem::openReadStream(const char* url, IFileReadStream** stream)
{
    if (stream)
        *stream = nullptr;
    if (!url || !stream)
        return fail(kInvalidArgument, "no URL or no place for the stream");
    const std::string path = localPath(url);
    if (path.empty())
        return fail(kInvalidArgument, std::string(url) + ": not a local file URL");

    // O_NONBLOCK keeps a named pipe from blocking the open; such files are refused below.
    int descriptor;
    do
        descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return fail(kUnexpected, path + ": " + systemReason(errno));

    struct stat status = {};
    if (::fstat(descriptor, &status) != 0)
    {
        const int error = errno;
        ::close(descriptor);
        return fail(kUnexpected, path + ": " + systemReason(error));
    }
    if (!S_ISREG(status.st_mode))
    {
        ::close(descriptor);
        return fail(kUnexpected,
                    path + ": " + (S_ISDIR(status.st_mode) ? systemReason(EISDIR) : "not a regular file"));
    }
    const int flags = ::fcntl(descriptor, F_GETFL);
    if (flags < 0 || ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0)
    {
        const int error = errno;
        ::close(descriptor);
        return fail(kUnexpected, path + ": " + systemReason(error));
    }

    auto opened = makeRef<FileReadStream>(descriptor);
    *stream = opened.detach();
    lastError.clear();
    return kResultOk;
}

const char* FileSystem::getLastErrorText()
{
    return lastError.c_str();
}

} // namespace KVX::System
