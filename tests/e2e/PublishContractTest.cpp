// What `sorvel` promises whatever happens: every row publishes its own audio, every failure
// says why with its exit code, outcomes do not hang on the language the texts are shown in, the
// JSON documents follow their written schema, and waits end when --timeout says.

#include "framework/interfaces/TextKeys.h"
#include "host/ledger/PublishLedger.h"
#include "tests/e2e/SorvelProgram.h"
#include "tests/support/BuildPaths.h"
#include "tests/support/LoopbackSocket.h"

#include <pty.h>
#include <set>
#include <sys/stat.h>
#include <utime.h>

namespace {

using namespace E2E;
namespace fs = std::filesystem;

/// A 44.1 kHz 16-bit stereo WAV, which the render step passes through bit for bit.
std::string cdWave(const fs::path& path, const std::function<double(std::int64_t, int)>& sample)
{
    fs::create_directories(path.parent_path());
    EXPECT_TRUE(RenderTest::writeSound(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, 44100, sample));
    return path.string();
}

/// Every text of the plug-in's table wrapped and accented, as a translator's test file does, so
/// that anything still compared with the English words fails.
std::string pseudoTranslation()
{
    auto accented = [](std::string text) {
        std::string result = "[";
        for (char letter : text)
            switch (letter)
            {
            case 'a':
                result += "\xC3\xA0"; // à
                break;
            case 'e':
                result += "\xC3\xA9"; // é
                break;
            case 'o':
                result += "\xC3\xB6"; // ö
                break;
            case 'u':
                result += "\xC3\xBC"; // ü
                break;
            default:
                result += letter;
            }
        return result + "]";
    };
    std::string json = "{\"Sorvel\": {";
    bool first = true;
    for (const char* key : Engine::TextKeys::kAll)
    {
        json += std::string(first ? "" : ",") + "\"" + key + "\": \"" + accented(key) + "\"";
        first = false;
    }
    return json + "}}";
}

class PublishContract : public SorvelProgram
{
protected:
    ProgramRun publish(std::vector<std::string> arguments, const std::vector<std::string>& extraEnvironment = {})
    {
        arguments.insert(arguments.begin(), {"publish", "--user", login.username, "--password-stdin"});
        std::vector<std::string> variables = environment();
        variables.insert(variables.end(), extraEnvironment.begin(), extraEnvironment.end());
        Child child(arguments, variables, login.password + "\n");
        return child.wait();
    }
};

TEST_F(PublishContract, EveryRowPublishesItsOwnFileWhateverItsNameAndFolder)
{
    // Two takes of one name in two folders, and a FLAC of that name beside the first.
    const std::string sine = cdWave(home / "d1" / "take.wav", [](std::int64_t frame, int channel) {
        return 0.3 * std::sin(frame * 2 * M_PI * 440 / 44100 + channel);
    });
    std::uint64_t noise = 12345;
    const std::string hiss = cdWave(home / "d2" / "take.wav", [&](std::int64_t, int) {
        noise = noise * 6364136223846793005ULL + 1442695040888963407ULL;
        return 0.2 * (static_cast<double>(noise >> 11) / 9007199254740992.0 - 0.5);
    });
    const std::string tone = (home / "d1" / "take.flac").string();
    ASSERT_TRUE(RenderTest::writeSound(tone, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 48000, 1, 48000,
                                       [](std::int64_t frame, int) { return 0.4 * std::sin(frame * 2 * M_PI * 1000 / 48000); }));

    const ProgramRun run = publish({"--json", "--jobs", "1", "--product", "Three Takes", "--title", "Sine", "--title",
                                    "Noise", "--title", "Tone", sine, hiss, tone});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto stored = sandbox->storedFiles();
    ASSERT_EQ(stored.size(), 3u);
    std::set<std::string> digests;
    for (const auto& file : stored)
    {
        digests.insert(file.sha256);
        EXPECT_EQ(file.fileName, "take.wav") << "the service gets the source's name";
    }
    EXPECT_EQ(digests.size(), 3u) << "three different files arrived";

    // The WAV takes went through bit for bit; the FLAC arrived as its own tone.
    auto storedAs = [&](const std::string& source) {
        const RenderTest::Sound expected = RenderTest::readSound(source);
        for (const auto& file : stored)
            if (RenderTest::readSound(file.path).samples == expected.samples)
                return true;
        return false;
    };
    EXPECT_TRUE(storedAs(sine)) << "the sine arrived unchanged";
    EXPECT_TRUE(storedAs(hiss)) << "the noise arrived unchanged";
    int toneFiles = 0;
    for (const auto& file : stored)
    {
        const RenderTest::Sound sound = RenderTest::readSound(file.path);
        ASSERT_TRUE(sound.ok) << file.path;
        toneFiles += RenderTest::toneAmplitude(sound, 0, 1000, 0, sound.info.frames) > 0.3;
    }
    EXPECT_EQ(toneFiles, 1) << "exactly one file carries the 1 kHz tone";

    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    std::set<std::string> rendered;
    for (const auto& track : document["tracks"].GetArray())
    {
        rendered.insert(track["file"].GetString());
        EXPECT_TRUE(fs::path(track["file"].GetString()).is_absolute()) << track["file"].GetString();
    }
    EXPECT_EQ(rendered.size(), 3u) << "each row names a rendered file of its own: " << run.out;
}

TEST_F(PublishContract, EveryFailureSaysWhyAndNothingClaimsSuccessItDidNotHave)
{
    const std::string take = flac("Take");
    // Values the service cannot take are refused before anything is sent, naming the flag.
    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"--year", "99999", take}, {"--year", "abc", take}, {"--year", "0", take}, {"--product", "   ", take}})
    {
        const ProgramRun run = publish(bad);
        EXPECT_EQ(run.exitCode, 2) << bad[0] << " " << bad[1] << ": " << run.err;
        EXPECT_NE(run.err.find(bad[0]), std::string::npos) << run.err;
    }
    EXPECT_EQ(sandbox->requestLog().size(), 0u) << "nothing was sent";

    // A refusal shows the service's reason after the plug-in's alert, and in the JSON.
    sandbox->injectFault(Endpoint::CreateTrack, Fault::statusCode(400));
    ProgramRun run = publish({"--json", "--no-progress", "--product", "Refused", take});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    const size_t alert = run.err.find("sorvel: Upload failed!");
    const size_t reason = run.err.find("the service refused POST");
    ASSERT_NE(alert, std::string::npos) << run.err;
    ASSERT_NE(reason, std::string::npos) << run.err;
    EXPECT_LT(alert, reason) << run.err;
    auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_NE(std::string(document["error"].GetString()).find("injected fault"), std::string::npos) << run.out;

    // A password on standard input needs a user name to go with it; said, with its document.
    run = sorvel({"products", "--password-stdin", "--json"}, login.password);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_NE(run.err.find("--user"), std::string::npos) << run.err;
    document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_STREQ(document["result"].GetString(), "usage");
    EXPECT_EQ(schemaError(run.out, "failure"), "");
    // So does a command line that cannot be read at all: a file that does not exist, a number
    // out of range, an option the command does not have. Files after "--" are only files.
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"publish", "--json", (home / "missing.wav").string()},
          std::vector<std::string>{"check", "--jobs", "0", "--json", take},
          std::vector<std::string>{"history", "--json", "--frobnicate"}})
    {
        run = sorvel(arguments, "");
        EXPECT_EQ(run.exitCode, 2) << arguments[0] << ": " << run.err;
        EXPECT_EQ(schemaError(run.out, "failure"), "") << arguments[0];
        document = parse(run.out);
        ASSERT_TRUE(document.IsObject()) << arguments[0] << ": " << run.out;
        EXPECT_STREQ(document["result"].GetString(), "usage");
        EXPECT_FALSE(std::string(document["error"].GetString()).empty()) << run.out;
    }
    run = sorvel({"check", "--", "--json"}, "");
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_EQ(run.out, "") << "--json after -- is a file's name";

    // No keyring to keep the login in: not "kept", and an exit code that says so.
    std::vector<std::string> noKeyring = environment();
    noKeyring.push_back("DBUS_SESSION_BUS_ADDRESS=unix:path=" + (home / "no-bus").string());
    Child child({"signin", "--user", login.username, "--password-stdin", "--remember", "--json"}, noKeyring,
                login.password + "\n");
    run = child.wait();
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("could not be kept in the keyring"), std::string::npos) << run.err;
    document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_FALSE(document["remembered"].GetBool());
    EXPECT_EQ(schemaError(run.out, "signin"), "");

    // A flag that cannot reach a replaced track is said so, and the summary counts this run only.
    run = publish({"--no-progress", "--product", "Night Drive", "--title", "Tunnel", "--genre", "Ambient", take});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.err.find("\"Tunnel\" replaces a track of the product"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("--genre does not reach it"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("1 of 1 tracks uploaded"), std::string::npos) << "the product's other track is no failure: "
                                                                         << run.out;
}

