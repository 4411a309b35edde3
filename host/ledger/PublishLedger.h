#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

struct sqlite3;

namespace Host {

/// What this user has published: one record per confirmed upload (the service answered the
/// completion report of the file), so that a later publish sends only what changed and a batch
/// cut short, even by a kill, resumes without sending a confirmed file again.
///
/// The ledger is one SQLite database, by default $XDG_STATE_HOME/sorvel/ledger.sqlite
/// (~/.local/state/sorvel/), kept in WAL mode with full synchronisation: every change is one
/// transaction, and a transaction that returned is on disk, so a process killed at any moment
/// leaves a ledger that opens and holds every record it had confirmed. The schema carries a
/// version (PRAGMA user_version) and the application id 0x53525631 ("SRV1"), by which a database
/// of something else is told apart from a ledger.
///
/// Failures never throw: every operation returns false with a sentence for the user in `error`,
/// and the caller stops (the program's exit code 4). A file that is no database, or another run
/// holding the ledger's write lock for longer than the busy time-out, is such a failure; nothing
/// recorded is lost by it.
///
/// Threads: one object belongs to one thread; several processes may use the same file at once.
///
/// Two runs at once. Two `sorvel publish` runs to the same product must not both send a file, and
/// must not both create a product of the same name. The batch itself runs inside the plug-in,
/// which the host cannot pause between files, so the unit of exclusion is the product: a run
/// claims the product by name (claimProduct) before it decides what to send, and holds the claim
/// until its batch has ended. A claim records its owner as process id, the process's start time
/// and the boot id, so that a claim left behind by a killed run is recognised as stale (its owner
/// no longer exists, or its process id now belongs to another process) and taken over, and a
/// claim of a live run is never taken. Claims are read and written inside an immediate
/// transaction, so two processes cannot both see a claim free and both take it.
///
/// The publish path, in order:
///   1. sign in; open the ledger (open), which fails before anything is sent;
///   2. claimProduct(service, account, product name, wait): when another live run holds it, wait
///      up to `wait` for it to finish; still held: say so and stop, nothing sent;
///   3. read the product's list of tracks (again, if it was read before the claim was taken: the
///      other run may have added to it);
///   4. per file: sha256OfFile of the source, sha256OfMetadata of the metadata to be sent, and
///      decide(...): Unchanged files are left out (unless forced), the others are sent;
///   5. per file the service confirmed: record(...) at once, before the next file's outcome is
///      awaited, so that a kill loses at most the file that was in flight;
///   6. releaseProduct (also done by the destructor; a killed run's claim goes stale).
class PublishLedger
{
public:
    static constexpr int kSchemaVersion = 1;
    /// How long an operation waits for another process's write lock before it fails.
    static constexpr std::chrono::milliseconds kBusyTimeout{3000};

    /// The digests that tell whether a file changed since it was published (see Sha256.h).
    struct Digests
    {
        std::string content;  ///< SHA-256 of the source file's bytes
        std::string metadata; ///< SHA-256 of the metadata as sent, in canonical form
    };

    /// Where a track lives on the service: the key under which its uploads are looked up.
    struct TrackKey
    {
        std::string service;   ///< the API's base address
        std::string account;   ///< the account id the sign-in answered
        std::string productId; ///< the service's id of the product
        std::string trackName;
    };

    /// One confirmed upload.
    struct Record
    {
        int64_t id = 0; ///< set by record; a later record has a larger id
        std::string service;
        std::string account;
        std::string productId;
        std::string productName;
        std::string trackId; ///< the service's id of the track the file went to
        std::string trackName;
        std::string source; ///< the source file's path, as given on the command line
        Digests digests;
        std::string format;      ///< the render format sent, for example "WAV 44100 Hz 16-bit stereo"
        int64_t publishedAt = 0; ///< seconds since 1970-01-01 UTC; 0 given to record: now

        TrackKey key() const { return {service, account, productId, trackName}; }
    };

    /// A track of the product as the service lists it now.
    struct ListedTrack
    {
        std::string id;
        std::string name;
    };

