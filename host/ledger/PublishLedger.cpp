#include "host/ledger/PublishLedger.h"

#include "host/config/UserFolder.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Host {

namespace fs = std::filesystem;

namespace {

/// "SRV1": marks the database as a ledger of this program.
constexpr int64_t kApplicationId = 0x53525631;

constexpr const char* kCreateSchema = R"(
CREATE TABLE uploads (
    id              INTEGER PRIMARY KEY,
    service         TEXT NOT NULL,
    account         TEXT NOT NULL,
    product_id      TEXT NOT NULL,
    product_name    TEXT NOT NULL,
    track_id        TEXT NOT NULL,
    track_name      TEXT NOT NULL,
    source          TEXT NOT NULL,
    content_sha256  TEXT NOT NULL,
    metadata_sha256 TEXT NOT NULL,
    format          TEXT NOT NULL,
    published_at    INTEGER NOT NULL
);
CREATE INDEX uploads_by_track ON uploads (service, account, product_id, track_name, id);
CREATE INDEX uploads_by_product ON uploads (product_name, published_at);
CREATE TABLE claims (
    service      TEXT NOT NULL,
    account      TEXT NOT NULL,
    product_name TEXT NOT NULL,
    owner_pid    INTEGER NOT NULL,
    owner_start  INTEGER NOT NULL,
    owner_boot   TEXT NOT NULL,
    claimed_at   INTEGER NOT NULL,
    PRIMARY KEY (service, account, product_name)
) WITHOUT ROWID;
)";

constexpr const char* kRecordColumns = "id, service, account, product_id, product_name, track_id, track_name, source, "
                                       "content_sha256, metadata_sha256, format, published_at";

/// One prepared statement, finalised when it goes.
class Statement
{
public:
    Statement(sqlite3* database, const char* sql) : result_(sqlite3_prepare_v2(database, sql, -1, &statement_, nullptr))
    {
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// SQLITE_OK once prepared and bound, else the first failure.
    int result() const { return result_; }

    Statement& bind(const std::string& text)
    {
        if (result_ == SQLITE_OK)
            result_ =
                sqlite3_bind_text(statement_, ++bound_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int64_t number)
    {
        if (result_ == SQLITE_OK)
            result_ = sqlite3_bind_int64(statement_, ++bound_, number);
        return *this;
    }

    /// SQLITE_ROW, SQLITE_DONE or the failure.
    int step()
    {
        if (result_ != SQLITE_OK)
            return result_;
        const int code = sqlite3_step(statement_);
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            result_ = code;
        return code;
    }

    std::string text(int column) const
    {
        const auto* bytes = sqlite3_column_text(statement_, column);
        return bytes ? std::string(reinterpret_cast<const char*>(bytes),
                                   static_cast<size_t>(sqlite3_column_bytes(statement_, column)))
                     : std::string();
    }
    int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

private:
    sqlite3_stmt* statement_ = nullptr;
    int result_;
    int bound_ = 0;
};

/// Runs `sql` (one statement or several, no rows wanted).
int execute(sqlite3* database, const char* sql)
{
    return sqlite3_exec(database, sql, nullptr, nullptr, nullptr);
}

/// An immediate transaction: the write lock is taken at the start, so two processes cannot both
/// read a state and both change it. Rolled back when it goes without a commit.
class Transaction
{
public:
    explicit Transaction(sqlite3* database) : database_(database), result_(execute(database, "BEGIN IMMEDIATE")) {}
    ~Transaction()
    {
        if (result_ == SQLITE_OK && !committed_)
            execute(database_, "ROLLBACK");
    }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int began() const { return result_; }
    int commit()
    {
        const int code = execute(database_, "COMMIT");
        committed_ = code == SQLITE_OK;
        return code;
    }

private:
    sqlite3* database_;
    int result_;
    bool committed_ = false;
};

bool isDigest(const std::string& text)
{
    return text.size() == 64 && std::all_of(text.begin(), text.end(), [](char letter) {
               return (letter >= '0' && letter <= '9') || (letter >= 'a' && letter <= 'f');
           });
}

PublishLedger::Record readRecord(const Statement& row)
{
    PublishLedger::Record record;
    record.id = row.integer(0);
    record.service = row.text(1);
    record.account = row.text(2);
    record.productId = row.text(3);
    record.productName = row.text(4);
    record.trackId = row.text(5);
    record.trackName = row.text(6);
    record.source = row.text(7);
    record.digests = {row.text(8), row.text(9)};
    record.format = row.text(10);
    record.publishedAt = row.integer(11);
    return record;
}

/// A process as a claim names it: its id alone could be reused by a later process.
struct Owner
{
    int64_t pid = 0;
    int64_t start = 0; ///< clock ticks after boot at which the process started; 0: unknown
    std::string boot;  ///< the kernel's id of this boot

    bool operator==(const Owner&) const = default;
};

/// The start time of process `pid` (field 22 of /proc/<pid>/stat), 0 when it does not exist.
int64_t processStart(int64_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line))
        return 0;
    // The command name in field 2 may hold spaces and parentheses; it ends at the last ')'.
    const size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos)
        return 0;
    // `at` is the space before field 3; each step moves to the space before the next field, up to
    // field 22, the start time in clock ticks since boot (field 23, the memory size, changes).
    size_t at = nameEnd + 1;
    for (int field = 3; field < 22 && at != std::string::npos; ++field)
        at = line.find(' ', at + 1);
    return at == std::string::npos ? 0 : std::atoll(line.c_str() + at + 1);
}

