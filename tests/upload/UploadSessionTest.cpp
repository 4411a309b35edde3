#include "framework/hostsupport/EventWait.h"
#include "framework/services/SystemServices.h"
#include "plugin/service/Client.h"
#include "plugin/upload/UploadSession.h"
#include "sandbox/Sandbox.h"
#include "tests/views/Implements.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;
using namespace Sorvel;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace {

/// What the session signalled, as the controller sees it on the user-interface thread.
class SessionLog : public ViewTests::Implements<IObserver>
{
public:
    void notify(ISubject*, IMessage& message) override
    {
        const std::string id(idOf(message));
        if (id == "trackProgressChanged")
        {
            progress.push_back(argumentOf(message, 0).asDouble());
            EXPECT_TRUE(GetRunLoop()->isLoopThread());
            // Progress belongs to the track between its "trackStarted" and "trackFinished".
            EXPECT_TRUE(!signals.empty() && signals.back() == "trackStarted") << "progress outside a track";
            if (!trackProgress.empty())
                trackProgress.back().push_back(progress.back());
            if (onProgress)
                onProgress();
            return;
        }
        signals.push_back(id);
        if (id == "trackStarted")
            trackProgress.emplace_back();
        if (id == "trackFinished")
            results.push_back(static_cast<int>(argumentOf(message, 1).asInt()));
    }
    bool finished() const { return !signals.empty() && signals.back() == "sessionFinished"; }
    int count(const std::string& id) const { return static_cast<int>(std::count(signals.begin(), signals.end(), id)); }

    std::vector<std::string> signals;
    std::vector<int> results;
    std::vector<double> progress;
    std::vector<std::vector<double>> trackProgress; // per track, in the order they arrived
    std::function<void()> onProgress;
};

class UploadSessionAgainstSandbox : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string error;
        ASSERT_GT(sandbox.start(SorvelSandbox::Sandbox::Options(), error), 0) << error;
        folder = std::filesystem::temp_directory_path() / ("sorvel-upload-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder);

        // Signed in as the controller would be, then the configuration copied into the session.
        auto client = makeRef<Client>();
        Attributes provider;
        provider.set("ServerURL", String(sandbox.baseUrl()));
        provider.set("LoginURL", String(sandbox.loginUrl()));
        provider.set("PartnerID", String(sandbox.partnerId()));
        provider.set("PartnerKey", String(sandbox.partnerKey()));
        ASSERT_TRUE(client->getConfiguration().fill(provider));
        const auto login = sandbox.demoLogin();
        ASSERT_TRUE(client->authorize(String(login.username), String(login.password)));
        ASSERT_TRUE(EventWait::until([&] { return client->getState() != Client::Authorizing; }, 10000));
        ASSERT_TRUE(client->isAuthorized());
        configuration = client->getConfiguration();

        session = makeRef<UploadSession>();
        session->setConfiguration(configuration);
        log = makeRef<SessionLog>();
        session->addObserver(log);
    }
    void TearDown() override
    {
        session->terminate();
        session->removeObserver(log);
        sandbox.stop();
        std::filesystem::remove_all(folder);
    }

    Ref<LocalTrack> track(const std::string& name, size_t bytes = 4096)
    {
        const auto path = folder / (name + ".wav");
        std::ofstream(path, std::ios::binary) << std::string(bytes, 'w');
        auto local = makeRef<LocalTrack>();
        local->name = String(name);
        local->url = Url::fromNativePath(String(path.string()));
        local->incompatible = false;
        return local;
    }
    Ref<Title> newTitle(const std::string& name)
    {
        auto title = makeRef<Title>();
        title->name = String(name);
        return title;
    }
    /// Runs a batch of `files`, after any entries already added, into `title` (a new product when
    /// none) with the log cleared; true once it has finished.
    bool runBatch(std::initializer_list<Ref<LocalTrack>> files, Title* title = nullptr)
    {
        log->signals.clear();
        log->results.clear();
        session->setTitle(title ? title : newTitle("Product").get());
        for (const auto& file : files)
            session->addEntry(makeRef<UploadSession::Entry>(file, String()));
        session->start();
        return EventWait::until([&] { return log->finished(); }, 20000);
    }
    std::vector<Endpoint> endpointsSince(size_t first)
    {
        std::vector<Endpoint> endpoints;
        auto entries = sandbox.requestLog().entries();
        for (size_t i = first; i < entries.size(); ++i)
            endpoints.push_back(entries[i].endpoint);
        return endpoints;
    }

    SorvelSandbox::Sandbox sandbox;
    std::filesystem::path folder;
    ClientConfiguration configuration;
    Ref<UploadSession> session;
    Ref<SessionLog> log;
};

} // namespace