TEST_F(PublishContract, ATranslationChangesTheWordsShownButNoOutcome)
{
    const fs::path language = home / "pseudo.json";
    std::ofstream(language) << pseudoTranslation();
    const std::string take = flac("Take");
    struct Outcome
    {
        int exitCode;
        std::string states;
    };
    // The same runs in English and translated: a good publish, a failed file post, an expired
    // session, a refused login.
    auto runAll = [&](const std::vector<std::string>& extra, std::vector<std::string>& errors) {
        std::vector<Outcome> outcomes;
        auto note = [&](const ProgramRun& run) {
            std::string states;
            const auto document = parse(run.out);
            if (document.IsObject() && document.HasMember("tracks"))
                for (const auto& track : document["tracks"].GetArray())
                    states += std::string(track["state"].GetString()) + " ";
            outcomes.push_back({run.exitCode, states});
            errors.push_back(run.err + run.out);
        };
        // Sent each time, though the file does not change.
        const std::vector<std::string> replaceTunnel = {"--json", "--no-progress", "--force", "--product",
                                                         "Night Drive", "--title", "Tunnel", take};
        note(publish(replaceTunnel, extra));
        sandbox->injectFault(Endpoint::Upload, Fault::httpStatus(500));
        note(publish(replaceTunnel, extra));
        sandbox->injectFault(Endpoint::UploadToken, Fault::statusCode(403));
        note(publish(replaceTunnel, extra));
        std::vector<std::string> variables = environment();
        variables.insert(variables.end(), extra.begin(), extra.end());
        Child refused({"products", "--user", login.username, "--password-stdin", "--json"}, variables, "wrong\n");
        note(refused.wait());
        return outcomes;
    };
    std::vector<std::string> english, translated;
    const std::vector<Outcome> plain = runAll({}, english);
    const std::vector<Outcome> pseudo = runAll({"SORVEL_LANGUAGE_FILE=" + language.string()}, translated);
    ASSERT_EQ(plain.size(), pseudo.size());
    const int expectedCodes[] = {0, 1, 3, 3};
    for (size_t i = 0; i < plain.size(); ++i)
    {
        EXPECT_EQ(plain[i].exitCode, expectedCodes[i]) << english[i];
        EXPECT_EQ(pseudo[i].exitCode, plain[i].exitCode) << translated[i];
        EXPECT_EQ(pseudo[i].states, plain[i].states) << translated[i];
    }
    EXPECT_EQ(plain[0].states, "on_service uploaded ") << "the product's other track, and the new take of Tunnel";
    // The words shown are the translation's.
    EXPECT_NE(translated[0].find("[Réplàcé] - [Uplöàd Cömplété]"), std::string::npos) << translated[0];
    EXPECT_NE(translated[1].find("sorvel: [Uplöàd fàiléd!]"), std::string::npos) << translated[1];
    EXPECT_NE(translated[2].find("[Séssiön éxpiréd. Pléàsé lögin àgàin.]"), std::string::npos) << translated[2];
    EXPECT_NE(translated[3].find("[Lögin fàiléd."), std::string::npos) << translated[3];
    EXPECT_EQ(translated[1].find(Engine::TextKeys::kUploadFailed), std::string::npos) << "no English alert is left";

    // A language file that is no JSON is refused with where it goes wrong.
    std::ofstream(language) << "{\"Sorvel\": {\"Add\": \"Hinzu\",\n  \"Replace\" \"Ersetzen\"}}";
    const ProgramRun broken = publish({take}, {"SORVEL_LANGUAGE_FILE=" + language.string()});
    EXPECT_EQ(broken.exitCode, 4) << broken.err;
    EXPECT_NE(broken.err.find("line 2, column 13"), std::string::npos) << broken.err;
}

