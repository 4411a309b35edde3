#include "framework/core/Ref.h"
#include "framework/services/SecurityServices.h"
#include "framework/stream/MemoryStream.h"
#include "ShellCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KVX;

namespace {

std::string hex(std::string_view bytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned char byte : bytes)
    {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

/// The digest of `input` as lower-case hexadecimal text, or the result code when it failed.
std::string digestHex(uint32 algorithm, std::string_view input)
{
    auto out = makeRef<MemoryStream>();
    tresult result = GetCryptoService()->computeDigest(algorithm, input.data(), input.size(), out);
    if (result != kResultOk)
        return "failed with " + std::to_string(result);
    return hex(out->view());
}

/// The first word that `program` (md5sum, sha1sum) prints for a file holding `bytes`.
std::string digestByProgram(const char* program, std::string_view bytes)
{
    char path[] = "/tmp/sorvel-digest-XXXXXX";
    int descriptor = mkstemp(path);
    if (descriptor < 0)
        return "no temporary file";
    close(descriptor);
    {
        std::ofstream file(path, std::ios::binary);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    auto command = SecurityTest::ShellCommand::run(std::string(program) + " " + path);
    std::remove(path);
    if (command.exitStatus != 0)
        return std::string(program) + " failed";
    return command.output.substr(0, command.output.find(' '));
}

/// A memory stream that takes at most `limit` bytes in all, like a full disk.
class FullStream : public MemoryStream
{
public:
    explicit FullStream(int64 limit) : limit_(limit) {}

    using MemoryStream::write;
    int64 write(const void* buffer, int64 size) override
    {
        int64 room = limit_ - static_cast<int64>(this->size());
        if (room <= 0)
            return -1;
        return MemoryStream::write(buffer, std::min(size, room));
    }

private:
    int64 limit_;
};

} // namespace

TEST(Digest, Md5MatchesTheReferenceTestSuite)
{
    const std::pair<std::string_view, std::string_view> vectors[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& [input, expected] : vectors)
        EXPECT_EQ(digestHex(ICryptoService::kMD5, input), expected) << "input \"" << input << "\"";
}

TEST(Digest, Sha1MatchesThePublishedExamples)
{
    EXPECT_EQ(digestHex(ICryptoService::kSHA1, "abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(digestHex(ICryptoService::kSHA1, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
    EXPECT_EQ(digestHex(ICryptoService::kSHA1, std::string(1'000'000, 'a')),
              "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    EXPECT_EQ(digestHex(ICryptoService::kSHA1, ""), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(Digest, HashesEveryByteLikeTheCoreutilsPrograms)
{
    // UTF-8 text with two- and three-byte characters, and binary data with NUL bytes in it (the
    // length counts, not a terminator).
    std::string binary;
    for (int round = 0; round < 3; ++round)
        for (int byte = 0; byte < 256; ++byte)
            binary += static_cast<char>(byte);
    const std::string inputs[] = {"P\xC3\xA4ssw\xC3\xB6rd\xE2\x82\xAC", binary};
    for (const auto& input : inputs)
    {
        EXPECT_EQ(digestHex(ICryptoService::kMD5, input), digestByProgram("md5sum", input));
        EXPECT_EQ(digestHex(ICryptoService::kSHA1, input), digestByProgram("sha1sum", input));
    }
}

TEST(Digest, WritesTheRawDigestAfterWhatTheStreamHolds)
{
    auto out = makeRef<MemoryStream>();
    out->write(std::string_view("prefix:"));
    ASSERT_EQ(GetCryptoService()->computeDigest(ICryptoService::kMD5, "abc", 3, out), kResultOk);
    ASSERT_EQ(out->size(), 7u + 16u);
    EXPECT_EQ(out->view().substr(0, 7), "prefix:");
    EXPECT_EQ(hex(out->view().substr(7)), "900150983cd24fb0d6963f7d28e17f72");

    out->clear();
    ASSERT_EQ(GetCryptoService()->computeDigest(ICryptoService::kSHA1, "abc", 3, out), kResultOk);
    EXPECT_EQ(out->size(), 20u);
}

TEST(Digest, RejectsInvalidArgumentsAndWritesNothing)
{
    ICryptoService* crypto = GetCryptoService();
    auto out = makeRef<MemoryStream>();
    for (uint32 algorithm : {0u, 3u, 0xFFFFFFFFu})
        EXPECT_EQ(crypto->computeDigest(algorithm, "abc", 3, out), kInvalidArgument) << algorithm;
    EXPECT_EQ(crypto->computeDigest(ICryptoService::kMD5, "abc", 3, nullptr), kInvalidArgument);
    EXPECT_EQ(crypto->computeDigest(ICryptoService::kSHA1, nullptr, 1, out), kInvalidArgument);
    EXPECT_EQ(out->size(), 0u);

    // No data at all is the empty input.
    ASSERT_EQ(crypto->computeDigest(ICryptoService::kMD5, nullptr, 0, out), kResultOk);
    EXPECT_EQ(hex(out->view()), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Digest, ReportsAStreamThatCannotTakeTheDigest)
{
    ICryptoService* crypto = GetCryptoService();
    auto refusing = makeRef<FullStream>(0);
    EXPECT_EQ(crypto->computeDigest(ICryptoService::kMD5, "abc", 3, refusing), kUnexpected);
    auto shortOfRoom = makeRef<FullStream>(19);
    EXPECT_EQ(crypto->computeDigest(ICryptoService::kSHA1, "abc", 3, shortOfRoom), kUnexpected);
    auto roomEnough = makeRef<FullStream>(20);
    EXPECT_EQ(crypto->computeDigest(ICryptoService::kSHA1, "abc", 3, roomEnough), kResultOk);
}

TEST(Digest, ServesConcurrentCallersFromOneProcessWideService)
{
    ICryptoService* crypto = GetCryptoService();
    EXPECT_EQ(GetCryptoService(), crypto);
    void* asked = nullptr;
    ASSERT_EQ(crypto->queryInterface(ICryptoService::kIID, &asked), kResultOk);
    EXPECT_EQ(asked, crypto);
    crypto->release();

    // Each thread hashes its own input many times; any state shared between calls would show
    // up as a wrong digest (and as a race under ThreadSanitizer).
    const std::string inputs[] = {"abc", "message digest", std::string(4096, 'x'), ""};
    std::string expected[4];
    for (int i = 0; i < 4; ++i)
        expected[i] = digestHex(i % 2 ? ICryptoService::kSHA1 : ICryptoService::kMD5, inputs[i]);
    int mismatches[4] = {};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] {
            for (int round = 0; round < 200; ++round)
                if (digestHex(i % 2 ? ICryptoService::kSHA1 : ICryptoService::kMD5, inputs[i]) != expected[i])
                    ++mismatches[i];
        });
    for (auto& thread : threads)
        thread.join();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(mismatches[i], 0) << "thread " << i;
}
