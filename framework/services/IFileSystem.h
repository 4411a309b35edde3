#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IFileReadStream;

/// The host's access to local files. Any thread.
class IFileSystem : public IUnknown
{
public:
    /// Opens the regular file that a file URL names, for reading. The URL is written the way
    /// Url::toDisplayString writes it: "file://" with an empty host or "localhost", an absolute
    /// path, percent-encoded UTF-8, no query or fragment. On success `*stream` holds a reference
    /// that the caller owns; it reads from the start of the file and serves one thread at a time.
    /// kInvalidArgument for a null argument or a URL that is not such a file URL; kUnexpected
    /// when the file cannot be opened for reading (missing, not permitted, a directory or
    /// another kind of non-regular file). `*stream` is null on failure; getLastErrorText says why.
    virtual tresult openReadStream(const char* url, IFileReadStream** stream) = 0;

    /// Why the calling thread's last failed openReadStream failed: the path and the system's
    /// reason ("/music/a.wav: No such file or directory"); "" after a success. Valid on this
    /// thread until its next call of openReadStream. For diagnostics, not for the user.
    virtual const char* getLastErrorText() = 0;

    static constexpr UID kIID = UID::fromString("{6CDDA1AD-DCE9-4515-8D33-582E9287ACB0}");
};

} // namespace KVX
