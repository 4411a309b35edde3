#include "TemporaryDirectory.h"

#include "framework/core/Ref.h"
#include "framework/data/Url.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/IFileReadStream.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;

namespace {

std::string fileUrl(const std::filesystem::path& path)
{
    return Url::fromNativePath(String(path.string())).toDisplayString().toUtf8();
}

void writeFile(const std::filesystem::path& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary);
    out << content;
}

class FileSystemTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_FALSE(directory.path().empty()); }

    // Opens `url` and expects `result`; returns the stream on success.
    Ref<IFileReadStream> open(const std::string& url, tresult expected = kResultOk)
    {
        IFileReadStream* stream = reinterpret_cast<IFileReadStream*>(uintptr_t(1));
        const tresult result = GetFileSystem()->openReadStream(url.c_str(), &stream);
        EXPECT_EQ(result, expected) << url << ": " << GetFileSystem()->getLastErrorText();
        if (result != kResultOk)
        {
            EXPECT_EQ(stream, nullptr);
        }
        return Ref<IFileReadStream>::adopt(result == kResultOk ? stream : nullptr);
    }
    std::string lastError() { return GetFileSystem()->getLastErrorText(); }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(FileSystemTest, ReadsAndSeeksAFileWhoseNameHasSpacesAndNonAsciiLetters)
{
    const auto path = directory.path() / "Gr\u00fc\u00dfe aus K\u00f6ln #1.wav";
    const std::string content = "RIFF....WAVEfmt and some more bytes";
    writeFile(path, content);

    const std::string url = fileUrl(path);
    ASSERT_NE(url.find("%20"), std::string::npos) << "the URL is encoded: " << url;
    auto stream = open(url);
    ASSERT_TRUE(stream);
    EXPECT_EQ(lastError(), "");

    char buffer[64] = {};
    EXPECT_EQ(stream->tell(), 0);
    EXPECT_EQ(stream->read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "RIFF");
    EXPECT_EQ(stream->tell(), 4);

    const auto size = static_cast<int64>(content.size());
    EXPECT_EQ(stream->seek(0, IStream::kSeekEnd), size) << "the end gives the size";
    EXPECT_EQ(stream->read(buffer, sizeof(buffer)), 0) << "nothing after the end";
    EXPECT_EQ(stream->seek(size + 100, IStream::kSeekSet), size + 100) << "beyond the end is allowed";
    EXPECT_EQ(stream->read(buffer, sizeof(buffer)), 0);

    EXPECT_EQ(stream->seek(-5, IStream::kSeekEnd), size - 5);
    EXPECT_EQ(stream->read(buffer, sizeof(buffer)), 5) << "a read stops at the end";
    EXPECT_EQ(std::string(buffer, 5), "bytes");
    EXPECT_EQ(stream->seek(-3, IStream::kSeekCurrent), size - 3);

    EXPECT_EQ(stream->seek(-1, IStream::kSeekSet), -1);
    EXPECT_EQ(stream->tell(), size - 3) << "a refused seek does not move";
    EXPECT_EQ(stream->seek(0, static_cast<IStream::SeekMode>(7)), -1);
    EXPECT_EQ(stream->write("x", 1), -1);
    EXPECT_EQ(stream->read(buffer, -1), -1);
    EXPECT_EQ(stream->read(nullptr, 1), -1);
    EXPECT_EQ(stream->read(buffer, 0), 0);

    void* asStream = nullptr;
    ASSERT_EQ(stream->queryInterface(IStream::kIID, &asStream), kResultOk);
    static_cast<IStream*>(asStream)->release();

    // The host part may name this machine.
    auto local = open("file://localhost" + url.substr(std::string("file://").size()));
    ASSERT_TRUE(local);
    EXPECT_EQ(local->read(buffer, 4), 4);
}

