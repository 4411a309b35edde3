#pragma once

#include "framework/component/Subject.h"
#include "framework/core/Embedded.h"
#include "framework/core/ObjectArray.h"
#include "framework/interfaces/IObserver.h"
#include "framework/services/IXMLHttpRequest.h"
#include "framework/threading/AbstractProgressNotify.h"
#include "framework/threading/UserThread.h"
#include "plugin/catalogue/LocalTrack.h"
#include "plugin/catalogue/Title.h"
#include "plugin/service/ClientConfiguration.h"

#include <atomic>

namespace Sorvel {

class Response;

/// One track of an upload batch (UploadSession::Entry).
class UploadSessionEntry : public KVX::Object
{
    KVX_DECLARE_CLASS(UploadSessionEntry, KVX::Object)
public:
    UploadSessionEntry(LocalTrack* track, const KVX::String& trackId) : track(track), trackId(trackId) {}

    KVX::Ref<LocalTrack> track;
    /// The service's track to replace; empty for a track that is created first.
    KVX::String trackId;
};

/// Sends a batch of local audio files to the service on a worker thread of its own ("User
/// Thread"), one product and its tracks at a time: creates the product if it has no identifier
/// yet, creates each track that has none, asks for a one-time upload target, posts the file as a
/// multipart form streamed from disk, and reports the upload complete.
///
/// Signals (the controller observes them on the user-interface thread): "sessionStarted" (at
/// once, from start), "trackStarted" (track), "trackProgressChanged" (progress, flags, only
/// while a file is sent), "trackFinished" (track, 1 or 0), each deferred from the worker, and
/// "sessionFinished" once the worker's end has been handled on the user-interface thread.
///
/// Threads: start, cancel and the thread-end handling run on the user-interface thread; the
/// batch (title, entries, configuration copy, request object) belongs to the worker from start
/// until "sessionFinished", and the user-interface thread leaves it alone meanwhile. Only the
/// cancel flag is shared, and it is atomic. A deferred signal holds the session until it is
/// delivered, so it never reaches a session that is gone.
class UploadSession : public KVX::Object,
                      public KVX::Subject,
                      public KVX::IObserver,
                      public KVX::Threading::UserThread,
                      public KVX::AbstractProgressNotify
{
    KVX_DECLARE_CLASS(UploadSession, KVX::Object)
public:
    using Entry = UploadSessionEntry;

    UploadSession();
    ~UploadSession() override;

    /// Copies the client's configuration (addresses and sign-in values) for the next batches.
    void setConfiguration(const ClientConfiguration& configuration);
    /// The product of the next batch (retained; the previous one is released).
    void setTitle(Title* title);
    Title* getTitle() const { return title_; }
    /// Appends `entry`; the session owns it.
    void addEntry(Entry* entry);
    size_t entryCount() const { return entries_.count(); }

    /// Starts the batch, unless one runs: clears the cancel flag, succeeded and lastStatus,
    /// starts the worker and signals "sessionStarted". User-interface thread.
    void start();
    /// Whether a batch runs: from start until its end was handled on the user-interface thread.
    bool isRunning() const { return hasThread(); }
    /// The result of the last batch and the "status_code" of the last reply the worker read.
    bool succeeded() const { return succeeded_.load(std::memory_order_relaxed); }
    KVX::int32 getLastStatus() const { return lastStatus_.load(std::memory_order_relaxed); }

    /// Stops a running batch and drops its pending signals (the owner closes).
    void terminate();

    // IObserver: the worker's "threadExit", delivered on the user-interface thread.
    void notify(KVX::ISubject* subject, KVX::IMessage& message) override;
    KVX_FORWARD_UNKNOWN(KVX::Object)

protected:
    void threadEntry() override;
    void progressChanged(const KVX::ProgressState& state) override;

private:
    bool runTrack(Entry& entry);
    bool createTitle();
    bool createTrack(Entry& entry);
    /// Creates a record on the service and stores the identifier the reply gives; false when
    /// the request failed or the identifier is empty.
    bool create(std::string_view path, KVX::Attributes& parameters, KVX::String& id);
    bool requestUploadTarget(const Entry& entry, KVX::Url& uploadUrl, KVX::Attributes& fields);
    bool postFile(const KVX::Url& uploadUrl, const KVX::Attributes& fields, const LocalTrack& track);
    void reportComplete(const Entry& entry);

    /// A JSON request to `path` with `parameters` and the sign-in values; true when a reply with
    /// "status_code" 200 arrived. `reply` holds the parsed reply whenever one arrived.
    bool sendJson(std::string_view path, KVX::Attributes& parameters, Response& reply);
    /// The signed GET of `path`; as sendJson.
    bool sendQuery(std::string_view path, Response& reply);
    /// Reads the reply of the finished synchronous call into `reply` and notes its status.
    bool takeReply(Response& reply);
    void finishThread();
    /// Posts `message` for the observers, delivered on the user-interface thread. Any thread.
    void deferSignal(KVX::IMessage* message);

    KVX::Embedded<ClientConfiguration> configuration_;
    KVX::Ref<Title> title_;
    KVX::TypedObjectArray<Entry> entries_{true};
    KVX::Ref<KVX::Web::IXMLHttpRequest> request_;
    std::atomic<bool> succeeded_{false};
    std::atomic<KVX::int32> lastStatus_{0};
    std::atomic<bool> sendingFile_{false}; // worker only, atomic so the progress callback may read it anywhere
};

} // namespace Sorvel
