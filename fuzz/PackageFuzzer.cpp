// Reads the input as a package: the trailer, the directory, and every file inflated. A package
// that opens must name each of its entries so that find() returns that entry.
#include "framework/package/PackageReader.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    KVX::PackageReader reader;
    if (!reader.open({data, size}))
        return 0;
    for (const KVX::PackageEntry& entry : reader.entries())
    {
        if (reader.find(entry.path) != &entry)
            std::abort();
        if (entry.folder)
            continue;
        std::vector<std::uint8_t> bytes;
        if (reader.extract(entry, bytes) && bytes.size() != entry.originalSize)
            std::abort();
    }
    return 0;
}
