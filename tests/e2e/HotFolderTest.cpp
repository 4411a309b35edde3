// `sorvel publish --watch` against the service emulator: finished exports go up in batches under
// one sign-in, a re-export replaces its track, the files of a failed batch go with the next one,
// Ctrl-C cancels the running batch (130) and SIGTERM lets it finish (0), --json prints one
// document per batch that follows the written schema, and a watched folder that goes away ends
// the command with its reason.

#include "tests/e2e/SorvelProgram.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace {

using namespace E2E;
namespace fs = std::filesystem;
using std::chrono::seconds;

class HotFolder : public SorvelProgram
{
protected:
    fs::path folder() const { return home / "exports"; }

    /// `sorvel publish --watch` on the export folder, with a short quiet time, signed in as the
    /// demo user; waits until it watches (said on standard output, or on standard error with
    /// --json).
    std::unique_ptr<Child> startWatching(const std::vector<std::string>& extra = {},
                                         const std::string& product = "Hot Folder")
    {
        fs::create_directories(folder());
        std::vector<std::string> arguments = {"publish",       "--user",          login.username, "--password-stdin",
                                              "--watch",       folder().string(), "--settle",     "0.3",
                                              "--no-progress", "--product",       product};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        auto child = std::make_unique<Child>(arguments, environment(), login.password + "\n");
        EXPECT_GT(child->pid(), 0);
        const bool json = std::find(extra.begin(), extra.end(), "--json") != extra.end();
        const std::string said = json ? child->readErrorUntil("Press Ctrl+C", seconds(60))
                                      : child->readOutputUntil("Press Ctrl+C", seconds(60));
        EXPECT_NE(said.find("Watching " + folder().string()), std::string::npos) << said;
        return child;
    }

    /// Exports `names` as a workstation that writes under a hidden name and renames the finished
    /// file does: all of them finished within a moment. A second of 44.1 kHz 16-bit stereo tone.
    void exportFiles(const std::vector<std::string>& names, double frequency = 440, double length = 1.0)
    {
        for (const std::string& name : names)
            ASSERT_TRUE(RenderTest::writeSound(folder() / ("." + name), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2,
                                               static_cast<std::int64_t>(length * 44100), [&](std::int64_t frame, int) {
                                                   return 0.3 * std::sin(frame * 2 * M_PI * frequency / 44100);
                                               }));
        for (const std::string& name : names)
            fs::rename(folder() / ("." + name), folder() / name);
    }

    /// Waits until `condition` holds; false when `limit` passed first.
    static bool eventually(const std::function<bool()>& condition, seconds limit = seconds(60))
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition())
        {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    size_t requests(Endpoint endpoint) { return sandbox->requestLog().entries(endpoint).size(); }

    /// The JSON lines of `text`, each checked against the schema: a publish or a failure document.
    static std::vector<rapidjson::Document> jsonLines(const std::string& text)
    {
        std::vector<rapidjson::Document> documents;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
        {
            // A batch's report, or the failure document of a batch that ended before it.
            const std::string error = schemaError(line, "publish");
            if (!error.empty())
            {
                EXPECT_EQ(schemaError(line, "failure"), "") << error;
            }
            documents.push_back(parse(line));
        }
        return documents;
    }
};

