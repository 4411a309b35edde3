#include "framework/data/Json.h"
#include "framework/security/CredentialUIPrompt.h"
#include "framework/stream/MemoryStream.h"
#include "plugin/service/Client.h"
#include "plugin/service/Response.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>

using namespace KVX;
using namespace Sorvel;

namespace {

/// The digest that the system's own tool computes for `bytes` (md5sum or sha1sum).
std::string toolDigest(const char* tool, const std::string& bytes)
{
    char path[] = "/tmp/sorvel-digest-XXXXXX";
    int fd = mkstemp(path);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    std::string command = std::string(tool) + " " + path;
    std::string out(128, '\0');
    FILE* pipe = popen(command.c_str(), "r");
    size_t got = pipe ? fread(out.data(), 1, out.size(), pipe) : 0;
    if (pipe)
        pclose(pipe);
    std::remove(path);
    out.resize(got);
    return out.substr(0, out.find(' '));
}

/// A finished request whose reply is the given body.
class CannedRequest : public Object, public Web::IXMLHttpRequest
{
public:
    explicit CannedRequest(std::string_view body, bool hasBody = true)
    {
        if (hasBody)
        {
            response_ = makeRef<MemoryStream>();
            response_->write(body);
        }
    }
    tresult open(const char*, const char*, bool, const char*, const char*) override { return kUnexpected; }
    tresult setRequestHeader(const char*, const char*) override { return kUnexpected; }
    tresult send(IStream*, IProgressNotify*) override { return kUnexpected; }
    void abort() override {}
    bool isBusy() override { return false; }
    int32 getReadyState() override { return kDone; }
    int32 getStatus() override { return 200; }
    IStream* getResponseStream() override { return response_.get(); }
    const char* getResponseHeader(const char*) override { return nullptr; }
    const char* getErrorText() override { return ""; }
    KVX_FORWARD_UNKNOWN(Object)

private:
    Ref<MemoryStream> response_;
};
tresult CannedRequest::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, Web::IXMLHttpRequest)
    return Object::queryInterface(iid, object);
}

ClientConfiguration configured()
{
    ClientConfiguration configuration;
    Attributes provider;
    provider.set("ServerURL", String("http://127.0.0.1:8080/api/"));
    provider.set("LoginURL", String("http://127.0.0.1:8080/login"));
    provider.set("PartnerID", String("P1"));
    provider.set("PartnerKey", String("K"));
    EXPECT_TRUE(configuration.fill(provider));
    return configuration;
}

} // namespace

TEST(ClientConfiguration, FillsFromTheProviderAndReportsMissingKeys)
{
    ClientConfiguration configuration = configured();
    EXPECT_EQ(configuration.serverUrl.toDisplayString(), "http://127.0.0.1:8080/api/");
    EXPECT_EQ(configuration.partnerId, "P1");
    EXPECT_TRUE(configuration.isConfigured());

    Attributes withoutKey;
    withoutKey.set("ServerURL", String("https://api.example.test/v1"));
    withoutKey.set("LoginURL", String("https://www.example.test/login"));
    withoutKey.set("PartnerID", String("P2"));
    ClientConfiguration partial;
    EXPECT_FALSE(partial.fill(withoutKey));
    EXPECT_EQ(partial.partnerId, "P2"); // what was there is stored all the same
    EXPECT_EQ(partial.serverUrl.host(), "api.example.test");
    EXPECT_TRUE(partial.partnerKey.isEmpty());

    // Both addresses must be usable: an http or https URL with a host. The values are stored
    // all the same, as with a missing key.
    for (auto [server, login] : {std::pair{"not a url", "https://www.example.test/login"},
                                 std::pair{"https://api.example.test/v1", "www.example.test/login"},
                                 std::pair{"ftp://api.example.test/v1", "https://www.example.test/login"},
                                 std::pair{"https:///v1", "https://www.example.test/login"},
                                 std::pair{"https://api.example.test/v1", "mailto:someone@example.test"}})
    {
        Attributes provider;
        provider.set("ServerURL", String(server));
        provider.set("LoginURL", String(login));
        provider.set("PartnerID", String("P3"));
        provider.set("PartnerKey", String("K3"));
        ClientConfiguration unusable;
        EXPECT_FALSE(unusable.fill(provider)) << server << " " << login;
        EXPECT_EQ(unusable.partnerKey, "K3");
    }

    ClientConfiguration copy = configuration; // a copy shares nothing with its source
    copy.serverUrl.appendPath("titles");
    copy.token = "changed";
    EXPECT_EQ(configuration.serverUrl.toDisplayString(), "http://127.0.0.1:8080/api/");
    EXPECT_TRUE(configuration.token.isEmpty());
}

