#include "UploadFile.h"

#include <cerrno>
#include <cstring>

namespace SorvelSandbox
{

namespace
{

constexpr size_t kHeadBytes = 4096;
constexpr size_t kWriteBuffer = 1 << 20;

uint32_t littleEndian32(const std::string& bytes, size_t at)
{
    return static_cast<uint32_t>(static_cast<unsigned char>(bytes[at])) |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 1])) << 8 |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 2])) << 16 |
           static_cast<uint32_t>(static_cast<unsigned char>(bytes[at + 3])) << 24;
}

} // namespace

std::unique_ptr<UploadFile> UploadFile::create(const std::filesystem::path& finalPath, std::string& error,
                                               bool discardBytes)
{
    if (discardBytes)
    {
        std::unique_ptr<UploadFile> sink(new UploadFile(finalPath, {}, nullptr));
        sink->discardBytes = true;
        return sink;
    }
    std::filesystem::path partPath = finalPath;
    partPath += ".part";
    std::FILE* file = std::fopen(partPath.c_str(), "wb");
    if (file == nullptr)
    {
        error = "cannot create " + partPath.string() + ": " + std::strerror(errno);
        return nullptr;
    }
    std::setvbuf(file, nullptr, _IOFBF, kWriteBuffer);
    return std::unique_ptr<UploadFile>(new UploadFile(finalPath, std::move(partPath), file));
}

UploadFile::UploadFile(std::filesystem::path finalPath, std::filesystem::path partPath, std::FILE* file)
    : finalPath(std::move(finalPath)), partPath(std::move(partPath)), file(file)
{
}

UploadFile::~UploadFile()
{
    discard();
}

bool UploadFile::write(const char* data, size_t length, std::string& error)
{
    if (discardBytes)
    {
        if (head.size() < kHeadBytes)
            head.append(data, std::min(length, kHeadBytes - head.size()));
        written += length;
        return true;
    }
    if (file == nullptr)
    {
        error = "the upload file is closed";
        return false;
    }
    if (std::fwrite(data, 1, length, file) != length)
    {
        error = "cannot write the uploaded file: " + std::string(std::strerror(errno));
        return false;
    }
    hash.update(data, length);
    if (head.size() < kHeadBytes)
        head.append(data, std::min(length, kHeadBytes - head.size()));
    written += length;
    return true;
}

bool UploadFile::commit(std::string& error)
{
    if (discardBytes)
    {
        digest = "discarded";
        return true;
    }
    if (file == nullptr)
    {
        error = "the upload file is closed";
        return false;
    }
    const bool closed = std::fclose(file) == 0;
    file = nullptr;
    std::error_code renamed;
    if (closed)
        std::filesystem::rename(partPath, finalPath, renamed);
    if (!closed || renamed)
    {
        error = "cannot store the uploaded file: " + (closed ? renamed.message() : std::string(std::strerror(errno)));
        std::error_code ignored;
        std::filesystem::remove(partPath, ignored);
        return false;
    }
    digest = hash.finishHex();
    return true;
}

void UploadFile::discard()
{
    if (file == nullptr)
        return;
    std::fclose(file);
    file = nullptr;
    std::error_code ignored;
    std::filesystem::remove(partPath, ignored);
}

double UploadFile::durationSeconds() const
{
    // RIFF header, then chunks of a four-letter id and a 32-bit length; "fmt " gives the byte rate
    // and "data" the length of the samples.
    if (head.size() < 12 || head.compare(0, 4, "RIFF") != 0 || head.compare(8, 4, "WAVE") != 0)
        return 0.0;
    uint32_t byteRate = 0;
    size_t at = 12;
    while (at + 8 <= head.size())
    {
        const uint32_t length = littleEndian32(head, at + 4);
        if (head.compare(at, 4, "fmt ") == 0 && length >= 16 && at + 8 + 12 <= head.size())
            byteRate = littleEndian32(head, at + 8 + 8);
        else if (head.compare(at, 4, "data") == 0)
        {
            if (byteRate == 0)
                return 0.0;
            // A streamed WAV may declare a bigger data length than it has; the file size decides.
            const uint64_t available = written > at + 8 ? written - (at + 8) : 0;
            return static_cast<double>(std::min<uint64_t>(length, available)) / byteRate;
        }
        at += 8 + length + (length & 1);
    }
    return 0.0;
}

} // namespace SorvelSandbox