TEST_F(HotFolder, ExportsGoUpInBatchesUnderOneSignInAndAReExportReplacesItsTrack)
{
    auto child = startWatching({"--json"});
    exportFiles({"One.wav", "Two.wav", "Three.wav"});
    std::string out = child->readOutputUntil("\n", seconds(90));
    std::vector<rapidjson::Document> batches = jsonLines(out);
    ASSERT_EQ(batches.size(), 1u) << "three exports close together are one batch: " << out;
    EXPECT_STREQ(batches[0]["result"].GetString(), "uploaded");
    EXPECT_EQ(batches[0]["files"].GetInt(), 3);
    EXPECT_EQ(batches[0]["uploaded"].GetInt(), 3);
    EXPECT_STREQ(batches[0]["product"]["name"].GetString(), "Hot Folder");
    EXPECT_EQ(sandbox->storedFiles().size(), 3u);
    const size_t tracksCreated = requests(Endpoint::CreateTrack);
    EXPECT_EQ(tracksCreated, 3u);

    // Exported again, with other audio: it goes up once more as the new audio of its track.
    exportFiles({"Two.wav"}, 660);
    out = child->readOutputUntil("\n", seconds(90));
    batches = jsonLines(out);
    ASSERT_EQ(batches.size(), 1u) << out;
    EXPECT_STREQ(batches[0]["result"].GetString(), "uploaded");
    EXPECT_EQ(batches[0]["files"].GetInt(), 1);
    EXPECT_EQ(batches[0]["uploaded"].GetInt(), 1);
    EXPECT_FALSE(batches[0]["product"]["new"].GetBool()) << "the product the first batch made";
    bool listed = false;
    for (const auto& track : batches[0]["tracks"].GetArray())
        if (track["in_batch"].GetBool())
            listed = std::string(track["title"].GetString()) == "Two";
    EXPECT_TRUE(listed) << out;
    EXPECT_EQ(requests(Endpoint::CreateTrack), tracksCreated) << "the track was replaced, not added";
    EXPECT_EQ(sandbox->storedFiles().size(), 4u);

    // Exported again as it was: the ledger finds it unchanged on the product, and nothing is sent.
    exportFiles({"One.wav"});
    out = child->readOutputUntil("\n", seconds(90));
    batches = jsonLines(out);
    ASSERT_EQ(batches.size(), 1u) << out;
    EXPECT_STREQ(batches[0]["result"].GetString(), "uploaded") << out;
    EXPECT_EQ(batches[0]["unchanged"].GetInt(), 1) << out;
    EXPECT_EQ(batches[0]["uploaded"].GetInt(), 0) << out;
    EXPECT_EQ(sandbox->storedFiles().size(), 4u) << "nothing sent for an unchanged export";
    EXPECT_EQ(requests(Endpoint::CreateTitle), 1u) << "one product for every batch";

    // The watch gives up its claim of the product after each batch: a publish of the user's own
    // to the product goes at once while the watch waits for the next export.
    const ProgramRun own = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress",
                                   "--product", "Hot Folder", flac("Bonus")},
                                  login.password);
    EXPECT_EQ(own.exitCode, 0) << own.err;
    EXPECT_EQ(own.err.find("another sorvel"), std::string::npos) << own.err;

    // SIGTERM while it waits: it ends with 0 and nothing more on standard output.
    kill(child->pid(), SIGTERM);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(requests(Endpoint::SignIn), 2u) << "one sign-in for every batch, one for the publish beside it";
    expectNoSecretIn(run, login.password);

    // Every upload the watch made is in the ledger, as publish records them.
    const ProgramRun history = sorvel({"history", "--json", "--product", "Hot Folder"}, "");
    ASSERT_EQ(history.exitCode, 0) << history.err;
    const auto recorded = parse(history.out);
    ASSERT_TRUE(recorded.IsObject() && recorded.HasMember("uploads")) << history.out;
    std::multiset<std::string> sources;
    for (const auto& upload : recorded["uploads"].GetArray())
    {
        const std::string source = fs::path(upload["source"].GetString()).filename().string();
        sources.insert(source);
        // The exports are CD audio, which the render passes through as it is.
        if (source != "Bonus.flac")
        {
            EXPECT_STREQ(upload["format"].GetString(), "WAV 44100 Hz 16-bit stereo") << source;
        }
    }
    EXPECT_EQ(sources, (std::multiset<std::string>{"Bonus.flac", "One.wav", "Three.wav", "Two.wav", "Two.wav"}))
        << history.out;
}

TEST_F(HotFolder, CtrlCCancelsTheRunningBatch)
{
    sandbox->injectFault(Endpoint::Upload, Fault::delayed(std::chrono::milliseconds(3000)));
    auto child = startWatching();
    exportFiles({"Long.wav"}, 440, 3.0);
    ASSERT_TRUE(eventually([&] { return requests(Endpoint::UploadToken) > 0; })) << "the upload began";
    kill(child->pid(), SIGINT);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_EQ(requests(Endpoint::UploadStatus), 0u) << "no upload reported complete";
}

TEST_F(HotFolder, SigtermLetsTheRunningBatchFinish)
{
    sandbox->injectFault(Endpoint::Upload, Fault::delayed(std::chrono::milliseconds(1500)));
    auto child = startWatching();
    exportFiles({"Last.wav"});
    ASSERT_TRUE(eventually([&] { return requests(Endpoint::UploadToken) > 0; })) << "the upload began";
    kill(child->pid(), SIGTERM);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("1 of 1 tracks uploaded"), std::string::npos) << run.out;
    EXPECT_EQ(sandbox->storedFiles().size(), 1u);
    EXPECT_GT(requests(Endpoint::UploadStatus), 0u);
}

TEST_F(HotFolder, AFailedBatchsFilesGoWithTheNextAndARemovedFolderEndsTheCommand)
{
    sandbox->injectFault(Endpoint::Upload, Fault::httpStatus(500));
    auto child = startWatching();
    exportFiles({"First.wav"});
    std::string out = child->readOutputUntil("for the next batch", seconds(90));
    EXPECT_NE(out.find("0 of 1 tracks uploaded"), std::string::npos) << out;

    exportFiles({"Second.wav"}, 550);
    out = child->readOutputUntil("tracks uploaded", seconds(90));
    EXPECT_NE(out.find("Publishing 2 files: First.wav, Second.wav"), std::string::npos) << out;
    EXPECT_NE(out.find("2 of 2 tracks uploaded"), std::string::npos) << out;
    // The product and the track that the failed batch created are found again, not made twice.
    EXPECT_EQ(requests(Endpoint::CreateTitle), 1u);
    EXPECT_EQ(requests(Endpoint::CreateTrack), 2u);

    fs::remove_all(folder());
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_NE(run.err.find("the watched folder " + folder().string() + " was removed"), std::string::npos) << run.err;
}

