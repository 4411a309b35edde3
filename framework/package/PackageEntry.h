#pragma once

#include "framework/package/PackageTime.h"

#include <string>

namespace KVX {

/// One folder or file of a package's directory.
struct PackageEntry
{
    /// Folder names joined with "/" ("images/Foo.png"); names are case-sensitive.
    std::string path;
    bool folder = false;
    /// The stored bytes are a zlib stream (files only).
    bool compressed = false;
    PackageTime modified;
    /// Where the stored bytes are in the package, and how many there are (files only).
    uint64 dataOffset = 0;
    uint64 storedSize = 0;
    /// The size of the file itself.
    uint64 originalSize = 0;
};

} // namespace KVX
