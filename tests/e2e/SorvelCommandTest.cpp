// The built `sorvel` program run as a user runs it, against the service emulator on a port of its
// own (in this test process, so that faults can be injected), configured through the environment.
// Runs inside with-keyring.sh: the program's keyring is a private one.

#include "sandbox/Sandbox.h"
#include "tests/render/TestSound.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

struct ProgramRun
{
    int exitCode = -1;
    std::string out;
    std::string err;
};

/// A running `sorvel`, its standard streams on pipes.
class Child
{
public:
    Child(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
          const std::string& input)
    {
        int in[2], out[2], err[2];
        if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0)
            return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_adddup2(&actions, err[1], 2);
        for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]})
            posix_spawn_file_actions_addclose(&actions, fd);
        std::vector<char*> argv;
        argv.push_back(const_cast<char*>(SORVEL_PROGRAM));
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        // The test's variables replace inherited ones of the same name (HOME above all).
        std::vector<std::string> variables;
        for (char** variable = environ; *variable; ++variable)
        {
            const std::string_view inherited(*variable);
            const std::string_view name = inherited.substr(0, inherited.find('=') + 1);
            bool replaced = false;
            for (const std::string& given : environment)
                replaced = replaced || given.rfind(name, 0) == 0;
            if (!replaced)
                variables.emplace_back(inherited);
        }
        variables.insert(variables.end(), environment.begin(), environment.end());
        std::vector<char*> envp;
        for (std::string& variable : variables)
            envp.push_back(variable.data());
        envp.push_back(nullptr);
        if (posix_spawn(&pid_, SORVEL_PROGRAM, &actions, nullptr, argv.data(), envp.data()) != 0)
            pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        close(err[1]);
        if (!input.empty() && write(in[1], input.data(), input.size()) < 0)
            pid_ = pid_; // the program may have ended already; its exit code tells
        close(in[1]);
        out_ = out[0];
        err_ = err[0];
    }

    pid_t pid() const { return pid_; }

    /// Collects the output until the program ends; exit code -1 when it had to be killed.
    ProgramRun wait(std::chrono::seconds limit = std::chrono::seconds(90))
    {
        ProgramRun run;
        const auto deadline = std::chrono::steady_clock::now() + limit;
        pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        int open = 2;
        while (open > 0 && std::chrono::steady_clock::now() < deadline)
        {
            if (poll(fds, 2, 200) <= 0)
                continue;
            for (int i = 0; i < 2; ++i)
                if (fds[i].fd >= 0 && (fds[i].revents & (POLLIN | POLLHUP)))
                {
                    char buffer[4096];
                    const ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
                    if (got <= 0)
                    {
                        close(fds[i].fd);
                        fds[i].fd = -1;
                        --open;
                    }
                    else
                        (i == 0 ? run.out : run.err).append(buffer, static_cast<size_t>(got));
                }
        }
        if (open > 0)
            kill(pid_, SIGKILL);
        int status = 0;
        waitpid(pid_, &status, 0);
        for (const pollfd& fd : fds)
            if (fd.fd >= 0)
                close(fd.fd);
        if (open == 0 && WIFEXITED(status))
            run.exitCode = WEXITSTATUS(status);
        return run;
    }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
};

