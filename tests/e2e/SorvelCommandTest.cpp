// The built `sorvel` program run as a user runs it, against the service emulator on a port of its
// own, configured through the environment.

#include "framework/interfaces/TextKeys.h"
#include "host/terminal/TextWidth.h"
#include "tests/e2e/SorvelProgram.h"
#include "tests/support/BuildPaths.h"
#include "tests/support/TaggedSound.h"

#include <csignal>
#include <fstream>
#include <set>
#include <sstream>

namespace {

using namespace E2E;

TEST_F(SorvelProgram, PublishesRenderedFilesToANewProductAndReplacesATrackOfAnExistingOne)
{
    const ProgramRun created = sorvel({"publish", "--user", login.username, "--password-stdin", "--json", "--product",
                                "First Light", flac("Morning"), flac("Noon"), flac("Dusk")},
                               login.password);
    ASSERT_EQ(created.exitCode, 0) << created.err;
    const auto document = parse(created.out);
    ASSERT_TRUE(document.IsObject()) << created.out;
    EXPECT_STREQ(document["result"].GetString(), "uploaded");
    EXPECT_STREQ(document["product"]["name"].GetString(), "First Light");
    EXPECT_NE(std::string(document["product"]["page"].GetString()).rfind(sandbox->loginUrl(), 0), std::string::npos);
    EXPECT_EQ(std::string(document["product"]["page"].GetString()).find('?'), std::string::npos)
        << "the page's signed query is never shown";
    ASSERT_EQ(document["tracks"].Size(), 3u);
    for (const auto& track : document["tracks"].GetArray())
        EXPECT_STREQ(track["state"].GetString(), "uploaded") << track["title"].GetString();
    EXPECT_STREQ(document["tracks"][0]["title"].GetString(), "Morning");
    ASSERT_TRUE(document["tracks"][0].HasMember("source"));
    EXPECT_EQ(std::string(document["tracks"][0]["source"].GetString()), (home / "Morning.flac").string());
    ASSERT_EQ(sandbox->storedFiles().size(), 3u);
    for (const auto& file : sandbox->storedFiles())
        EXPECT_GT(file.size, 44100u * 4 - 4000) << "a second of 44.1 kHz 16-bit stereo";
    expectNoSecretIn(created, login.password);
    // Every file post's boundary ends in four hexadecimal digits from 0000 to 7FFF.
    const std::string boundaryPrefix = "multipart/form-data; boundary=----------------------------XXBOUNDARY";
    ASSERT_EQ(sandbox->requestLog().entries(Endpoint::Upload).size(), 3u);
    for (const auto& post : sandbox->requestLog().entries(Endpoint::Upload))
    {
        ASSERT_EQ(post.contentType.size(), boundaryPrefix.size() + 4) << post.contentType;
        EXPECT_EQ(post.contentType.substr(0, boundaryPrefix.size()), boundaryPrefix);
        EXPECT_LE(std::stoul(post.contentType.substr(boundaryPrefix.size()), nullptr, 16), 0x7FFFu) << post.contentType;
    }
    const auto renderFolder = home / "cache" / "sorvel" / "render";
    ASSERT_TRUE(std::filesystem::exists(renderFolder)) << "the rendered files went to the user's cache folder";
    EXPECT_TRUE(std::filesystem::is_empty(renderFolder)) << "rendered files are removed";

    // A file named as a track of an existing product replaces it; no new track is created.
    const size_t tracksCreated = sandbox->requestLog().entries(Endpoint::CreateTrack).size();
    const ProgramRun replaced = sorvel({"publish", "--user", login.username, "--password-stdin", "--product", "Night Drive",
                                 "--no-progress", flac("Tunnel")},
                                login.password);
    ASSERT_EQ(replaced.exitCode, 0) << replaced.err;
    EXPECT_NE(replaced.out.find("Replace"), std::string::npos) << replaced.out;
    EXPECT_NE(replaced.out.find("Headlights"), std::string::npos) << "the product's other track is listed";
    EXPECT_NE(replaced.out.find("Product page: "), std::string::npos) << replaced.out;
    EXPECT_EQ(sandbox->requestLog().entries(Endpoint::CreateTrack).size(), tracksCreated);
    EXPECT_EQ(sandbox->storedFiles().size(), 4u);
}

TEST_F(SorvelProgram, RefusalsAndFailuresEndWithTheirMessageAndExitCode)
{
    const std::string file = flac("Take");
    // A wrong password: 3, with the login message.
    ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", file}, "wrong password");
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_NE(run.err.find(Engine::TextKeys::kLoginFailed), std::string::npos)
        << run.err;
    expectNoSecretIn(run, "wrong password");

    // The upload target answers 500: 1, "Upload failed!".
    sandbox->injectFault(Endpoint::Upload, Fault::httpStatus(500));
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress", file}, login.password);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find(Engine::TextKeys::kUploadFailed), std::string::npos) << run.err;

    // The session expires during the upload: 3, with the session message.
    sandbox->injectFault(Endpoint::UploadToken, Fault::statusCode(403));
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress", file}, login.password);
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_NE(run.err.find(Engine::TextKeys::kSessionExpired), std::string::npos) << run.err;

    // A missing file: 2, and nothing is sent.
    const size_t requests = sandbox->requestLog().size();
    run = sorvel({"publish", "--user", login.username, "--password-stdin", (home / "absent.wav").string()},
                 login.password);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_EQ(sandbox->requestLog().size(), requests);
    // A file that is no audio: 2 as well.
    std::ofstream(home / "notes.wav") << "not audio";
    run = sorvel({"publish", "--user", login.username, "--password-stdin", (home / "notes.wav").string()},
                 login.password);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_NE(run.err.find("notes.wav"), std::string::npos) << run.err;
    EXPECT_EQ(sandbox->requestLog().size(), requests);
}

TEST_F(SorvelProgram, AConfigurationOthersCanReadStopsEveryCommandBeforeAnythingIsSent)
{
    const auto file = home / "config" / "sorvel" / "config.json";
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << R"({"PartnerKey": "from-the-file"})";
    std::filesystem::permissions(file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
                                           std::filesystem::perms::group_read | std::filesystem::perms::others_read);
    const ProgramRun run = sorvel({"products", "--user", login.username, "--password-stdin"}, login.password);
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("chmod 600"), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("from-the-file"), std::string::npos) << run.err;
    EXPECT_EQ(sandbox->requestLog().size(), 0u);
}

