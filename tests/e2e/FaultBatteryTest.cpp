// The fault suite: `sorvel publish` (the built program) of two files to a new product, signed in
// with the login kept in the keyring, once for every step of the session and every way that step
// can fail. For each case the table says what the user must see: the exit code, the message on
// standard error, the rows' states in the JSON report, and whether the rendered files are kept
// for another try. Every case also checks that the program ends in time, the source files are
// untouched, the user's cache holds nothing but a kept batch, the stored login is unchanged, no
// product or track is created twice and no one-time upload address is posted to twice.
#include "framework/interfaces/TextKeys.h"
#include "tests/e2e/SorvelProgram.h"
#include "tests/security/ShellCommand.h"
#include "tests/support/LoopbackSocket.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace {

using namespace E2E;
namespace fs = std::filesystem;

enum class Step
{
    Configuration,
    SignIn,
    Activity,
    Titles,
    NewProduct,
    NewTrack,
    UploadUrl,
    UploadPost,
    Report,
    Refresh,
};

const char* stepName(Step step)
{
    switch (step)
    {
    case Step::Configuration: return "configuration";
    case Step::SignIn: return "sign-in";
    case Step::Activity: return "activity";
    case Step::Titles: return "titles";
    case Step::NewProduct: return "new product";
    case Step::NewTrack: return "new track";
    case Step::UploadUrl: return "upload URL";
    case Step::UploadPost: return "upload POST";
    case Step::Report: return "completion report";
    case Step::Refresh: return "refresh after the upload";
    }
    return "?";
}

/// What the user sees at the end of a case.
struct Outcome
{
    int exitCode = 0;
    std::string message; ///< a part of standard error; empty: nothing asked of it
    std::string rows;    ///< the rows' states in the JSON report; empty: no report (ended earlier)
    bool keptRendered = false;
};

std::string bytesOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// The login kept in the keyring for the service, as secret-tool reads it.
std::string storedPassword()
{
    return SecurityTest::ShellCommand::run("secret-tool lookup target sorvel.com 2>/dev/null").output;
}

/// The part of the battery this run takes, from SORVEL_FAULT_PART "K/N": every Nth case from the
/// Kth, so that CTest can run the parts beside each other. Without the variable, all of it (1/1).
/// A value that is not a part fails the test rather than run fewer cases unnoticed.
std::pair<size_t, size_t> batteryPart()
{
    const char* given = std::getenv("SORVEL_FAULT_PART");
    if (!given)
        return {1, 1};
    size_t part = 0, parts = 0;
    char end = 0;
    if (std::sscanf(given, "%zu/%zu%c", &part, &parts, &end) != 2 || parts == 0 || part == 0 || part > parts)
    {
        ADD_FAILURE() << "SORVEL_FAULT_PART is \"" << given << "\", not K/N with 1 <= K <= N";
        return {0, 0};
    }
    return {part, parts};
}

class FaultSuite : public SorvelProgram
{
public:
    /// Points the program at another server for the next run.
    void useServer(const std::string& serverUrl) { service.serverUrl = serverUrl; }

