// The publish ledger: what it records and decides, its history, files it must refuse, another run
// holding its lock, a writer killed in the middle of its writes, and claims of a product across
// processes.
#include "host/ledger/PublishLedger.h"
#include "host/ledger/Sha256.h"
#include "tests/system/TemporaryDirectory.h"

#include <sys/mman.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <poll.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Host::PublishLedger;
using Ledger = std::unique_ptr<PublishLedger>;
using Verdict = PublishLedger::Verdict;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::string hexOf(char digit)
{
    return std::string(64, digit);
}

PublishLedger::Record upload(const std::string& trackName, const std::string& trackId, char content = 'a',
                             char metadata = 'b')
{
    PublishLedger::Record record;
    record.service = "https://api.example.com/v1/";
    record.account = "1001";
    record.productId = "5001";
    record.productName = "Night Drive";
    record.trackId = trackId;
    record.trackName = trackName;
    record.source = "/music/" + trackName + ".flac";
    record.digests = {hexOf(content), hexOf(metadata)};
    record.format = "WAV 44100 Hz 16-bit stereo";
    return record;
}

std::vector<std::string> namesOf(const std::vector<PublishLedger::Record>& records)
{
    std::vector<std::string> names;
    for (const PublishLedger::Record& record : records)
        names.push_back(record.trackName);
    return names;
}

/// A second connection to the database, as another program holds it.
struct RawConnection
{
    explicit RawConnection(const fs::path& file) { sqlite3_open(file.c_str(), &database); }
    ~RawConnection() { sqlite3_close(database); }
    int run(const char* sql) { return sqlite3_exec(database, sql, nullptr, nullptr, nullptr); }
    std::string text(const char* sql)
    {
        std::string value;
        sqlite3_exec(
            database, sql,
            [](void* out, int, char** values, char**) {
                *static_cast<std::string*>(out) = values[0] ? values[0] : "";
                return 0;
            },
            &value, nullptr);
        return value;
    }
    sqlite3* database = nullptr;
};

