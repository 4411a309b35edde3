#pragma once

#include "Digest.h"
#include "UploadForm.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace SorvelSandbox
{

// Writes an uploaded file to disk as it arrives and hashes it on the way. The bytes go to a ".part"
// file that becomes the final file only on commit, so a refused or broken upload never leaves a
// half-written file under the final name. A file that is neither committed nor discarded is removed
// when the object dies.
class UploadFile : public UploadForm::FileSink
{
public:
    // With `discardBytes` the bytes go nowhere and are not hashed: only their count and the head
    // are kept (for benchmarks whose subject is the client, not the server's disk).
    static std::unique_ptr<UploadFile> create(const std::filesystem::path& finalPath, std::string& error,
                                              bool discardBytes = false);
    ~UploadFile() override;

    bool write(const char* data, size_t length, std::string& error) override;
    // Closes the file, moves it to its final name and returns true; on failure the file is removed.
    bool commit(std::string& error);
    void discard();

    uint64_t size() const { return written; }
    // Valid after commit.
    const std::string& sha256() const { return digest; }
    // The play time in seconds when the file starts with a PCM WAV header, else 0.
    double durationSeconds() const;

private:
    UploadFile(std::filesystem::path finalPath, std::filesystem::path partPath, std::FILE* file);

    std::filesystem::path finalPath;
    std::filesystem::path partPath;
    std::FILE* file;
    Sha256 hash;
    uint64_t written = 0;
    std::string digest;
    std::string head; // the first bytes, enough to read a WAV header
    bool discardBytes = false;
};

} // namespace SorvelSandbox