TEST(ClientConfiguration, SignatureAndPasswordDigestMatchTheSystemTools)
{
    ClientConfiguration configuration = configured();
    CString signature = configuration.makeSignature();
    EXPECT_EQ(signature.length(), 32u);
    EXPECT_EQ(signature.str(), toolDigest("md5sum", "P1K"));

    const String password("Grüße€pässwort");
    CString digest = configuration.makePasswordDigest(password, "2014-03-07T18:05:09");
    EXPECT_EQ(digest.length(), 40u);
    EXPECT_EQ(digest.str(), toolDigest("sha1sum", password.toUtf8() + "2014-03-07T18:05:09K"));
    EXPECT_NE(configuration.makePasswordDigest(password, "2014-03-07T18:05:10"), digest);

    // The timestamp is the current time in UTC, whatever the local zone: checked against the C
    // library's own UTC reading of the same clock, taken before and after, in a zone far from UTC.
    // The readings use clock_gettime, as the system module does: time() reads a coarser clock that
    // can lag it by a tick, so a stamp taken as a second turned over could seem to follow "after".
    const char* zone = std::getenv("TZ");
    const std::string savedZone = zone ? zone : "";
    setenv("TZ", "America/New_York", 1);
    tzset();
    auto utcNow = [] {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        std::tm fields{};
        gmtime_r(&now.tv_sec, &fields);
        char buffer[32];
        std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &fields);
        return std::string(buffer);
    };
    const std::string before = utcNow();
    const std::string stamp = ClientConfiguration::makeTimestamp().str();
    const std::string after = utcNow();
    if (zone)
        setenv("TZ", savedZone.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    std::regex form(R"(\d{4}-\d{2}-\d{2}T\d{2}:\d{2}:\d{2})");
    EXPECT_TRUE(std::regex_match(stamp, form)) << stamp;
    EXPECT_GE(stamp, before); // the same fixed-width form orders as the times do
    EXPECT_LE(stamp, after);
}

TEST(ClientConfiguration, SignedUrlsCarryTheSignInValuesInOrder)
{
    ClientConfiguration configuration = configured();
    configuration.token = "tok en";
    configuration.tokenTimestamp = "20261121T024233Z-7f";
    configuration.accountId = "42";

    Attributes parameters;
    parameters.set("view", String("detail"));
    parameters.set("token", String("stale")); // replaced, not added twice
    Url url;
    configuration.makeRequestUrl(url, "titles", parameters);
    EXPECT_EQ(url.toDisplayString(), "http://127.0.0.1:8080/api/titles?view=detail&token=tok%20en"
                                     "&timestamp=20261121T024233Z-7f&account_id=42&partner_id=P1");
    EXPECT_EQ(parameters.count(), 5u);

    Attributes none;
    configuration.makeRequestUrl(url, "tracks/7/upload_token", none);
    EXPECT_EQ(url.path(), "/api/tracks/7/upload_token");

    Url login;
    configuration.makeWebLoginUrl(login, "ann", "secret", "");
    ASSERT_EQ(login.parameters().size(), 5u);
    const char* names[] = {"partner_id", "signature", "username", "password", "timestamp"};
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(login.parameters()[i].name, names[i]);
    const String& timestamp = login.parameters()[4].value;
    EXPECT_EQ(login.parameters()[3].value.toUtf8(),
              configuration.makePasswordDigest("secret", timestamp.toUtf8()).str());
    configuration.makeWebLoginUrl(login, "ann", "secret", "T9");
    ASSERT_EQ(login.parameters().size(), 6u);
    EXPECT_EQ(login.parameters()[5].name, "open_title");
    EXPECT_EQ(login.parameters()[5].value, "T9");
}

TEST(Response, JudgesTheReplyByItsStatusCode)
{
    auto judge = [](std::string_view body, bool hasBody = true) {
        auto request = makeRef<CannedRequest>(body, hasBody);
        return Response(*request);
    };
    EXPECT_EQ(judge(R"({"status_code":200,"data":{"id":"7"}})").getStatusCode(), 200);
    ASSERT_NE(judge(R"({"status_code":200,"data":{"id":"7"}})").getData(), nullptr);
    EXPECT_EQ(judge(R"({"status_code":200.0,"data":{}})").getStatusCode(), 200);
    EXPECT_EQ(judge(R"({"status_code":403.9})").getStatusCode(), 403);
    EXPECT_EQ(judge(R"({"status_code":"200","data":{}})").getStatusCode(), 0);
    EXPECT_EQ(judge(R"({"status_code":200})").getData(), nullptr);
    EXPECT_EQ(judge(R"({"status_code":200,"data":[1]})").getData(), nullptr);
    EXPECT_EQ(judge("").getStatusCode(), 0);
    EXPECT_EQ(judge("<html>oops</html>").getStatusCode(), 0);
    EXPECT_EQ(judge("[200]").getStatusCode(), 0);
    EXPECT_TRUE(judge("", false).isEmpty());
    Response truncated = judge(R"({"status_code":200,"data":{"token":"abc")");
    EXPECT_TRUE(truncated.isEmpty());
}