TEST_F(UploadSessionAgainstSandbox, ANewProductWithThreeNewTracksIsCreatedAndUploadedInOrder)
{
    const size_t before = sandbox.requestLog().entries().size();
    auto title = newTitle("Night Drive");
    ASSERT_TRUE(runBatch({track("one", 200000), track("two", 200000), track("three", 200000)}, title));

    EXPECT_TRUE(session->succeeded());
    EXPECT_EQ(session->getLastStatus(), 200);
    EXPECT_FALSE(session->isRunning());
    EXPECT_EQ(session->getTitle(), nullptr) << "released at the end of the batch";
    EXPECT_EQ(session->entryCount(), 0u);
    EXPECT_EQ(log->signals, (std::vector<std::string>{"sessionStarted", "trackStarted", "trackFinished", "trackStarted",
                                                      "trackFinished", "trackStarted", "trackFinished",
                                                      "sessionFinished"}));
    EXPECT_EQ(log->results, (std::vector<int>{1, 1, 1}));

    std::vector<Endpoint> expected{Endpoint::CreateTitle};
    for (int i = 0; i < 3; ++i)
        expected.insert(expected.end(), {Endpoint::CreateTrack, Endpoint::UploadToken, Endpoint::Upload, Endpoint::UploadStatus});
    EXPECT_EQ(endpointsSince(before), expected);
    auto entries = sandbox.requestLog().entries();
    for (size_t i = before; i < entries.size(); ++i)
        EXPECT_TRUE(entries[i].error.empty()) << entries[i].target << ": " << entries[i].error;
    // The bodies: creation fields first, then the sign-in values (no signature); the report
    // carries "upload_status" 100.
    const auto createdTitle = sandbox.requestLog().entries(Endpoint::CreateTitle).back();
    EXPECT_EQ(createdTitle.memberNames, (std::vector<std::string>{"name", "artist_name", "upc", "token", "timestamp",
                                                                  "account_id", "partner_id"}));
    EXPECT_NE(createdTitle.body.find("\"name\":\"Night Drive\""), std::string::npos);
    const auto createdTrack = sandbox.requestLog().entries(Endpoint::CreateTrack).back();
    EXPECT_EQ(createdTrack.memberNames.front(), "name");
    EXPECT_NE(std::find(createdTrack.memberNames.begin(), createdTrack.memberNames.end(), "title_id"),
              createdTrack.memberNames.end());
    EXPECT_EQ(std::find(createdTrack.memberNames.begin(), createdTrack.memberNames.end(), "signature"),
              createdTrack.memberNames.end());
    // The service gives identifiers as JSON numbers; they are kept and sent on as text.
    ASSERT_FALSE(title->id.isEmpty()) << "the product now has the service's identifier";
    const std::string titleId = title->id.toUtf8();
    EXPECT_EQ(titleId.find_first_not_of("0123456789"), std::string::npos) << titleId;
    EXPECT_NE(createdTrack.body.find("\"title_id\":\"" + titleId + "\""), std::string::npos) << createdTrack.body;
    const auto report = sandbox.requestLog().entries(Endpoint::UploadStatus).back();
    EXPECT_NE(report.body.find("\"upload_status\":100"), std::string::npos);
    EXPECT_EQ(sandbox.storedFiles().size(), 3u);
    for (const auto& stored : sandbox.storedFiles())
        EXPECT_EQ(stored.size, 200000u);

    // Progress came on the user-interface thread, in order, and only for the file posts: within
    // each track it never goes back and ends with the whole file sent. A report of the small
    // requests around the post (the status report after it) would start again from 0.
    ASSERT_EQ(log->trackProgress.size(), 3u);
    for (const std::vector<double>& values : log->trackProgress)
    {
        ASSERT_FALSE(values.empty());
        EXPECT_GE(values.front(), 0.0);
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
        EXPECT_EQ(values.back(), 1.0) << "the last report of a transfer always arrives";
    }
}

