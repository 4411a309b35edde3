#pragma once

#include "framework/core/Types.h"

#include <type_traits>

namespace KVX {

/// The host's description of a file type, as the file-type registry hands it out. A plain record
/// of fixed buffers, so that a plug-in copies it by assignment and no library type crosses the
/// module boundary. The texts are UTF-8 and always terminated within their buffers.
struct FileType
{
    enum Category : int32
    {
        kCategoryOther = 0,
        kCategoryAudio = 1,
    };
    enum Flags : uint32
    {
        kCompressed = 1 << 0, ///< the data is compressed (lossless or not)
        kLossy = 1 << 1,      ///< compression discards part of the signal
    };

    char description[128]; ///< for people: "WAVE Audio"
    char extension[16];    ///< without the dot, as registered: "wav"
    char mimeType[64];     ///< "audio/wav"
    int32 category;        ///< a Category
    uint32 flags;          ///< Flags
};

static_assert(std::is_trivially_copyable_v<FileType> && std::is_standard_layout_v<FileType>);

} // namespace KVX