TEST_F(SorvelProgram, AServerThatDoesNotAnswerEndsWithACleanMessage)
{
    const std::string file = flac("Offline");
    sandbox->stop();
    const ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", file}, login.password);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("cannot reach the service"), std::string::npos) << run.err;
}

TEST_F(SorvelProgram, CtrlCOrSigtermDuringTheFilePostCancelsWithoutUploadingTwice)
{
    struct Case
    {
        int signal;
        int exitCode;
        std::string reason;
    };
    for (const Case& stop : {Case{SIGINT, 130, "cancelled with Ctrl-C"}, Case{SIGTERM, 143, "stopped by SIGTERM"}})
    {
        SCOPED_TRACE(stop.reason);
        const size_t tokens = sandbox->requestLog().entries(Endpoint::UploadToken).size();
        const size_t tracks = sandbox->requestLog().entries(Endpoint::CreateTrack).size();
        const size_t stored = sandbox->storedFiles().size();
        sandbox->injectFault(Endpoint::Upload, Fault::delayed(std::chrono::milliseconds(3000)));
        Child child({"publish", "--user", login.username, "--password-stdin", "--json", flac("Long", 3.0)},
                    environment(), login.password + "\n");
        ASSERT_GT(child.pid(), 0);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (sandbox->requestLog().entries(Endpoint::UploadToken).size() == tokens &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_GT(sandbox->requestLog().entries(Endpoint::UploadToken).size(), tokens);
        std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the file is on its way
        kill(child.pid(), stop.signal);
        const ProgramRun run = child.wait();
        EXPECT_EQ(run.exitCode, stop.exitCode) << run.err;
        const auto document = parse(run.out);
        ASSERT_TRUE(document.IsObject() && document.HasMember("error")) << run.out;
        EXPECT_STREQ(document["result"].GetString(), "cancelled") << run.out;
        EXPECT_EQ(document["exit_code"].GetInt(), stop.exitCode) << run.out;
        EXPECT_EQ(std::string(document["error"].GetString()), stop.reason) << run.out;
        EXPECT_EQ(sandbox->requestLog().entries(Endpoint::CreateTrack).size(), tracks + 1);
        EXPECT_LE(sandbox->storedFiles().size(), stored + 1);
        EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::UploadStatus).empty()) << "no upload reported complete";
    }
}