    /// What to do with a file, from its last confirmed upload and the product's list.
    enum class Verdict
    {
        New,       ///< nothing confirmed under its key: send it
        Unchanged, ///< same content and metadata, and the recorded track (same id and name) is
                   ///< still listed: send nothing
        Changed,   ///< content or metadata differ from the last confirmed upload: send it
        Gone,      ///< unchanged, but the recorded track is no longer listed (deleted on the
                   ///< service): send it again
    };

    struct Decision
    {
        Verdict verdict = Verdict::New;
        bool hasLast = false;
        Record last; ///< the last confirmed upload under the key, when hasLast
    };

    /// Who holds a product's claim, as claimProduct found it.
    struct Claim
    {
        bool taken = false; ///< this process holds the claim now
        int64_t heldBy = 0; ///< else the process id of the live run that holds it
    };

    /// $XDG_STATE_HOME/sorvel/ledger.sqlite; ~/.local/state/sorvel/ledger.sqlite when the
    /// variable is unset or not an absolute path.
    static std::filesystem::path defaultFile();

    /// Opens the ledger at `file`, creating it (and its folder, private to the user) when it does
    /// not exist. Nothing, with a sentence in `error`, when the file is no database, a database of
    /// something else, of a newer schema, damaged, cannot be created or written, or locked by
    /// another run for longer than `busyTimeout`.
    static std::unique_ptr<PublishLedger> open(const std::filesystem::path& file, std::string& error,
                                               std::chrono::milliseconds busyTimeout = kBusyTimeout);

    /// Releases the claims this process holds (failures are ignored: a claim left behind goes
    /// stale with the process) and closes the database.
    ~PublishLedger();
    PublishLedger(const PublishLedger&) = delete;
    PublishLedger& operator=(const PublishLedger&) = delete;

    const std::filesystem::path& file() const { return file_; }

    /// Records one confirmed upload, in a transaction of its own that is on disk when it returns.
    /// Sets `record.id` (and `record.publishedAt` when it was 0). Every text but the source and the
    /// format must be non-empty, and the digests 64 hexadecimal digits: anything else is refused
    /// (false), so that no record can later match by accident.
    bool record(Record& record, std::string& error);

    /// The last confirmed upload under `key` into `last`; `found` false when there is none.
    bool find(const TrackKey& key, Record& last, bool& found, std::string& error);

    /// The verdict on a file of `digests`, given its last confirmed upload (none: null) and the
    /// tracks the product lists now.
    static Verdict judge(const Record* last, const Digests& digests, const std::vector<ListedTrack>& listed);

    /// find and judge in one step.
    bool decide(const TrackKey& key, const Digests& digests, const std::vector<ListedTrack>& listed, Decision& decision,
                std::string& error);

    /// Every confirmed upload, or those into products named `productName` when it is not empty,
    /// newest first (by time, then by the order they were recorded in).
    bool history(const std::string& productName, std::vector<Record>& records, std::string& error);

    /// Claims the product named `productName` of `account` on `service` for this process (see the
    /// class comment). Taken at once when it is free, held by this process already, or held by a
    /// run that no longer exists; else polled until `wait` has passed. `claim` says the outcome;
    /// false only when the ledger itself failed.
    bool claimProduct(const std::string& service, const std::string& account, const std::string& productName,
                      std::chrono::milliseconds wait, Claim& claim, std::string& error);

    /// Gives up this process's claim of the product; nothing happens when it holds none.
    bool releaseProduct(const std::string& service, const std::string& account, const std::string& productName,
                        std::string& error);

private:
    PublishLedger(sqlite3* database, std::filesystem::path file, std::chrono::milliseconds busyTimeout);

    bool prepareSchema(std::string& error);
    /// One attempt at the claim, in an immediate transaction.
    bool tryClaim(const std::string& service, const std::string& account, const std::string& productName, Claim& claim,
                  std::string& error);
    /// The sentence for the user of a failed SQLite call, in one place.
    std::string failure(int code, const std::string& doing) const;

    sqlite3* database_;
    std::filesystem::path file_;
    std::chrono::milliseconds busyTimeout_;
    bool claimed_ = false; ///< a claim was taken through this object
};

} // namespace Host