TEST_F(FileSystemTest, FilesBeyondFourGibibytesSeekAndReadWith64BitOffsets)
{
    const auto path = directory.path() / "large.raw";
    constexpr int64 kSize = (int64(5) << 30) + 7;
    constexpr int64 kMarkerAt = (int64(9) << 29) + 3; // 4.5 GiB and a little
    {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, kSize), 0) << "the file stays sparse";
        ASSERT_EQ(::pwrite(fd, "MARK", 4, kMarkerAt), 4);
        ::close(fd);
    }
    auto stream = open(fileUrl(path));
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->seek(0, IStream::kSeekEnd), kSize);
    EXPECT_EQ(stream->seek(kMarkerAt, IStream::kSeekSet), kMarkerAt);
    char buffer[8] = {};
    EXPECT_EQ(stream->read(buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "MARK");
    EXPECT_EQ(stream->tell(), kMarkerAt + 4);
    EXPECT_EQ(stream->seek(kSize - 3, IStream::kSeekSet), kSize - 3);
    EXPECT_EQ(stream->read(buffer, sizeof(buffer)), 3);
}

TEST_F(FileSystemTest, FilesThatCannotBeReadFailWithTheSystemsReason)
{
    const auto missing = directory.path() / "missing.wav";
    EXPECT_FALSE(open(fileUrl(missing), kUnexpected));
    EXPECT_EQ(lastError(), missing.string() + ": No such file or directory");

    EXPECT_FALSE(open(fileUrl(directory.path()), kUnexpected));
    EXPECT_EQ(lastError(), directory.path().string() + ": Is a directory");

    const auto fifo = directory.path() / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(open(fileUrl(fifo), kUnexpected)) << "refused without waiting for a writer";
    EXPECT_EQ(lastError(), fifo.string() + ": not a regular file");

    const auto loop = directory.path() / "loop";
    std::filesystem::create_symlink(loop, loop);
    EXPECT_FALSE(open(fileUrl(loop), kUnexpected));
    EXPECT_EQ(lastError(), loop.string() + ": Too many levels of symbolic links");

    const auto plain = directory.path() / "plain.txt";
    writeFile(plain, "x");
    EXPECT_FALSE(open(fileUrl(plain / "inside"), kUnexpected));
    EXPECT_EQ(lastError(), (plain / "inside").string() + ": Not a directory");

    // Permissions do not stop the superuser, so this case needs an ordinary user.
    if (geteuid() != 0)
    {
        const auto locked = directory.path() / "locked.wav";
        writeFile(locked, "secret");
        ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
        EXPECT_FALSE(open(fileUrl(locked), kUnexpected));
        EXPECT_EQ(lastError(), locked.string() + ": Permission denied");
    }

    // The text belongs to the thread that failed; a success clears it.
    std::thread([&] { EXPECT_TRUE(open(fileUrl(plain))); }).join();
    EXPECT_NE(lastError(), "");
    EXPECT_TRUE(open(fileUrl(plain)));
    EXPECT_EQ(lastError(), "");
}

TEST_F(FileSystemTest, AnythingButALocalFileUrlIsAnInvalidArgument)
{
    const auto plain = directory.path() / "plain.txt";
    writeFile(plain, "x");
    const std::string path = plain.string();
    const std::vector<std::string> urls = {
        "https://example.com" + path, "file://otherhost" + path, "file:" + path, path, "file://",
        "file://localhost", "file:///tmp/x?y=1", fileUrl(plain) + "?", fileUrl(plain) + "#part", ""};
    for (const std::string& url : urls)
    {
        EXPECT_FALSE(open(url, kInvalidArgument));
        EXPECT_NE(lastError(), "") << url;
    }
    EXPECT_TRUE(open("FILE://" + path)) << "the scheme has no letter case";

    IFileReadStream* stream = nullptr;
    EXPECT_EQ(GetFileSystem()->openReadStream(nullptr, &stream), kInvalidArgument);
    EXPECT_EQ(GetFileSystem()->openReadStream(fileUrl(plain).c_str(), nullptr), kInvalidArgument);
}
