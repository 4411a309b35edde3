// Damaged and hostile packages: each is refused with its reason, without reading outside the
// bytes (the sanitizer builds watch that) and without a large allocation.
#include "AllocationProbe.h"
#include "PackageBytes.h"

#include "framework/package/PackageReader.h"
#include "framework/package/PackageWriter.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

using namespace KVX;
using namespace ThemeTests;

namespace {

constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();
// Nothing here is larger than a few kilobytes; a reader that believed a forged size would ask
// for megabytes or more.
constexpr size_t kModestAllocation = 64 * 1024;

Bytes sample()
{
    return packageOf({{"images/a.png", textBytes("first entry, first entry, first entry")},
                      {"images/b.png", textBytes("second entry")},
                      {"skin.xml", textBytes("<Skin/>")}});
}

struct Outcome
{
    bool opened = false;
    PackageError openError = PackageError::kNone;
    bool extracted = false;
    PackageError extractError = PackageError::kNone;
    size_t largestAllocation = 0;
};

// Opens the package and, when it opens, extracts every file.
Outcome tryPackage(const Bytes& package)
{
    Outcome outcome;
    AllocationProbe probe;
    PackageReader reader;
    outcome.opened = reader.open(package);
    outcome.openError = reader.error();
    if (outcome.opened)
    {
        outcome.extracted = true;
        for (const PackageEntry& entry : reader.entries())
        {
            Bytes data;
            if (!entry.folder && !reader.extract(entry, data))
            {
                outcome.extracted = false;
                outcome.extractError = reader.error();
            }
        }
    }
    outcome.largestAllocation = probe.largest();
    return outcome;
}

void expectRefused(const Bytes& package, PackageError expected, const char* what)
{
    const Outcome outcome = tryPackage(package);
    EXPECT_FALSE(outcome.opened) << what;
    EXPECT_EQ(outcome.openError, expected) << what << ": " << describe(outcome.openError);
    EXPECT_LT(outcome.largestAllocation, kModestAllocation) << what;
}

void expectEntryRefused(const Bytes& package, PackageError expected, const char* what)
{
    const Outcome outcome = tryPackage(package);
    ASSERT_TRUE(outcome.opened) << what << ": " << describe(outcome.openError);
    EXPECT_FALSE(outcome.extracted) << what;
    EXPECT_EQ(outcome.extractError, expected) << what << ": " << describe(outcome.extractError);
    EXPECT_LT(outcome.largestAllocation, kModestAllocation) << what;
}

Bytes patched(Bytes package, const std::function<void(Bytes&)>& change)
{
    change(package);
    return package;
}

} // namespace

TEST(PackageHostile, SampleIsReadable)
{
    const Outcome outcome = tryPackage(sample());
    EXPECT_TRUE(outcome.opened);
    EXPECT_TRUE(outcome.extracted);
}

TEST(PackageHostile, WrongMagicOrTrailerIsRefused)
{
    const Bytes good = sample();
    expectRefused(Bytes(), PackageError::kTooSmall, "no bytes");
    expectRefused(Bytes(good.end() - 64, good.end()), PackageError::kTooSmall, "the trailer alone");
    expectRefused(patched(good, [](Bytes& b) { b[0] = 'X'; }), PackageError::kBadMagic, "head magic");
    expectRefused(patched(good, [](Bytes& b) { b.back() = 'X'; }), PackageError::kBadMagic, "trailer magic");
    expectRefused(patched(good, [](Bytes& b) { b.push_back(0); }), PackageError::kBadMagic, "a byte after the trailer");
    expectRefused(patched(good, [](Bytes& b) { writeLittleEndian(b, trailerAt(b) + 52, 65, 4); }),
                  PackageError::kBadTrailer, "trailer size");
    expectRefused(patched(good, [](Bytes& b) { writeLittleEndian(b, trailerAt(b) + 48, 2, 4); }),
                  PackageError::kBadTrailer, "format word");
    expectRefused(patched(good, [](Bytes& b) { writeLittleEndian(b, trailerAt(b) + 44, 4, 4); }),
                  PackageError::kUnsupported, "an option (encryption)");
}

TEST(PackageHostile, DirectoryOutsideTheFileIsRefused)
{
    const Bytes good = sample();
    const size_t end = trailerAt(good);
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, end, b.size(), 8); }),
                  PackageError::kDirectoryOutside, "directory past the end");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, end, 4, 8); }), PackageError::kDirectoryOutside,
                  "directory in the head");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, end + 8, kHuge, 8); }),
                  PackageError::kDirectoryOutside, "directory size that wraps around");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, end, kHuge - 2, 8); }),
                  PackageError::kDirectoryOutside, "directory offset that wraps around");
    expectRefused(
        patched(good, [&](Bytes& b) { writeLittleEndian(b, end + 8, readLittleEndian(b, end + 8, 8) + 1, 8); }),
        PackageError::kDirectoryOutside, "directory overlapping the trailer");
    expectRefused(
        patched(good, [&](Bytes& b) { writeLittleEndian(b, end + 8, readLittleEndian(b, end + 8, 8) - 1, 8); }),
        PackageError::kBadDirectory, "directory cut short");
}