/// The value after `label` on its line of the standalone sandbox's banner.
std::string bannerValue(const std::string& banner, const std::string& label)
{
    const size_t start = banner.find(label);
    if (start == std::string::npos)
        return {};
    const size_t value = banner.find_first_not_of(' ', start + label.size());
    return banner.substr(value, banner.find('\n', value) - value);
}

TEST_F(SorvelProgram, PublishesToTheStandaloneSandboxProgram)
{
    const auto data = home / "sandbox-data";
    Child server({"--port", "0", "--quiet", "--data", data.string()}, {}, "", BuildPaths::sandboxProgram());
    ASSERT_GT(server.pid(), 0);
    const std::string banner = server.readOutputUntil("Press Ctrl+C");
    const std::string api = bannerValue(banner, "API base URL:");
    ASSERT_FALSE(api.empty()) << banner;
    service = {api, bannerValue(banner, "Login URL:"), bannerValue(banner, "Partner id:"),
               bannerValue(banner, "Partner key:")};

    const ProgramRun run = sorvel({"publish", "--user", "demo", "--password-stdin", "--no-progress", "--product",
                                   "Standalone", flac("Harbour"), flac("Bridge")},
                                  "sandbox-demo");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("2 of 2 tracks uploaded to \"Standalone\""), std::string::npos) << run.out;
    size_t stored = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(data / "files"))
        stored += entry.is_regular_file();
    EXPECT_EQ(stored, 2u);

    kill(server.pid(), SIGTERM);
    EXPECT_EQ(server.wait().exitCode, 0);
}

TEST_F(SorvelProgram, ProductsDashboardAndHelp)
{
    ProgramRun run = sorvel({"products", "--user", login.username, "--password-stdin", "--json"}, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    ASSERT_EQ(document["products"].Size(), 3u);
    EXPECT_STREQ(document["products"][0]["name"].GetString(), "Night Drive");

    run = sorvel({"dashboard", "--user", login.username, "--password-stdin"}, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Demo Artist"), std::string::npos) << run.out;
    // Figures the service did not give are not shown as the account's: a failure, with why.
    for (const Fault& fault : {Fault::httpStatus(500), Fault::statusCode(403), Fault::emptyBody()})
    {
        sandbox->injectFault(Endpoint::Activity, fault);
        run = sorvel({"dashboard", "--user", login.username, "--password-stdin", "--json"}, login.password);
        EXPECT_EQ(run.exitCode, 1) << run.err;
        EXPECT_NE(run.err.find("the account's figures could not be read"), std::string::npos) << run.err;
        const auto failure = parse(run.out);
        ASSERT_TRUE(failure.IsObject()) << run.out;
        EXPECT_STREQ(failure["result"].GetString(), "failed") << run.out;
    }

    for (const char* command : {"publish", "products", "dashboard", "signin", "signout"})
    {
        run = sorvel({command, "--help"}, "");
        EXPECT_EQ(run.exitCode, 0) << command;
        EXPECT_NE(run.out.find("--json"), std::string::npos) << command << ": " << run.out;
    }
    // A result that cannot be written (a full disk) is no success, and says why.
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"products", "--user", login.username, "--password-stdin", "--json"},
          std::vector<std::string>{"--help"}})
    {
        std::vector<std::string> arguments = {"-c", "exec \"$0\" \"$@\" >/dev/full", BuildPaths::sorvelProgram()};
        arguments.insert(arguments.end(), command.begin(), command.end());
        run = Child(arguments, environment(), login.password + "\n", "/bin/sh").wait();
        EXPECT_EQ(run.exitCode, 1) << command[0] << ": " << run.err;
        EXPECT_NE(run.err.find("cannot write the output: No space left on device"), std::string::npos)
            << command[0] << ": " << run.err;
    }

    run = sorvel({"publish"}, "");
    EXPECT_EQ(run.exitCode, 2) << "no files";
    run = sorvel({"frobnicate"}, "");
    EXPECT_EQ(run.exitCode, 2);
}

