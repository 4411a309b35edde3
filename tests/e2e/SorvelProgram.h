#pragma once

// What the tests of the built `sorvel` share: the program run with its standard streams on
// pipes, and a fixture with the service emulator on a port of its own (in the test process, so
// that faults can be injected per request), a private home folder, and the configuration through
// the environment. Runs inside with-keyring.sh: the program's keyring is a private one.

#include "sandbox/Sandbox.h"
#include "tests/render/TestSound.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace E2E {

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
          const std::string& input, const char* program = BuildPaths::sorvelProgram())
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
        argv.push_back(const_cast<char*>(program));
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
        if (posix_spawn(&pid_, program, &actions, nullptr, argv.data(), envp.data()) != 0)
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

    /// What the program has written to its standard output until `marker` appeared (or the
    /// time ran out, or the output ended).
    std::string readOutputUntil(const std::string& marker, std::chrono::seconds limit = std::chrono::seconds(20))
    {
        return readUntil(out_, marker, limit);
    }
    /// The same of its standard error.
    std::string readErrorUntil(const std::string& marker, std::chrono::seconds limit = std::chrono::seconds(20))
    {
        return readUntil(err_, marker, limit);
    }

private:
    std::string readUntil(int fd, const std::string& marker, std::chrono::seconds limit)
    {
        std::string text;
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (text.find(marker) == std::string::npos && std::chrono::steady_clock::now() < deadline)
        {
            pollfd ready = {fd, POLLIN, 0};
            if (poll(&ready, 1, 200) <= 0)
                continue;
            char buffer[1024];
            const ssize_t got = read(fd, buffer, sizeof buffer);
            if (got <= 0)
                break;
            text.append(buffer, static_cast<size_t>(got));
        }
        return text;
    }

public:

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
        ASSERT_GT(sandbox->start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        login = sandbox->demoLogin();
        service = {sandbox->baseUrl(), sandbox->loginUrl(), sandbox->partnerId(), sandbox->partnerKey()};
        for (const char* name : {"config", "cache"})
            std::filesystem::create_directories(home / name);
    }
    void TearDown() override { sandbox->stop(); }

    std::vector<std::string> environment() const
    {
        return {"HOME=" + home.path().string(),
                "XDG_CONFIG_HOME=" + (home / "config").string(),
                "XDG_CACHE_HOME=" + (home / "cache").string(),
                "XDG_STATE_HOME=" + (home / "state").string(),
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

    /// Checks `text` against the definition `command` of the written schema; the schema's
    /// complaint otherwise.
    static std::string schemaError(const std::string& text, const char* command)
    {
        std::ifstream file(std::string(BuildPaths::sourceDir()) + "/docs/sorvel-json.schema.json");
        const std::string schemaText((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        rapidjson::Document schemaDocument;
        if (schemaDocument.Parse(schemaText.c_str()).HasParseError())
            return "the schema is no JSON";
        const std::string reference = std::string("#/definitions/") + command;
        schemaDocument.AddMember("$ref", rapidjson::Value(reference.c_str(), schemaDocument.GetAllocator()),
                                 schemaDocument.GetAllocator());
        const rapidjson::SchemaDocument schema(schemaDocument);
        rapidjson::Document document;
        if (document.Parse(text.c_str()).HasParseError())
            return "not one JSON document: " + text;
        rapidjson::SchemaValidator validator(schema);
        if (document.Accept(validator))
            return {};
        rapidjson::StringBuffer where, rule;
        validator.GetInvalidSchemaPointer().StringifyUriFragment(rule);
        validator.GetInvalidDocumentPointer().StringifyUriFragment(where);
        return std::string("at ") + where.GetString() + " the rule " + rule.GetString() + " (" +
               validator.GetInvalidSchemaKeyword() + ") fails: " + text;
    }

    /// Nothing secret in what the program printed or what reached the service's request lines.
    void expectNoSecretIn(const ProgramRun& run, const std::string& password)
    {
        EXPECT_EQ(run.out.find(password), std::string::npos);
        EXPECT_EQ(run.err.find(password), std::string::npos);
        EXPECT_EQ(run.out.find(sandbox->partnerKey()), std::string::npos);
        EXPECT_EQ(run.err.find(sandbox->partnerKey()), std::string::npos);
        for (const auto& request : sandbox->requestLog().entries())
            EXPECT_EQ(request.target.find(password), std::string::npos) << request.target;
    }

    /// The sandbox's addresses and partner identity, kept for after it stopped.
    struct Service
    {
        std::string serverUrl, loginUrl, partnerId, partnerKey;
    };

    RenderTest::TempFolder home;
    std::unique_ptr<SorvelSandbox::Sandbox> sandbox = std::make_unique<SorvelSandbox::Sandbox>();
    Service service;
    SorvelSandbox::Sandbox::Login login;
};

} // namespace E2E
