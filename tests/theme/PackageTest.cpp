// The package format: what the writer lays out and the reader gives back.
#include "PackageBytes.h"

#include "framework/package/PackageReader.h"
#include "framework/package/PackageWriter.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

using namespace KVX;
using namespace ThemeTests;

namespace {

Bytes randomBytes(size_t size, unsigned seed)
{
    std::mt19937 generator(seed);
    Bytes bytes(size);
    for (auto& byte : bytes)
        byte = static_cast<std::uint8_t>(generator());
    return bytes;
}

Bytes repeated(std::string_view text, int times)
{
    Bytes bytes;
    for (int i = 0; i < times; ++i)
        bytes.insert(bytes.end(), text.begin(), text.end());
    return bytes;
}

std::vector<std::string> paths(const PackageReader& reader)
{
    std::vector<std::string> result;
    for (const PackageEntry& entry : reader.entries())
        result.push_back(entry.folder ? entry.path + "/" : entry.path);
    return result;
}

} // namespace

TEST(PackageRoundTrip, FolderTreeKeepsPathsTimesAndBytesInDirectoryOrder)
{
    const PackageTime time{2024, 2, 29, 23, 59, 58, 999};
    const Bytes skin = repeated("<Skin/>", 300);
    const Bytes logo = randomBytes(700, 1);
    const Bytes deep = repeated("deep", 50);

    PackageWriter writer;
    writer.setIdentifier(
        {0x8E, 0x3C, 0x5A, 0x17, 0x4D, 0x92, 0x4B, 0x6E, 0xA1, 0xF0, 0x6C, 0x2D, 0x9B, 0x7E, 0x3F, 0x15});
    ASSERT_TRUE(writer.addFile("images/Logo.png", logo, time));
    ASSERT_TRUE(writer.addFile("images/icons/a/b/deep.txt", deep, time));
    ASSERT_TRUE(writer.addFolder("empty"));
    ASSERT_TRUE(writer.addFile("skin.xml", skin, time));
    ASSERT_TRUE(writer.addFile("nothing.txt", {}, time));
    Bytes package;
    ASSERT_TRUE(writer.write(package));

    ASSERT_GE(package.size(), 72u);
    EXPECT_EQ(std::string(package.begin(), package.begin() + 8), "PACKAGEF");
    EXPECT_EQ(std::string(package.end() - 8, package.end()), "PACKAGEF");
    EXPECT_EQ(readLittleEndian(package, trailerAt(package) + 44, 4), 0u);
    EXPECT_EQ(readLittleEndian(package, trailerAt(package) + 48, 4), 1u);
    EXPECT_EQ(readLittleEndian(package, trailerAt(package) + 52, 4), 64u);
    EXPECT_EQ(readLittleEndian(package, trailerAt(package) + 16, 8), 0u);
    EXPECT_EQ(readLittleEndian(package, trailerAt(package) + 24, 4), 0u);

    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    EXPECT_EQ(reader.identifier()[0], 0x8E);
    EXPECT_EQ(reader.identifier()[15], 0x15);
    // Depth first, each folder's children in the order they were added.
    EXPECT_EQ(paths(reader), (std::vector<std::string>{"images/", "images/Logo.png", "images/icons/", "images/icons/a/",
                                                       "images/icons/a/b/", "images/icons/a/b/deep.txt", "empty/",
                                                       "skin.xml", "nothing.txt"}));

    // The stored bytes lie back to back from offset 8 in directory order, and the directory
    // follows them.
    uint64 expectedOffset = 8;
    for (const PackageEntry& entry : reader.entries())
    {
        if (entry.folder)
            continue;
        EXPECT_EQ(entry.dataOffset, expectedOffset) << entry.path;
        EXPECT_TRUE(entry.compressed);
        EXPECT_EQ(entry.modified, time);
        expectedOffset += entry.storedSize;
    }
    EXPECT_EQ(directoryAt(package), expectedOffset);

    Bytes data;
    ASSERT_TRUE(reader.extract("skin.xml", data));
    EXPECT_EQ(data, skin);
    EXPECT_LT(reader.find("skin.xml")->storedSize, skin.size());
    ASSERT_TRUE(reader.extract("images/Logo.png", data));
    EXPECT_EQ(data, logo);
    ASSERT_TRUE(reader.extract("images/icons/a/b/deep.txt", data));
    EXPECT_EQ(data, deep);
    ASSERT_TRUE(reader.extract("nothing.txt", data));
    EXPECT_TRUE(data.empty());

    ASSERT_NE(reader.find("empty"), nullptr);
    EXPECT_TRUE(reader.find("empty")->folder);
    EXPECT_FALSE(reader.extract("empty", data));
    EXPECT_EQ(reader.error(), PackageError::kNotFound);
    // Names are case-sensitive and found by their full path only.
    EXPECT_EQ(reader.find("Skin.xml"), nullptr);
    EXPECT_EQ(reader.find("Logo.png"), nullptr);
    EXPECT_FALSE(reader.extract("images/logo.png", data));
}

