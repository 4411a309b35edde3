// Publishing again with the ledger: an unchanged album sends nothing, a changed file is sent
// alone, --force sends everything, --dry-run has no effect on the service, a ledger that cannot
// be used stops the run before anything is sent, two runs at once never send a file twice, and
// --retry carries a batch over a link that drops connections.

#include "tests/e2e/SorvelProgram.h"

#include <map>
#include <set>
#include <sqlite3.h>

namespace {

using namespace E2E;
namespace fs = std::filesystem;

class Republish : public SorvelProgram
{
protected:
    fs::path ledgerFile() const { return home / "state" / "sorvel" / "ledger.sqlite"; }

    std::vector<std::string> publishArguments(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), {"publish", "--user", login.username, "--password-stdin", "--no-progress"});
        return arguments;
    }

    ProgramRun publish(std::vector<std::string> arguments)
    {
        return Child(publishArguments(std::move(arguments)), environment(), login.password + "\n").wait();
    }

    /// `count` short FLACs of different tones, as files of an album.
    std::vector<std::string> album(size_t count, double seconds = 0.2)
    {
        std::vector<std::string> files;
        for (size_t i = 0; i < count; ++i)
        {
            const fs::path path = home / "album" / ("song" + std::to_string(i + 10) + ".flac");
            fs::create_directories(path.parent_path());
            const double step = 0.02 + 0.01 * static_cast<double>(i);
            EXPECT_TRUE(RenderTest::writeSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 1,
                                               static_cast<std::int64_t>(seconds * 44100),
                                               [step](std::int64_t frame, int) { return 0.4 * std::sin(frame * step); }));
            files.push_back(path.string());
        }
        return files;
    }

    size_t logged(Endpoint endpoint) const { return sandbox->requestLog().entries(endpoint).size(); }

    /// The demo account's tracks of the product `name` by name, with how often each name occurs.
    std::map<std::string, size_t> tracksOf(const std::string& name) const
    {
        std::map<std::string, size_t> names;
        for (const auto& account : sandbox->accounts())
            for (const auto& title : account.titles)
                if (title.name == name)
                    for (const auto& track : title.tracks)
                        ++names[track.name];
        return names;
    }

    size_t productsNamed(const std::string& name) const
    {
        size_t count = 0;
        for (const auto& account : sandbox->accounts())
            for (const auto& title : account.titles)
                count += title.name == name;
        return count;
    }

    static double seconds(std::chrono::steady_clock::time_point since)
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
    }
};