class SorvelProgram : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_NE(std::getenv("SORVEL_PRIVATE_KEYRING"), nullptr) << "run through tests/security/with-keyring.sh";
        std::string error;
        ASSERT_GT(sandbox.start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        login = sandbox.demoLogin();
        service = {sandbox.baseUrl(), sandbox.loginUrl(), sandbox.partnerId(), sandbox.partnerKey()};
        for (const char* name : {"config", "cache"})
            std::filesystem::create_directories(home / name);
    }
    void TearDown() override { sandbox.stop(); }

    std::vector<std::string> environment() const
    {
        return {"HOME=" + home.path().string(),
                "XDG_CONFIG_HOME=" + (home / "config").string(),
                "XDG_CACHE_HOME=" + (home / "cache").string(),
                "SORVEL_SERVER_URL=" + service.serverUrl,
                "SORVEL_LOGIN_URL=" + service.loginUrl,
                "SORVEL_PARTNER_ID=" + service.partnerId,
                "SORVEL_PARTNER_KEY=" + service.partnerKey};
    }

    ProgramRun sorvel(std::vector<std::string> arguments, const std::string& password)
    {
        Child child(arguments, environment(), password + "\n");
        return child.wait();
    }

    /// A 48 kHz 24-bit mono FLAC of `seconds`, a tone, so that the render step has work to do.
    std::string flac(const std::string& name, double seconds = 1.0)
    {
        const auto path = home / (name + ".flac");
        EXPECT_TRUE(RenderTest::writeSound(path, SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 48000, 1,
                                           static_cast<std::int64_t>(seconds * 48000),
                                           [](std::int64_t frame, int) { return 0.5 * std::sin(frame * 0.05); }));
        return path.string();
    }

    static rapidjson::Document parse(const std::string& text)
    {
        rapidjson::Document document;
        document.Parse(text.c_str());
        return document;
    }

    /// Nothing secret in what the program printed or what reached the service's request lines.
    void expectNoSecretIn(const ProgramRun& run, const std::string& password)
    {
        EXPECT_EQ(run.out.find(password), std::string::npos);
        EXPECT_EQ(run.err.find(password), std::string::npos);
        EXPECT_EQ(run.out.find(sandbox.partnerKey()), std::string::npos);
        EXPECT_EQ(run.err.find(sandbox.partnerKey()), std::string::npos);
        for (const auto& request : sandbox.requestLog().entries())
            EXPECT_EQ(request.target.find(password), std::string::npos) << request.target;
    }

    /// The sandbox's addresses and partner identity, kept for after it stopped.
    struct Service
    {
        std::string serverUrl, loginUrl, partnerId, partnerKey;
    };

    RenderTest::TempFolder home;
    SorvelSandbox::Sandbox sandbox;
    Service service;
    SorvelSandbox::Sandbox::Login login;
};

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
    EXPECT_NE(std::string(document["product"]["page"].GetString()).rfind(sandbox.loginUrl(), 0), std::string::npos);
    EXPECT_EQ(std::string(document["product"]["page"].GetString()).find('?'), std::string::npos)
        << "the page's signed query is never shown";
    ASSERT_EQ(document["tracks"].Size(), 3u);
    for (const auto& track : document["tracks"].GetArray())
        EXPECT_STREQ(track["state"].GetString(), "uploaded") << track["title"].GetString();
    EXPECT_STREQ(document["tracks"][0]["title"].GetString(), "Morning");
    ASSERT_EQ(sandbox.storedFiles().size(), 3u);
    for (const auto& file : sandbox.storedFiles())
        EXPECT_GT(file.size, 44100u * 4 - 4000) << "a second of 44.1 kHz 16-bit stereo";
    expectNoSecretIn(created, login.password);
    const auto renderFolder = home / "cache" / "sorvel" / "render";
    ASSERT_TRUE(std::filesystem::exists(renderFolder)) << "the rendered files went to the user's cache folder";
    EXPECT_TRUE(std::filesystem::is_empty(renderFolder)) << "rendered files are removed";

    // A file named as a track of an existing product replaces it; no new track is created.
    const size_t tracksCreated = sandbox.requestLog().entries(Endpoint::CreateTrack).size();
    const ProgramRun replaced = sorvel({"publish", "--user", login.username, "--password-stdin", "--product", "Night Drive",
                                 "--no-progress", flac("Tunnel")},
                                login.password);
    ASSERT_EQ(replaced.exitCode, 0) << replaced.err;
    EXPECT_NE(replaced.out.find("Replace"), std::string::npos) << replaced.out;
    EXPECT_NE(replaced.out.find("Headlights"), std::string::npos) << "the product's other track is listed";
    EXPECT_NE(replaced.out.find("Product page: "), std::string::npos) << replaced.out;
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::CreateTrack).size(), tracksCreated);
    EXPECT_EQ(sandbox.storedFiles().size(), 4u);
}