TEST_F(PublishContract, EachCommandsJsonFollowsTheWrittenSchema)
{
    const std::string take = flac("Take");
    ProgramRun run = publish({"--json", "--no-progress", "--product", "Night Drive", "--isrc", "QZDEM1400099", take});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(schemaError(run.out, "publish"), "");
    auto document = parse(run.out);
    EXPECT_TRUE(document["product"]["new"].IsFalse()) << run.out;
    EXPECT_TRUE(document["uploaded"].IsInt()) << run.out;
    // Again, unchanged; and the plan of a dry run.
    for (const char* extra : {"--force", "--dry-run", "--strict"})
    {
        run = publish({"--json", "--no-progress", "--product", "Night Drive", "--isrc", "QZDEM1400099", extra, take});
        EXPECT_EQ(schemaError(run.out, "publish"), "") << extra;
    }
    run = publish({"--json", "--no-progress", "--product", "Night Drive", "--isrc", "QZDEM1400099", take});
    EXPECT_EQ(schemaError(run.out, "publish"), "");
    EXPECT_EQ(parse(run.out)["unchanged"].GetInt(), 1) << run.out;

    sandbox->injectFault(Endpoint::Upload, Fault::httpStatus(500));
    run = publish({"--json", "--no-progress", take});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_EQ(schemaError(run.out, "publish"), "");

    run = sorvel({"check", "--json", take}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(schemaError(run.out, "check"), "");
    document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    EXPECT_TRUE(document["tracks"][0]["silent"].IsBool()) << run.out;

    for (const char* command : {"products", "dashboard", "signin"})
    {
        run = sorvel({command, "--user", login.username, "--password-stdin", "--json"}, login.password);
        EXPECT_EQ(run.exitCode, 0) << command << ": " << run.err;
        EXPECT_EQ(schemaError(run.out, command), "") << command;
    }
    document = parse(sorvel({"dashboard", "--user", login.username, "--password-stdin", "--json"}, login.password).out);
    ASSERT_TRUE(document.IsObject());
    EXPECT_TRUE(document["active_promotions"].IsInt()) << "numbers are numbers";

    run = sorvel({"signout", "--json"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(schemaError(run.out, "signout"), "");

    // A refused login, and a configuration that cannot be used, are documents too.
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--json", take}, "wrong");
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_EQ(schemaError(run.out, "failure"), "");
    EXPECT_NE(std::string(parse(run.out)["error"].GetString()).find(Engine::TextKeys::kLoginFailed), std::string::npos) << run.out;

    const auto config = home / "config" / "sorvel" / "config.json";
    fs::create_directories(config.parent_path());
    std::ofstream(config) << "{\n  \"ServerURL\": \"http://127.0.0.1:1/\",\n  \"PartnerID\" 7\n}";
    fs::permissions(config, fs::perms::owner_read | fs::perms::owner_write);
    Child child({"products", "--json"}, {"HOME=" + home.path().string(), "XDG_CONFIG_HOME=" + (home / "config").string()},
                "");
    run = child.wait();
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_EQ(schemaError(run.out, "failure"), "");
    EXPECT_NE(run.err.find("line 3, column 15"), std::string::npos) << "where the syntax goes wrong: " << run.err;

    // What was published, as the ledger holds it; and a ledger that cannot be read.
    const fs::path ledgerFile = home / "state" / "sorvel" / "ledger.sqlite";
    run = sorvel({"history", "--json"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(schemaError(run.out, "history"), "");
    document = parse(run.out);
    ASSERT_TRUE(document.IsObject() && document["uploads"].Size() == 2) << "the two uploads to Night Drive: " << run.out;
    EXPECT_TRUE(document["uploads"][0]["published_unix"].IsInt64()) << "numbers are numbers";
    std::ofstream(ledgerFile, std::ios::binary | std::ios::trunc) << std::string(200, 'x');
    run = sorvel({"history", "--json"}, "");
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_EQ(schemaError(run.out, "failure"), "");
    EXPECT_NE(std::string(parse(run.out)["error"].GetString()).find("is not a publish ledger"), std::string::npos)
        << run.out;
}

TEST_F(PublishContract, TidyEdges)
{
    const std::string take = flac("Take");
    // A plug-in named that does not exist: exit 4 before anything starts.
    ProgramRun run = publish({take}, {"SORVEL_PLUGIN=" + (home / "nowhere.so").string()});
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("nowhere.so"), std::string::npos) << run.err;
    // A file there that is no plug-in: the same.
    const fs::path notAPlugin = home / "not-a-plugin.so";
    std::ofstream(notAPlugin) << "not a library";
    run = publish({take}, {"SORVEL_PLUGIN=" + notAPlugin.string()});
    EXPECT_EQ(run.exitCode, 4) << run.err;
    EXPECT_NE(run.err.find("not-a-plugin.so"), std::string::npos) << run.err;
    EXPECT_EQ(sandbox->requestLog().size(), 0u);

    // Kept render folders: those a week old go, and of the others only the newest few stay.
    const fs::path renders = home / "cache" / "sorvel" / "render";
    for (int i = 0; i < 8; ++i)
    {
        const fs::path folder = renders / ("run-old" + std::to_string(i));
        fs::create_directories(folder / "001");
        std::ofstream(folder / "001" / "x.wav") << "kept";
        const time_t when = time(nullptr) - (i < 2 ? 8 * 86400 : 3600 * (10 - i));
        const utimbuf times{when, when};
        ASSERT_EQ(utime(folder.c_str(), &times), 0);
    }
    run = publish({"--no-progress", take});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::set<std::string> left;
    for (const auto& entry : fs::directory_iterator(renders))
        left.insert(entry.path().filename().string());
    EXPECT_EQ(left, (std::set<std::string>{"run-old3", "run-old4", "run-old5", "run-old6", "run-old7"}));

    // TERM=dumb on a terminal: no cursor movement or colour codes; a capable one gets them.
    for (const char* term : {"TERM=dumb", "TERM=xterm-256color"})
    {
        int terminal = -1;
        std::vector<std::string> variables = environment();
        variables.push_back(term);
        const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
        ASSERT_GE(pid, 0);
        if (pid == 0)
        {
            for (const std::string& variable : variables)
                putenv(const_cast<char*>(variable.c_str()));
            execl(BuildPaths::sorvelProgram(), BuildPaths::sorvelProgram(), "publish", "--user", login.username.c_str(), "--password-stdin",
                  take.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        // Typed when it is asked for, as a user types it.
        const std::string password = login.password + "\n";
        bool typed = false;
        std::string shown;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (std::chrono::steady_clock::now() < deadline)
        {
            if (!typed && shown.find("Password: ") != std::string::npos)
            {
                ASSERT_EQ(write(terminal, password.data(), password.size()), static_cast<ssize_t>(password.size()));
                typed = true;
            }
            pollfd ready = {terminal, POLLIN, 0};
            if (poll(&ready, 1, 200) <= 0)
                continue;
            char buffer[4096];
            const ssize_t got = read(terminal, buffer, sizeof buffer);
            if (got <= 0)
                break;
            shown.append(buffer, static_cast<size_t>(got));
        }
        int status = 0;
        waitpid(pid, &status, 0);
        close(terminal);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << term << ": " << shown;
        EXPECT_NE(shown.find("tracks uploaded"), std::string::npos) << term << ": " << shown;
        EXPECT_EQ(shown.find(login.password), std::string::npos) << "the typed password is not shown: " << shown;
        const bool escapes = shown.find("\x1b[") != std::string::npos;
        EXPECT_EQ(escapes, std::string(term) != "TERM=dumb") << term << ": " << shown;
    }
}

TEST_F(PublishContract, AFileNameThatIsNoUtf8StillGivesValidJson)
{
    // An old file of a Latin-1 system: its name's bytes are no UTF-8. Every document stays valid
    // JSON (checked strictly), with U+FFFD where the name's bytes cannot be read.
    const fs::path latin = home / "Caf\xE9.flac";
    fs::copy_file(flac("Cafe"), latin);
    const auto validJson = [](const std::string& text) {
        rapidjson::Document document;
        document.Parse<rapidjson::kParseValidateEncodingFlag>(text.c_str());
        return !document.HasParseError() && document.IsObject();
    };
    ProgramRun run = publish({"--json", "--no-progress", "--product", "Latin", latin.string()});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(validJson(run.out)) << run.out;
    EXPECT_EQ(schemaError(run.out, "publish"), "");
    EXPECT_NE(run.out.find("Caf\xEF\xBF\xBD.flac"), std::string::npos) << run.out;
    run = sorvel({"history", "--json", "--product", "Latin"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(validJson(run.out)) << run.out;
    run = sorvel({"check", "--json", latin.string()}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(validJson(run.out)) << run.out;
}

TEST_F(PublishContract, TheTimeoutBoundsTheWholeWaitOfACommand)
{
    // A login kept in the keyring makes the gadget's start sign in silently: two requests in
    // turn when the service stops answering, the silent sign-in and the sign-in after it.
    ASSERT_EQ(sorvel({"signin", "--user", login.username, "--password-stdin", "--remember"}, login.password).exitCode, 0);
    TestSupport::MuteServer server(TestSupport::MuteServer::Accepts::andHolds);
    std::vector<std::string> variables = environment();
    for (std::string& variable : variables)
        if (variable.rfind("SORVEL_SERVER_URL=", 0) == 0)
            variable = "SORVEL_SERVER_URL=http://127.0.0.1:" + std::to_string(server.port()) + "/api/";
    Child child({"--timeout", "4", "products", "--json"}, variables, "");
    const ProgramRun run = child.wait(std::chrono::seconds(60));
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("did not answer"), std::string::npos) << run.err;
    // The service was waited for the whole time-out, and no longer: two requests each given the
    // time-out in turn would have kept it waiting twice as long.
    const double seconds = server.secondsConnected();
    EXPECT_GT(seconds, 4 - 1) << "gave up before the time-out: " << run.err;
    EXPECT_LT(seconds, 2 * 4 - 1) << "given up after the time-out, not once per request: " << run.err;
    EXPECT_EQ(schemaError(run.out, "failure"), "");
}

TEST_F(PublishContract, TheServiceIsReachedThroughTheProxyTheEnvironmentNames)
{
    // A service only the proxy knows: its name resolves nowhere else. The proxy holds every
    // request unanswered, so the command fails after the time-out, but not as a service out of
    // reach.
    TestSupport::MuteServer proxy(TestSupport::MuteServer::Accepts::andHolds);
    const auto withProxy = [&](int port, const std::string& exempt) {
        std::vector<std::string> variables = environment();
        for (std::string& variable : variables)
            if (variable.rfind("SORVEL_SERVER_URL=", 0) == 0)
                variable = "SORVEL_SERVER_URL=http://sorvel-service.invalid/api/";
        variables.push_back("http_proxy=http://127.0.0.1:" + std::to_string(port));
        for (const char* inheritedOnesCleared : {"all_proxy=", "ALL_PROXY="})
            variables.push_back(inheritedOnesCleared);
        variables.push_back("no_proxy=" + exempt);
        variables.push_back("NO_PROXY=" + exempt);
        return variables;
    };
    const std::vector<std::string> arguments = {"--timeout",        "2",     "products", "--user", login.username,
                                                "--password-stdin", "--json"};
    ProgramRun run =
        Child(arguments, withProxy(proxy.port(), ""), login.password + "\n").wait(std::chrono::seconds(60));
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_EQ(run.err.find("cannot reach the service"), std::string::npos) << run.err;
    EXPECT_GE(proxy.secondsConnected(), 0) << "the proxy was never asked: " << run.err;
    EXPECT_EQ(schemaError(run.out, "failure"), "");

    // A host that no_proxy exempts is connected to directly, where it cannot be found.
    TestSupport::MuteServer passedBy(TestSupport::MuteServer::Accepts::andHolds);
    run = Child(arguments, withProxy(passedBy.port(), "sorvel-service.invalid"), login.password + "\n")
              .wait(std::chrono::seconds(60));
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("cannot reach the service at http://sorvel-service.invalid/api/: "), std::string::npos)
        << run.err;
    EXPECT_LT(passedBy.secondsConnected(), 0) << "an exempt host was asked through the proxy: " << run.err;
}

} // namespace