TEST(CredentialComponent, EditsTheLoginAndGuardsTheOkButton)
{
    auto credentials = makeRef<Security::CredentialComponent>();
    EXPECT_EQ(credentials->name(), "Credentials");
    EXPECT_EQ(makeRef<Security::CredentialComponent>("Login")->name(), "Login");
    EXPECT_NE(credentials->findParameter("password"), nullptr);
    EXPECT_TRUE(credentials->findParameter("password")->hasOption(Parameter::kPassword));

    String user, password;
    EXPECT_FALSE(credentials->getCredentials(user, password));
    EXPECT_TRUE(credentials->onDialogButtonHit(IDialogButtonInterest::kOkay)); // no user name: stays open
    EXPECT_FALSE(credentials->onDialogButtonHit(IDialogButtonInterest::kCancel));
    EXPECT_FALSE(credentials->storeCredentials("sorvel.example")); // nothing to store: no-op

    credentials->findParameter("username")->setValue(String("ann"));
    EXPECT_FALSE(credentials->onDialogButtonHit(IDialogButtonInterest::kOkay));
    EXPECT_FALSE(credentials->getCredentials(user, password)); // the password is still missing
    credentials->findParameter("password")->setValue(String("pw"));
    credentials->findParameter("saveChecked")->setValue(2.9);
    EXPECT_TRUE(credentials->isSaveChecked());
    EXPECT_TRUE(credentials->getCredentials(user, password));
    EXPECT_EQ(user, "ann");

    credentials->clearCredentials();
    EXPECT_FALSE(credentials->isSaveChecked());
    EXPECT_TRUE(credentials->findParameter("username")->stringValue().isEmpty());
}

namespace {

/// A prompt whose view exists and ends with a chosen button after an edit.
class ScriptedPrompt : public Security::CredentialUIPrompt
{
public:
    int32 button = IDialogButtonInterest::kOkay;
    bool sawSaveTicked = false;
    String shownTitle;

protected:
    bool hasDialogView() const override { return true; }
    int32 runDialog(Security::CredentialComponent& component, const String& title) override
    {
        shownTitle = title;
        sawSaveTicked = component.isSaveChecked();
        component.findParameter("username")->setValue(String("typed"));
        component.findParameter("password")->setValue(String("typedpw"));
        component.findParameter("saveChecked")->setValue(0);
        return button;
    }
};

} // namespace

TEST(CredentialUIPrompt, ShowsTheViewOnlyWhenNeededAndReportsTheSaveChoice)
{
    // Without a view the prompt cannot ask, and says so.
    auto plain = makeRef<Security::CredentialUIPrompt>();
    Security::CredentialPromptRequest request;
    request.flags = Security::CredentialPromptRequest::kSave;
    EXPECT_FALSE(plain->prompt(request));
    EXPECT_EQ(request.flags, uint32(Security::CredentialPromptRequest::kSave));

    auto scripted = makeRef<ScriptedPrompt>();
    request.title = "Sign in";
    EXPECT_TRUE(scripted->prompt(request));
    EXPECT_TRUE(scripted->sawSaveTicked); // bit 1 ticked the box
    EXPECT_EQ(request.userName, "typed");
    EXPECT_EQ(request.flags & Security::CredentialPromptRequest::kSave, 0u); // unticked at OK
    EXPECT_EQ(scripted->shownTitle, "Sign in");

    scripted->button = IDialogButtonInterest::kCancel;
    EXPECT_FALSE(scripted->prompt(request));
}

TEST(Client, ASignInThatCannotBeSentChangesNothing)
{
    // Unconfigured, the client has no address to send to: the request cannot even be opened.
    auto client = makeRef<Client>();
    EXPECT_FALSE(client->authorize("user", "secret"));
    EXPECT_EQ(client->getState(), Client::Unauthorized);
    EXPECT_FALSE(client->isBusy());

    // So a later sign-in, once the client knows where to go, is not refused forever.
    client->getConfiguration() = configured();
    client->getConfiguration().serverUrl = Url::fromDisplayString("http://127.0.0.1:1/api/");
    EXPECT_TRUE(client->authorize("user", "secret"));
    EXPECT_EQ(client->getState(), Client::Authorizing);
    client->terminate(); // aborts the call to the closed port
}