TEST_F(HotFolder, AStrictBatchWithFindingsIsHeldBackAndHoldsBackNoOther)
{
    // The code is that of the product's track "Tunnel": on any other track it is an error.
    auto child = startWatching({"--strict", "--isrc", "QZDEM1400002"}, "Night Drive");
    exportFiles({"Take.wav"});
    std::string out = child->readOutputUntil("Held back", seconds(90));
    EXPECT_NE(out.find("Held back: Take.wav"), std::string::npos) << out;
    EXPECT_EQ(requests(Endpoint::CreateTrack), 0u);
    const size_t storedBefore = sandbox->storedFiles().size();

    exportFiles({"Tunnel.wav"});
    out = child->readOutputUntil("tracks uploaded", seconds(90));
    EXPECT_NE(out.find("Publishing 1 file: Tunnel.wav"), std::string::npos) << "the held back file waits: " << out;
    EXPECT_NE(out.find("1 of 1 tracks uploaded"), std::string::npos) << out;
    EXPECT_EQ(sandbox->storedFiles().size(), storedBefore + 1);
    kill(child->pid(), SIGTERM);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("nothing was uploaded (--strict)"), std::string::npos) << run.err;
}

TEST_F(HotFolder, AFileThatCannotBeRenderedHoldsBackNoOtherFile)
{
    auto child = startWatching({"--json"});
    // A FLAC file whose header reads well and whose audio is damaged half way: its render fails.
    const fs::path damaged = folder() / ".Damaged.flac";
    ASSERT_TRUE(RenderTest::writeSound(damaged, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 44100, 2, 2 * 44100,
                                       [](std::int64_t frame, int channel) {
                                           return 0.3 * std::sin(frame * 0.01 + channel) + ((frame * 7919) % 200) / 4e4;
                                       }));
    {
        std::fstream file(damaged, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(fs::file_size(damaged) / 2));
        file << std::string(4000, '\xFF');
    }
    fs::rename(damaged, folder() / "Damaged.flac");
    exportFiles({"Sound.wav"});

    // A document for the batch that ended on the damaged file, then one for the file that went.
    std::string out = child->readOutputUntil("\n", seconds(90));
    if (std::count(out.begin(), out.end(), '\n') < 2)
        out += child->readOutputUntil("\n", seconds(90));
    const std::vector<rapidjson::Document> batches = jsonLines(out);
    ASSERT_EQ(batches.size(), 2u) << out;
    EXPECT_STREQ(batches[0]["result"].GetString(), "usage") << out;
    EXPECT_NE(std::string(batches[0]["error"].GetString()).find("Damaged.flac"), std::string::npos) << out;
    EXPECT_STREQ(batches[1]["result"].GetString(), "uploaded") << out;
    EXPECT_EQ(batches[1]["files"].GetInt(), 1) << out;
    ASSERT_EQ(sandbox->storedFiles().size(), 1u);
    kill(child->pid(), SIGTERM);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("Skipped " + (folder() / "Damaged.flac").string() + ": it could not be rendered"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("Publishing 1 file: Sound.wav"), std::string::npos) << run.err;
}

TEST_F(HotFolder, WatchingNeedsAFolderNoFilesAndAUsableLedger)
{
    ProgramRun run = sorvel({"publish", "--watch", (home / "missing").string()}, login.password);
    EXPECT_EQ(run.exitCode, 2);
    run = sorvel({"publish", "--settle", "1", flac("Take")}, login.password);
    EXPECT_EQ(run.exitCode, 2) << "--settle needs --watch";
    fs::create_directories(folder());
    run = sorvel({"publish", "--watch", folder().string(), flac("Take")}, login.password);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("not both"), std::string::npos) << run.err;
    run = sorvel({"publish", "--watch", folder().string(), "--year", "1999", "--year", "2000"}, login.password);
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("--year was given 2 times"), std::string::npos) << run.err;
    // Each batch would create another product, or try again what the next batch takes anyway.
    for (const char* flag : {"--new-product", "--retry"})
    {
        std::vector<std::string> arguments = {"publish", "--watch", folder().string(), flag};
        if (std::string(flag) == "--retry")
            arguments.push_back("2");
        run = sorvel(arguments, login.password);
        EXPECT_EQ(run.exitCode, 2) << flag;
        EXPECT_NE(run.err.find(std::string(flag) + " cannot be used with --watch"), std::string::npos) << run.err;
    }
    EXPECT_EQ(requests(Endpoint::SignIn), 0u) << "nothing is sent for a bad command line";

    // A ledger that is no database stops the watch before the sign-in, and is left as it was.
    const fs::path ledger = home / "state" / "sorvel" / "ledger.sqlite";
    fs::create_directories(ledger.parent_path());
    std::ofstream(ledger) << "not a ledger";
    run =
        sorvel({"publish", "--watch", folder().string(), "--user", login.username, "--password-stdin"}, login.password);
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find(ledger.string()), std::string::npos) << run.err;
    EXPECT_EQ(requests(Endpoint::SignIn), 0u);
    std::ifstream kept(ledger);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "not a ledger");
}

} // namespace
