#pragma once

#include "framework/core/Types.h"

#include <string_view>

namespace KVX {

/// The layout of a package file and the limits within which a reader accepts one.
///
/// A package is the magic, the stored bytes of its files back to back from offset 8, a directory
/// tree of records, and a 64-byte trailer that ends with the magic again. Integers are
/// little-endian; offsets count from the start of the file.
struct PackageFormat
{
    static constexpr std::string_view kMagic = "PACKAGEF";
    static constexpr uint64 kHeadSize = 8;
    static constexpr uint64 kTrailerSize = 64;
    static constexpr uint32 kFormatVersion = 1;

    // Offsets of the trailer's fields within the trailer.
    static constexpr uint64 kTrailerDirectoryOffset = 0;
    static constexpr uint64 kTrailerDirectorySize = 8;
    static constexpr uint64 kTrailerIdentifier = 28;
    static constexpr uint64 kTrailerOptions = 44;
    static constexpr uint64 kTrailerFormat = 48;
    static constexpr uint64 kTrailerSizeField = 52;
    static constexpr uint64 kTrailerMagic = 56;

    static constexpr std::string_view kRootTag = "Root";
    static constexpr std::string_view kFolderTag = "Fold";
    static constexpr std::string_view kFileTag = "File";

    static constexpr uint32 kRootFlags = 1;
    static constexpr uint32 kFolderFlags = 0;
    /// A file's flag word: its stored bytes are one zlib stream. Without it they are the file.
    static constexpr uint32 kFileCompressed = 2;

    /// The modification time of a file record: 16-bit year, five bytes, 16-bit milliseconds.
    static constexpr uint64 kTimeSize = 9;

    /// The smallest record that can be a child: a folder with a one-character name and no
    /// children (tag, flags, one UTF-16 unit and its terminator, count). A count of children
    /// larger than the remaining directory bytes divided by this is impossible.
    static constexpr uint64 kSmallestChildRecord = 4 + 4 + 2 + 2 + 4;

    // Limits that keep a hostile package from costing more than a real one: nesting, the length
    // of a name, and what one entry may inflate to. A deflate stream cannot expand by more than
    // 1032 to 1, so a larger ratio of original to stored size is a lie told to make the reader
    // allocate.
    static constexpr uint32 kMaxDepth = 32;
    static constexpr uint64 kMaxNameUnits = 1024;
    static constexpr uint64 kMaxEntrySize = uint64(256) * 1024 * 1024;
    static constexpr uint64 kMaxInflationRatio = 1032;
};

} // namespace KVX
