#pragma once

#include "framework/core/Ref.h"
#include "framework/interfaces/IPublisher.h"
#include "host/app/HostObjects.h"
#include "host/app/SourceFile.h"
#include "host/render/RenderReport.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Host {

/// A folder of this run under the user's cache ($XDG_CACHE_HOME/sorvel/<kind>/run-<pid>.<start>-XXXXXX:
/// the process that made it is in its name, so that no other run prunes it while it runs), made
/// private to the user; empty with a sentence in `error` when it cannot be made.
std::filesystem::path makeCacheFolder(const char* kind, std::string& error);

/// Source files rendered to the format a publishing target takes, waiting for their upload.
struct RenderedBatch
{
    /// One file of the batch, in the order the user gave.
    struct File
    {
        std::filesystem::path source;
        std::filesystem::path output;
        KVX::Attributes metadata; ///< the "Media:" values handed over with it
        RenderReport report;      ///< with the figures measured while it was rendered

        /// The track name the publishing target gives it: its title, else the file's name.
        std::string trackName() const;
    };

    std::filesystem::path folder;
    std::vector<File> files;
    /// The source that could not be rendered or read, when one ended the batch (kUsage).
    std::filesystem::path unusable;
    KVX::Ref<PublishedItemContainer> items;

    /// Removes the folder and what it holds.
    void removeFolder() const;
};

/// What a rendered file is, for the publish ledger: "WAV 44100 Hz 16-bit stereo"; "WAV" when its
/// header cannot be read.
std::string describeRendered(const std::filesystem::path& output);

/// Renders `sources` to what `publisher` takes, `jobs` files at once (0: one per core), each with
/// its metadata and the "Media:" values of `fields` (one for all files, or one per file), and the
/// product `product` as its album when it is not empty. kDone, or an exit code after saying why on
/// standard error (kInterrupted, kUsage, kServiceFailed); the folder is removed on failure.
int renderBatch(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                const std::map<std::string, std::vector<std::string>>& fields, const std::string& product, bool quiet,
                unsigned jobs, RenderedBatch& batch);

/// Hands the rendered files to `publisher` in their order, but for those whose `leaveOut` is true.
/// kDone, or kServiceFailed after saying why (the folder is then removed).
int handOver(Engine::IPublisher& publisher, RenderedBatch& batch, const std::vector<bool>& leaveOut);

/// renderBatch, then the batch handed to the publisher in the order of `sources`.
int renderAndPublish(Engine::IPublisher& publisher, const std::vector<SourceFile>& sources,
                     const std::map<std::string, std::vector<std::string>>& fields, const std::string& product,
                     bool quiet, unsigned jobs, RenderedBatch& batch);

} // namespace Host
