#pragma once

// Reading and patching the raw bytes of a package in tests: where the trailer's fields are, and
// where a record's fields follow its name in the directory.

#include "framework/package/PackageFormat.h"
#include "framework/package/PackageName.h"
#include "framework/package/PackageWriter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ThemeTests {

using Bytes = std::vector<std::uint8_t>;

inline std::uint64_t readLittleEndian(const Bytes& bytes, size_t at, int size)
{
    std::uint64_t value = 0;
    for (int i = size - 1; i >= 0; --i)
        value = value << 8 | bytes.at(at + i);
    return value;
}

inline void writeLittleEndian(Bytes& bytes, size_t at, std::uint64_t value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
}

/// Where the trailer starts.
inline size_t trailerAt(const Bytes& package)
{
    return package.size() - KVX::PackageFormat::kTrailerSize;
}

inline size_t directoryAt(const Bytes& package)
{
    return static_cast<size_t>(readLittleEndian(package, trailerAt(package), 8));
}

/// The position right after the zero-terminated UTF-16LE `name` in the directory: for a file,
/// its time (9 bytes), offset, stored size and original size (8 bytes each) follow; for a
/// folder, its count of children.
inline size_t afterName(const Bytes& package, std::string_view name)
{
    std::u16string units;
    KVX::PackageName::toUtf16(name, units);
    Bytes pattern;
    for (char16_t unit : units)
    {
        pattern.push_back(static_cast<std::uint8_t>(unit));
        pattern.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    pattern.insert(pattern.end(), {0, 0});
    for (size_t at = directoryAt(package); at + pattern.size() <= trailerAt(package); ++at)
        if (std::equal(pattern.begin(), pattern.end(), package.begin() + static_cast<long>(at)))
            return at + pattern.size();
    ADD_FAILURE() << "no record named " << name;
    return 0;
}

inline size_t fileOffsetField(const Bytes& package, std::string_view name)
{
    return afterName(package, name) + KVX::PackageFormat::kTimeSize;
}
inline size_t fileStoredSizeField(const Bytes& package, std::string_view name)
{
    return fileOffsetField(package, name) + 8;
}
inline size_t fileOriginalSizeField(const Bytes& package, std::string_view name)
{
    return fileOffsetField(package, name) + 16;
}

inline Bytes textBytes(std::string_view text)
{
    return Bytes(text.begin(), text.end());
}

/// A package holding the given files (path, content), compressed.
inline Bytes packageOf(const std::vector<std::pair<std::string, Bytes>>& files)
{
    KVX::PackageWriter writer;
    for (const auto& [path, content] : files)
        EXPECT_TRUE(writer.addFile(path, content, KVX::PackageTime{})) << path;
    Bytes package;
    EXPECT_TRUE(writer.write(package));
    return package;
}

} // namespace ThemeTests
