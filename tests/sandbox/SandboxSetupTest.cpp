// How the sandbox is set up and started: the data folder that survives restarts, seed files, HTTPS,
// a port in use, and the program sorvel-sandbox with its arguments and exit codes.

#include "SandboxFixture.h"
#include "tests/support/BuildPaths.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SandboxTesting;

extern char** environ;

namespace
{

// A folder of its own under the system's temporary folder, removed with everything in it.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "sandbox-test-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        path = pattern;
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }

    std::string file(const std::string& name, const std::string& contents = {}) const
    {
        const std::string full = (path / name).string();
        if (!contents.empty())
            std::ofstream(full, std::ios::binary) << contents;
        return full;
    }

    std::filesystem::path path;
};

// Writes a self-signed certificate for 127.0.0.1 and its key as PEM files.
void writeCertificate(const std::string& certificatePath, const std::string& keyPath)
{
    EVP_PKEY* key = EVP_EC_gen("P-256");
    ASSERT_NE(key, nullptr);
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -60);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* name = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* alternative = X509V3_EXT_conf_nid(nullptr, &context, NID_subject_alt_name, "IP:127.0.0.1");
    ASSERT_NE(alternative, nullptr);
    X509_add_ext(certificate, alternative, -1);
    X509_EXTENSION_free(alternative);
    ASSERT_GT(X509_sign(certificate, key, EVP_sha256()), 0);

    FILE* out = std::fopen(certificatePath.c_str(), "w");
    PEM_write_X509(out, certificate);
    std::fclose(out);
    out = std::fopen(keyPath.c_str(), "w");
    PEM_write_PrivateKey(out, key, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(out);
    X509_free(certificate);
    EVP_PKEY_free(key);
}

struct ProgramResult
{
    int exitCode = -1;
    std::string output;
};

// A signal sent to the program once its output holds `waitFor`.
struct SignalStep
{
    std::string waitFor;
    int signal;
    /// Called with the output so far just before the signal is sent.
    std::function<void(const std::string&)> whileRunning = {};
};

// Runs sorvel-sandbox with the arguments and waits for it, sending the signals of `steps` in
// turn. Gives up, killing the program, after ten seconds.
ProgramResult runProgram(std::vector<std::string> arguments, const std::vector<SignalStep>& steps)
{
    int pipeEnds[2];
    EXPECT_EQ(pipe(pipeEnds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 2);
    posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
    arguments.insert(arguments.begin(), BuildPaths::sandboxProgram());
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    EXPECT_EQ(posix_spawn(&child, BuildPaths::sandboxProgram(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);

    ProgramResult result;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    size_t step = 0;
    for (;;)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd readable{pipeEnds[0], POLLIN, 0};
        if (left.count() <= 0 || poll(&readable, 1, static_cast<int>(left.count())) <= 0)
        {
            ADD_FAILURE() << "sorvel-sandbox did not finish in time; output so far:\n" << result.output;
            kill(child, SIGKILL);
            break;
        }
        char buffer[4096];
        const ssize_t got = read(pipeEnds[0], buffer, sizeof buffer);
        if (got <= 0)
            break;
        result.output.append(buffer, static_cast<size_t>(got));
        if (step < steps.size() && result.output.find(steps[step].waitFor) != std::string::npos)
        {
            if (steps[step].whileRunning)
                steps[step].whileRunning(result.output);
            kill(child, steps[step++].signal);
        }
    }
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}

ProgramResult runProgram(std::vector<std::string> arguments, const std::string& waitFor = {}, int signal = SIGTERM)
{
    return runProgram(std::move(arguments),
                      waitFor.empty() ? std::vector<SignalStep>{} : std::vector<SignalStep>{{waitFor, signal}});
}

} // namespace

TEST(SandboxSetup, TheDataFolderKeepsCatalogueAndFilesAcrossRestarts)
{
    TemporaryFolder folder;
    Sandbox::Options options;
    options.dataDir = folder.path.string();
    int64_t titleId = 0, trackId = 0;
    {
        Sandbox sandbox;
        std::string error;
        ASSERT_GT(sandbox.start(options, error), 0) << error;
        Http http;
        const SignedIn session = signInAsDemo(http, sandbox);
        titleId = parseJson(createTitle(http, sandbox, session, "Kept").body)["data"]["id"].GetInt64();
        const JsonMembers track = {{"name", "T"}, {"isrc", ""}, {"genre", ""}, {"comment", ""}, {"arranger", ""},
                                   {"composer", ""}, {"songwriter", ""}, {"title_id", std::to_string(titleId)}};
        HttpReply reply = http.post(sandbox.baseUrl() + "tracks", jsonObject(session.withAuth(track)),
                                    "application/json");
        trackId = parseJson(reply.body)["data"]["id"].GetInt64();
        const UploadTicket ticket = uploadToken(http, sandbox, session, trackId);
        ASSERT_EQ(http.post(ticket.url, uploadBody("b", ticket.fields, "t.wav", "kept bytes"), uploadContentType("b")).status,
                  201);
    }

    Sandbox sandbox;
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    const std::vector<SorvelSandbox::AccountRecord> accounts = sandbox.accounts();
    const SorvelSandbox::TitleRecord& kept = accounts.at(0).titles.back();
    EXPECT_EQ(kept.id, titleId);
    EXPECT_EQ(kept.name, "Kept");
    ASSERT_EQ(kept.tracks.size(), 1u);
    EXPECT_EQ(kept.tracks[0].id, trackId);
    const std::vector<SorvelSandbox::StoredFile> stored = sandbox.storedFiles();
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0].sha256, sha256Hex("kept bytes"));
    EXPECT_EQ(readWholeFile(stored[0].path), "kept bytes");
    EXPECT_EQ(kept.tracks[0].uploadId, stored[0].uploadId);

    // New records continue after the kept ones.
    Http http;
    const SignedIn session = signInAsDemo(http, sandbox);
    EXPECT_EQ(parseJson(createTitle(http, sandbox, session, "Next").body)["data"]["id"].GetInt64(), titleId + 1);
}

