#include "host/render/PendingOutputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

#include <fcntl.h>
#include <unistd.h>

namespace Host {

namespace {

std::string systemError(int code)
{
    return std::strerror(code);
}

} // namespace

PendingOutputFile::PendingOutputFile(std::filesystem::path finalPath) : finalPath_(std::move(finalPath)) {}

PendingOutputFile::~PendingOutputFile()
{
    discard();
}

bool PendingOutputFile::create(std::string& error)
{
    discard();
    if (finalPath_.filename().empty())
    {
        error = "the output path names no file";
        return false;
    }
    std::random_device entropy;
    std::mt19937_64 random((static_cast<std::uint64_t>(entropy()) << 32) ^ entropy());
    int lastError = 0;
    // A clash with another writer's hidden file is retried under a new name; anything else is final.
    for (int attempt = 0; attempt < 16; ++attempt)
    {
        char suffix[17];
        std::snprintf(suffix, sizeof suffix, "%016llx", static_cast<unsigned long long>(random()));
        std::filesystem::path candidate = finalPath_;
        candidate.replace_filename("." + finalPath_.filename().string() + "." + suffix + ".part");
        const int descriptor = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor >= 0)
        {
            descriptor_ = descriptor;
            partPath_ = std::move(candidate);
            return true;
        }
        lastError = errno;
        if (lastError != EEXIST)
            break;
    }
    error = lastError == ENOENT ? "the folder does not exist" : systemError(lastError);
    return false;
}

bool PendingOutputFile::commit(std::string& error)
{
    if (descriptor_ < 0)
    {
        error = "the output file is not open";
        return false;
    }
    // Disk-full and quota errors can surface only when the data reaches the disk.
    if (::fsync(descriptor_) != 0)
    {
        error = systemError(errno);
        discard();
        return false;
    }
    const int closed = ::close(descriptor_);
    const int closeError = errno;
    descriptor_ = -1;
    if (closed != 0)
    {
        error = systemError(closeError);
        discard();
        return false;
    }
    if (::rename(partPath_.c_str(), finalPath_.c_str()) != 0)
    {
        error = systemError(errno);
        discard();
        return false;
    }
    partPath_.clear();
    return true;
}

void PendingOutputFile::discard()
{
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
    if (!partPath_.empty())
        ::unlink(partPath_.c_str());
    partPath_.clear();
}

} // namespace Host
