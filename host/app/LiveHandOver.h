#pragma once

#include "framework/core/Ref.h"
#include "framework/data/Attributes.h"
#include "framework/interfaces/IPublisher.h"
#include "host/app/Rendering.h"
#include "host/app/SourceFile.h"
#include "host/app/UploadRecorder.h"

#include <filesystem>
#include <map>
#include <memory>
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
/// once the gadget takes them again.
///
/// With the publish ledger, the gadget publishes as `publish` does: each upload the service
/// confirms is recorded, and a file paired with a track of the chosen product whose content and
/// metadata are unchanged since its last confirmed upload is taken out of the table, so that
/// nothing is sent for it; the track's row says "unchanged". Choosing another product hands such
/// files back. User-interface thread.
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

    /// Records confirmed uploads in `ledger` (which must outlive this object) and leaves out what
    /// it finds unchanged, unless `force`.
    void useLedger(PublishLedger& ledger, bool force);
    /// When the gadget takes files and its table, product or the product's tracks changed since
    /// the last look: leaves out the files the ledger finds unchanged on the product (the track's
    /// row notes it), and hands back those left out for another product.
    void leaveOutUnchanged();
    /// Before a button of the page acts: the rows an upload would send are mapped for the ledger,
    /// before its first request leaves.
    void beforePress();

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
        std::string contentDigest; ///< of the source, once the ledger needed it
    };
    /// A file handed over again: its rendered path and metadata, and where it came from when it
    /// is a new rendering.
    struct Item
    {
        std::string path;
        KVX::Attributes metadata;
        bool fresh = false;
        std::filesystem::path source; ///< when fresh
        std::filesystem::path folder; ///< when fresh
    };
    /// A file taken out of the table as unchanged on a product.
    struct LeftOut
    {
        std::string path;
        std::string productId;
        std::string trackName;
        int64_t publishedAt = 0; ///< of its last confirmed upload
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
    /// The table's files as they would be handed over again now.
    std::vector<Item> tableItems();
    /// Hands `items` to the gadget for `product` in place of what it lists; false when the target
    /// refused them.
    bool handOver(const std::vector<Item>& items, const std::string& product);
    /// The ledger's digests of a known file sent as `trackName` with `metadata`; false after
    /// saying why.
    bool digestsOf(Known& known, const KVX::Attributes& metadata, const std::string& trackName,
                   PublishLedger::Digests& digests);
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
    PublishLedger* ledger_ = nullptr;
    bool force_ = false;
    std::unique_ptr<UploadRecorder> recorder_;
    std::vector<LeftOut> leftOut_;
    std::string lastLook_; ///< what leaveOutUnchanged last saw of the table and the product
};

} // namespace Host
