#pragma once

#include "framework/interfaces/TextKeys.h"

// What the controller's tests share: the service emulator on a port of its own, the host's side
// (a configuration provider registered with the plug-in manager, an alert presenter and a URL
// opener that record what reaches them), and a Manager driven as a form drives it: parameters
// set with notification, properties read, signals observed.

#include "framework/async/AsyncOperation.h"
#include "framework/component/Signals.h"
#include "framework/data/AttributeList.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IConfigurationProvider.h"
#include "framework/security/CredentialComponent.h"
#include "framework/services/GuiServices.h"
#include "framework/services/SystemServices.h"
#include "plugin/controller/Manager.h"
#include "plugin/service/Client.h"
#include "plugin/upload/UploadSession.h"
#include "plugin/views/TrackList.h"
#include "sandbox/Sandbox.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ControllerTests {

using namespace KVX;
using namespace Sorvel;

/// The host's configuration provider as the tests set it up.
struct ProviderSetup
{
    Attributes values;          ///< what both ways hand out
    bool refuseAtOnce = false;  ///< the synchronous way fails
    bool noOperation = false;   ///< the asynchronous way returns no operation
    bool completeLater = false; ///< the asynchronous way ends only when the test says so
    int synchronousCalls = 0;
    int asynchronousCalls = 0;
    std::vector<Ref<AsyncOperation>> pending;
};

inline ProviderSetup& providerSetup()
{
    static ProviderSetup setup;
    return setup;
}

class TestConfigurationProvider : public Object, public IConfigurationProvider
{
public:
    static IUnknown* create() { return static_cast<IConfigurationProvider*>(new TestConfigurationProvider); }

    tresult getConfiguration(const char* name, const char* description, IAttributeList** result) override
    {
        ProviderSetup& setup = providerSetup();
        ++setup.synchronousCalls;
        *result = nullptr;
        EXPECT_STREQ(name, "sorvel");
        EXPECT_STREQ(description, "Sorvel Client");
        if (setup.refuseAtOnce)
            return kUnexpected;
        *result = makeRef<AttributeList>(setup.values).detach();
        return kResultOk;
    }
    tresult fetchConfiguration(const char* name, IAsyncOperation** operation) override
    {
        ProviderSetup& setup = providerSetup();
        ++setup.asynchronousCalls;
        EXPECT_STREQ(name, "sorvel");
        *operation = nullptr;
        if (setup.noOperation)
            return kResultOk;
        auto started = makeRef<AsyncOperation>();
        if (setup.completeLater)
            setup.pending.push_back(started);
        else
            started->complete(static_cast<IAttributeList*>(makeRef<AttributeList>(setup.values).get()));
        *operation = static_cast<IAsyncOperation*>(started.detach());
        return kResultOk;
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IConfigurationProvider)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
};

class RecordingPresenter : public Object, public IAlertPresenter
{
public:
    tresult presentAlert(const char* text, int32) override
    {
        shown.push_back(text);
        return kResultOk;
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IAlertPresenter)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    std::vector<std::string> shown;
};

class RecordingOpener : public Object, public IUrlOpener
{
public:
    tresult openUrl(const char* url) override
    {
        opened.push_back(url);
        return kResultOk;
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, IUrlOpener)
        return Object::queryInterface(iid, object);
    }
    uint32 retain() override { return Object::retain(); }
    uint32 release() override { return Object::release(); }
    std::vector<std::string> opened;
};

/// Records what a subject signals; `onSignal` runs after each one (the Manager, observing
/// first, has handled it by then).
class SignalRecorder : public Component
{
public:
    void notify(ISubject*, IMessage& message) override
    {
        signals.push_back(std::string(idOf(message)));
        if (onSignal)
            onSignal(std::string(idOf(message)));
    }
    int count(const std::string& id) const { return static_cast<int>(std::count(signals.begin(), signals.end(), id)); }
    std::vector<std::string> signals;
    std::function<void(const std::string&)> onSignal;
};

class ManagerAgainstSandbox : public testing::Test
{
protected:
    static constexpr uint32 kTimeoutMs = 15000;

