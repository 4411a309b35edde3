// The digests by which the ledger tells a changed file or changed metadata: the file's against
// coreutils' sha256sum, the metadata's canonical form spelled out.
#include "host/ledger/Sha256.h"
#include "tests/system/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <set>

namespace {

namespace fs = std::filesystem;

/// What coreutils computes for `file`: an implementation apart from the one under test.
std::string sha256sum(const fs::path& file)
{
    const std::string command = "sha256sum '" + file.string() + "'";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        return {};
    char digest[65] = {};
    const size_t got = std::fread(digest, 1, 64, pipe);
    ::pclose(pipe);
    return std::string(digest, got);
}

void writeFile(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string digestOf(const fs::path& path)
{
    std::string digest, error;
    EXPECT_TRUE(Host::sha256OfFile(path, digest, error)) << error;
    return digest;
}

TEST(LedgerDigest, AFileIsDigestedWholeWhateverItsSize)
{
    TemporaryDirectory folder;
    ASSERT_FALSE(folder.path().empty());
    const fs::path empty = folder.path() / "empty", abc = folder.path() / "abc", large = folder.path() / "large.wav";
    writeFile(empty, "");
    writeFile(abc, "abc");
    // Over many read pieces, and not a whole number of them.
    std::mt19937 random(7);
    std::string bytes(3 * 64 * 1024 + 17, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    writeFile(large, bytes);

    EXPECT_EQ(digestOf(empty), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf(abc), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(digestOf(large), sha256sum(large));
    bytes.back() ^= 1;
    writeFile(large, bytes);
    EXPECT_EQ(digestOf(large), sha256sum(large)) << "one bit changed at the end";

    std::string digest = "kept", error;
    EXPECT_FALSE(Host::sha256OfFile(folder.path() / "missing.wav", digest, error));
    EXPECT_NE(error.find("missing.wav"), std::string::npos) << error;
    EXPECT_FALSE(Host::sha256OfFile(folder.path(), digest, error)) << "a folder is no file";
    EXPECT_FALSE(error.empty());
}

TEST(LedgerDigest, MetadataIsDigestedInOneCanonicalFormThatNoOtherEntriesShare)
{
    TemporaryDirectory folder;
    ASSERT_FALSE(folder.path().empty());
    // The canonical text, spelled out: sorted lines "key=value", each ended by a line feed.
    const fs::path text = folder.path() / "canonical";
    writeFile(text, "Media:Artist=Belvane\nMedia:Title=Night Drive\nMedia:Year=2026\n");
    const std::map<std::string, std::string> fields = {
        {"Media:Title", "Night Drive"}, {"Media:Year", "2026"}, {"Media:Artist", "Belvane"}};
    EXPECT_EQ(Host::sha256OfMetadata(fields), sha256sum(text));
    EXPECT_EQ(Host::sha256OfMetadata({}), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

    // Entries that a plain join would run together stay apart.
    const std::vector<std::map<std::string, std::string>> distinct = {
        {{"a", "1"}, {"b", "2"}}, {{"a", "1\nb=2"}}, {{"a", "1\\nb=2"}}, {{"a=1", "b"}},
        {{"a", "1=b"}},           {{"a", "1"}},      {{"a", "1 "}},      {{"a", ""}},
        {{"a", "1"}, {"b", ""}},
    };
    std::set<std::string> digests;
    for (const auto& entries : distinct)
        digests.insert(Host::sha256OfMetadata(entries));
    EXPECT_EQ(digests.size(), distinct.size());
    for (const std::string& digest : digests)
        EXPECT_EQ(digest.size(), 64u);
}

} // namespace