TEST_F(SorvelProgram, RefusalsAndFailuresEndWithTheirMessageAndExitCode)
{
    const std::string file = flac("Take");
    // A wrong password: 3, with the login message.
    ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", file}, "wrong password");
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_NE(run.err.find("Login failed. Please note that usernames and passwords are case sensitive."),
              std::string::npos)
        << run.err;
    expectNoSecretIn(run, "wrong password");

    // The upload target answers 500: 1, "Upload failed!".
    sandbox.injectFault(Endpoint::Upload, Fault::httpStatus(500));
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress", file}, login.password);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("Upload failed!"), std::string::npos) << run.err;

    // The session expires during the upload: 3, with the session message.
    sandbox.injectFault(Endpoint::UploadToken, Fault::statusCode(403));
    run = sorvel({"publish", "--user", login.username, "--password-stdin", "--no-progress", file}, login.password);
    EXPECT_EQ(run.exitCode, 3) << run.err;
    EXPECT_NE(run.err.find("Session expired. Please login again."), std::string::npos) << run.err;

    // A missing file: 2, and nothing is sent.
    const size_t requests = sandbox.requestLog().size();
    run = sorvel({"publish", "--user", login.username, "--password-stdin", (home / "absent.wav").string()},
                 login.password);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_EQ(sandbox.requestLog().size(), requests);
    // A file that is no audio: 2 as well.
    std::ofstream(home / "notes.wav") << "not audio";
    run = sorvel({"publish", "--user", login.username, "--password-stdin", (home / "notes.wav").string()},
                 login.password);
    EXPECT_EQ(run.exitCode, 2) << run.err;
    EXPECT_NE(run.err.find("notes.wav"), std::string::npos) << run.err;
    EXPECT_EQ(sandbox.requestLog().size(), requests);
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
    EXPECT_EQ(sandbox.requestLog().size(), 0u);
}

TEST_F(SorvelProgram, AServerThatDoesNotAnswerEndsWithACleanMessage)
{
    const std::string file = flac("Offline");
    sandbox.stop();
    const ProgramRun run = sorvel({"publish", "--user", login.username, "--password-stdin", file}, login.password);
    EXPECT_EQ(run.exitCode, 1) << run.err;
    EXPECT_NE(run.err.find("cannot reach the service"), std::string::npos) << run.err;
}

TEST_F(SorvelProgram, CtrlCDuringTheFilePostCancelsWithoutUploadingTwice)
{
    sandbox.injectFault(Endpoint::Upload, Fault::delayed(std::chrono::milliseconds(3000)));
    Child child({"publish", "--user", login.username, "--password-stdin", "--no-progress", flac("Long", 3.0)},
                environment(), login.password + "\n");
    ASSERT_GT(child.pid(), 0);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (sandbox.requestLog().entries(Endpoint::UploadToken).empty() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_FALSE(sandbox.requestLog().entries(Endpoint::UploadToken).empty());
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the file is on its way
    kill(child.pid(), SIGINT);
    const ProgramRun run = child.wait();
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_EQ(sandbox.requestLog().entries(Endpoint::CreateTrack).size(), 1u);
    EXPECT_LE(sandbox.storedFiles().size(), 1u);
    EXPECT_TRUE(sandbox.requestLog().entries(Endpoint::UploadStatus).empty()) << "no upload reported complete";
}

TEST_F(SorvelProgram, ProductsDashboardAndHelp)
{
    ProgramRun run = sorvel({"products", "--user", login.username, "--password-stdin", "--json"}, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto document = parse(run.out);
    ASSERT_TRUE(document.IsObject()) << run.out;
    ASSERT_EQ(document["products"].Size(), 3u);
    EXPECT_STREQ(document["products"][0].GetString(), "Night Drive");

    run = sorvel({"dashboard", "--user", login.username, "--password-stdin"}, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Demo Artist"), std::string::npos) << run.out;

    for (const char* command : {"publish", "products", "dashboard", "signin", "signout"})
    {
        run = sorvel({command, "--help"}, "");
        EXPECT_EQ(run.exitCode, 0) << command;
        EXPECT_NE(run.out.find("--json"), std::string::npos) << command << ": " << run.out;
    }
    run = sorvel({"publish"}, "");
    EXPECT_EQ(run.exitCode, 2) << "no files";
    run = sorvel({"frobnicate"}, "");
    EXPECT_EQ(run.exitCode, 2);
}

TEST_F(SorvelProgram, ARememberedLoginServesLaterCommandsUntilItIsForgotten)
{
    ProgramRun run = sorvel({"signin", "--user", login.username, "--password-stdin", "--remember"}, login.password);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    run = sorvel({"products"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Night Drive"), std::string::npos);

    run = sorvel({"signout", "--forget"}, "");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    run = sorvel({"products"}, "");
    EXPECT_EQ(run.exitCode, 2) << "no login any more, and no terminal to ask on: " << run.err;
}

} // namespace
