#pragma once

#include "framework/core/Ref.h"
#include "framework/data/Attributes.h"
#include "framework/interfaces/IPublisher.h"
#include "host/app/Rendering.h"
#include "host/app/SourceFile.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Host {

class GadgetSession;
class Runtime;

/// Hands files to the open gadget one export after another, as a workstation hands each finished
/// mixdown to the publishing target: rendered to what the target takes, with their metadata.
///
/// The target lists what it is handed in place of what the table held, so each hand-over hands
/// the files the table lists now again, as the user left them (the rows removed stay gone, a
/// title or inspector field typed in stays), with the new files after them; a file exported again
/// under the same path takes its own row's place, rendered again. While an upload runs, or a
/// request of the gadget is under way, nothing is handed over: the files wait, and go together
/// once the gadget takes them again. User-interface thread.
class LiveHandOver
{
public:
    /// Files for the gadget, with the metadata given with them: `fields` by "Media:" key, one value
    /// for all files or one per file; `product` names the product to propose (empty: the page's).
    struct Request
    {
        std::vector<SourceFile> sources;
        std::map<std::string, std::vector<std::string>> fields;
        std::string product;
    };

    /// `publisher` and `session` must outlive this object. `jobs`: files rendered at once (0:
    /// one per core).
    LiveHandOver(Runtime& runtime, Engine::IPublisher& publisher, GadgetSession& session, unsigned jobs);
    /// Removes every folder of rendered files it kept.
    ~LiveHandOver();
    LiveHandOver(const LiveHandOver&) = delete;
    LiveHandOver& operator=(const LiveHandOver&) = delete;

    /// Takes over a batch already handed to the gadget (the files named on the command line),
    /// with their pre-flight reports by rendered path.
    void adopt(RenderedBatch batch, std::map<std::string, KVX::Ref<KVX::Attributes>> reports);
    /// Queues files; a file whose path already waits is replaced by the newer one.
    void enqueue(Request request);
    bool hasWaiting() const { return !waiting_.empty(); }
    /// Whether the gadget takes a hand-over now: no upload and no request of it under way.
    bool gadgetTakesFiles() const;
    /// When the gadget takes files: renders what waits and hands it over with the files the table
    /// lists. kDone (also when nothing was handed over), kInterrupted when Ctrl-C stopped the
    /// render. What cannot be rendered is said on standard error and dropped.
    int handOverWaiting();

    /// The rendered files the gadget lists now and came from the host, by rendered path.
    size_t listedFileCount() const { return known_.size(); }

private:
    /// One file waiting: the source with its given metadata applied, and the product named with it.
    struct Waiting
    {
        SourceFile source;
        std::string product;
    };
    /// A rendered file the host handed over.
    struct Known
    {
        std::filesystem::path source;
        std::filesystem::path folder;
        KVX::Attributes metadata;
    };
    /// A row of the table that holds a file.
    struct Row
    {
        std::string file;  ///< the file's whole path
        std::string title; ///< the name the row goes by
        bool isNew = false; ///< a file of its own, not replacing a track, not uploaded yet
        KVX::Attributes edits; ///< what the inspector shows for a new row
    };

    std::vector<Row> readTable();
    /// The product the page shows now: the chosen product, else the name typed for a new one.
    std::string productShown() const;
    /// Forgets the files the table no longer lists and removes the folders left with none.
    void forgetUnlisted(const std::set<std::string>& listed);

    Runtime& runtime_;
    KVX::Ref<Engine::IPublisher> publisher_;
    GadgetSession& session_;
    unsigned jobs_;
    std::vector<Waiting> waiting_;
    std::map<std::string, Known> known_; ///< by rendered path
    std::set<std::filesystem::path> folders_;
    std::map<std::string, KVX::Ref<KVX::Attributes>> reports_;
};

} // namespace Host
