// The fault battery: a publish of two files through the built `sorvel`, once for every request of
// the session with a fault injected into it. Whatever the fault, the program ends (no hang, no
// crash) with an exit code and a message, the source files stay as they were, and no file is
// stored twice. The cases whose outcome the controller defines are checked exactly; the table of
// every case and its outcome is printed for the README.
#include "tests/e2e/SorvelProgram.h"

#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <set>

namespace {

using namespace E2E;

struct FaultCase
{
    const char* name;
    Fault fault;
};

struct EndpointCase
{
    const char* name;
    Endpoint endpoint;
};

std::string bytesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// The first line of the program's own words or of an alert it passed on.
std::string messageOf(const ProgramRun& run)
{
    for (const char* known : {"Login failed.", "Session expired.", "Upload failed!", "cannot reach the service",
                              "nothing to upload"})
        if (run.err.find(known) != std::string::npos)
            return known;
    const size_t start = run.err.rfind("sorvel: ");
    return start == std::string::npos ? std::string() : run.err.substr(start, run.err.find('\n', start) - start);
}

class FaultBattery : public SorvelProgram
{
};

TEST_F(FaultBattery, EveryRequestOfAPublishFailingInEveryWayEndsCleanly)
{
    const std::vector<EndpointCase> endpoints = {
        {"sign-in", Endpoint::SignIn},           {"activity", Endpoint::Activity},
        {"titles", Endpoint::Titles},             {"product creation", Endpoint::CreateTitle},
        {"track creation", Endpoint::CreateTrack}, {"upload token", Endpoint::UploadToken},
        {"file post", Endpoint::Upload},          {"status report", Endpoint::UploadStatus},
    };
    const std::vector<FaultCase> faults = {
        {"403", Fault::statusCode(403)},         {"500", Fault::httpStatus(500)},
        {"invalid body", Fault::invalidBody()},  {"empty body", Fault::emptyBody()},
        {"truncated body", Fault::truncatedBody()}, {"dropped connection", Fault::dropConnection()},
        {"late past the time-out", Fault::delayed(std::chrono::milliseconds(3000))},
    };
    // The file post answers no envelope: its faults are HTTP statuses and the connection.
    const std::vector<FaultCase> postFaults = {
        {"302", Fault::httpStatus(302)}, {"399", Fault::httpStatus(399)}, {"400", Fault::httpStatus(400)},
        {"403", Fault::httpStatus(403)}, {"500", Fault::httpStatus(500)}, {"dropped connection", Fault::dropConnection()},
        {"late past the time-out", Fault::delayed(std::chrono::milliseconds(3000))},
        {"stopping to read", Fault::stopReading(std::chrono::milliseconds(3000))}};

    const std::vector<std::string> files = {flac("Alpha", 0.5), flac("Beta", 0.5)};
    std::vector<std::string> before;
    for (const std::string& file : files)
        before.push_back(bytesOf(file));

    std::map<std::string, std::string> table; // "endpoint|fault" -> outcome
    auto runCase = [&](const EndpointCase& where, const FaultCase& what) {
        SCOPED_TRACE(std::string(where.name) + " answering " + what.name);
        sandbox->stop();
        sandbox = std::make_unique<SorvelSandbox::Sandbox>();
        std::string error;
        ASSERT_GT(sandbox->start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        service = {sandbox->baseUrl(), sandbox->loginUrl(), sandbox->partnerId(), sandbox->partnerKey()};
        sandbox->injectFault(where.endpoint, what.fault);

        // A time-out of one second, so that an answer three seconds late is past it.
        std::vector<std::string> arguments = {"--timeout", "1", "publish", "--user", login.username, "--password-stdin",
                                              "--no-progress", "--product", "Battery"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        Child child(arguments, environment(), login.password + "\n");
        const ProgramRun run = child.wait(std::chrono::seconds(120));

        EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 1 || run.exitCode == 3) << run.exitCode << "\n" << run.err;
        if (run.exitCode != 0)
        {
            EXPECT_FALSE(messageOf(run).empty()) << run.err;
        }
        for (size_t i = 0; i < files.size(); ++i)
            EXPECT_EQ(bytesOf(files[i]), before[i]) << files[i] << " changed";
        std::set<std::string> names;
        for (const auto& stored : sandbox->storedFiles())
            EXPECT_TRUE(names.insert(stored.fileName).second) << stored.fileName << " stored twice";
        EXPECT_LE(sandbox->storedFiles().size(), files.size());
        expectNoSecretIn(run, login.password);

        const std::string outcome = "exit " + std::to_string(run.exitCode) +
                                    (run.exitCode ? ", " + messageOf(run) : std::string()) + ", " +
                                    std::to_string(sandbox->storedFiles().size()) + " stored";
        table[std::string(where.name) + "|" + what.name] = outcome;

        // The outcomes the controller defines.
        const std::string fault = what.name;
        // (A connection dropped before any answer may be retried by the transfer library and
        // then succeed.)
        if (where.endpoint == Endpoint::SignIn && !(fault == "dropped connection" && run.exitCode == 0))
        {
            EXPECT_EQ(run.exitCode, 3);
            EXPECT_NE(run.err.find("Login failed. Please note that usernames and passwords are case sensitive."),
                      std::string::npos);
        }
        // A 403 refuses the session, except on the completion report, whose outcome does not
        // fail the track.
        const bool sessionRequest = where.endpoint == Endpoint::Titles || where.endpoint == Endpoint::CreateTitle ||
                                    where.endpoint == Endpoint::CreateTrack || where.endpoint == Endpoint::UploadToken;
        if (fault == "403" && sessionRequest)
        {
            EXPECT_EQ(run.exitCode, 3);
            EXPECT_NE(run.err.find("Session expired. Please login again."), std::string::npos);
        }
        if (where.endpoint == Endpoint::UploadStatus)
        {
            EXPECT_EQ(run.exitCode, 0) << "a failing completion report does not fail the track";
        }
        // The file post succeeds with any status from 200 to 399, fails from 400 on.
        if (where.endpoint == Endpoint::Upload && (fault == "302" || fault == "399"))
        {
            EXPECT_EQ(run.exitCode, 0);
        }
        if (where.endpoint == Endpoint::Upload &&
            (fault == "400" || fault == "403" || fault == "500" || fault == "late past the time-out" ||
             fault == "stopping to read"))
        {
            EXPECT_EQ(run.exitCode, 1);
            EXPECT_NE(run.err.find("Upload failed!"), std::string::npos);
        }
    };

    for (const EndpointCase& where : endpoints)
        if (where.endpoint != Endpoint::Upload)
            for (const FaultCase& what : faults)
                runCase(where, what);
    for (const FaultCase& what : postFaults)
        runCase(endpoints[6], what);

    // The table, for the README.
    std::printf("| Request | %s |\n|---|",
                "403 | 500 | invalid body | empty body | truncated body | dropped connection | late past the time-out");
    for (size_t i = 0; i < faults.size(); ++i)
        std::printf("---|");
    std::printf("\n");
    for (const EndpointCase& where : endpoints)
    {
        if (where.endpoint == Endpoint::Upload)
            continue;
        std::printf("| %s |", where.name);
        for (const FaultCase& what : faults)
            std::printf(" %s |", table[std::string(where.name) + "|" + what.name].c_str());
        std::printf("\n");
    }
    for (const FaultCase& what : postFaults)
        std::printf("file post answering %s: %s\n", what.name, table[std::string("file post|") + what.name].c_str());
}

} // namespace
