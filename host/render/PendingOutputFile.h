#pragma once

#include <filesystem>
#include <string>

namespace Host {

/// An output file that appears under its name only once it is complete. It is written as a hidden
/// file beside the final one (".<name>.<random>.part", in the same folder so that the final
/// rename stays on one file system) and renamed over the final name by commit. Until then the
/// final name is untouched: a failed or cancelled render leaves no partial file behind and does
/// not destroy an earlier file of that name. Destroying an uncommitted file removes it.
class PendingOutputFile
{
public:
    explicit PendingOutputFile(std::filesystem::path finalPath);
    ~PendingOutputFile();

    PendingOutputFile(const PendingOutputFile&) = delete;
    PendingOutputFile& operator=(const PendingOutputFile&) = delete;

    /// Creates the hidden file; false with `error` set when the folder does not take it.
    bool create(std::string& error);
    /// The open descriptor of the hidden file (owned by this object), -1 before create.
    int descriptor() const { return descriptor_; }

    /// Flushes the hidden file to disk, closes it and renames it to the final name. False with
    /// `error` set when any step fails; the hidden file is removed then.
    bool commit(std::string& error);
    /// Closes and removes the hidden file; nothing happens when it is committed or was never made.
    void discard();

    const std::filesystem::path& finalPath() const { return finalPath_; }

private:
    std::filesystem::path finalPath_;
    std::filesystem::path partPath_;
    int descriptor_ = -1;
};

} // namespace Host
