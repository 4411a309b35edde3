#pragma once

namespace KVX {

/// Why a package or one of its entries was refused.
enum class PackageError
{
    kNone,
    kTooSmall,         ///< shorter than the head and the trailer
    kBadMagic,         ///< no "PACKAGEF" at the start or at the end
    kBadTrailer,       ///< the trailer's size or format word is not this format's
    kUnsupported,      ///< an option or file flag this reader does not implement (encryption)
    kDirectoryOutside, ///< the directory does not lie between the head and the trailer
    kBadDirectory,     ///< a record is truncated, has an unknown tag or wrong flags
    kTooManyChildren,  ///< a count of children that the directory bytes cannot hold
    kTooDeep,          ///< folders nested deeper than the format's limit
    kBadName,          ///< an empty, overlong or malformed name, or one holding "/"
    kDuplicateName,    ///< two entries of one folder with the same name
    kEntryOutside,     ///< an entry's stored bytes do not lie in the data area
    kEntriesOverlap,   ///< two entries share stored bytes
    kEntryTooLarge,    ///< an original size beyond the limit or beyond what its data can inflate to
    kBadData,          ///< stored bytes that are not one whole zlib stream
    kSizeMismatch,     ///< an entry that inflates to fewer or more bytes than its original size
    kNotFound,         ///< no file of that path
};

/// A short English name of the error, for tools and test messages.
const char* describe(PackageError error);

} // namespace KVX
