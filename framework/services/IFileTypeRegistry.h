#pragma once

#include "framework/core/IUnknown.h"
#include "framework/services/FileType.h"

namespace KVX {

/// File types by extension. It knows the common audio types from the start (wav and wave,
/// aiff and aif, flac, mp3, ogg); the host may add or replace types. Any thread.
class IFileTypeRegistry : public IUnknown
{
public:
    /// Copies the type registered for `extension` (without letter case, one leading dot
    /// allowed: "WAV", ".wav") into `type`. kInvalidArgument, with `type` untouched, for a null
    /// or empty extension or one that nothing is registered for.
    virtual tresult getFileTypeByExtension(const char* extension, FileType& type) = 0;

    /// Adds a type, or replaces the type of the same extension (without letter case). The
    /// extension must be 1 to 15 letters and digits; every text must be terminated within its
    /// buffer. kInvalidArgument otherwise.
    virtual tresult registerFileType(const FileType& type) = 0;

    static constexpr UID kIID = UID::fromString("{EFED608D-A341-45D3-A4C8-0A47CB4D02EF}");
};

} // namespace KVX
