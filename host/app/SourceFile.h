#pragma once

#include "framework/data/Attributes.h"
#include "framework/services/AudioFormat.h"
#include "framework/services/FileType.h"

#include <filesystem>
#include <string>

namespace Host {

/// An audio file given on the command line: its format as a publisher sees it, and the
/// "Media:" metadata its tags carry (every key SourceTags reads, and its length).
struct SourceFile
{
    std::filesystem::path path;
    KVX::FileType fileType{};
    KVX::AudioFormat format{};
    KVX::Attributes metadata;

    /// Reads `path` with libsndfile; false with a sentence in `error` when it is missing or not
    /// audio that can be read.
    static bool open(const std::filesystem::path& path, SourceFile& file, std::string& error);
};

} // namespace Host
