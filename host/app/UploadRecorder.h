#pragma once

#include "host/app/ServiceAnswers.h"
#include "host/ledger/PublishLedger.h"

#include "framework/data/Attributes.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Host {

/// The digest of the metadata the ledger tells a changed file by: the metadata as sent under
/// the track's name, without the product's name (the product is the ledger's key already), and
/// without values left empty (they are not sent).
std::string metadataDigest(const KVX::Attributes& metadata, const std::string& trackName);
/// The source's content digest and metadataDigest. False, with a sentence in `error`, when the
/// source cannot be read.
bool digestsOf(const std::filesystem::path& source, const KVX::Attributes& metadata, const std::string& trackName,
               PublishLedger::Digests& digests, std::string& error);

/// Records in the publish ledger each file of a batch the service confirmed, as the service
/// answers: the rows about to be uploaded are mapped, before the upload starts, to the tracks they
/// replace or will create, and each completion report answered with 200 becomes one record at
/// once, on the upload worker's thread, so that a kill loses at most the file in flight. Used by
/// `publish` and by the gadget alike.
class UploadRecorder
{
public:
    /// Where the batch goes.
    struct Target
    {
        std::string service;
        std::string account;
        std::string productName;
        std::string productId; ///< empty when the batch creates the product
    };
    /// A row of the batch that holds a file, in the table's order.
    struct Entry
    {
        std::filesystem::path source;
        std::string trackName;   ///< the name recorded for the track
        std::string pairedTrack; ///< the name of the product's track it replaces; empty: a new track
        PublishLedger::Digests digests;
        std::string format; ///< of the rendered file sent, as describeRendered gives it
    };

    /// Without a ledger it only follows the batch (the product it created).
    UploadRecorder(PublishLedger* ledger, ServiceAnswers& answers) : ledger_(ledger), answers_(answers) {}
    /// Stops watching.
    ~UploadRecorder();
    UploadRecorder(const UploadRecorder&) = delete;
    UploadRecorder& operator=(const UploadRecorder&) = delete;

    /// Watches the service's answers for the batch of `entries` into `target`, whose product lists
    /// `listed` (nothing when it is to be created). Replaces the watch of an earlier batch.
    void start(const Target& target, std::vector<Entry> entries, const std::vector<ServiceAnswers::ListedTrack>& listed);
    /// Stops watching: the worker has ended, nothing more is confirmed.
    void stop();

    /// Whether a record could not be written (said on standard error then); no later one is tried.
    bool failed() const;
    /// The product's id: the one listed, or the one the batch created.
    std::string productId() const;
    /// How many uploads were recorded since start.
    size_t recorded() const;

private:
    void confirmed(const std::string& trackId);

    PublishLedger* ledger_;
    ServiceAnswers& answers_;
    // Written by start before the watch is set, then under mutex_ (the watch runs on the upload
    // worker's thread).
    mutable std::mutex mutex_;
    Target target_;
    std::vector<Entry> entries_;
    std::map<std::string, size_t> replaced_; ///< entry by the id of the track it replaces
    std::vector<size_t> added_;              ///< entries that become new tracks, in upload order
    std::vector<std::string> createdTracks_; ///< ids of the tracks the batch created, in order
    bool failed_ = false;
    size_t recorded_ = 0;
};

} // namespace Host