    /// `sorvel publish` of `file` into `product` with the demo login typed in, and `extra` flags.
    ProgramRun publishAs(const std::string& product, const std::string& file, std::vector<std::string> extra = {})
    {
        std::vector<std::string> arguments = {"publish", "--user", login.username, "--password-stdin", "--no-progress"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        arguments.insert(arguments.end(), {"--product", product, file});
        return sorvel(arguments, login.password);
    }

protected:
    /// A fresh service for the next case, its faults and log empty.
    void restartService()
    {
        sandbox->stop();
        sandbox = std::make_unique<SorvelSandbox::Sandbox>();
        std::string error;
        ASSERT_GT(sandbox->start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        service = {sandbox->baseUrl(), sandbox->loginUrl(), sandbox->partnerId(), sandbox->partnerKey()};
    }
};

/// One fault of one step and what it must lead to. `arm` injects it into the running service (or
/// points the program elsewhere) and returns what must live while the program runs.
struct FaultCase
{
    Step step;
    std::string kind;
    std::function<std::shared_ptr<void>(FaultSuite&, SorvelSandbox::Sandbox&)> arm;
    Outcome expected;
};

TEST_F(FaultSuite, EveryStepFailingInEveryWayEndsAsTheUserExpects)
{
    // The login is kept in the keyring, as a user who signed in once with --remember has it.
    ASSERT_EQ(sorvel({"signin", "--user", login.username, "--password-stdin", "--remember"}, login.password).exitCode, 0);
    const std::string password = storedPassword();
    ASSERT_EQ(password, login.password);

    // The kinds of fault of the service's JSON requests. "never answers" waits far past the
    // program's --timeout of one second.
    struct Kind
    {
        std::string name;
        Fault fault;
    };
    const std::vector<Kind> jsonKinds = {
        {"connection reset, no answer", Fault::dropConnection()},
        {"connection closed mid-reply", Fault::closeMidReply()},
        {"never answers", Fault::delayed(std::chrono::seconds(60))},
        {"HTTP 500", Fault::httpStatus(500)},
        {"HTTP 503", Fault::httpStatus(503)},
        {"HTTP 401", Fault::httpStatus(401)},
        {"HTTP 403", Fault::httpStatus(403)},
        {"200, empty body", Fault::emptyBody()},
        {"200, truncated body", Fault::truncatedBody()},
        {"200, not JSON", Fault::invalidBody()},
        {"200, JSON of the wrong shape", Fault::replacedBody(R"({"status_code":200,"data":"no object"})")},
        {"200, status_code 500", Fault::statusCode(500)},
    };

    // What each step's failure means to the user; a kind listed under a step differs from it.
    const Outcome signInRefused{3, Engine::TextKeys::kLoginFailed, "", false};
    const Outcome noAnswerAtSignIn{1, "cannot sign in: the service did not answer", "", false};
    const Outcome sessionExpiredEarly{3, Engine::TextKeys::kSessionExpired, "", false};
    const Outcome notListed{1, "the account's products could not be listed", "", false};
    const Outcome uploaded{0, "", "uploaded uploaded", false};
    const Outcome productFailed{1, Engine::TextKeys::kUploadFailed, "add add", true};
    const Outcome productExpired{3, Engine::TextKeys::kSessionExpired, "add add", true};
    const Outcome trackFailed{1, Engine::TextKeys::kUploadFailed, "failed add", true};
    // The expired session signs the user out, which lays the rows out anew.
    const Outcome trackExpired{3, Engine::TextKeys::kSessionExpired, "add add", true};

    struct StepPlan
    {
        Step step;
        Endpoint endpoint;
        unsigned nth;   // which request of the endpoint fails
        unsigned times; // how many in a row
        Outcome usual;
        std::map<std::string, Outcome> unusual;
    };
    const std::vector<StepPlan> plans = {
        // The silent sign-in with the stored login and the one the host asks for after it fail alike.
        {Step::SignIn, Endpoint::SignIn, 1, 10, signInRefused,
         {{"connection reset, no answer", noAnswerAtSignIn},
          {"connection closed mid-reply", noAnswerAtSignIn},
          {"never answers", noAnswerAtSignIn},
          {"HTTP 500", noAnswerAtSignIn},
          {"HTTP 503", noAnswerAtSignIn}}},
        // The account's figures only fill the dashboard: the publish goes on without them.
        {Step::Activity, Endpoint::Activity, 1, 1, uploaded, {}},
        // Without the list of products no product is created by name.
        {Step::Titles, Endpoint::Titles, 1, 1, notListed,
         {{"HTTP 403", sessionExpiredEarly},
          // Read as an account without products: the new product is created, as asked.
          {"200, JSON of the wrong shape", uploaded}}},
        {Step::NewProduct, Endpoint::CreateTitle, 1, 1, productFailed, {{"HTTP 403", productExpired}}},
        {Step::NewTrack, Endpoint::CreateTrack, 1, 1, trackFailed, {{"HTTP 403", trackExpired}}},
        {Step::UploadUrl, Endpoint::UploadToken, 1, 1, trackFailed,
         {{"HTTP 403", trackExpired},
          // Missing "url" and "post_data" do not fail the step; the post to no address does.
          {"200, JSON of the wrong shape", trackFailed}}},
        // The report that a file arrived: its outcome does not fail the track.
        {Step::Report, Endpoint::UploadStatus, 1, 1, uploaded, {}},
        // The files are on the service: a failed reload of the products changes nothing of that.
        {Step::Refresh, Endpoint::Titles, 2, 1, uploaded, {}},
    };

    std::vector<FaultCase> cases;
    for (const StepPlan& plan : plans)
        for (const Kind& kind : jsonKinds)
        {
            const auto unusual = plan.unusual.find(kind.name);
            const Endpoint endpoint = plan.endpoint;
            const Fault fault = kind.fault;
            const unsigned nth = plan.nth, times = plan.times;
            cases.push_back({plan.step, kind.name,
                             [=](FaultSuite&, SorvelSandbox::Sandbox& service) {
                                 service.injectFault(endpoint, fault, nth, times);
                                 return std::shared_ptr<void>();
                             },
                             unusual == plan.unusual.end() ? plan.usual : unusual->second});
        }

    // The upload target: a one-time address that answers no envelope.
    const auto onUpload = [](Fault fault) {
        return [fault](FaultSuite&, SorvelSandbox::Sandbox& service) {
            service.injectFault(Endpoint::Upload, fault);
            return std::shared_ptr<void>();
        };
    };
    cases.push_back({Step::UploadPost, "connection refused",
                     [](FaultSuite&, SorvelSandbox::Sandbox& service) {
                         auto refusing = std::make_shared<TestSupport::RefusingPort>();
                         const std::string reply = R"({"status_code":200,"data":{"url":"http://127.0.0.1:)" +
                                                   std::to_string(refusing->port()) +
                                                   R"(/upload/gone","post_data":{}}})";
                         service.injectFault(Endpoint::UploadToken, Fault::replacedBody(reply));
                         return std::shared_ptr<void>(refusing);
                     },
                     trackFailed});
    cases.push_back({Step::UploadPost, "connection reset mid-body", onUpload(Fault::dropConnection()), trackFailed});
    cases.push_back({Step::UploadPost, "stops reading mid-body", onUpload(Fault::stopReading(std::chrono::seconds(4))),
                     trackFailed});
    cases.push_back({Step::UploadPost, "never answers", onUpload(Fault::delayed(std::chrono::seconds(60))), trackFailed});
    for (int status : {400, 401, 403, 500, 503})
        cases.push_back({Step::UploadPost, "HTTP " + std::to_string(status), onUpload(Fault::httpStatus(status)),
                         trackFailed});
    // The target's answer is not read: any status from 200 to 399 is success, whatever the body.
    cases.push_back({Step::UploadPost, "200, empty body", onUpload(Fault::emptyBody()), uploaded});
    cases.push_back({Step::UploadPost, "HTTP 302", onUpload(Fault::httpStatus(302)), uploaded});

    // The configured service itself: each case's server is made when the case begins and lives
    // until it ends.
    const auto elsewhere = [](auto makeServer) {
        return [makeServer](FaultSuite& suite, SorvelSandbox::Sandbox&) {
            const auto server = makeServer();
            suite.useServer("http://127.0.0.1:" + std::to_string(server->port()) + "/api/");
            return std::shared_ptr<void>(server);
        };
    };
    using TestSupport::MuteServer;
    cases.push_back({Step::Configuration,
                     "connection refused",
                     elsewhere([] { return std::make_shared<TestSupport::RefusingPort>(); }),
                     {1, "cannot reach the service at http://127.0.0.1:", "", false}});
    cases.push_back({Step::Configuration, "never answers",
                     elsewhere([] { return std::make_shared<MuteServer>(MuteServer::Accepts::none); }),
                     noAnswerAtSignIn});
    cases.push_back({Step::Configuration, "closes every connection",
                     elsewhere([] { return std::make_shared<MuteServer>(MuteServer::Accepts::andCloses); }),
                     noAnswerAtSignIn});

    ASSERT_GE(cases.size(), 40u);

    const std::vector<std::string> files = {flac("Alpha", 0.5), flac("Beta", 0.5)};
    std::vector<std::string> before;
    for (const std::string& file : files)
        before.push_back(bytesOf(file));
    const fs::path renderFolder = home / "cache" / "sorvel" / "render";

    const auto [part, parts] = batteryPart();
    ASSERT_NE(parts, 0u);
    std::vector<std::string> table;
    for (size_t index = part - 1; index < cases.size(); index += parts)
    {
        const FaultCase& current = cases[index];
        const std::string name = std::string(stepName(current.step)) + ", " + current.kind;
        SCOPED_TRACE(name);
        restartService();
        const std::shared_ptr<void> keep = current.arm(*this, *sandbox);

        const auto started = std::chrono::steady_clock::now();
        std::vector<std::string> arguments = {"--timeout", "1",     "publish", "--json",
                                              "--no-progress", "--product", "Battery"};
        arguments.insert(arguments.end(), files.begin(), files.end());
        const ProgramRun run = sorvel(arguments, "");
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const Outcome& expected = current.expected;

        // Ended, in time, with the code and the words the table gives.
        EXPECT_LT(seconds, 30) << "the program took too long";
        EXPECT_EQ(run.exitCode, expected.exitCode) << run.err;
        if (!expected.message.empty())
        {
            EXPECT_NE(run.err.find(expected.message), std::string::npos) << run.err;
        }
        if (expected.exitCode == 0)
        {
            EXPECT_EQ(run.err.find(std::string("sorvel: ") + Engine::TextKeys::kUploadFailed), std::string::npos) << run.err;
        }

        // The report: one row per file, in the states given; none when it ended before the table.
        std::string states, kept;
        if (expected.rows.empty())
        {
            // Ended before the files were handed over: the document says why, and no more.
            const auto document = parse(run.out);
            ASSERT_TRUE(document.IsObject()) << run.out << run.err;
            EXPECT_FALSE(document.HasMember("tracks")) << run.out;
            EXPECT_EQ(document["exit_code"].GetInt(), expected.exitCode) << run.out;
            EXPECT_FALSE(std::string(document["error"].GetString()).empty()) << run.out;
        }
        else
        {
            const auto document = parse(run.out);
            ASSERT_TRUE(document.IsObject() && document.HasMember("tracks")) << run.out << run.err;
            for (const auto& track : document["tracks"].GetArray())
                states += (states.empty() ? "" : " ") + std::string(track["state"].GetString());
            EXPECT_EQ(states, expected.rows) << run.out;
            if (document.HasMember("rendered_folder"))
                kept = document["rendered_folder"].GetString();
        }

        // The rendered files: kept and named after a failed upload, gone after a good one; the
        // user's cache holds nothing else.
        std::set<std::string> left;
        if (fs::exists(renderFolder))
            for (const auto& entry : fs::recursive_directory_iterator(renderFolder))
                left.insert(fs::relative(entry.path(), renderFolder).string());
        if (expected.keptRendered)
        {
            ASSERT_FALSE(kept.empty()) << "the report names the folder of the kept files: " << run.out;
            const std::string batch = fs::path(kept).filename().string();
            EXPECT_EQ(fs::path(kept).parent_path(), renderFolder);
            EXPECT_EQ(left, (std::set<std::string>{batch, batch + "/001", batch + "/001/Alpha.wav", batch + "/002",
                                                   batch + "/002/Beta.wav"}));
            fs::remove_all(kept);
        }
        else
        {
            EXPECT_TRUE(kept.empty()) << kept;
            EXPECT_TRUE(left.empty()) << "left in the cache: " << *left.begin();
        }

        // Nothing the user had is touched or lost.
        for (size_t i = 0; i < files.size(); ++i)
            EXPECT_EQ(bytesOf(files[i]), before[i]) << files[i] << " changed";
        EXPECT_EQ(storedPassword(), password) << "the stored login changed";
        expectNoSecretIn(run, login.password);

        // Nothing created twice: one product of the name at most, a track per file at most, and
        // every one-time upload address posted to once at most. Counted while the service runs:
        // a stopped one lists no accounts.
        size_t products = 0, tracks = 0;
        const auto accounts = sandbox->accounts();
        ASSERT_FALSE(accounts.empty()) << "the catalogue is read from the running service";
        for (const auto& account : accounts)
            for (const auto& title : account.titles)
                if (title.name == "Battery")
                    ++products, tracks += title.tracks.size();
        sandbox->stop();
        EXPECT_LE(products, 1u);
        EXPECT_LE(tracks, files.size());
        std::set<std::string> targets;
        for (const auto& post : sandbox->requestLog().entries(Endpoint::Upload))
            EXPECT_TRUE(targets.insert(post.target).second) << post.target << " was posted to twice";
        EXPECT_LE(sandbox->requestLog().entries(Endpoint::CreateTitle).size(), 1u);
        EXPECT_LE(sandbox->requestLog().entries(Endpoint::CreateTrack).size(), files.size());

        // The program's own words, for the table (the address of a refused server varies).
        std::string words;
        for (size_t at = run.err.find("sorvel: "); at != std::string::npos; at = run.err.find("sorvel: ", at + 1))
            if (const std::string said = run.err.substr(at + 8, run.err.find('\n', at) - at - 8);
                said.rfind("no service configured", 0) != 0)
                words += (words.empty() ? "" : " / ") + said;
        char line[1024];
        std::snprintf(line, sizeof line, "| %s | %s | %d | %s | %s |", stepName(current.step), current.kind.c_str(),
                      run.exitCode, states.empty() ? "-" : states.c_str(), words.empty() ? "-" : words.c_str());
        table.push_back(line);
    }

    std::printf("%zu of %zu cases (part %zu of %zu)\n| Step | Fault | Exit | Rows | Standard error |\n|---|---|---|---|---|\n",
                table.size(), cases.size(), part, parts);
    for (const std::string& line : table)
        std::printf("%s\n", line.c_str());
}

