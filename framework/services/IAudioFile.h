#pragma once

#include "framework/core/IUnknown.h"
#include "framework/services/AudioFormat.h"

namespace KVX {

/// The host's audio-file class: opens a file so that its format can be read through
/// IAudioFormatInfo. Made through the plug-in manager (class kClassId). Any one thread at a time.
class IAudioFile : public IUnknown
{
public:
    /// Opens the file at a file URL ("file:///...") for reading. kInvalidArgument for something
    /// that is not a file URL; kUnexpected when the file cannot be opened or is not audio the
    /// host can read. A file that failed to open reports no format.
    virtual tresult open(const char* fileUrl) = 0;

    static constexpr UID kClassId = UID::fromString("{5C0BFAA8-18E2-405C-813E-56C29A8FECEB}");
    static constexpr UID kIID = UID::fromString("{FF69B3B7-4BAE-4CFF-9A14-E89E11AF2697}");
};

/// The format of an opened audio file.
class IAudioFormatInfo : public IUnknown
{
public:
    /// Fills `format` with the file's format. kUnexpected, with `format` untouched, when no file
    /// is open.
    virtual tresult getFormat(AudioFormat& format) = 0;

    static constexpr UID kIID = UID::fromString("{A2A6BF4D-B24C-4C31-B2DE-FD51D26B41E6}");
};

} // namespace KVX