TEST(SandboxSetup, ASeedFileDefinesTheAccountsAndBadOnesAreRefusedClearly)
{
    TemporaryFolder folder;
    const std::string seed = R"({"accounts": [
        {"id": 7, "username": "first", "password": "pass one", "name": "Band <&>",
         "titles": [{"id": 70, "name": "Only", "tracks": [{"name": "Song", "year": 2001}]}]},
        {"id": 8, "username": "second", "password": "p\u00e4ss"}]})";
    Sandbox sandbox;
    Sandbox::Options options;
    options.seedFile = folder.file("seed.json", seed);
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    EXPECT_EQ(sandbox.demoLogin().username, "first");
    EXPECT_EQ(sandbox.demoLogin().accountId, 7);
    Http http;
    // The password is hashed as its UTF-8 bytes.
    const SignedIn second = signIn(http, sandbox, "second", "p\xC3\xA4ss");
    EXPECT_EQ(second.accountId, "8");
    const SignedIn first = signIn(http, sandbox, "first", "pass one");
    rapidjson::Document titles = parseJson(titlesInDetail(http, sandbox, first).body);
    ASSERT_EQ(titles["data"].Size(), 1u);
    EXPECT_EQ(titles["data"][0]["tracks"][0]["track_number"].GetInt(), 1);
    EXPECT_GT(titles["data"][0]["tracks"][0]["id"].GetInt64(), 0);

    // Text from the catalogue is escaped on the web pages.
    HttpReply page = http.get(webLoginUrl(sandbox, "first", "pass one"));
    EXPECT_NE(page.body.find("Band &lt;&amp;&gt;"), std::string::npos) << page.body;
    EXPECT_EQ(page.body.find("Band <&>"), std::string::npos);

    struct Case
    {
        std::string seed;
        const char* error;
    };
    const std::vector<Case> bad = {
        {R"({"accounts": [{"id": 1, "username": "a", "password": "b", "titles": [{"nmae": "x"}]}]})",
         "accounts[0].titles[0].nmae: unknown member"},
        {R"({"accounts": [{"id": 1, "username": "a"}]})", "accounts[0].password: missing"},
        {R"({"accounts": [{"id": 1, "username": "a", "password": "b", "total_fans": "many"}]})",
         "accounts[0].total_fans: expected an integer"},
        {R"({"accounts": [{"id": 1, "username": "a", "password": "b"}, {"id": 2, "username": "a", "password": "c"}]})",
         "username \"a\" appears twice"},
        {R"({"accounts": []})", "at least one account"},
        {R"({"accounts": [{"id": 1, "username": "a", "password": "b",)", "not valid JSON"},
    };
    for (const Case& test : bad)
    {
        Sandbox refused;
        options.seedFile = folder.file("bad.json", test.seed);
        EXPECT_EQ(refused.start(options, error), -1);
        EXPECT_NE(error.find(test.error), std::string::npos) << error;
        EXPECT_NE(error.find("bad.json"), std::string::npos) << error;
        EXPECT_FALSE(refused.isRunning());
    }

    // A damaged catalogue in a data folder stops the start and is left as it was.
    const std::string damaged = "{\"accounts\": [";
    options.seedFile.clear();
    std::filesystem::create_directories(folder.path / "data");
    options.dataDir = (folder.path / "data").string();
    folder.file("data/catalogue.json", damaged);
    Sandbox refused;
    EXPECT_EQ(refused.start(options, error), -1);
    EXPECT_NE(error.find("catalogue.json"), std::string::npos) << error;
    EXPECT_EQ(readWholeFile((folder.path / "data/catalogue.json").string()), damaged);
}

