// A 1 GiB upload streams through the sandbox without its memory growing with the file: the body is
// produced piece by piece by a libcurl read callback, and the process's peak resident set size is
// compared before and after.

#include "SandboxFixture.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace SandboxTesting;

namespace
{

// The file's bytes: a counter mixed by splitmix64, produced in blocks, so any byte can be made
// again and none of them needs to be stored.
class FileBytes
{
public:
    explicit FileBytes(uint64_t size) : remaining(size), block(kBlock) {}

    size_t read(char* buffer, size_t room)
    {
        size_t written = 0;
        while (written < room && remaining > 0)
        {
            if (offset == block.size())
                refill();
            const size_t take = std::min<uint64_t>({room - written, block.size() - offset, remaining});
            std::copy_n(block.data() + offset, take, buffer + written);
            hash.update(block.data() + offset, take);
            offset += take;
            written += take;
            remaining -= take;
        }
        return written;
    }

    std::string sha256() { return hash.hex(); }

private:
    static constexpr size_t kBlock = 1 << 16;

    void refill()
    {
        for (size_t i = 0; i < block.size(); i += 8)
        {
            uint64_t z = (counter += 0x9e3779b97f4a7c15ULL);
            z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
            z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
            z ^= z >> 31;
            std::memcpy(block.data() + i, &z, 8);
        }
        offset = 0;
    }

    uint64_t remaining;
    std::vector<char> block;
    size_t offset = kBlock;
    uint64_t counter = 0;
    Sha256 hash;
};

} // namespace

TEST_F(SandboxTest, AGigabyteUploadKeepsTheServersMemoryFlat)
{
    const SignedIn session = signInAsDemo(http, sandbox);
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    const std::string boundary = "----------------------------XXBOUNDARY4242";
    const std::string head = uploadBodyHead(boundary, ticket.fields, "long.wav");
    const std::string tail = uploadBodyTail(boundary);
    const uint64_t fileSize = uint64_t{1} << 30;

    FileBytes file(fileSize);
    size_t headSent = 0, tailSent = 0;
    uint64_t fileSent = 0;
    auto produce = [&](char* buffer, size_t room) -> size_t {
        if (headSent < head.size())
        {
            const size_t take = std::min(room, head.size() - headSent);
            std::copy_n(head.data() + headSent, take, buffer);
            headSent += take;
            return take;
        }
        if (fileSent < fileSize)
        {
            const size_t take = file.read(buffer, room);
            fileSent += take;
            return take;
        }
        const size_t take = std::min(room, tail.size() - tailSent);
        std::copy_n(tail.data() + tailSent, take, buffer);
        tailSent += take;
        return take;
    };

    const uint64_t peakBefore = peakResidentBytes();
    HttpReply reply = http.postStream(ticket.url, uploadContentType(boundary), head.size() + fileSize + tail.size(), produce);
    const uint64_t peakAfter = peakResidentBytes();

    RecordProperty("peak_rss_growth_bytes", std::to_string(peakAfter - peakBefore));
    ASSERT_EQ(reply.result, CURLE_OK);
    EXPECT_EQ(reply.status, 201) << reply.body;
    const std::vector<SorvelSandbox::StoredFile> stored = sandbox.storedFiles();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].size, fileSize);
    EXPECT_EQ(stored[0].sha256, file.sha256());
    // Client and server share this process; together they may grow by far less than the file.
    EXPECT_LT(peakAfter - peakBefore, uint64_t{64} << 20) << "peak RSS grew from " << peakBefore << " to " << peakAfter;
}