std::string bootId()
{
    std::ifstream file("/proc/sys/kernel/random/boot_id");
    std::string id;
    std::getline(file, id);
    return id;
}

Owner thisProcess()
{
    const int64_t pid = ::getpid();
    return {pid, processStart(pid), bootId()};
}

/// Whether the process a claim names still runs: same boot, and the process of that id started
/// when the claim's owner did.
bool isAlive(const Owner& owner)
{
    return owner.boot == bootId() && owner.start != 0 && processStart(owner.pid) == owner.start;
}

} // namespace

fs::path PublishLedger::defaultFile()
{
    return userFolder("XDG_STATE_HOME", ".local/state") / "sorvel" / "ledger.sqlite";
}

PublishLedger::PublishLedger(sqlite3* database, fs::path file, std::chrono::milliseconds busyTimeout)
    : database_(database), file_(std::move(file)), busyTimeout_(busyTimeout)
{
}

std::unique_ptr<PublishLedger> PublishLedger::open(const fs::path& file, std::string& error,
                                                   std::chrono::milliseconds busyTimeout)
{
    // The folder and the file are the user's alone: they name the accounts and products published to.
    const fs::path folder = file.parent_path();
    std::error_code failure;
    if (!folder.empty() && !fs::exists(folder, failure))
    {
        fs::create_directories(folder.parent_path(), failure);
        if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        {
            error = "cannot create the folder of the publish ledger " + folder.string() + ": " + std::strerror(errno);
            return nullptr;
        }
    }
    if (const int made = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); made >= 0)
        ::close(made);

    sqlite3* database = nullptr;
    const int opened = sqlite3_open_v2(file.c_str(), &database,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    std::unique_ptr<PublishLedger> ledger(new PublishLedger(database, file, busyTimeout));
    if (opened != SQLITE_OK)
    {
        error = ledger->failure(opened, "opening it");
        return nullptr;
    }
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, static_cast<int>(busyTimeout.count()));
    if (!ledger->prepareSchema(error))
        return nullptr;
    return ledger;
}

PublishLedger::~PublishLedger()
{
    if (!database_)
        return;
    if (!claimed_)
    {
        sqlite3_close_v2(database_);
        return;
    }
    const Owner self = thisProcess();
    Statement release(database_, "DELETE FROM claims WHERE owner_pid = ? AND owner_start = ? AND owner_boot = ?");
    release.bind(self.pid).bind(self.start).bind(self.boot).step();
    sqlite3_close_v2(database_);
}