    void SetUp() override
    {
        ASSERT_NE(std::getenv("SORVEL_PRIVATE_KEYRING"), nullptr) << "run through tests/security/with-keyring.sh";
        // Each test starts without a stored login.
        ASSERT_EQ(std::system("secret-tool clear target sorvel.com 2>/dev/null; true"), 0);

        std::string error;
        ASSERT_GT(sandbox.start(sandboxOptions(), error), 0) << error;
        login = sandbox.demoLogin();

        providerSetup() = ProviderSetup();
        providerSetup().values.set("ServerURL", String(sandbox.baseUrl()));
        providerSetup().values.set("LoginURL", String(sandbox.loginUrl()));
        providerSetup().values.set("PartnerID", String(sandbox.partnerId()));
        providerSetup().values.set("PartnerKey", String(sandbox.partnerKey()));
        GetPlugInManager()->unregisterClass(IConfigurationProvider::kClassId);
        ASSERT_EQ(GetPlugInManager()->registerClass(IConfigurationProvider::kClassId, &TestConfigurationProvider::create,
                                                    "Test configuration provider"),
                  kResultOk);

        alerts = makeRef<RecordingPresenter>();
        GetAlertService()->setPresenter(alerts);
        browser = makeRef<RecordingOpener>();
        GetSystemShell()->setUrlOpener(browser);
        folder = std::filesystem::temp_directory_path() /
                 ("sorvel-manager-" + std::to_string(::getpid()) + "-" +
                  testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(folder);
    }

    void TearDown() override
    {
        if (manager)
        {
            manager->cancelUpload();
            EventWait::until([&] { return !manager->isUploading(); }, kTimeoutMs);
            manager->removeObserver(observer);
            manager->terminate();
            manager.reset();
        }
        GetAlertService()->setPresenter(nullptr);
        GetSystemShell()->setUrlOpener(nullptr);
        GetPlugInManager()->unregisterClass(IConfigurationProvider::kClassId);
        providerSetup() = ProviderSetup();
        sandbox.stop();
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    virtual SorvelSandbox::Sandbox::Options sandboxOptions() { return {}; }

    /// A Manager opened as the host opens the gadget.
    void open()
    {
        manager = makeRef<Manager>();
        observer = makeRef<SignalRecorder>();
        manager->addObserver(observer);
        manager->initialize(nullptr);
    }

    Parameter& param(const char* name) const { return *manager->findParameter(std::string_view(name)); }
    Parameter& credential(const char* name) const
    {
        return *manager->findChild("Credentials")->findParameter(std::string_view(name));
    }
    void press(const char* name) { param(name).setValue(1, true); }
    int64 property(const char* name) const
    {
        Variant value;
        EXPECT_TRUE(manager->getProperty(value, name)) << name;
        return value.asInt();
    }
    int64 phase() const { return property("loginPhase"); }
    std::vector<std::string> products() const
    {
        std::vector<std::string> texts;
        const Parameter& list = param("titlesList");
        for (size_t i = 0; i < list.entryCount(); ++i)
            texts.push_back(list.entry(i).toString().toUtf8());
        return texts;
    }
    bool busy() const { return manager->getClient().isBusy(); }
    /// Waits until the client has no call under way and the messages it posted are delivered.
    bool settle()
    {
        const bool idle = EventWait::until([&] { return !busy(); }, kTimeoutMs);
        EventWait::runFor(30);
        return idle && EventWait::until([&] { return !busy(); }, kTimeoutMs);
    }

    /// Types the demo login into the form and presses "Sign in"; true once the products arrived.
    bool signIn(const std::string& password)
    {
        if (!settle())
            return false;
        credential("username").setValue(String(login.username));
        credential("password").setValue(String(password));
        const size_t titleRequests = sandbox.requestLog().entries(SorvelSandbox::Endpoint::Titles).size();
        press("signIn");
        return EventWait::until(
                   [&] {
                       return !busy() && (phase() == Manager::kSignedOut ||
                                          sandbox.requestLog().entries(SorvelSandbox::Endpoint::Titles).size() >
                                              titleRequests);
                   },
                   kTimeoutMs) &&
               settle();
    }

    /// An audio file to upload, as the publishing target would list it.
    Ref<LocalTrack> file(const std::string& name, const std::string& ean = "")
    {
        const auto path = folder / (name + ".wav");
        std::ofstream(path, std::ios::binary) << std::string(2048, 'w');
        auto track = makeRef<LocalTrack>();
        track->name = String(name);
        track->url = Url::fromNativePath(String(path.string()));
        track->ean = String(ean);
        track->incompatible = false;
        return track;
    }

    /// The rows of the track table: remote track name, file name and status text.
    struct Row
    {
        std::string remote;
        std::string local;
        std::string status;
        bool operator==(const Row&) const = default;
    };
    std::vector<Row> rows() const
    {
        std::vector<Row> result;
        TrackList* list = manager->getTrackList();
        for (int32 i = 0; i < list->countItems(); ++i)
        {
            const TrackItem& row = *list->getTrackItem(i);
            result.push_back({row.getRemoteTrack() ? row.getRemoteTrack()->name.toUtf8() : "",
                              row.getLocalTrack() ? row.getLocalTrack()->name.toUtf8() : "",
                              list->getStatus(row).text.toUtf8()});
        }
        return result;
    }

    /// Index of the product called `name` in the select box, or -1.
    int64 productIndex(const std::string& name) const
    {
        const auto texts = products();
        for (size_t i = 0; i < texts.size(); ++i)
            if (texts[i] == name)
                return static_cast<int64>(i);
        return -1;
    }

    size_t requests(SorvelSandbox::Endpoint endpoint) { return sandbox.requestLog().entries(endpoint).size(); }

    SorvelSandbox::Sandbox sandbox;
    SorvelSandbox::Sandbox::Login login;
    Ref<Manager> manager;
    Ref<SignalRecorder> observer;
    Ref<RecordingPresenter> alerts;
    Ref<RecordingOpener> browser;
    std::filesystem::path folder;
};

inline const std::string kLoginFailed = Engine::TextKeys::kLoginFailed;
inline const std::string kSessionExpired = Engine::TextKeys::kSessionExpired;
inline const std::string kAddNew = Engine::TextKeys::kAddNewProduct;

} // namespace ControllerTests