/// A forked child that runs `body` and exits with what it returns; the two pipes carry bytes each
/// way. The child never returns into the test.
class Child
{
public:
    explicit Child(const std::function<int(int in, int out)>& body)
    {
        int down[2], up[2];
        if (::pipe(down) != 0 || ::pipe(up) != 0)
            return;
        pid_ = ::fork();
        if (pid_ == 0)
        {
            ::close(down[1]);
            ::close(up[0]);
            ::_exit(body(down[0], up[1]));
        }
        ::close(down[0]);
        ::close(up[1]);
        toChild_ = down[1];
        fromChild_ = up[0];
    }
    ~Child()
    {
        ::close(toChild_);
        ::close(fromChild_);
        if (pid_ > 0)
        {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }

    pid_t pid() const { return pid_; }
    void send(char byte) { ASSERT_EQ(::write(toChild_, &byte, 1), 1); }
    /// The next byte from the child; -1 when it sent none within `limit` or the pipe closed.
    int receive(std::chrono::milliseconds limit = 10s) { return readByte(fromChild_, limit); }
    void kill()
    {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
    /// Waits for the child's exit code; -1 when it was killed by a signal.
    int exitCode()
    {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    static int readByte(int fd, std::chrono::milliseconds limit)
    {
        pollfd ready{fd, POLLIN, 0};
        char byte = 0;
        if (::poll(&ready, 1, static_cast<int>(limit.count())) != 1 || ::read(fd, &byte, 1) != 1)
            return -1;
        return static_cast<unsigned char>(byte);
    }
    static void writeByte(int fd, char byte)
    {
        if (::write(fd, &byte, 1) != 1)
            ::_exit(90);
    }

private:
    pid_t pid_ = -1;
    int toChild_ = -1;
    int fromChild_ = -1;
};

class PublishLedgerTest : public testing::Test
{
protected:
    Ledger open(std::chrono::milliseconds busy = PublishLedger::kBusyTimeout)
    {
        std::string error;
        Ledger ledger = PublishLedger::open(file, error, busy);
        EXPECT_TRUE(ledger) << error;
        return ledger;
    }

    TemporaryDirectory folder;
    fs::path file = folder.path() / "state" / "sorvel" / "ledger.sqlite";
    std::string error;
};

TEST_F(PublishLedgerTest, ARecordedUploadDecidesWhatIsSentNextTime)
{
    Ledger ledger = open();
    ASSERT_TRUE(ledger);
    PublishLedger::Record alpha = upload("Alpha", "9001");
    ASSERT_TRUE(ledger->record(alpha, error)) << error;
    EXPECT_GT(alpha.id, 0);
    EXPECT_GT(alpha.publishedAt, 1700000000) << "the time of the record, when none was given";

    PublishLedger::Record found;
    bool present = false;
    ASSERT_TRUE(ledger->find(alpha.key(), found, present, error)) << error;
    ASSERT_TRUE(present);
    EXPECT_EQ(found.id, alpha.id);
    EXPECT_EQ(found.productName, "Night Drive");
    EXPECT_EQ(found.trackId, "9001");
    EXPECT_EQ(found.source, "/music/Alpha.flac");
    EXPECT_EQ(found.format, "WAV 44100 Hz 16-bit stereo");
    EXPECT_EQ(found.digests.content, hexOf('a'));
    EXPECT_EQ(found.digests.metadata, hexOf('b'));
    EXPECT_EQ(found.publishedAt, alpha.publishedAt);

    const std::vector<PublishLedger::ListedTrack> listed = {{"9000", "Intro"}, {"9001", "Alpha"}};
    const PublishLedger::Digests same{hexOf('a'), hexOf('b')};
    struct Case
    {
        const char* what;
        PublishLedger::TrackKey key;
        PublishLedger::Digests digests;
        std::vector<PublishLedger::ListedTrack> listed;
        Verdict expected;
    };
    PublishLedger::TrackKey otherProduct = alpha.key(), otherAccount = alpha.key(), otherService = alpha.key(),
                            otherTrack = alpha.key();
    otherProduct.productId = "5002";
    otherAccount.account = "1002";
    otherService.service = "http://127.0.0.1:8480/api/";
    otherTrack.trackName = "Beta";
    const std::vector<Case> cases = {
        {"the same file and metadata, the track listed", alpha.key(), same, listed, Verdict::Unchanged},
        {"the content changed", alpha.key(), {hexOf('c'), hexOf('b')}, listed, Verdict::Changed},
        {"the metadata changed", alpha.key(), {hexOf('a'), hexOf('d')}, listed, Verdict::Changed},
        {"another product", otherProduct, same, listed, Verdict::New},
        {"another account", otherAccount, same, listed, Verdict::New},
        {"another service", otherService, same, listed, Verdict::New},
        {"another track name", otherTrack, same, listed, Verdict::New},
        {"the track deleted on the service", alpha.key(), same, {{"9000", "Intro"}}, Verdict::Gone},
        {"a track of that name, but another one", alpha.key(), same, {{"9005", "Alpha"}}, Verdict::Gone},
        {"the recorded id under another name", alpha.key(), same, {{"9001", "Alpha (live)"}}, Verdict::Gone},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        PublishLedger::Decision decision;
        ASSERT_TRUE(ledger->decide(test.key, test.digests, test.listed, decision, error)) << error;
        EXPECT_EQ(decision.verdict, test.expected);
        EXPECT_EQ(decision.hasLast, test.expected != Verdict::New);
    }

    // A later upload of the same track is what the next decision compares with.
    PublishLedger::Record changed = upload("Alpha", "9001", 'c');
    ASSERT_TRUE(ledger->record(changed, error)) << error;
    EXPECT_GT(changed.id, alpha.id);
    PublishLedger::Decision decision;
    ASSERT_TRUE(ledger->decide(alpha.key(), {hexOf('c'), hexOf('b')}, listed, decision, error)) << error;
    EXPECT_EQ(decision.verdict, Verdict::Unchanged);
    EXPECT_EQ(decision.last.id, changed.id);
    ASSERT_TRUE(ledger->decide(alpha.key(), same, listed, decision, error)) << error;
    EXPECT_EQ(decision.verdict, Verdict::Changed);

    // Records that could match by accident are refused, and nothing of them is written.
    PublishLedger::Record noTrack = upload("Gamma", "");
    PublishLedger::Record noDigest = upload("Gamma", "9003");
    noDigest.digests.content = "abc";
    PublishLedger::Record upperCase = upload("Gamma", "9003");
    upperCase.digests.metadata = hexOf('B');
    for (PublishLedger::Record* refused : {&noTrack, &noDigest, &upperCase})
    {
        EXPECT_FALSE(ledger->record(*refused, error));
        EXPECT_FALSE(error.empty());
    }
    std::vector<PublishLedger::Record> all;
    ASSERT_TRUE(ledger->history("", all, error)) << error;
    EXPECT_EQ(all.size(), 2u);
}

TEST_F(PublishLedgerTest, HistoryIsNewestFirstFilteredByProductAndKeptAcrossRuns)
{
    {
        Ledger ledger = open();
        ASSERT_TRUE(ledger);
        const std::vector<std::pair<std::string, int64_t>> uploads = {
            {"First", 1000}, {"Third", 3000}, {"Second", 2000}, {"Fourth", 3000}};
        for (const auto& [name, time] : uploads)
        {
            PublishLedger::Record record = upload(name, std::to_string(time));
            record.publishedAt = time;
            ASSERT_TRUE(ledger->record(record, error)) << error;
        }
        PublishLedger::Record elsewhere = upload("Other", "77");
        elsewhere.productId = "6001";
        elsewhere.productName = "Harbour";
        elsewhere.publishedAt = 1500;
        ASSERT_TRUE(ledger->record(elsewhere, error)) << error;
    }

    // Reopened, as the next run finds it. The same second: the later record first.
    Ledger ledger = open();
    ASSERT_TRUE(ledger);
    std::vector<PublishLedger::Record> records;
    ASSERT_TRUE(ledger->history("", records, error)) << error;
    EXPECT_EQ(namesOf(records), (std::vector<std::string>{"Fourth", "Third", "Second", "Other", "First"}));
    ASSERT_TRUE(ledger->history("Harbour", records, error)) << error;
    EXPECT_EQ(namesOf(records), (std::vector<std::string>{"Other"}));
    ASSERT_TRUE(ledger->history("Night Drive", records, error)) << error;
    EXPECT_EQ(records.size(), 4u);
    ASSERT_TRUE(ledger->history("night drive", records, error)) << error;
    EXPECT_TRUE(records.empty()) << "product names are compared exactly, as the service's list does";
}

TEST_F(PublishLedgerTest, TheLedgerIsAPrivateWriteAheadLoggedFileUnderTheStateFolder)
{
    const char* previousState = std::getenv("XDG_STATE_HOME");
    const char* previousHome = std::getenv("HOME");
    const std::string keptState = previousState ? previousState : "", keptHome = previousHome ? previousHome : "";
    ::setenv("HOME", "/home/someone", 1);
    ::setenv("XDG_STATE_HOME", "/var/state", 1);
    EXPECT_EQ(PublishLedger::defaultFile(), fs::path("/var/state/sorvel/ledger.sqlite"));
    ::setenv("XDG_STATE_HOME", "relative/state", 1); // not absolute: ignored
    EXPECT_EQ(PublishLedger::defaultFile(), fs::path("/home/someone/.local/state/sorvel/ledger.sqlite"));
    ::unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(PublishLedger::defaultFile(), fs::path("/home/someone/.local/state/sorvel/ledger.sqlite"));
    previousState ? ::setenv("XDG_STATE_HOME", keptState.c_str(), 1) : ::unsetenv("XDG_STATE_HOME");
    previousHome ? ::setenv("HOME", keptHome.c_str(), 1) : ::unsetenv("HOME");

    Ledger ledger = open();
    ASSERT_TRUE(ledger);
    struct stat status = {};
    ASSERT_EQ(::stat(file.parent_path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 077, 0u) << "no one else reads what was published where";

    RawConnection raw(file);
    EXPECT_EQ(raw.text("PRAGMA journal_mode"), "wal");
    EXPECT_EQ(raw.text("PRAGMA user_version"), std::to_string(PublishLedger::kSchemaVersion));
}

TEST_F(PublishLedgerTest, ANewLedgerOpenedByManyRunsAtOnceIsOneLedgerForEach)
{
    // Runs started together (two publishes, a gadget and a publish) all find no ledger, and all
    // open it at the same moment: one creates it, and every other sees either no ledger yet or the
    // whole of it, never a half that it would refuse.
    for (int round = 0; round < 40; ++round)
    {
        const fs::path shared = folder.path() / ("round-" + std::to_string(round)) / "ledger.sqlite";
        std::vector<std::unique_ptr<Child>> runs;
        for (int run = 0; run < 4; ++run)
            runs.push_back(std::make_unique<Child>([&](int in, int out) {
                if (Child::readByte(in, 10s) != 'g')
                    return 2;
                std::string failed;
                Ledger own = PublishLedger::open(shared, failed);
                if (!own)
                {
                    ::dprintf(out, "%s", failed.c_str());
                    return 3;
                }
                return 0;
            }));
        for (auto& run : runs)
            run->send('g');
        for (auto& run : runs)
        {
            std::string said;
            for (int byte; (byte = run->receive(5s)) >= 0;)
                said += static_cast<char>(byte);
            EXPECT_EQ(run->exitCode(), 0) << "round " << round << ": " << said;
        }
        RawConnection raw(shared);
        EXPECT_EQ(raw.text("PRAGMA user_version"), std::to_string(PublishLedger::kSchemaVersion));
        if (HasFailure())
            break;
    }
}

TEST_F(PublishLedgerTest, FilesThatAreNoLedgerAreRefusedAndLeftAsTheyWere)
{
    fs::create_directories(file.parent_path());
    struct Case
    {
        const char* what;
        std::function<void()> make;
        const char* said;
    };
    const std::vector<Case> cases = {
        {"garbage bytes",
         [&] { std::ofstream(file, std::ios::binary) << std::string(3000, '\x5a') << "not a database"; },
         "is not a publish ledger (it is no SQLite database)"},
        {"a database of something else",
         [&] { RawConnection(file).run("CREATE TABLE songs (name TEXT); INSERT INTO songs VALUES ('x');"); },
         "is an SQLite database, but not a publish ledger of sorvel"},
        {"a ledger of a newer schema",
         [&] {
             ASSERT_TRUE(open());
             RawConnection(file).run("PRAGMA user_version = 9;");
         },
         "was written by a newer sorvel (schema 9"},
        {"a folder", [&] { fs::create_directories(file); }, "cannot open the publish ledger"},
    };
    for (const Case& test : cases)
    {
        SCOPED_TRACE(test.what);
        fs::remove_all(file.parent_path());
        fs::create_directories(file.parent_path());
        test.make();
        std::string before;
        if (fs::is_regular_file(file))
            before = (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
        const auto started = std::chrono::steady_clock::now();
        std::string said;
        EXPECT_EQ(PublishLedger::open(file, said), nullptr);
        EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
        EXPECT_NE(said.find(test.said), std::string::npos) << said;
        EXPECT_NE(said.find(file.string()), std::string::npos) << "names the file: " << said;
        if (!before.empty())
        {
            const std::string after = (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
            EXPECT_EQ(after, before) << "the file was changed";
        }
    }
}

TEST_F(PublishLedgerTest, ALedgerLockedByAnotherRunFailsInBoundedTimeAndLosesNothing)
{
    Ledger ledger = open(300ms);
    ASSERT_TRUE(ledger);
    PublishLedger::Record first = upload("Alpha", "9001");
    ASSERT_TRUE(ledger->record(first, error)) << error;

    RawConnection other(file);
    ASSERT_EQ(other.run("BEGIN IMMEDIATE; INSERT INTO claims VALUES ('s', 'a', 'p', 1, 1, 'b', 1);"), SQLITE_OK);
    PublishLedger::Record second = upload("Beta", "9002");
    auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(ledger->record(second, error));
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_NE(error.find("is in use by another sorvel run (still locked after 300 ms"), std::string::npos) << error;
    PublishLedger::Claim claim;
    EXPECT_FALSE(ledger->claimProduct("s", "a", "p", 0ms, claim, error));
    EXPECT_NE(error.find("in use by another sorvel run"), std::string::npos) << error;
    // Readers are not held up by a writer in a write-ahead log.
    std::vector<PublishLedger::Record> records;
    ASSERT_TRUE(ledger->history("", records, error)) << error;
    EXPECT_EQ(namesOf(records), std::vector<std::string>{"Alpha"});

    ASSERT_EQ(other.run("ROLLBACK"), SQLITE_OK);
    ASSERT_TRUE(ledger->record(second, error)) << error;

    // A holder of the whole file (exclusive locking, which needs it to be the only one open) keeps
    // even a new run from opening it.
    ledger.reset();
    ASSERT_EQ(other.run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE;"), SQLITE_OK);
    started = std::chrono::steady_clock::now();
    std::string said;
    EXPECT_EQ(PublishLedger::open(file, said, 300ms), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
    EXPECT_NE(said.find("is in use by another sorvel run"), std::string::npos) << said;
    ASSERT_EQ(other.run("COMMIT; PRAGMA locking_mode = NORMAL; SELECT count(*) FROM uploads;"), SQLITE_OK);

    ledger = open(300ms);
    ASSERT_TRUE(ledger);
    ASSERT_TRUE(ledger->history("", records, error)) << error;
    EXPECT_EQ(namesOf(records).size(), 2u);
}

TEST_F(PublishLedgerTest, AWriterKilledInTheMiddleOfItsWritesLeavesEveryConfirmedRecord)
{
    ASSERT_TRUE(open()) << "the ledger exists before the writers start";
    std::set<int> confirmed;
    int next = 1;
    for (int round = 0; round < 3; ++round)
    {
        SCOPED_TRACE("round " + std::to_string(round));
        // The child records one upload after another and confirms each once record returned.
        Child writer([this, first = next](int, int out) {
            std::string failed;
            Ledger ledger = PublishLedger::open(file, failed);
            if (!ledger)
                return 3;
            for (int n = first; n < first + 100000; ++n)
            {
                PublishLedger::Record record = upload("Track " + std::to_string(n), std::to_string(n));
                if (!ledger->record(record, failed))
                    return 4;
                const char number[4] = {char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
                for (char byte : number)
                    Child::writeByte(out, byte);
            }
            return 0;
        });
        ASSERT_GT(writer.pid(), 0);
        auto receiveNumber = [&](std::chrono::milliseconds limit) {
            int value = 0;
            for (int i = 0; i < 4; ++i)
            {
                const int byte = writer.receive(limit);
                if (byte < 0)
                    return -1;
                value = value << 8 | byte;
            }
            return value;
        };
        // Killed after a different number of records each round, while it is writing the next.
        for (int seen = 0; seen < 20 + 13 * round; ++seen)
        {
            const int number = receiveNumber(10s);
            ASSERT_GT(number, 0) << "the writer stopped confirming";
            confirmed.insert(number);
            next = std::max(next, number + 1);
        }
        writer.kill();
        // What it confirmed before it died is in the pipe still.
        for (int number; (number = receiveNumber(0ms)) > 0;)
        {
            confirmed.insert(number);
            next = std::max(next, number + 1);
        }
        // It may have committed one more than it could confirm.
        next += 1;

        Ledger reopened = open();
        ASSERT_TRUE(reopened) << "the ledger opens after the kill";
        std::vector<PublishLedger::Record> records;
        ASSERT_TRUE(reopened->history("", records, error)) << error;
        std::set<std::string> names;
        for (const PublishLedger::Record& record : records)
            names.insert(record.trackName);
        for (int number : confirmed)
            EXPECT_TRUE(names.count("Track " + std::to_string(number))) << "lost: record " << number;
        EXPECT_LE(records.size(), confirmed.size() + round + 1);
        EXPECT_EQ(RawConnection(file).text("PRAGMA integrity_check"), "ok");
    }
}

TEST_F(PublishLedgerTest, AProductIsClaimedByOneLiveRunAtATime)
{
    Ledger ledger = open();
    ASSERT_TRUE(ledger);
    const std::string service = "https://api.example.com/v1/", account = "1001";
    PublishLedger::Claim claim;
    ASSERT_TRUE(ledger->claimProduct(service, account, "Night Drive", 0ms, claim, error)) << error;
    EXPECT_TRUE(claim.taken);
    ASSERT_TRUE(ledger->claimProduct(service, account, "Night Drive", 0ms, claim, error)) << error;
    EXPECT_TRUE(claim.taken) << "a run holds its own claim again";

    // Another process: refused the held product, given another one, and gives that up as it ends.
    auto claimIn = [&](const std::string& product, std::chrono::milliseconds wait) {
        return [&, product, wait](int, int out) {
            std::string failed;
            Ledger own = PublishLedger::open(file, failed);
            PublishLedger::Claim result;
            if (!own || !own->claimProduct(service, account, product, wait, result, failed))
                return 3;
            Child::writeByte(out, result.taken ? 'T' : 'H');
            if (!result.taken)
                Child::writeByte(out, result.heldBy == ::getppid() ? 'P' : '?');
            return 0;
        };
    };
    // The holder's memory grows after it claimed (as a run's does while it uploads): it is still
    // the same live run, known by its start time.
    void* grown = ::mmap(nullptr, 64 << 20, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(grown, MAP_FAILED);
    {
        Child other(claimIn("Night Drive", 0ms));
        EXPECT_EQ(other.receive(), 'H');
        EXPECT_EQ(other.receive(), 'P') << "names the process that holds it";
        EXPECT_EQ(other.exitCode(), 0);
    }
    ::munmap(grown, 64 << 20);
    {
        Child other(claimIn("Harbour", 0ms));
        EXPECT_EQ(other.receive(), 'T');
        EXPECT_EQ(other.exitCode(), 0);
    }
    ASSERT_TRUE(ledger->claimProduct(service, account, "Harbour", 0ms, claim, error)) << error;
    EXPECT_TRUE(claim.taken) << "the other process released its claim when it ended";

    // A run killed while it holds a claim leaves it stale, and the next run takes it over.
    {
        Child killed([&](int, int out) {
            std::string failed;
            Ledger own = PublishLedger::open(file, failed);
            PublishLedger::Claim result;
            if (own && own->claimProduct(service, account, "Tunnel", 0ms, result, failed) && result.taken)
                Child::writeByte(out, 'T');
            ::pause();
            return 0;
        });
        ASSERT_EQ(killed.receive(), 'T');
        ASSERT_TRUE(ledger->claimProduct(service, account, "Tunnel", 0ms, claim, error)) << error;
        EXPECT_FALSE(claim.taken) << "held by a live run";
        EXPECT_EQ(claim.heldBy, killed.pid());
        killed.kill();
        ASSERT_TRUE(ledger->claimProduct(service, account, "Tunnel", 0ms, claim, error)) << error;
        EXPECT_TRUE(claim.taken) << "the killed run's claim was not taken over";
    }

    // A run that waits gets the product once the holder releases it.
    {
        Child waiting([&](int in, int out) {
            std::string failed;
            Ledger own = PublishLedger::open(file, failed);
            PublishLedger::Claim result;
            Child::writeByte(out, 'W');
            if (!own || !own->claimProduct(service, account, "Night Drive", 20s, result, failed))
                return 3;
            Child::writeByte(out, result.taken ? 'T' : 'H');
            Child::readByte(in, 10s); // holds it until told to end
            return 0;
        });
        ASSERT_EQ(waiting.receive(), 'W');
        ASSERT_TRUE(ledger->releaseProduct(service, account, "Night Drive", error)) << error;
        EXPECT_EQ(waiting.receive(15s), 'T');
        ASSERT_TRUE(ledger->claimProduct(service, account, "Night Drive", 0ms, claim, error)) << error;
        EXPECT_FALSE(claim.taken);
        EXPECT_EQ(claim.heldBy, waiting.pid());
        waiting.send('x');
        EXPECT_EQ(waiting.exitCode(), 0);
    }

    // Two runs that ask at the same moment: exactly one gets it.
    auto racer = [&](int in, int out) {
        std::string failed;
        Ledger own = PublishLedger::open(file, failed);
        if (!own || Child::readByte(in, 10s) != 'g')
            return 3;
        PublishLedger::Claim result;
        if (!own->claimProduct(service, account, "Race", 0ms, result, failed))
            return 4;
        Child::writeByte(out, result.taken ? 'T' : 'H');
        Child::readByte(in, 10s); // holds it until both have answered
        return 0;
    };
    for (int round = 0; round < 5; ++round)
    {
        SCOPED_TRACE("race " + std::to_string(round));
        {
            Child one(racer), two(racer);
            one.send('g');
            two.send('g');
            const int first = one.receive(), second = two.receive();
            EXPECT_EQ(std::multiset<int>({first, second}), (std::multiset<int>{'T', 'H'}));
            one.send('x');
            two.send('x');
            EXPECT_EQ(one.exitCode(), 0);
            EXPECT_EQ(two.exitCode(), 0);
        }
    }
}

} // namespace
