#pragma once

#include "framework/core/Types.h"
#include "framework/package/PackageTime.h"

#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KVX {

/// Builds a package in memory: folders and files are added by path, then write() lays out the
/// stored bytes from offset 8 in directory order, the directory depth first, and the trailer.
/// Each folder keeps its children in the order in which they were added.
class PackageWriter
{
public:
    PackageWriter();
    ~PackageWriter();
    PackageWriter(const PackageWriter&) = delete;
    PackageWriter& operator=(const PackageWriter&) = delete;

    void setIdentifier(const std::array<uint8, 16>& identifier) { identifier_ = identifier; }

    /// Adds the folder at `path` ("images") and any folder above it that is missing. False for a
    /// malformed name or when a file already has that path.
    bool addFolder(std::string_view path);

    /// Adds a file, and the folders above it that are missing. Its bytes are stored as one zlib
    /// stream when `compress` is set, else as they are. False for a malformed name or a path
    /// that is taken.
    bool addFile(std::string_view path, std::span<const uint8> data, const PackageTime& modified, bool compress = true);

    /// The finished package. False when compression fails.
    bool write(std::vector<uint8>& package) const;

private:
    struct Node;

    /// The folder at `path`, made with the folders above it where missing; null for a malformed
    /// path or one that passes through a file.
    Node* folderAt(std::string_view path);

    std::unique_ptr<Node> root_;
    std::array<uint8, 16> identifier_{};
};

} // namespace KVX