TEST(PackageRoundTrip, StoredSizeMayExceedOriginalSize)
{
    // Random bytes, like the data of a PNG file, do not compress: the zlib stream is larger.
    const Bytes noise = randomBytes(4096, 2);
    const Bytes package = packageOf({{"images/noise.png", noise}});
    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    const PackageEntry* entry = reader.find("images/noise.png");
    ASSERT_NE(entry, nullptr);
    EXPECT_GT(entry->storedSize, entry->originalSize);
    Bytes data;
    ASSERT_TRUE(reader.extract(*entry, data));
    EXPECT_EQ(data, noise);
}

TEST(PackageRoundTrip, NonAsciiNamesTravelAsUtf16)
{
    const std::string umlaut = "Bilder/\xC3\x9C"
                               "ber.png";                                // Über
    const std::string cjk = "\xE9\x9F\xB3\xE6\xA5\xBD/\xE6\x9B\xB2.wav"; // 音楽/曲.wav
    const std::string emoji = "\xF0\x9F\x8E\xB5.txt";                    // U+1F3B5, a surrogate pair
    const Bytes package = packageOf({{umlaut, textBytes("u")}, {cjk, textBytes("c")}, {emoji, textBytes("e")}});

    // In the directory the names are UTF-16LE: "Ü" is DC 00, U+1F3B5 is D83C DFB5.
    const Bytes umlautUnits = {0xDC, 0x00, 'b', 0x00, 'e', 0x00, 'r', 0x00};
    const Bytes emojiUnits = {0x3C, 0xD8, 0xB5, 0xDF, '.', 0x00};
    EXPECT_NE(std::search(package.begin(), package.end(), umlautUnits.begin(), umlautUnits.end()), package.end());
    EXPECT_NE(std::search(package.begin(), package.end(), emojiUnits.begin(), emojiUnits.end()), package.end());

    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    Bytes data;
    ASSERT_TRUE(reader.extract(umlaut, data));
    EXPECT_EQ(data, textBytes("u"));
    ASSERT_TRUE(reader.extract(cjk, data));
    EXPECT_EQ(data, textBytes("c"));
    ASSERT_TRUE(reader.extract(emoji, data));
    EXPECT_EQ(data, textBytes("e"));
    ASSERT_NE(reader.find("Bilder"), nullptr);
    EXPECT_TRUE(reader.find("Bilder")->folder);
}

TEST(PackageRoundTrip, RootWithOnlyFilesIsValid)
{
    const Bytes package = packageOf({{"skin.xml", textBytes("<Skin/>")}, {"readme.txt", textBytes("hello")}});
    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    EXPECT_EQ(paths(reader), (std::vector<std::string>{"skin.xml", "readme.txt"}));
    Bytes data;
    ASSERT_TRUE(reader.extract("readme.txt", data));
    EXPECT_EQ(data, textBytes("hello"));

    // An empty root is a package too.
    PackageWriter empty;
    Bytes nothing;
    ASSERT_TRUE(empty.write(nothing));
    ASSERT_TRUE(reader.open(nothing)) << describe(reader.error());
    EXPECT_TRUE(reader.entries().empty());
}