TEST_F(SorvelProgram, ARememberedLoginServesLaterCommandsGivesWayToAnotherAccountAndIsForgotten)
{
    // A service with two accounts, each with a product of its own.
    sandbox->stop();
    const std::filesystem::path seed = home / "two-accounts.json";
    std::ofstream(seed) << R"({"accounts": [
        {"id": 7, "username": "first", "password": "pass one", "name": "First",
         "titles": [{"name": "First Album"}, {"name": "Retitled\u001b]0;owned\u0007\u001b[2J"}]},
        {"id": 8, "username": "second", "password": "pass two", "name": "Second", "titles": [{"name": "Second Album"}]}]})";
    SorvelSandbox::Sandbox::Options options;
    options.seedFile = seed.string();
    std::string error;
    ASSERT_GT(sandbox->start(options, error), 0) << error;
    service.serverUrl = sandbox->baseUrl();
    service.loginUrl = sandbox->loginUrl();

    ProgramRun run = sorvel({"signin", "--user", "first", "--password-stdin", "--remember"}, "pass one");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = sorvel({"products"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("First Album"), std::string::npos) << run.out;
    // A name with control sequences reaches the terminal as marks, never as sequences it acts on.
    EXPECT_NE(run.out.find("Retitled\xEF\xBF\xBD]0;owned"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find('\x1b'), std::string::npos) << run.out;

    // Another account named on the command line is the one signed in to, not the remembered one.
    run = sorvel({"products", "--user", "second", "--password-stdin"}, "pass two");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Second Album"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("First Album"), std::string::npos) << run.out;
    run = sorvel({"publish", "--user", "second", "--password-stdin", "--no-progress", "--product", "Second Album",
                  flac("Elsewhere")},
                 "pass two");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    const auto stored = sandbox->storedFiles();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].accountId, 8) << "the file went to the account asked for";
    run = sorvel({"products", "--user", "second", "--password-stdin"}, "not the password");
    EXPECT_EQ(run.exitCode, 3) << "the password of the account asked for is checked: " << run.err;
    // The remembered login is still the first account's: a login typed without --remember did
    // not take its place in the keyring.
    run = sorvel({"products"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("First Album"), std::string::npos) << run.out;

    // Forgotten also while the service cannot be reached: signing out sends nothing.
    sandbox->stop();
    run = sorvel({"signout", "--forget"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("the stored login of first is removed"), std::string::npos) << run.out;
    ASSERT_GT(sandbox->start(options, error), 0) << error;
    service.serverUrl = sandbox->baseUrl();
    service.loginUrl = sandbox->loginUrl();
    run = sorvel({"products"}, "");
    EXPECT_EQ(run.exitCode, 2) << "no login any more, and no terminal to ask on: " << run.err;
    const size_t requestsBefore = sandbox->requestLog().size();
    run = sorvel({"signout", "--forget", "--json"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_FALSE(parse(run.out)["forgotten"].GetBool()) << "nothing was stored: " << run.out;
    EXPECT_EQ(sandbox->requestLog().size(), requestsBefore) << "signing out sends nothing";
}

} // namespace

namespace {

TEST_F(SorvelProgram, TheBrowserIsHandedAPageOfTheUsersOwnNeverTheSecretAddress)
{
    // A browser that notes what it was given and keeps running, as a browser does.
    const std::filesystem::path browser = home / "browser.sh";
    std::ofstream(browser) << "#!/bin/sh\n"
                              "printf '%s\\n' \"$@\" > \"$HOME/browser-arguments\"\n"
                              "env > \"$HOME/browser-environment\"\n"
                              "cat \"$1\" > \"$HOME/browser-page\"\n"
                              "echo $$ $(cut -d' ' -f6 /proc/$$/stat) > \"$HOME/browser-session\"\n"
                              "exec sleep 60\n";
    std::filesystem::permissions(browser, std::filesystem::perms::owner_all);
    std::vector<std::string> variables = environment();
    variables.push_back("BROWSER=" + browser.string());
    variables.push_back("XDG_RUNTIME_DIR=" + (home / "run").string());
    std::filesystem::create_directories(home / "run");
    Child gadget({"gadget"}, variables, "");
    const std::string said = gadget.readOutputUntil("Press Ctrl+C", std::chrono::seconds(60));
    ASSERT_NE(said.find("Opened in the browser"), std::string::npos) << said;
    const size_t start = said.find("http://127.0.0.1:");
    ASSERT_NE(start, std::string::npos) << said;
    const std::string address = said.substr(start, said.find('\n', start) - start);

    auto contents = [&](const char* name) {
        std::ifstream file(home / name);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    // The browser notes its session last; the gadget does not wait for it to get that far.
    long browserPid = 0, browserSession = 0;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(std::istringstream(contents("browser-session")) >> browserPid >> browserSession) &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_GT(browserPid, 0) << "the browser did not start";
    EXPECT_EQ(browserSession, browserPid) << "the browser leads a session of its own";
    const std::string arguments = contents("browser-arguments");
    const std::filesystem::path page = arguments.substr(0, arguments.find('\n'));
    EXPECT_EQ(arguments.find(address), std::string::npos) << "the secret stands in no command line: " << arguments;
    EXPECT_EQ(page.parent_path(), home / "run" / "sorvel") << arguments;
    EXPECT_EQ(std::filesystem::status(page).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_NE(contents("browser-page").find("url=" + address + "\""), std::string::npos) << contents("browser-page");
    const std::string variablesSeen = contents("browser-environment");
    EXPECT_EQ(variablesSeen.find("SORVEL_"), std::string::npos) << "no partner key for the browser";
    EXPECT_NE(variablesSeen.find("HOME="), std::string::npos) << variablesSeen;

    kill(gadget.pid(), SIGINT);
    EXPECT_EQ(gadget.wait().exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists(page)) << "the page goes with the gadget";
    kill(static_cast<pid_t>(browserPid), SIGKILL);
}

TEST_F(SorvelProgram, TheTrackTableLinesUpWhateverLettersTheNamesHave)
{
    // Titles with a precomposed and a decomposed umlaut, wide CJK letters and plain ASCII: every
    // row of the table ends its file column at the same terminal column, though not at the same byte.
    const ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress", "--product",
                                   "Lines", flac("\xC3\x9C" "berfahrt"), flac("U\xCC\x88" "ber"),
                                   flac("\xE6\x9D\xB1\xE4\xBA\xAC"), flac("Alpha")},
                                  login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::vector<std::string> rows;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);)
        if (line.find("  Add  ") != std::string::npos) // the state column
            rows.push_back(line);
    ASSERT_EQ(rows.size(), 4u) << run.out;
    std::set<size_t> widths, lengths;
    for (const std::string& row : rows)
    {
        widths.insert(Host::displayWidth(row));
        lengths.insert(row.size());
    }
    EXPECT_EQ(widths.size(), 1u) << run.out;
    EXPECT_GT(lengths.size(), 1u) << "the names differ in bytes per column";
    EXPECT_EQ(rows[0].rfind("\xC3\x9C" "berfahrt  ", 0), 0u) << rows[0];
}

} // namespace

namespace {

/// A two-second 48 kHz float WAV whose samples `sample` gives, in the test's home folder.
std::string writeWave(const std::filesystem::path& folder, const std::string& name,
                      const std::function<double(std::int64_t)>& sample)
{
    const auto path = folder / (name + ".wav");
    EXPECT_TRUE(RenderTest::writeSound(path, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2, 96000,
                                       [&](std::int64_t frame, int) { return sample(frame); }));
    return path.string();
}

TEST_F(SorvelProgram, CheckReportsTheFiguresWithoutSigningInAndExitsByTheWorstFinding)
{
    // A tone 14 dB below full scale, the same on both channels.
    const std::string good = writeWave(home.path(), "Good", [](std::int64_t frame) { return 0.2 * std::sin(frame * 0.05); });
    const std::string clipping = writeWave(home.path(), "Clipping", [](std::int64_t frame) {
        return 1.4 * std::sin(frame * 0.01);
    });
    const std::string silent = writeWave(home.path(), "Silent", [](std::int64_t) { return 0.0; });

    ProgramRun run = sorvel({"check", "--json", good, "--isrc", "us-rc1-76-07839"}, "");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_STREQ(document["result"].GetString(), "ok");
    ASSERT_EQ(document["tracks"].Size(), 1u);
    const auto& track = document["tracks"][0];
    EXPECT_STREQ(track["check"].GetString(), "ok");
    EXPECT_STREQ(track["isrc"].GetString(), "us-rc1-76-07839") << "codes are reported as typed";
    EXPECT_NEAR(track["sample_peak_dbfs"].GetDouble(), -14.0, 0.1);
    EXPECT_NEAR(track["integrated_loudness_lufs"].GetDouble(), -14.7, 0.5) << "a sine's mean square on two channels";
    EXPECT_TRUE(track["channels_identical"].GetBool());
    EXPECT_NEAR(track["seconds"].GetDouble(), 2.0, 0.01);
    EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::SignIn).empty()) << "nothing was sent";
    EXPECT_TRUE(std::filesystem::is_empty(home / "cache" / "sorvel" / "render")) << "the check keeps no files";

    // A clipping file warns (exit 0), and fails the check only when strict.
    run = sorvel({"check", clipping}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("warning: "), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("at full scale (clipped)"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("true peak"), std::string::npos) << run.out;
    run = sorvel({"check", "--strict", clipping}, "");
    EXPECT_EQ(run.exitCode, 5) << run.out;

    // A silent file and a malformed code are errors: 5 with or without strict.
    run = sorvel({"check", good, silent}, "");
    EXPECT_EQ(run.exitCode, 5) << run.out;
    EXPECT_NE(run.out.find("error: the file is silent throughout"), std::string::npos) << run.out;
    run = sorvel({"check", "--ean", "4006381333932", good}, "");
    EXPECT_EQ(run.exitCode, 5) << run.out;
    EXPECT_NE(run.out.find("check digit 2, but its digits need 1"), std::string::npos) << run.out;

    // The limits are the user's: a warning that the configuration allows is none.
    std::filesystem::create_directories(home / "config" / "sorvel");
    const auto config = home / "config" / "sorvel" / "config.json";
    std::ofstream(config) << R"({"Preflight": {"TruePeakMax": 6, "ClippedSamplesMax": 1000000, "LoudnessMax": 0}})";
    std::filesystem::permissions(config, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    run = sorvel({"check", "--strict", clipping}, "");
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
}

TEST_F(SorvelProgram, AStrictPublishUploadsNothingWhenThePreflightReportFindsFault)
{
    const std::string take = writeWave(home.path(), "Take", [](std::int64_t frame) { return 0.2 * std::sin(frame * 0.05); });
    const size_t storedBefore = sandbox->storedFiles().size();
    ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", "--json", "--strict",
                             "--product", "Night Drive", "--isrc", "QZDEM1400002", take},
                            login.password);
    EXPECT_EQ(run.exitCode, 5) << run.err;
    EXPECT_NE(run.err.find("nothing was uploaded (--strict)"), std::string::npos) << run.err;
    auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_STREQ(document["result"].GetString(), "refused");
    bool found = false;
    for (const auto& track : document["tracks"].GetArray())
        if (track.HasMember("preflight"))
        {
            found = true;
            EXPECT_STREQ(track["preflight"]["check"].GetString(), "error");
            EXPECT_STREQ(track["preflight"]["findings"][0]["code"].GetString(), "isrc_on_product")
                << "the code is on the product's track Tunnel";
        }
    EXPECT_TRUE(found) << run.out;
    EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::CreateTrack).empty());
    EXPECT_EQ(sandbox->storedFiles().size(), storedBefore);
    const std::filesystem::path kept = document["rendered_folder"].GetString();
    EXPECT_TRUE(std::filesystem::exists(kept / "001" / "Take.wav")) << "the rendered file is kept for another try";

    // The new take of the product's own track keeps its code: no fault, and the upload goes on.
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--strict", "--no-progress", "--product",
                  "Night Drive", "--title", "Tunnel", "--isrc", "QZ-DEM-14-00002", take},
                 login.password);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Pre-flight report"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("Replace"), std::string::npos) << run.out;
    EXPECT_EQ(sandbox->storedFiles().size(), storedBefore + 1);
}

} // namespace

