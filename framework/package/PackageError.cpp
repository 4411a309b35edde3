#include "framework/package/PackageError.h"

namespace KVX {

const char* describe(PackageError error)
{
    switch (error)
    {
    case PackageError::kNone:
        return "no error";
    case PackageError::kTooSmall:
        return "too small to be a package";
    case PackageError::kBadMagic:
        return "not a package (magic missing)";
    case PackageError::kBadTrailer:
        return "trailer of another format";
    case PackageError::kUnsupported:
        return "option not supported";
    case PackageError::kDirectoryOutside:
        return "directory outside the file";
    case PackageError::kBadDirectory:
        return "malformed directory";
    case PackageError::kTooManyChildren:
        return "impossible number of children";
    case PackageError::kTooDeep:
        return "folders nested too deep";
    case PackageError::kBadName:
        return "malformed name";
    case PackageError::kDuplicateName:
        return "duplicate name";
    case PackageError::kEntryOutside:
        return "entry outside the data area";
    case PackageError::kEntriesOverlap:
        return "entries overlap";
    case PackageError::kEntryTooLarge:
        return "entry too large";
    case PackageError::kBadData:
        return "entry data is not a zlib stream";
    case PackageError::kSizeMismatch:
        return "entry does not inflate to its size";
    case PackageError::kNotFound:
        return "no such entry";
    }
    return "unknown error";
}

} // namespace KVX