TEST(SandboxSetup, ServesHttpsWithTheGivenCertificate)
{
    TemporaryFolder folder;
    const std::string certificate = folder.file("cert.pem"), key = folder.file("key.pem");
    writeCertificate(certificate, key);
    Sandbox sandbox;
    Sandbox::Options options;
    options.tlsCertFile = certificate;
    options.tlsKeyFile = key;
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    EXPECT_EQ(sandbox.baseUrl().rfind("https://127.0.0.1:", 0), 0u);

    Http untrusting;
    EXPECT_NE(untrusting.get(sandbox.baseUrl() + "titles").result, CURLE_OK);
    Http http;
    http.trust(certificate);
    const SignedIn session = signInAsDemo(http, sandbox);
    const UploadTicket ticket = uploadToken(http, sandbox, session, 9001);
    EXPECT_EQ(ticket.url.rfind("https://", 0), 0u);
    EXPECT_EQ(http.post(ticket.url, uploadBody("b", ticket.fields, "s.wav", "secure"), uploadContentType("b")).status,
              201);

    Sandbox refused;
    options.tlsKeyFile = folder.file("missing.pem");
    EXPECT_EQ(refused.start(options, error), -1);
    EXPECT_NE(error.find("TLS"), std::string::npos) << error;
    options.tlsKeyFile.clear();
    EXPECT_EQ(refused.start(options, error), -1);
    EXPECT_NE(error.find("together"), std::string::npos) << error;
}

TEST(SandboxSetup, APortInUseIsRefused)
{
    Sandbox first;
    std::string error;
    const int port = first.start({}, error);
    ASSERT_GT(port, 0) << error;
    EXPECT_EQ(first.start({}, error), -1);
    EXPECT_NE(error.find("running already"), std::string::npos);

    Sandbox second;
    Sandbox::Options options;
    options.port = port;
    EXPECT_EQ(second.start(options, error), -1);
    EXPECT_NE(error.find("Address already in use"), std::string::npos) << error;
    // The port is free again after a stop, and a stopped sandbox describes nothing.
    first.stop();
    EXPECT_TRUE(first.baseUrl().empty());
    EXPECT_EQ(second.start(options, error), port) << error;
}

TEST(SandboxSetup, StopDoesNotWaitForIdleKeepAliveConnections)
{
    Sandbox sandbox;
    Sandbox::Options options;
    options.keepAliveTimeout = std::chrono::seconds(30);
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    Http http;
    const SignedIn session = signInAsDemo(http, sandbox);
    ASSERT_FALSE(session.token.empty());
    // The client keeps its connection open; waiting for it would take half a minute.
    const auto start = std::chrono::steady_clock::now();
    sandbox.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_FALSE(sandbox.isRunning());
}

