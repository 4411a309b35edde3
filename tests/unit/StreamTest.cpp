#include "framework/stream/MemoryStream.h"
#include "framework/stream/StreamChain.h"

#include <gtest/gtest.h>

#include <set>
#include <string_view>

#include <string>

using namespace KVX;

namespace {

std::string readAll(IStream& stream, int64 chunk = 7)
{
    std::string out;
    std::string buffer(static_cast<size_t>(chunk), '\0');
    for (;;)
    {
        int64 got = stream.read(buffer.data(), chunk);
        if (got <= 0)
        {
            EXPECT_EQ(got, 0) << "read failed";
            return out;
        }
        out.append(buffer.data(), static_cast<size_t>(got));
    }
}

Ref<MemoryStream> memory(std::string_view text)
{
    auto stream = makeRef<MemoryStream>();
    stream->write(text);
    stream->seek(0, IStream::kSeekSet);
    return stream;
}

} // namespace

TEST(MemoryStream, GrowsInStepsOf1024AndSeeksLikeAFile)
{
    auto stream = makeRef<MemoryStream>();
    EXPECT_EQ(stream->capacity(), 0u);
    stream->write("abc");
    EXPECT_EQ(stream->capacity(), 1024u);
    std::string block(1022, 'x');
    stream->write(block);
    EXPECT_EQ(stream->size(), 1025u);
    EXPECT_EQ(stream->capacity(), 2048u);

    EXPECT_EQ(stream->seek(1, IStream::kSeekSet), 1);
    char two[2];
    EXPECT_EQ(stream->read(two, 2), 2);
    EXPECT_EQ(std::string(two, 2), "bc");
    EXPECT_EQ(stream->seek(-1, IStream::kSeekEnd), 1024);
    EXPECT_EQ(stream->seek(-2000, IStream::kSeekCurrent), -1); // before the start: refused
    EXPECT_EQ(stream->tell(), 1024);

    // Writing past the end leaves zeros in the gap.
    auto sparse = makeRef<MemoryStream>(16);
    sparse->seek(4, IStream::kSeekSet);
    sparse->write("z");
    EXPECT_EQ(sparse->view(), std::string_view("\0\0\0\0z", 5));
    EXPECT_EQ(sparse->capacity(), 16u);
    char c;
    EXPECT_EQ(sparse->read(&c, 1), 0); // at the end
}

TEST(StreamChain, ReadsItsPiecesAsOneStreamOfKnownLength)
{
    auto chain = makeRef<StreamChain>();
    auto head = memory("--B\r\nheader\r\n\r\n");
    auto file = memory("SKIP:the file bytes:TAIL");
    file->seek(5, IStream::kSeekSet); // a piece starts where its stream stood when appended
    ASSERT_TRUE(chain->append(head, static_cast<int64>(head->size())));
    ASSERT_TRUE(chain->append(file, 14));
    ASSERT_TRUE(chain->append(memory(""), 0));
    ASSERT_TRUE(chain->append(memory("\r\n--B--\r\n"), 9));
    EXPECT_FALSE(chain->append(nullptr, 3));
    EXPECT_FALSE(chain->append(memory("x"), -1));

    const std::string expected = "--B\r\nheader\r\n\r\nthe file bytes\r\n--B--\r\n";
    EXPECT_EQ(chain->totalLength(), static_cast<int64>(expected.size()));
    EXPECT_EQ(readAll(*chain, 5), expected);

    // Rewinding (a transfer that starts again) and seeking into the middle of a piece.
    EXPECT_EQ(chain->seek(0, IStream::kSeekSet), 0);
    EXPECT_EQ(readAll(*chain, 64), expected);
    EXPECT_EQ(chain->seek(20, IStream::kSeekSet), 20);
    EXPECT_EQ(readAll(*chain, 3), expected.substr(20));
    EXPECT_EQ(chain->seek(1, IStream::kSeekEnd), -1);
    EXPECT_EQ(chain->write("x", 1), -1);
}

TEST(StreamChain, FailsInsteadOfSendingAShortBody)
{
    auto chain = makeRef<StreamChain>();
    chain->append(memory("abc"), 10); // promises more than the stream has
    char buffer[16];
    EXPECT_EQ(chain->read(buffer, sizeof buffer), -1);
}

TEST(StreamChain, HoldsItsPiecesUntilItIsReleased)
{
    auto piece = memory("abc");
    {
        auto chain = makeRef<StreamChain>();
        chain->append(piece, 3);
        EXPECT_EQ(piece->referenceCount(), 2u);
    }
    EXPECT_EQ(piece->referenceCount(), 1u);
}

TEST(MemoryStream, GrowsInWholeStepsGeometricallyAndKeepsItsContent)
{
    auto stream = makeRef<MemoryStream>(1024);
    std::set<size_t> capacities;
    for (int i = 0; i < 200000; ++i)
    {
        const char byte = static_cast<char>('a' + i % 26);
        ASSERT_EQ(stream->write(&byte, 1), 1);
        capacities.insert(stream->capacity());
        ASSERT_EQ(stream->capacity() % 1024, 0u) << "the step stays the unit";
    }
    // Growing by half again each time, 200000 bytes take about a dozen capacities; growing one
    // step at a time would take almost two hundred.
    EXPECT_LT(capacities.size(), 20u);
    EXPECT_EQ(stream->size(), 200000u);
    EXPECT_EQ(stream->tell(), 200000);
    for (size_t i = 0; i < stream->size(); i += 7919)
        ASSERT_EQ(stream->view()[i], static_cast<char>('a' + i % 26)) << i;

    // A write past the end after a seek fills the gap with zeros, also where the stream had to
    // grow for it, and positions stay exact.
    ASSERT_EQ(stream->seek(250000, IStream::kSeekSet), 250000);
    ASSERT_EQ(stream->write("end", 3), 3);
    EXPECT_EQ(stream->size(), 250003u);
    EXPECT_EQ(stream->view().substr(200000, 50000), std::string(50000, '\0'));
    EXPECT_EQ(stream->view()[199999], static_cast<char>('a' + 199999 % 26));
    ASSERT_EQ(stream->seek(-3, IStream::kSeekEnd), 250000);
    char back[3];
    ASSERT_EQ(stream->read(back, 3), 3);
    EXPECT_EQ(std::string_view(back, 3), "end");

    // Writing inside the content replaces bytes without growing it.
    ASSERT_EQ(stream->seek(10, IStream::kSeekSet), 10);
    ASSERT_EQ(stream->write("XY", 2), 2);
    EXPECT_EQ(stream->size(), 250003u);
    EXPECT_EQ(stream->view().substr(9, 4), std::string_view("jXYm"));

    // A small body still costs a single step.
    auto small = makeRef<MemoryStream>(1024);
    small->write("{\"a\":1}", 7);
    EXPECT_EQ(small->capacity(), 1024u);
}