bool PublishLedger::prepareSchema(std::string& error)
{
    // Reads of the file's header: the first place where a file that is no database shows.
    auto readNumber = [&](const char* sql, int64_t& value) {
        Statement query(database_, sql);
        const int code = query.step();
        if (code != SQLITE_ROW)
        {
            error = failure(code, "reading it");
            return false;
        }
        value = query.integer(0);
        return true;
    };
    // The file's marks and whether it holds anything, read by one statement so that all three come
    // from one moment: a run that creates the ledger meanwhile commits them together, and three
    // separate reads could see its tables without its marks.
    int64_t version = 0, application = 0, tables = 0;
    {
        Statement look(database_, "SELECT (SELECT user_version FROM pragma_user_version), "
                                  "(SELECT application_id FROM pragma_application_id), "
                                  "(SELECT count(*) FROM sqlite_master)");
        if (const int code = look.step(); code != SQLITE_ROW)
        {
            error = failure(code, "reading it");
            return false;
        }
        version = look.integer(0);
        application = look.integer(1);
        tables = look.integer(2);
    }
    if (application != kApplicationId && (tables > 0 || version != 0))
    {
        error = file_.string() + " is an SQLite database, but not a publish ledger of sorvel; move it aside, and the "
                                 "next run starts a new ledger";
        return false;
    }
    if (version > kSchemaVersion)
    {
        error = "the publish ledger " + file_.string() + " was written by a newer sorvel (schema " +
                std::to_string(version) + ", this one knows " + std::to_string(kSchemaVersion) + ")";
        return false;
    }

    {
        // Two runs that open a new ledger at once both switch it to the write-ahead log; SQLite
        // then answers one of them "busy" at once, without waiting through the busy handler, so
        // the switch is tried again until the busy time-out has passed.
        const auto deadline = std::chrono::steady_clock::now() + busyTimeout_;
        std::unique_ptr<Statement> journal;
        int code = SQLITE_BUSY;
        while (true)
        {
            journal = std::make_unique<Statement>(database_, "PRAGMA journal_mode = WAL");
            code = journal->step();
            if ((code != SQLITE_BUSY && code != SQLITE_LOCKED) || std::chrono::steady_clock::now() >= deadline)
                break;
            journal.reset();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (code != SQLITE_ROW)
        {
            error = failure(code, "setting its journal");
            return false;
        }
        if (journal->text(0) != "wal")
        {
            error = "the publish ledger " + file_.string() + " cannot keep a write-ahead log (journal mode " +
                    journal->text(0) + "); it needs a local file system";
            return false;
        }
    }
    // A commit that returned is on disk, not only handed to the system.
    if (const int code = execute(database_, "PRAGMA synchronous = FULL"); code != SQLITE_OK)
    {
        error = failure(code, "setting its synchronisation");
        return false;
    }
    if (version == kSchemaVersion)
        return true;

    Transaction create(database_);
    if (create.began() != SQLITE_OK)
    {
        error = failure(create.began(), "creating it");
        return false;
    }
    // Another run may have created it between the first look and the lock.
    if (!readNumber("PRAGMA user_version", version))
        return false;
    if (version == kSchemaVersion)
        return true;
    const std::string marks = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                              "; PRAGMA user_version = " + std::to_string(kSchemaVersion) + ";";
    int code = execute(database_, kCreateSchema);
    if (code == SQLITE_OK)
        code = execute(database_, marks.c_str());
    if (code == SQLITE_OK)
        code = create.commit();
    if (code != SQLITE_OK)
    {
        error = failure(code, "creating it");
        return false;
    }
    return true;
}

bool PublishLedger::record(Record& record, std::string& error)
{
    for (const std::string* text :
         {&record.service, &record.account, &record.productId, &record.productName, &record.trackId, &record.trackName})
        if (text->empty())
        {
            error = "an upload without its service, account, product or track cannot be recorded";
            return false;
        }
    if (!isDigest(record.digests.content) || !isDigest(record.digests.metadata))
    {
        error = "an upload without the SHA-256 digests of its file and metadata cannot be recorded";
        return false;
    }
    if (record.publishedAt == 0)
        record.publishedAt = static_cast<int64_t>(std::time(nullptr));

    Transaction transaction(database_);
    if (transaction.began() != SQLITE_OK)
    {
        error = failure(transaction.began(), "recording the upload of \"" + record.trackName + "\"");
        return false;
    }
    Statement insert(database_, "INSERT INTO uploads (service, account, product_id, product_name, track_id, "
                                "track_name, source, content_sha256, metadata_sha256, format, published_at) "
                                "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(record.service).bind(record.account).bind(record.productId).bind(record.productName);
    insert.bind(record.trackId).bind(record.trackName).bind(record.source);
    insert.bind(record.digests.content).bind(record.digests.metadata).bind(record.format).bind(record.publishedAt);
    int code = insert.step();
    const int64_t id = sqlite3_last_insert_rowid(database_);
    if (code == SQLITE_DONE)
        code = transaction.commit();
    if (code != SQLITE_OK)
    {
        error = failure(code, "recording the upload of \"" + record.trackName + "\"");
        return false;
    }
    record.id = id;
    return true;
}

bool PublishLedger::find(const TrackKey& key, Record& last, bool& found, std::string& error)
{
    const std::string sql = std::string("SELECT ") + kRecordColumns +
                            " FROM uploads WHERE service = ? AND account = ? AND product_id = ? AND track_name = ? "
                            "ORDER BY id DESC LIMIT 1";
    Statement query(database_, sql.c_str());
    query.bind(key.service).bind(key.account).bind(key.productId).bind(key.trackName);
    const int code = query.step();
    if (code != SQLITE_ROW && code != SQLITE_DONE)
    {
        error = failure(code, "looking up \"" + key.trackName + "\"");
        return false;
    }
    found = code == SQLITE_ROW;
    if (found)
        last = readRecord(query);
    return true;
}

PublishLedger::Verdict PublishLedger::judge(const Record* last, const Digests& digests,
                                            const std::vector<ListedTrack>& listed)
{
    if (!last)
        return Verdict::New;
    if (last->digests.content != digests.content || last->digests.metadata != digests.metadata)
        return Verdict::Changed;
    const bool stillListed = std::any_of(listed.begin(), listed.end(), [last](const ListedTrack& track) {
        return track.id == last->trackId && track.name == last->trackName;
    });
    return stillListed ? Verdict::Unchanged : Verdict::Gone;
}

bool PublishLedger::decide(const TrackKey& key, const Digests& digests, const std::vector<ListedTrack>& listed,
                           Decision& decision, std::string& error)
{
    decision = Decision();
    if (!find(key, decision.last, decision.hasLast, error))
        return false;
    decision.verdict = judge(decision.hasLast ? &decision.last : nullptr, digests, listed);
    return true;
}

bool PublishLedger::history(const std::string& productName, std::vector<Record>& records, std::string& error)
{
    const std::string sql = std::string("SELECT ") + kRecordColumns + " FROM uploads" +
                            (productName.empty() ? "" : " WHERE product_name = ?") +
                            " ORDER BY published_at DESC, id DESC";
    Statement query(database_, sql.c_str());
    if (!productName.empty())
        query.bind(productName);
    records.clear();
    int code;
    while ((code = query.step()) == SQLITE_ROW)
        records.push_back(readRecord(query));
    if (code != SQLITE_DONE)
    {
        records.clear();
        error = failure(code, "reading what was published");
        return false;
    }
    return true;
}

bool PublishLedger::tryClaim(const std::string& service, const std::string& account, const std::string& productName,
                             Claim& claim, std::string& error)
{
    const std::string doing = "claiming the product \"" + productName + "\"";
    Transaction transaction(database_);
    if (transaction.began() != SQLITE_OK)
    {
        error = failure(transaction.began(), doing);
        return false;
    }
    Statement query(database_, "SELECT owner_pid, owner_start, owner_boot FROM claims "
                               "WHERE service = ? AND account = ? AND product_name = ?");
    query.bind(service).bind(account).bind(productName);
    int code = query.step();
    if (code != SQLITE_ROW && code != SQLITE_DONE)
    {
        error = failure(code, doing);
        return false;
    }
    const Owner self = thisProcess();
    if (code == SQLITE_ROW)
    {
        const Owner holder{query.integer(0), query.integer(1), query.text(2)};
        if (!(holder == self) && isAlive(holder))
        {
            claim = {false, holder.pid};
            return true; // the transaction changed nothing; its rollback ends it
        }
    }
    Statement take(database_, "INSERT OR REPLACE INTO claims (service, account, product_name, owner_pid, "
                              "owner_start, owner_boot, claimed_at) VALUES (?, ?, ?, ?, ?, ?, ?)");
    take.bind(service).bind(account).bind(productName).bind(self.pid).bind(self.start).bind(self.boot);
    take.bind(static_cast<int64_t>(std::time(nullptr)));
    code = take.step();
    if (code == SQLITE_DONE)
        code = transaction.commit();
    if (code != SQLITE_OK)
    {
        error = failure(code, doing);
        return false;
    }
    claim = {true, 0};
    claimed_ = true;
    return true;
}

bool PublishLedger::claimProduct(const std::string& service, const std::string& account, const std::string& productName,
                                 std::chrono::milliseconds wait, Claim& claim, std::string& error)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + wait;
    for (;;)
    {
        if (!tryClaim(service, account, productName, claim, error))
            return false;
        const Clock::time_point now = Clock::now();
        if (claim.taken || now >= deadline)
            return true;
        // The other run holds it for a whole batch; looking four times a second is plenty.
        std::this_thread::sleep_for(std::min<Clock::duration>(deadline - now, std::chrono::milliseconds(250)));
    }
}

bool PublishLedger::releaseProduct(const std::string& service, const std::string& account,
                                   const std::string& productName, std::string& error)
{
    const Owner self = thisProcess();
    Statement release(database_, "DELETE FROM claims WHERE service = ? AND account = ? AND product_name = ? "
                                 "AND owner_pid = ? AND owner_start = ? AND owner_boot = ?");
    release.bind(service).bind(account).bind(productName).bind(self.pid).bind(self.start).bind(self.boot);
    if (const int code = release.step(); code != SQLITE_DONE)
    {
        error = failure(code, "releasing the product \"" + productName + "\"");
        return false;
    }
    return true;
}

std::string PublishLedger::failure(int code, const std::string& doing) const
{
    const std::string path = file_.string();
    const std::string detail = database_ ? sqlite3_errmsg(database_) : sqlite3_errstr(code);
    const std::string moveAside = "; move it aside, and the next run starts a new ledger";
    switch (code & 0xff)
    {
    case SQLITE_NOTADB:
        return path + " is not a publish ledger (it is no SQLite database)" + moveAside;
    case SQLITE_CORRUPT:
        return "the publish ledger " + path + " is damaged (" + detail + ")" + moveAside;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return "the publish ledger " + path + " is in use by another sorvel run (still locked after " +
               std::to_string(busyTimeout_.count()) + " ms, while " + doing +
               "); try again when the other run has finished";
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return "the publish ledger " + path + " cannot be written (" + detail + ")";
    case SQLITE_FULL:
        return "the publish ledger " + path + " cannot be written: the disk is full";
    case SQLITE_CANTOPEN:
        return "cannot open the publish ledger " + path + " (" + detail + ")";
    default:
        return "the publish ledger " + path + " failed while " + doing + " (" + detail + ")";
    }
}

} // namespace Host