TEST(SandboxProgram, PrintsWhereItListensAndStopsOnSignals)
{
    ProgramResult result = runProgram({"--port", "0"}, "Press Ctrl+C to stop.");
    EXPECT_EQ(result.exitCode, 0) << result.output;
    for (const char* line : {"API base URL: http://127.0.0.1:", "/api/", "Login URL:    http://127.0.0.1:", "/login",
                             "Partner id:   sorvel-sandbox", "Partner key:  sandbox-partner-key",
                             "Demo login:   demo / sandbox-demo (account 1001)"})
        EXPECT_NE(result.output.find(line), std::string::npos) << line << " in:\n" << result.output;

    result = runProgram({"--port=0", "--quiet"}, "Press Ctrl+C to stop.", SIGINT);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_NE(result.output.find("Stopping on SIGINT"), std::string::npos);

    // SIGUSR1 ends the sign-ins and the sandbox goes on until it is stopped.
    result = runProgram({"--port=0", "--quiet"}, {{"Press Ctrl+C to stop.", SIGUSR1},
                                                  {"Sessions expired.", SIGUSR1},
                                                  {"Sessions expired.\nSessions expired.", SIGTERM}});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_NE(result.output.find("Sessions expired.\nSessions expired.\nStopping on SIGTERM"), std::string::npos)
        << result.output;
}

TEST(SandboxProgram, AFailingLinkResetsEveryNthConnection)
{
    // One request per connection, every second connection reset: every second request fails.
    std::vector<long> statuses;
    const ProgramResult result = runProgram(
        {"--port", "0", "--drop-connections", "2", "--requests-per-connection", "1"},
        {{"Press Ctrl+C to stop.", SIGTERM, [&](const std::string& output) {
            const size_t at = output.find("API base URL: ");
            ASSERT_NE(at, std::string::npos) << output;
            const std::string base = output.substr(at + 14, output.find('\n', at) - at - 14);
            Http http;
            for (int i = 0; i < 4; ++i)
                statuses.push_back(http.get(base + "titles").status);
        }}});
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(statuses, (std::vector<long>{200, 0, 200, 0}));
    EXPECT_NE(result.output.find("Failing link: every connection numbered a multiple of 2 is reset"),
              std::string::npos)
        << result.output;
    size_t dropped = 0;
    for (size_t at = 0; (at = result.output.find("the connection was dropped", at)) != std::string::npos; ++at)
        ++dropped;
    EXPECT_EQ(dropped, 2u) << result.output;
}

TEST(SandboxProgram, ArgumentsAndStartFailuresGiveHonestExitCodes)
{
    ProgramResult result = runProgram({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.output.find("Usage: sorvel-sandbox"), std::string::npos);
    for (const char* option : {"--port", "--bind", "--seed", "--data", "--tls-cert", "--tls-key", "--drop-connections",
                               "--requests-per-connection"})
        EXPECT_NE(result.output.find(option), std::string::npos) << option;

    struct Case
    {
        std::vector<std::string> arguments;
        int exitCode;
        const char* message;
    };
    Sandbox occupying;
    std::string error;
    const int port = occupying.start({}, error);
    ASSERT_GT(port, 0) << error;
    const std::vector<Case> cases = {
        {{"--port", "http"}, 2, "--port takes a number"},
        {{"--port", "70000"}, 2, "--port takes a number"},
        {{"--verbose"}, 2, "unknown argument \"--verbose\""},
        {{"--seed"}, 2, "--seed needs a value"},
        {{"--tls-cert", "c.pem"}, 2, "go together"},
        {{"--drop-connections", "0"}, 2, "--drop-connections takes a number from 1"},
        {{"--requests-per-connection", "many"}, 2, "--requests-per-connection takes a number from 1"},
        {{"--port", std::to_string(port)}, 1, "Address already in use"},
        {{"--port", "0", "--seed", "/nonexistent/seed.json"}, 1, "cannot open /nonexistent/seed.json"},
    };
    for (const Case& test : cases)
    {
        result = runProgram(test.arguments);
        EXPECT_EQ(result.exitCode, test.exitCode) << result.output;
        EXPECT_NE(result.output.find(test.message), std::string::npos) << result.output;
    }
}
