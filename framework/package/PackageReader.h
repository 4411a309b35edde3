#pragma once

#include "framework/core/Types.h"
#include "framework/package/PackageEntry.h"
#include "framework/package/PackageError.h"

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace KVX {

/// Reads a package that lies in memory (a module's resource): the trailer and the directory at
/// once, each file's bytes only when asked for.
///
/// Every offset, size and count is checked against the bytes before it is used, so a damaged or
/// hostile package is refused without reading outside the bytes and without allocating more than
/// its entries can really inflate to. The reader writes no messages; the caller decides what a
/// refusal means. One thread at a time.
class PackageReader
{
public:
    /// Reads the package in `bytes`, which the reader views without copying: they must stay
    /// unchanged while the reader is used. False when the package is refused; error() says why
    /// and the reader is then empty.
    bool open(std::span<const uint8> bytes);

    /// Why the last open() or extract() failed, or kNone.
    PackageError error() const { return error_; }

    /// The package's 16-byte identifier, in the order in which its text form writes it.
    const std::array<uint8, 16>& identifier() const { return identifier_; }
    uint32 options() const { return options_; }

    /// The folders and files in directory order (a folder before what it holds).
    const std::vector<PackageEntry>& entries() const { return entries_; }

    /// The folder or file at `path` ("images/Foo.png"), or null. The pointer is valid until the
    /// next open().
    const PackageEntry* find(std::string_view path) const;

    /// The bytes of the file `entry` (one of entries()), inflated to exactly its original size.
    /// False when its data does not inflate to that size or is no zlib stream; `data` is then
    /// empty.
    bool extract(const PackageEntry& entry, std::vector<uint8>& data);
    /// The same into `out`, which must hold exactly the entry's original size (its content is
    /// undefined after a failure).
    bool extract(const PackageEntry& entry, std::span<uint8> out);
    /// The same for the file at `path`; kNotFound when there is none.
    bool extract(std::string_view path, std::vector<uint8>& data);

private:
    class DirectoryCursor;

    bool fail(PackageError error);
    bool readTrailer(uint64& directoryOffset, uint64& directorySize);
    bool readChildren(DirectoryCursor& cursor, const std::string& folder, uint32 depth);
    bool checkEntryPlacement(uint64 directoryOffset);
    /// Why `entry` cannot be extracted whatever the output (a folder, data outside the package,
    /// sizes no entry may have), or kNone.
    PackageError refusalOf(const PackageEntry& entry) const;

    std::span<const uint8> bytes_;
    PackageError error_ = PackageError::kNone;
    std::array<uint8, 16> identifier_{};
    uint32 options_ = 0;
    std::vector<PackageEntry> entries_;
    std::unordered_map<std::string, size_t> index_;
};

} // namespace KVX
