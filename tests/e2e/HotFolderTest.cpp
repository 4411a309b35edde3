// `sorvel publish --watch` against the service emulator: finished exports go up in batches under
// one sign-in, a re-export replaces its track, the files of a failed batch go with the next one,
// Ctrl-C cancels the running batch (130) and SIGTERM lets it finish (0), --json prints one
// document per batch that follows the written schema, and a watched folder that goes away ends
// the command with its reason.

#include "tests/e2e/SorvelProgram.h"

#include <functional>
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

    /// The JSON lines of `text`, each checked against the schema's publish document.
    static std::vector<rapidjson::Document> jsonLines(const std::string& text)
    {
        std::vector<rapidjson::Document> documents;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
        {
            EXPECT_EQ(schemaError(line, "publish"), "");
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

    // SIGTERM while it waits: it ends with 0 and nothing more on standard output.
    kill(child->pid(), SIGTERM);
    const ProgramRun run = child->wait();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(requests(Endpoint::SignIn), 1u) << "one sign-in for every batch";
    expectNoSecretIn(run, login.password);
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

TEST_F(HotFolder, WatchingNeedsAFolderAndNoFiles)
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
    EXPECT_EQ(requests(Endpoint::SignIn), 0u) << "nothing is sent for a bad command line";
}

} // namespace