TEST(PackageHostile, EntryThatInflatesToAnotherSizeIsRefused)
{
    const Bytes good = sample();
    const size_t original = fileOriginalSizeField(good, "a.png");
    const std::uint64_t size = readLittleEndian(good, original, 8);
    expectEntryRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, size + 1, 8); }),
                       PackageError::kSizeMismatch, "inflates to fewer bytes than declared");
    expectEntryRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, size - 1, 8); }),
                       PackageError::kSizeMismatch, "inflates to more bytes than declared");
    expectEntryRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, 0, 8); }),
                       PackageError::kSizeMismatch, "declared empty");

    const size_t offset = static_cast<size_t>(readLittleEndian(good, fileOffsetField(good, "a.png"), 8));
    const size_t stored = fileStoredSizeField(good, "a.png");
    const size_t end = offset + static_cast<size_t>(readLittleEndian(good, stored, 8));
    expectEntryRefused(patched(good, [&](Bytes& b) { b[end - 1] ^= 0xFF; }), PackageError::kBadData,
                       "a wrong checksum");
    expectEntryRefused(patched(good, [&](Bytes& b) { b[offset] = 0x00; }), PackageError::kBadData, "no zlib header");
    expectEntryRefused(
        patched(good, [&](Bytes& b) { writeLittleEndian(b, stored, readLittleEndian(b, stored, 8) - 3, 8); }),
        PackageError::kBadData, "stream cut short");
}

TEST(PackageHostile, ForgedSizesAllocateNothingLarge)
{
    const Bytes good = sample();
    const size_t original = fileOriginalSizeField(good, "b.png");
    const std::uint64_t stored = readLittleEndian(good, fileStoredSizeField(good, "b.png"), 8);
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, std::uint64_t(1) << 40, 8); }),
                  PackageError::kEntryTooLarge, "a terabyte");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, kHuge, 8); }),
                  PackageError::kEntryTooLarge, "the largest size");
    // Within the absolute limit, but more than deflate can expand the stored bytes to.
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, original, stored * 1033, 8); }),
                  PackageError::kEntryTooLarge, "beyond deflate's ratio");
}

TEST(PackageHostile, OverlappingOrOverflowingOffsetsAreRefused)
{
    const Bytes good = sample();
    const size_t aOffset = fileOffsetField(good, "a.png");
    const size_t bOffset = fileOffsetField(good, "b.png");
    const size_t bStored = fileStoredSizeField(good, "b.png");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, bOffset, readLittleEndian(b, aOffset, 8), 8); }),
                  PackageError::kEntriesOverlap, "two entries on the same bytes");
    expectRefused(
        patched(good, [&](Bytes& b) { writeLittleEndian(b, bOffset, readLittleEndian(b, aOffset, 8) + 1, 8); }),
        PackageError::kEntriesOverlap, "an entry inside another");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, bOffset, kHuge - 4, 8); }),
                  PackageError::kEntryOutside, "offset that wraps around");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, bOffset, 2, 8); }), PackageError::kEntryOutside,
                  "offset in the head");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, bOffset, directoryAt(b), 8); }),
                  PackageError::kEntryOutside, "data in the directory");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, bStored, b.size(), 8); }),
                  PackageError::kEntryOutside, "stored size past the end");
}

TEST(PackageHostile, ImpossibleChildCountsAreRefused)
{
    const Bytes good = sample();
    const size_t rootCount = directoryAt(good) + 8;
    EXPECT_EQ(readLittleEndian(good, rootCount, 4), 2u);
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, rootCount, 0xFFFFFFFF, 4); }),
                  PackageError::kTooManyChildren, "four billion children");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, rootCount, 3, 4); }), PackageError::kBadDirectory,
                  "one child more than the records");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, rootCount, 1, 4); }), PackageError::kBadDirectory,
                  "records after the tree");
    const size_t imagesCount = afterName(good, "images");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, imagesCount, 0x10000000, 4); }),
                  PackageError::kTooManyChildren, "a folder's count");
}

TEST(PackageHostile, DeepTreesAreRefused)
{
    std::string path;
    for (int level = 0; level < 40; ++level)
        path += "d/";
    const Bytes deep = packageOf({{path + "leaf", textBytes("x")}});
    expectRefused(deep, PackageError::kTooDeep, "forty folders deep");

    std::string shallow;
    for (int level = 0; level < 30; ++level)
        shallow += "d/";
    const Outcome outcome = tryPackage(packageOf({{shallow + "leaf", textBytes("x")}}));
    EXPECT_TRUE(outcome.opened) << "thirty folders are within the limit";
}

TEST(PackageHostile, MalformedRecordsAreRefused)
{
    const Bytes good = sample();
    const size_t directory = directoryAt(good);
    expectRefused(patched(good, [&](Bytes& b) { b[directory] = 'X'; }), PackageError::kBadDirectory, "root tag");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, directory + 4, 0, 4); }),
                  PackageError::kBadDirectory, "root flags");
    expectRefused(patched(good, [&](Bytes& b) { b[directory + 12] = 'X'; }), PackageError::kBadDirectory,
                  "unknown record tag");
    const size_t aName = afterName(good, "a.png") - 12; // the first of the five units of "a.png"
    const size_t aFlags = aName - 4;
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, aFlags, 6, 4); }), PackageError::kUnsupported,
                  "an encrypted file");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, aName, '/', 2); }), PackageError::kBadName,
                  "a slash in a name");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, aName, 0xD800, 2); }), PackageError::kBadName,
                  "an unpaired surrogate");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, aName, 0, 2); }), PackageError::kBadName,
                  "an empty name");
    expectRefused(patched(good, [&](Bytes& b) { writeLittleEndian(b, aName, 'b', 2); }), PackageError::kDuplicateName,
                  "two files of one name");

    // A name that never ends runs into the end of the directory, not past it.
    Bytes endless = sample();
    const size_t skinName = afterName(endless, "skin.xml") - 2;
    writeLittleEndian(endless, skinName, 'x', 2);
    for (size_t at = skinName; at + 2 <= trailerAt(endless); at += 2)
        writeLittleEndian(endless, at, 'x', 2);
    expectRefused(endless, PackageError::kBadDirectory, "an endless name");
}
