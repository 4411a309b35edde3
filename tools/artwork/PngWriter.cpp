#include "PngWriter.h"

#include <zlib.h>

#include <cstdlib>
#include <fstream>

namespace Artwork {

namespace {

void appendBigEndian(std::vector<std::uint8_t>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void appendChunk(std::vector<std::uint8_t>& png, const char* type, const std::vector<std::uint8_t>& data)
{
    appendBigEndian(png, static_cast<std::uint32_t>(data.size()));
    const size_t start = png.size();
    png.insert(png.end(), type, type + 4);
    png.insert(png.end(), data.begin(), data.end());
    const uLong crc = crc32(0L, png.data() + start, static_cast<uInt>(png.size() - start));
    appendBigEndian(png, static_cast<std::uint32_t>(crc));
}

int paeth(int left, int up, int upLeft)
{
    const int estimate = left + up - upLeft;
    const int toLeft = std::abs(estimate - left), toUp = std::abs(estimate - up),
              toUpLeft = std::abs(estimate - upLeft);
    if (toLeft <= toUp && toLeft <= toUpLeft)
        return left;
    return toUp <= toUpLeft ? up : upLeft;
}

// Each row gets the filter whose output has the smallest sum of magnitudes, the usual guess at
// what deflate compresses best.
std::vector<std::uint8_t> filterRows(int width, int height, const std::vector<std::uint8_t>& rgba)
{
    const size_t stride = static_cast<size_t>(width) * 4;
    std::vector<std::uint8_t> filtered;
    std::vector<std::uint8_t> candidate(stride), best(stride);
    for (int y = 0; y < height; ++y)
    {
        const std::uint8_t* row = &rgba[y * stride];
        const std::uint8_t* above = y > 0 ? &rgba[(y - 1) * stride] : nullptr;
        long bestCost = -1;
        std::uint8_t bestType = 0;
        for (std::uint8_t type = 0; type <= 4; ++type)
        {
            long cost = 0;
            for (size_t i = 0; i < stride; ++i)
            {
                const int left = i >= 4 ? row[i - 4] : 0;
                const int up = above ? above[i] : 0;
                const int upLeft = above && i >= 4 ? above[i - 4] : 0;
                int predicted = 0;
                if (type == 1)
                    predicted = left;
                else if (type == 2)
                    predicted = up;
                else if (type == 3)
                    predicted = (left + up) / 2;
                else if (type == 4)
                    predicted = paeth(left, up, upLeft);
                candidate[i] = static_cast<std::uint8_t>(row[i] - predicted);
                cost +=
                    static_cast<std::int8_t>(candidate[i]) < 0 ? -static_cast<std::int8_t>(candidate[i]) : candidate[i];
            }
            if (bestCost < 0 || cost < bestCost)
            {
                bestCost = cost;
                bestType = type;
                best.swap(candidate);
            }
        }
        filtered.push_back(bestType);
        filtered.insert(filtered.end(), best.begin(), best.end());
    }
    return filtered;
}

} // namespace

std::vector<std::uint8_t> PngWriter::encode(int width, int height, const std::vector<std::uint8_t>& rgba)
{
    std::vector<std::uint8_t> png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<std::uint8_t> header;
    appendBigEndian(header, static_cast<std::uint32_t>(width));
    appendBigEndian(header, static_cast<std::uint32_t>(height));
    header.insert(header.end(), {8, 6, 0, 0, 0}); // 8 bits, RGBA, deflate, adaptive filters, no interlace
    appendChunk(png, "IHDR", header);

    const std::vector<std::uint8_t> filtered = filterRows(width, height, rgba);
    uLongf size = compressBound(static_cast<uLong>(filtered.size()));
    std::vector<std::uint8_t> compressed(size);
    if (compress2(compressed.data(), &size, filtered.data(), static_cast<uLong>(filtered.size()), Z_BEST_COMPRESSION) !=
        Z_OK)
        return {};
    compressed.resize(size);
    appendChunk(png, "IDAT", compressed);
    appendChunk(png, "IEND", {});
    return png;
}

bool PngWriter::write(const std::string& path, int width, int height, const std::vector<std::uint8_t>& rgba)
{
    const std::vector<std::uint8_t> png = encode(width, height, rgba);
    if (png.empty())
        return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
    return static_cast<bool>(out.flush());
}

} // namespace Artwork