TEST_F(Republish, AnUnchangedAlbumSendsNothingAndAChangedFileIsSentAlone)
{
    const std::vector<std::string> files = album(12);
    std::vector<std::string> arguments = {"--product", "Twelve", "--json"};
    arguments.insert(arguments.end(), files.begin(), files.end());

    auto started = std::chrono::steady_clock::now();
    const ProgramRun first = publish(arguments);
    const double firstSeconds = seconds(started);
    ASSERT_EQ(first.exitCode, 0) << first.err;
    ASSERT_EQ(sandbox->storedFiles().size(), 12u);
    ASSERT_TRUE(fs::is_regular_file(ledgerFile()));

    // Again, unchanged: no track request and no file; every row says so.
    sandbox->requestLog().clear();
    started = std::chrono::steady_clock::now();
    const ProgramRun again = publish(arguments);
    const double againSeconds = seconds(started);
    ASSERT_EQ(again.exitCode, 0) << again.err;
    for (Endpoint endpoint : {Endpoint::CreateTitle, Endpoint::CreateTrack, Endpoint::UploadToken, Endpoint::Upload,
                              Endpoint::UploadStatus})
        EXPECT_EQ(logged(endpoint), 0u) << SorvelSandbox::endpointName(endpoint);
    const auto document = parse(again.out);
    ASSERT_TRUE(document.IsObject()) << again.out;
    EXPECT_STREQ(document["result"].GetString(), "uploaded");
    EXPECT_EQ(document["uploaded"].GetInt(), 0);
    EXPECT_EQ(document["unchanged"].GetInt(), 12);
    size_t unchangedRows = 0;
    for (const auto& track : document["tracks"].GetArray())
        unchangedRows += track["in_batch"].GetBool() && std::string(track["state"].GetString()) == "unchanged";
    EXPECT_EQ(unchangedRows, 12u) << again.out;
    std::printf("[ figures  ] first publish of 12 files %.2f s, unchanged republish %.2f s\n", firstSeconds,
                againSeconds);

    // As text: the table's rows and the summary say it too.
    const ProgramRun text = publish({"--product", "Twelve", files[0], files[1]});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_NE(text.out.find("unchanged"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("nothing was sent"), std::string::npos) << text.out;

    // One file changed: exactly that one is sent, into its track.
    const fs::path changed = files[5];
    ASSERT_TRUE(RenderTest::writeSound(changed, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 1, 8820,
                                       [](std::int64_t frame, int) { return 0.3 * std::sin(frame * 0.3); }));
    sandbox->requestLog().clear();
    const ProgramRun oneChanged = publish(arguments);
    ASSERT_EQ(oneChanged.exitCode, 0) << oneChanged.err;
    EXPECT_EQ(logged(Endpoint::Upload), 1u);
    EXPECT_EQ(logged(Endpoint::CreateTrack), 0u);
    EXPECT_EQ(parse(oneChanged.out)["unchanged"].GetInt(), 11);

    // Changed metadata counts as a change too; --force sends all of them.
    sandbox->requestLog().clear();
    std::vector<std::string> retitled = {"--product", "Twelve", "--genre", "Ambient"};
    retitled.insert(retitled.end(), files.begin(), files.begin() + 3);
    ASSERT_EQ(publish(retitled).exitCode, 0);
    EXPECT_EQ(logged(Endpoint::Upload), 3u);
    sandbox->requestLog().clear();
    std::vector<std::string> forced = arguments;
    forced.push_back("--force");
    ASSERT_EQ(publish(forced).exitCode, 0);
    EXPECT_EQ(logged(Endpoint::Upload), 12u);

    const auto names = tracksOf("Twelve");
    EXPECT_EQ(names.size(), 12u);
    for (const auto& [name, count] : names)
        EXPECT_EQ(count, 1u) << name;
    EXPECT_EQ(productsNamed("Twelve"), 1u);
}

TEST_F(Republish, ADryRunSignsInListsAndRendersButSendsNothingElse)
{
    const std::vector<std::string> files = album(3);
    ASSERT_EQ(publish({"--product", "Planned", files[0]}).exitCode, 0);
    sandbox->requestLog().clear();
    const ProgramRun plan = publish({"--product", "Planned", "--dry-run", files[0], files[1], files[2]});
    ASSERT_EQ(plan.exitCode, 0) << plan.err;
    for (const auto& request : sandbox->requestLog().entries())
        EXPECT_TRUE(request.endpoint == Endpoint::SignIn || request.endpoint == Endpoint::Activity ||
                    request.endpoint == Endpoint::AnonymousActivity || request.endpoint == Endpoint::Titles)
            << SorvelSandbox::endpointName(request.endpoint);
    EXPECT_NE(plan.out.find("1 unchanged"), std::string::npos) << plan.out;
    EXPECT_NE(plan.out.find("2 to add"), std::string::npos) << plan.out;

    // A new product is only planned; the strict check fails a dry run as it fails a real one.
    const ProgramRun fresh = publish({"--product", "Not Yet", "--dry-run", "--json", files[1]});
    ASSERT_EQ(fresh.exitCode, 0) << fresh.err;
    const auto document = parse(fresh.out);
    ASSERT_TRUE(document.IsObject()) << fresh.out;
    EXPECT_STREQ(document["result"].GetString(), "planned");
    EXPECT_TRUE(document["product"]["new"].GetBool());
    EXPECT_EQ(productsNamed("Not Yet"), 0u);
    const std::string clipping = (home / "loud.flac").string();
    ASSERT_TRUE(RenderTest::writeSound(clipping, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 1, 8820,
                                       [](std::int64_t frame, int) { return frame % 2 ? 1.0 : -1.0; }));
    EXPECT_EQ(publish({"--product", "Not Yet", "--dry-run", "--strict", clipping}).exitCode, 5);
    for (const auto& request : sandbox->requestLog().entries())
        EXPECT_NE(request.endpoint, Endpoint::Upload);
}

TEST_F(Republish, ALedgerThatCannotBeUsedStopsTheRunBeforeAnythingIsSent)
{
    const std::vector<std::string> files = album(1);
    fs::create_directories(ledgerFile().parent_path());
    {
        std::ofstream junk(ledgerFile());
        junk << "this is no database, only words";
    }
    ProgramRun run = publish({"--product", "Kept", files[0]});
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find(ledgerFile().string()), std::string::npos) << run.err;
    EXPECT_EQ(sandbox->requestLog().size(), 0u) << "the ledger is checked before signing in";

    // A ledger another process holds locked past the wait.
    fs::remove(ledgerFile());
    ASSERT_EQ(publish({"--product", "Kept", files[0]}).exitCode, 0);
    sqlite3* holder = nullptr;
    ASSERT_EQ(sqlite3_open(ledgerFile().c_str(), &holder), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    sandbox->requestLog().clear();
    run = publish({"--product", "Kept", files[0]});
    sqlite3_exec(holder, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(holder);
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("sorvel: "), std::string::npos);
    EXPECT_EQ(logged(Endpoint::Upload), 0u);
    EXPECT_EQ(run.err.find("Segmentation"), std::string::npos);
}

TEST_F(Republish, TwoRunsAtOnceToOneProductNeverSendAFileTwice)
{
    const std::vector<std::string> files = album(6);
    std::vector<std::string> arguments = {"--product", "Together"};
    arguments.insert(arguments.end(), files.begin(), files.end());
    Child one(publishArguments(arguments), environment(), login.password + "\n");
    Child two(publishArguments(arguments), environment(), login.password + "\n");
    const ProgramRun first = one.wait();
    const ProgramRun second = two.wait();
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(logged(Endpoint::Upload), 6u) << "each file sent once";
    EXPECT_EQ(productsNamed("Together"), 1u) << first.err << second.err;
    const auto names = tracksOf("Together");
    EXPECT_EQ(names.size(), 6u);
    for (const auto& [name, count] : names)
        EXPECT_EQ(count, 1u) << name;
    for (const auto& [track, reports] : sandbox->requestLog().confirmedUploads())
        EXPECT_EQ(reports, 1u) << "track " << track;
}

TEST_F(Republish, RetriesCarryABatchOverALinkThatDropsConnections)
{
    sandbox->stop();
    sandbox = std::make_unique<SorvelSandbox::Sandbox>();
    SorvelSandbox::Sandbox::Options options;
    // Every third connection is reset at its first request; the upload keeps its connection open
    // for the whole batch, and a reset cuts the batch wherever it stands.
    options.dropEveryNthConnection = 3;
    std::string error;
    ASSERT_GT(sandbox->start(options, error), 0) << error;
    service = {sandbox->baseUrl(), sandbox->loginUrl(), sandbox->partnerId(), sandbox->partnerKey()};

    const std::vector<std::string> files = album(20);
    std::vector<std::string> arguments = {"--product", "Flaky", "--retry", "5", "--json"};
    arguments.insert(arguments.end(), files.begin(), files.end());
    const ProgramRun run = publish(arguments);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("retrying"), std::string::npos) << "each retry is announced";
    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_GT(document["retries"].GetInt(), 0);

    const auto names = tracksOf("Flaky");
    EXPECT_EQ(names.size(), 20u);
    for (const auto& [name, count] : names)
        EXPECT_EQ(count, 1u) << name;
    EXPECT_EQ(productsNamed("Flaky"), 1u);
    const auto confirmed = sandbox->requestLog().confirmedUploads();
    EXPECT_EQ(confirmed.size(), 20u);
    for (const auto& [track, reports] : confirmed)
        EXPECT_EQ(reports, 1u) << "track " << track;
}

} // namespace
