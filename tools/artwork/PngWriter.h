#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Artwork {

/// Writes 8-bit RGBA pictures as PNG files.
class PngWriter
{
public:
    /// Encodes `width` x `height` pixels of `rgba` (row by row) as a PNG file's bytes.
    static std::vector<std::uint8_t> encode(int width, int height, const std::vector<std::uint8_t>& rgba);
    /// Writes them to `path`; false when the file cannot be written.
    static bool write(const std::string& path, int width, int height, const std::vector<std::uint8_t>& rgba);
};

} // namespace Artwork