TEST_F(UploadSessionAgainstSandbox, TheFileArrivesByteForByteUnderItsUtf8Name)
{
    // A name with letters outside ASCII, spaces and characters that mean something in a URL, and
    // bytes that differ from one position to the next, so that a piece sent twice or left out shows.
    const std::string name = "Über Nacht #2 (100%)";
    auto local = track(name);
    const std::string path = local->url.nativePath().toUtf8();
    std::string bytes(300007, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>((i * 7919u) >> 3);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    ASSERT_TRUE(runBatch({local}));
    EXPECT_TRUE(session->succeeded());

    ASSERT_EQ(sandbox.storedFiles().size(), 1u);
    const auto stored = sandbox.storedFiles().front();
    EXPECT_EQ(stored.fileName, name + ".wav");
    std::ifstream in(stored.path, std::ios::binary);
    const std::string received((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_TRUE(received == bytes) << "received " << received.size() << " bytes of " << bytes.size();
}

TEST_F(UploadSessionAgainstSandbox, ReplacementsSendOnlyTheTokenTheFileAndTheReport)
{
    // A product with tracks on the service, made by a first batch.
    auto title = newTitle("Reissue");
    ASSERT_TRUE(runBatch({track("a"), track("b")}, title));
    ASSERT_TRUE(session->succeeded());
    std::vector<std::string> trackIds;
    for (const auto& request : sandbox.requestLog().entries(Endpoint::UploadToken))
        trackIds.push_back(request.target.substr(request.target.find("tracks/") + 7,
                                                 request.target.find("/upload_token") - request.target.find("tracks/") - 7));
    ASSERT_EQ(trackIds.size(), 2u);

    const size_t before = sandbox.requestLog().entries().size();
    for (const std::string& id : trackIds)
        session->addEntry(makeRef<UploadSession::Entry>(track("new-" + id), String(id)));
    ASSERT_TRUE(runBatch({}, title)); // the product has its identifier now
    EXPECT_TRUE(session->succeeded());
    EXPECT_EQ(endpointsSince(before), (std::vector<Endpoint>{Endpoint::UploadToken, Endpoint::Upload, Endpoint::UploadStatus,
                                                             Endpoint::UploadToken, Endpoint::Upload,
                                                             Endpoint::UploadStatus}));
}

TEST_F(UploadSessionAgainstSandbox, ASecondStartWhileRunningChangesNothing)
{
    sandbox.injectFault(Endpoint::CreateTitle, Fault::delayed(std::chrono::milliseconds(300)));
    session->setTitle(newTitle("Once"));
    session->addEntry(makeRef<UploadSession::Entry>(track("x"), String()));
    session->start();
    ASSERT_TRUE(session->isRunning());
    session->start();
    ASSERT_TRUE(EventWait::until([&] { return log->finished(); }, 20000));
    EXPECT_EQ(log->count("sessionStarted"), 1);
    EXPECT_EQ(log->count("trackStarted"), 1);
    EXPECT_TRUE(session->succeeded());
}

TEST_F(UploadSessionAgainstSandbox, EachAnswerOfTheServiceDecidesTheTrackAndWhetherTheBatchGoesOn)
{
    // Two new tracks per case, the fault armed for every request to its endpoint. Redirects count
    // as success, and a report that fails keeps its track. Any other failure ends the batch at its
    // step, without a crash and with the second track left alone: a refused file post or upload
    // address, a creation reply without an identifier, replies of the wrong shape (invalid JSON,
    // "data" of the wrong type, an upload address that is not one), a connection dropped in the
    // file. lastStatus is that of the last reply read: none for a body that is not JSON; the file
    // post does not change it.
    struct Case
    {
        Endpoint endpoint;
        Fault fault;
        std::vector<int> results;
        int32 lastStatus;
        Endpoint lastRequest;
    };
    const Case cases[] = {
        {Endpoint::Upload, Fault::httpStatus(302), {1, 1}, 200, Endpoint::UploadStatus},
        {Endpoint::Upload, Fault::httpStatus(399), {1, 1}, 200, Endpoint::UploadStatus},
        {Endpoint::UploadStatus, Fault::statusCode(500), {1, 1}, 500, Endpoint::UploadStatus},
        {Endpoint::Upload, Fault::httpStatus(400), {0}, 200, Endpoint::Upload},
        {Endpoint::UploadToken, Fault::statusCode(403), {0}, 403, Endpoint::UploadToken},
        {Endpoint::CreateTitle, Fault::replacedBody(R"({"status_code":200,"data":{"id":""}})"), {}, 200,
         Endpoint::CreateTitle},
        {Endpoint::CreateTrack, Fault::invalidBody(), {0}, 0, Endpoint::CreateTrack},
        {Endpoint::CreateTrack, Fault::replacedBody(R"({"status_code":200,"data":[1,2]})"), {0}, 200,
         Endpoint::CreateTrack},
        {Endpoint::UploadToken, Fault::replacedBody(R"({"status_code":200,"data":{"url":"not a url","post_data":7}})"),
         {0}, 200, Endpoint::UploadToken},
        {Endpoint::Upload, Fault::dropConnection(), {0}, 200, Endpoint::Upload},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << SorvelSandbox::endpointName(c.endpoint) << " case " << (&c - cases));
        sandbox.clearFaults();
        sandbox.injectFault(c.endpoint, c.fault, 1, 10);
        auto first = track("first", 100000);
        ASSERT_TRUE(runBatch({first, track("second")}));
        EXPECT_EQ(session->succeeded(), (c.results == std::vector<int>{1, 1}));
        EXPECT_EQ(session->getLastStatus(), c.lastStatus);
        EXPECT_EQ(log->results, c.results);
        EXPECT_EQ(log->count("trackStarted"), static_cast<int>(c.results.size())) << "every track started ends";
        // The emulator logs a dropped connection after it dropped it, so the entry may come
        // after the session has ended.
        EventWait::until([&] { return sandbox.requestLog().entries().back().endpoint == c.lastRequest; }, 5000);
        EXPECT_EQ(sandbox.requestLog().entries().back().endpoint, c.lastRequest) << "nothing after the failed step";
        EXPECT_EQ(std::filesystem::file_size(first->url.nativePath().toUtf8()), 100000u) << "the file is untouched";
    }
}

TEST_F(UploadSessionAgainstSandbox, AFileThatCannotBeOpenedOrIsIncompatibleIsNeverPosted)
{
    // A file that cannot be opened fails its post before the post is sent.
    auto missing = track("missing");
    std::filesystem::remove(missing->url.nativePath().toUtf8());
    ASSERT_TRUE(runBatch({missing}));
    EXPECT_FALSE(session->succeeded());
    EXPECT_TRUE(sandbox.requestLog().entries(Endpoint::Upload).empty());

    // An incompatible track fails without any request of its own.
    const size_t before = sandbox.requestLog().entries().size();
    auto incompatible = track("mono");
    incompatible->incompatible = true;
    auto existing = newTitle("Existing");
    existing->id = "1";
    ASSERT_TRUE(runBatch({incompatible}, existing));
    EXPECT_FALSE(session->succeeded());
    EXPECT_EQ(sandbox.requestLog().entries().size(), before);
}

TEST_F(UploadSessionAgainstSandbox, CancellingDuringThePostEndsTheBatchCancelled)
{
    log->onProgress = [&] { session->cancel(); };
    ASSERT_TRUE(runBatch({track("big", 64 << 20), track("next")}));
    EXPECT_FALSE(session->succeeded());
    EXPECT_TRUE(session->isCanceled());
    EXPECT_EQ(log->results, std::vector<int>{0});
    EXPECT_TRUE(sandbox.storedFiles().empty());
}

TEST_F(UploadSessionAgainstSandbox, TheFormCarriesTheServicesFieldsAsTextThenTheTypeFieldAndTheFile)
{
    // An upload target of the test's own, which keeps what it receives.
    httplib::Server target;
    std::mutex receivedMutex; // the server's thread writes it, the test reads it
    std::string received;
    // The raw body, read as it streams in. The library parses any multipart body itself, even
    // for a raw reader, unless the request's Content-Type is moved out of its sight first.
    target.set_pre_routing_handler([](const httplib::Request& request, httplib::Response&) {
        const_cast<httplib::Request&>(request).headers.erase("Content-Type");
        return httplib::Server::HandlerResponse::Unhandled;
    });
    target.Post("/target", [&](const httplib::Request&, httplib::Response& response, const httplib::ContentReader& reader) {
        reader([&](const char* data, size_t length) {
            std::lock_guard lock(receivedMutex);
            received.append(data, length);
            return true;
        });
        response.status = 200;
        response.set_header("Connection", "close"); // so that stopping waits for no idle connection
    });
    const int port = target.bind_to_any_port("127.0.0.1");
    std::thread serving([&] { target.listen_after_bind(); });
    const std::string address = "http://127.0.0.1:" + std::to_string(port) + "/target";

    auto upload = [&](const std::string& postData) {
        {
            std::lock_guard lock(receivedMutex);
            received.clear();
        }
        sandbox.injectFault(Endpoint::UploadToken,
                            Fault::replacedBody(R"({"status_code":200,"data":{"url":")" + address +
                                                R"(","post_data":)" + postData + "}}"));
        EXPECT_TRUE(runBatch({track("fields", 10)}));
        EXPECT_TRUE(session->succeeded()) << postData;
        std::lock_guard lock(receivedMutex);
        return received;
    };
    auto parts = [](const std::string& body) {
        size_t count = 0;
        for (size_t at = body.find("Content-Disposition"); at != std::string::npos;
             at = body.find("Content-Disposition", at + 1))
            ++count;
        return count;
    };

    // "post_data" that is not an object: only the type field and the file.
    const std::string plain = upload("7");
    EXPECT_EQ(parts(plain), 2u);
    EXPECT_NE(plain.find("name=\"Content-Type\"\r\n\r\naudio/x-wav\r\n"), std::string::npos);
    EXPECT_NE(plain.find("name=\"file\"; filename=\"fields.wav\""), std::string::npos);

    // Numbers go as their text, in the service's order, before the type field.
    const std::string fields = upload(R"({"key":"a/b c","n":42,"x":1.5})");
    EXPECT_EQ(parts(fields), 5u);
    const size_t key = fields.find("name=\"key\"\r\n\r\na/b c\r\n");
    const size_t n = fields.find("name=\"n\"\r\n\r\n42\r\n");
    const size_t x = fields.find("name=\"x\"\r\n\r\n1.5\r\n");
    const size_t type = fields.find("name=\"Content-Type\"");
    EXPECT_TRUE(key < n && n < x && x < type && type != std::string::npos) << fields.substr(0, 600);

    // A nested object has no text of its own: its field goes with an empty value.
    const std::string nested = upload(R"({"outer":{"inner":1},"after":"v"})");
    EXPECT_EQ(parts(nested), 4u);
    EXPECT_NE(nested.find("name=\"outer\"\r\n\r\n\r\n"), std::string::npos) << nested.substr(0, 600);
    EXPECT_NE(nested.find("name=\"after\"\r\n\r\nv\r\n"), std::string::npos);

    target.stop();
    serving.join();
}