namespace {

using namespace E2E;

/// The named member of a JSON request body, as text.
std::string member(const rapidjson::Document& body, const char* name)
{
    if (!body.IsObject() || !body.HasMember(name))
        return "(missing)";
    const auto& value = body[name];
    return value.IsString() ? value.GetString() : value.IsInt() ? std::to_string(value.GetInt()) : "(not text)";
}

TEST_F(SorvelProgram, EveryTagOfTheSourceFilesReachesTheServiceAndThePreflightReport)
{
    // Four files as labels tag them, each with its own title and code.
    struct Tagged
    {
        const char* file;
        TestTags::Kind kind;
        const char* title;
        const char* isrc;
    };
    const Tagged files[] = {
        {"flac.flac", TestTags::Kind::Flac, "Vorbis Comments", "GBAYE2400001"},
        {"mp3.mp3", TestTags::Kind::Mp3, "Id3 Frames", "GBAYE2400002"},
        {"id3.wav", TestTags::Kind::WaveId3, "Id3 Chunk", "GBAYE2400003"},
        {"info.wav", TestTags::Kind::WaveInfo, "Info List", "GBAYE2400004"},
    };
    std::vector<std::string> arguments{"publish", "--user", login.username, "--password-stdin", "--json"};
    for (const Tagged& one : files)
    {
        TestTags::Tags tags;
        tags.title = one.title;
        tags.isrc = one.isrc;
        ASSERT_TRUE(TestTags::writeTagged(home / one.file, one.kind, tags)) << one.file;
        arguments.push_back((home / one.file).string());
    }
    const ProgramRun run = sorvel(arguments, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const TestTags::Tags tags;

    // The product is named by the album, with the barcode of the tags.
    const auto titles = sandbox->requestLog().entries(Endpoint::CreateTitle);
    ASSERT_EQ(titles.size(), 1u);
    const auto title = parse(titles[0].body);
    EXPECT_EQ(member(title, "name"), tags.album);
    EXPECT_EQ(member(title, "upc"), tags.barcode);

    const auto created = sandbox->requestLog().entries(Endpoint::CreateTrack);
    ASSERT_EQ(created.size(), 4u);
    for (size_t i = 0; i < created.size(); ++i)
    {
        SCOPED_TRACE(files[i].file);
        const auto track = parse(created[i].body);
        EXPECT_EQ(member(track, "name"), files[i].title);
        EXPECT_EQ(member(track, "isrc"), files[i].isrc);
        EXPECT_EQ(member(track, "year"), "2021");
        EXPECT_EQ(member(track, "genre"), tags.genre);
        EXPECT_EQ(member(track, "comment"), tags.comment);
        EXPECT_EQ(member(track, "composer"), tags.composer);
        EXPECT_EQ(member(track, "songwriter"), tags.songwriter);
        // RIFF INFO has no name for the arranger.
        EXPECT_EQ(member(track, "arranger"), files[i].kind == TestTags::Kind::WaveInfo ? "" : tags.arranger);
    }

    // A flag overrides the tag; the pre-flight report checks the codes that came from tags.
    const auto flac = (home / files[0].file).string();
    ProgramRun checked = sorvel({"check", "--json", flac}, "");
    ASSERT_EQ(checked.exitCode, 0) << checked.err;
    EXPECT_STREQ(parse(checked.out)["tracks"][0]["isrc"].GetString(), files[0].isrc);
    EXPECT_STREQ(parse(checked.out)["tracks"][0]["barcode"].GetString(), tags.barcode.c_str());
    checked = sorvel({"check", "--json", "--isrc", "QZDEM1400009", flac}, "");
    ASSERT_EQ(checked.exitCode, 0) << checked.err;
    EXPECT_STREQ(parse(checked.out)["tracks"][0]["isrc"].GetString(), "QZDEM1400009");

    TestTags::Tags faulty;
    faulty.isrc = "GB-AYE-24";
    faulty.barcode = "5012345678901";
    ASSERT_TRUE(TestTags::writeTagged(home / "faulty.mp3", TestTags::Kind::Mp3, faulty));
    checked = sorvel({"check", "--json", (home / "faulty.mp3").string()}, "");
    EXPECT_EQ(checked.exitCode, 5) << checked.out << checked.err;
    std::set<std::string> codes;
    const auto report = parse(checked.out); // kept: the loop reads into it
    for (const auto& finding : report["tracks"][0]["findings"].GetArray())
        codes.insert(finding["code"].GetString());
    EXPECT_TRUE(codes.count("isrc")) << checked.out;
    EXPECT_TRUE(codes.count("barcode")) << "the barcode's check digit too: " << checked.out;
}

} // namespace