TEST(PackageRoundTrip, UncompressedEntriesAreStoredAsTheyAre)
{
    PackageWriter writer;
    ASSERT_TRUE(writer.addFile("plain.bin", textBytes("as it is"), PackageTime{}, false));
    Bytes package;
    ASSERT_TRUE(writer.write(package));
    EXPECT_EQ(std::string(package.begin() + 8, package.begin() + 16), "as it is");
    PackageReader reader;
    ASSERT_TRUE(reader.open(package));
    EXPECT_FALSE(reader.find("plain.bin")->compressed);
    Bytes data;
    ASSERT_TRUE(reader.extract("plain.bin", data));
    EXPECT_EQ(data, textBytes("as it is"));
}

TEST(PackageWriterPaths, MalformedOrTakenPathsAreRefused)
{
    PackageWriter writer;
    const Bytes some = textBytes("x");
    EXPECT_TRUE(writer.addFile("images/a.png", some, PackageTime{}));
    EXPECT_FALSE(writer.addFile("images/a.png", some, PackageTime{})) << "the same path twice";
    EXPECT_FALSE(writer.addFile("images/a.png/b.png", some, PackageTime{})) << "a file used as a folder";
    EXPECT_FALSE(writer.addFolder("images/a.png")) << "a folder where a file is";
    EXPECT_FALSE(writer.addFile("images", some, PackageTime{})) << "a file where a folder is";
    for (const char* path :
         {"", "/a", "a/", "a//b", "./a", "a/../b", "tab\there", "bad\xC3", "\xC0\xAF", "\xED\xA0\x80"})
        EXPECT_FALSE(writer.addFile(path, some, PackageTime{})) << path;
    EXPECT_FALSE(writer.addFile(std::string(1025, 'n'), some, PackageTime{})) << "a name beyond 1024 units";
    EXPECT_TRUE(writer.addFile(std::string(1024, 'n'), some, PackageTime{}));
}

TEST(PackageTool, PacksMergedFoldersInNameOrderAndListsThem)
{
    namespace fs = std::filesystem;
    const fs::path work = fs::temp_directory_path() / ("sorvel-pack-test-" + std::to_string(::getpid()));
    fs::remove_all(work);
    auto write = [](const fs::path& path, std::string_view text) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    };
    write(work / "one/skin.xml", "<Skin/>");
    write(work / "one/images/b.png", "bee");
    write(work / "one/.hidden", "left out");
    write(work / "two/images/a.png", "ay");
    write(work / "two/about.txt", "about");
    const fs::path output = work / "OUT.SKIN";

    const std::string command = std::string(BuildPaths::packTool()) +
                                " --identifier {8E3C5A17-4D92-4B6E-A1F0-6C2D9B7E3F15} " + output.string() + " " +
                                (work / "one").string() + " " + (work / "two").string();
    ASSERT_EQ(std::system(command.c_str()), 0) << command;

    std::ifstream in(output, std::ios::binary);
    const Bytes package((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    PackageReader reader;
    ASSERT_TRUE(reader.open(package)) << describe(reader.error());
    // Folders first, then files, each in name order; the two folders merged into one root.
    EXPECT_EQ(paths(reader),
              (std::vector<std::string>{"images/", "images/a.png", "images/b.png", "about.txt", "skin.xml"}));
    EXPECT_EQ(reader.identifier()[0], 0x8E);
    Bytes data;
    ASSERT_TRUE(reader.extract("images/a.png", data));
    EXPECT_EQ(data, textBytes("ay"));

    // The same path from two folders is refused, and nothing is written.
    write(work / "two/skin.xml", "<Other/>");
    fs::remove(output);
    const std::string clash = std::string(BuildPaths::packTool()) + " " + output.string() + " " + (work / "one").string() +
                              " " + (work / "two").string() + " 2>/dev/null";
    EXPECT_NE(std::system(clash.c_str()), 0);
    EXPECT_FALSE(fs::exists(output));
    fs::remove_all(work);
}