TEST_F(FaultSuite, AProductListThatCannotBeReadNeverLeadsToASecondProductOfTheSameName)
{
    // "Night Drive" exists. Its list failing, a publish into it stops before anything is made.
    const std::string file = flac("Tunnel");
    for (const Fault& fault : {Fault::httpStatus(500), Fault::truncatedBody(), Fault::closeMidReply()})
    {
        restartService();
        sandbox->injectFault(Endpoint::Titles, fault);
        const ProgramRun run = publishAs("Night Drive", file);
        EXPECT_EQ(run.exitCode, 1) << run.err;
        EXPECT_NE(run.err.find("the account's products could not be listed"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("Try again"), std::string::npos) << run.err;
        EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::CreateTitle).empty());
        EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::CreateTrack).empty());
        EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::Upload).empty());
    }

    // `sorvel products` says the same instead of listing none.
    sandbox->injectFault(Endpoint::Titles, Fault::httpStatus(503));
    ProgramRun run = sorvel({"products", "--user", login.username, "--password-stdin"}, login.password);
    EXPECT_EQ(run.exitCode, 1) << run.out;
    EXPECT_NE(run.err.find("could not be listed (HTTP status 503)"), std::string::npos) << run.err;
    EXPECT_EQ(run.out.find("No products"), std::string::npos);

    // Asked for explicitly, a new product is made even so, and even beside one of the same name.
    sandbox->injectFault(Endpoint::Titles, Fault::httpStatus(500));
    run = publishAs("Night Drive", file, {"--new-product"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    run = publishAs("Night Drive", file, {"--new-product"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_NE(run.out.find("Product: Night Drive (new)"), std::string::npos) << run.out;
    EXPECT_EQ(sandbox->requestLog().entries(Endpoint::CreateTitle).size(), 2u);
}

TEST_F(FaultSuite, AConnectionClosedWithoutAnAnswerIsNeverFollowedByTheSameRequest)
{
    // The service closes the connection after it took the request: the track may exist now, the
    // one-time address may be spent. The batch ends; neither request is sent a second time.
    const std::string file = flac("Once");
    for (const Endpoint endpoint : {Endpoint::CreateTrack, Endpoint::UploadToken, Endpoint::Upload})
    {
        SCOPED_TRACE(SorvelSandbox::endpointName(endpoint));
        restartService();
        sandbox->injectFault(endpoint, Fault::dropConnection());
        const ProgramRun run = publishAs("Single", file);
        EXPECT_EQ(run.exitCode, 1) << run.err;
        EXPECT_NE(run.err.find(Engine::TextKeys::kUploadFailed), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("the request was not sent again"), std::string::npos) << run.err;
        EXPECT_EQ(sandbox->requestLog().entries(endpoint).size(), 1u) << "sent again";
        EXPECT_TRUE(sandbox->storedFiles().empty());
    }
}

} // namespace

namespace {

/// One moment of a batch at which `sorvel` is killed: the request held there, before it took
/// effect (HoldRequest) or after (HoldReply), counted from the start of the run.
struct KillPoint
{
    const char* where;
    Endpoint endpoint;
    Fault fault;
    unsigned nth;
};

} // namespace

TEST_F(FaultSuite, ABatchKilledAtAnyMomentResumesWithEachFileSentOnce)
{
    // 20 short CD-format files, which the render passes through bit for bit, each its own tone.
    std::vector<std::string> files;
    for (int i = 0; i < 20; ++i)
    {
        const fs::path path = home / "killed" / ("part" + std::to_string(i + 10) + ".wav");
        fs::create_directories(path.parent_path());
        const double step = 0.01 + 0.005 * i;
        ASSERT_TRUE(RenderTest::writeSound(path, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, 8820,
                                           [step](std::int64_t frame, int channel) {
                                               return 0.3 * std::sin(frame * step + channel);
                                           }));
        files.push_back(path.string());
    }
    std::vector<std::string> arguments = {"publish", "--user", login.username, "--password-stdin", "--no-progress",
                                          "--jobs", "2", "--product", "Killed"};
    arguments.insert(arguments.end(), files.begin(), files.end());

    // In order, each run going on from where the one before was killed (the comments say where
    // the batch stands then).
    const auto held = std::chrono::seconds(60);
    const KillPoint points[] = {
        {"creating the product", Endpoint::CreateTitle, Fault::holdRequest(held), 1},
        {"the product created, its answer lost", Endpoint::CreateTitle, Fault::holdReply(held), 1},
        {"reading the product list", Endpoint::Titles, Fault::holdRequest(held), 1},
        {"creating the first track", Endpoint::CreateTrack, Fault::holdRequest(held), 1},
        {"in the middle of the third file's post", Endpoint::Upload, Fault::holdRequest(held), 3},
        {"between a post and its completion report", Endpoint::UploadStatus, Fault::holdRequest(held), 3},
        {"a middle track created, its answer lost", Endpoint::CreateTrack, Fault::holdReply(held), 5},
        {"asking for an upload address", Endpoint::UploadToken, Fault::holdRequest(held), 3},
        {"a file stored, the post's answer lost", Endpoint::Upload, Fault::holdReply(held), 2},
        {"a completion report taken, its answer lost", Endpoint::UploadStatus, Fault::holdReply(held), 2},
        {"creating the last track", Endpoint::CreateTrack, Fault::holdRequest(held), 6},
    };
    SorvelSandbox::RequestLog everything; // the log of every run, the service's own cleared for each
    auto keep = [&] {
        for (const auto& entry : sandbox->requestLog().entries())
            everything.add(entry);
        sandbox->requestLog().clear();
    };
    auto trackOfToken = [](const std::string& target) {
        const size_t start = target.find("/tracks/") + 8;
        return std::stoll(target.substr(start, target.find('/', start) - start));
    };
    std::set<int64_t> confirmedAtKill;
    std::string lastKill = "none";
    for (const KillPoint& point : points)
    {
        SCOPED_TRACE(point.where);
        sandbox->injectFault(point.endpoint, point.fault, point.nth);
        Child child(arguments, environment(), login.password + "\n");
        const bool reached = sandbox->requestLog().waitFor(
            [&](const SorvelSandbox::LoggedRequest& entry) {
                return entry.endpoint == point.endpoint && entry.fault &&
                       (*entry.fault == Fault::Kind::HoldRequest || *entry.fault == Fault::Kind::HoldReply);
            },
            std::chrono::seconds(30));
        ::kill(child.pid(), SIGKILL);
        const ProgramRun run = child.wait();
        sandbox->releaseHeld();
        sandbox->clearFaults();
        ASSERT_TRUE(reached) << "the batch never got there: " << run.err;

        // What the run sent again of what was confirmed before the last kill: at most the file
        // that was in flight then (its completion report may have been taken with the answer lost).
        std::set<int64_t> sentAgain;
        for (const auto& token : sandbox->requestLog().entries(Endpoint::UploadToken))
            if (confirmedAtKill.count(trackOfToken(token.target)))
                sentAgain.insert(trackOfToken(token.target));
        EXPECT_LE(sentAgain.size(), 1u) << "after the kill " << lastKill;
        keep();
        confirmedAtKill.clear();
        for (const auto& [track, reports] : everything.confirmedUploads())
            confirmedAtKill.insert(track);
        lastKill = point.where;
    }

    // Then publish again until it succeeds.
    ProgramRun finished;
    for (int attempt = 0; attempt < 3 && finished.exitCode != 0; ++attempt)
        finished = Child(arguments, environment(), login.password + "\n").wait();
    ASSERT_EQ(finished.exitCode, 0) << finished.err;
    std::set<int64_t> sentAgain;
    for (const auto& token : sandbox->requestLog().entries(Endpoint::UploadToken))
        if (confirmedAtKill.count(trackOfToken(token.target)))
            sentAgain.insert(trackOfToken(token.target));
    EXPECT_LE(sentAgain.size(), 1u) << "after the last kill";
    keep();

    // One product, a track per file, each holding its file's content; counted while it runs.
    size_t products = 0;
    std::map<std::string, std::vector<int64_t>> tracksByName;
    for (const auto& account : sandbox->accounts())
        for (const auto& title : account.titles)
            if (title.name == "Killed")
            {
                ++products;
                for (const auto& track : title.tracks)
                {
                    tracksByName[track.name].push_back(track.id);
                    EXPECT_EQ(track.uploadStatus, 100) << track.name << " was never confirmed";
                }
            }
    EXPECT_EQ(products, 1u);
    ASSERT_EQ(tracksByName.size(), files.size());
    const auto stored = sandbox->storedFiles();
    for (const std::string& file : files)
    {
        const std::string name = fs::path(file).stem().string();
        ASSERT_EQ(tracksByName[name].size(), 1u) << name << " is on the service more than once";
        const int64_t id = tracksByName[name][0];
        // The last file stored for the track is the source, sample for sample.
        const SorvelSandbox::StoredFile* last = nullptr;
        for (const auto& candidate : stored)
            if (candidate.trackId == id)
                last = &candidate;
        ASSERT_NE(last, nullptr) << name;
        EXPECT_EQ(RenderTest::readSound(last->path).samples, RenderTest::readSound(file).samples) << name;
    }
    for (const auto& [track, reports] : everything.confirmedUploads())
        EXPECT_LE(reports, 2u) << "track " << track << " was confirmed more than once after its kill";

    // Once more: everything is unchanged, and nothing is sent.
    const ProgramRun again = Child(arguments, environment(), login.password + "\n").wait();
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::Upload).empty());
    EXPECT_TRUE(sandbox->requestLog().entries(Endpoint::CreateTrack).empty());
}
