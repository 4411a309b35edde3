#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IPublisher.h"
#include "host/app/HostObjects.h"
#include "host/app/SourceFile.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Host {

/// A folder of this run under the user's cache ($XDG_CACHE_HOME/sorvel/<kind>/run-XXXXXX), made
/// private to the user; empty with a sentence in `error` when it cannot be made.
std::filesystem::path makeCacheFolder(const char* kind, std::string& error);

/// Source files rendered to the format a publishing target takes, waiting for their upload.
struct RenderedBatch
{
    std::filesystem::path folder;
    KVX::Ref<PublishedItemContainer> items;
    std::map<std::string, std::string> sourceOf; ///< rendered file -> the file it was rendered from

    /// Removes the folder and what it holds.
    void removeFolder() const;
};

/// Renders `sources` to what `publisher` takes, `jobs` files at once (0: one per core), with each
/// file's metadata and the "Media:" values of `fields` (one for all files, or one per file), names
/// the product `product` when it is not empty, and hands the batch to the publisher in the order
/// of `sources`. kDone, or an exit code after saying why on standard error (kInterrupted, kUsage,
/// kServiceFailed); the folder is removed on failure.
int renderAndPublish(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                     const std::map<std::string, std::vector<std::string>>& fields, const std::string& product,
                     bool quiet, unsigned jobs, RenderedBatch& batch);

} // namespace Host
