// The gadget's controller signing in and out and loading the account's products, driven as its
// form drives it, against the service emulator.

#include "tests/controller/ManagerFixture.h"

#include "framework/command/Menu.h"
#include "framework/component/Message.h"

using namespace ControllerTests;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace {

TEST_F(ManagerAgainstSandbox, AFreshManagerIsSignedOutInReplaceModeAndTheFirstStaysCurrent)
{
    providerSetup().completeLater = true; // nothing happens before the configuration arrives
    open();
    EXPECT_EQ(param("replaceMode").intValue(), 1);
    EXPECT_EQ(param("titlesList").entryCount(), 0u);
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_EQ(property("isUploading"), 0);
    EXPECT_EQ(property("credentialsAvailable"), 0);
    EXPECT_FALSE(param("cancel").isEnabled());
    EXPECT_FALSE(param("upload").isEnabled());
    EXPECT_FALSE(param("titlesList").isEnabled());
    EXPECT_TRUE(param("replaceMode").isEnabled());
    EXPECT_TRUE(param("signOut").isEnabled());
    EXPECT_TRUE(param("signIn").isEnabled());
    EXPECT_TRUE(param("replaceMode").hasOption(Parameter::kStoreOnChange));
    for (const char* child : {"Client", "Credentials", "ActivityInfo", "TrackInfo"})
        EXPECT_NE(manager->findChild(child), nullptr) << child;
    EXPECT_EQ(manager->lookupObject("trackList"), static_cast<IItemModel*>(manager->getTrackList()));

    EXPECT_EQ(Manager::current(), manager.get());
    {
        auto second = makeRef<Manager>();
        EXPECT_EQ(Manager::current(), manager.get()) << "a second Manager does not take over";
    }
    EXPECT_EQ(Manager::current(), manager.get());
    Manager* first = manager.get();
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();
    EXPECT_NE(Manager::current(), first);
    EXPECT_EQ(Manager::current(), nullptr);
}

TEST_F(ManagerAgainstSandbox, ASilentSignInWithAStoredLoginListsTheProductsAndFailsWithoutAWord)
{
    {
        auto store = makeRef<Security::CredentialComponent>();
        store->findParameter("username")->setValue(String(login.username));
        store->findParameter("password")->setValue(String(login.password));
        ASSERT_TRUE(store->storeCredentials(Manager::kCredentialTarget));
    }
    open();
    EXPECT_EQ(credential("saveChecked").intValue(), 1) << "a stored login ticks the remember switch";
    EXPECT_EQ(property("credentialsAvailable"), 1);
    ASSERT_TRUE(EventWait::until([&] { return phase() == Manager::kSignedIn && !products().empty(); }, kTimeoutMs));
    ASSERT_TRUE(settle());
    EXPECT_EQ(products(), (std::vector<std::string>{"Night Drive", "Field Recordings", "Work in Progress", kAddNew}));
    EXPECT_TRUE(param("upload").isEnabled());
    EXPECT_TRUE(param("titlesList").isEnabled());
    EXPECT_EQ(manager->findChild("ActivityInfo")->findParameter("userName")->stringValue(), "Demo Artist");
    EXPECT_TRUE(alerts->shown.empty());
    EXPECT_EQ(providerSetup().asynchronousCalls, 1) << "a silent sign-in asks for the configuration asynchronously";
    EXPECT_EQ(providerSetup().synchronousCalls, 0);
    EXPECT_GE(observer->count(Signals::kPropertyChanged), 2);

    // A second gadget whose stored password is wrong fails silently.
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();
    {
        auto store = makeRef<Security::CredentialComponent>();
        store->findParameter("username")->setValue(String(login.username));
        store->findParameter("password")->setValue(String("not the password"));
        ASSERT_TRUE(store->storeCredentials(Manager::kCredentialTarget));
    }
    const size_t signIns = requests(Endpoint::SignIn);
    open();
    ASSERT_TRUE(EventWait::until([&] { return requests(Endpoint::SignIn) > signIns && !busy(); }, kTimeoutMs));
    ASSERT_TRUE(settle());
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_TRUE(alerts->shown.empty()) << "a silent sign-in never shows an alert";
}

TEST_F(ManagerAgainstSandbox, TheConfigurationDecidesWhetherASignInStartsAtAll)
{
    // Missing partner key: applied as far as it goes; the silent sign-in stops without a word.
    providerSetup().values.set("PartnerKey", String());
    open();
    ASSERT_TRUE(settle());
    EXPECT_EQ(providerSetup().asynchronousCalls, 1);
    EXPECT_EQ(sandbox.requestLog().size(), 0u);
    EXPECT_EQ(manager->getClient().getConfiguration().partnerId, CString(sandbox.partnerId()));
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_TRUE(alerts->shown.empty());
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();

    // A gadget that got no configuration asks synchronously when "Sign in" is pressed.
    providerSetup().noOperation = true;
    open();
    credential("username").setValue(String(login.username));
    credential("password").setValue(String(login.password));
    providerSetup().refuseAtOnce = true;
    press("signIn");
    EXPECT_EQ(providerSetup().synchronousCalls, 1);
    EXPECT_FALSE(manager->getClient().getConfiguration().isConfigured());
    // An incomplete one stops the press as well, without an alert.
    providerSetup().refuseAtOnce = false;
    press("signIn");
    EXPECT_EQ(providerSetup().synchronousCalls, 2);
    EventWait::runFor(30);
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_EQ(sandbox.requestLog().size(), 0u);
    EXPECT_TRUE(alerts->shown.empty());
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();

    // A complete one: the press signs in.
    providerSetup().values.set("PartnerKey", String(sandbox.partnerKey()));
    open();
    credential("username").setValue(String(login.username));
    credential("password").setValue(String(login.password));
    press("signIn");
    EXPECT_EQ(providerSetup().synchronousCalls, 3);
    EXPECT_EQ(phase(), Manager::kSigningIn);
    ASSERT_TRUE(EventWait::until([&] { return phase() == Manager::kSignedIn && !products().empty(); }, kTimeoutMs));
    EXPECT_TRUE(alerts->shown.empty());
}

TEST_F(ManagerAgainstSandbox, TheAsynchronousConfigurationStartsTheSilentSignInWhenItArrives)
{
    // A provider that hands out no operation: the completion path runs at once and stops.
    providerSetup().noOperation = true;
    open();
    EXPECT_EQ(providerSetup().asynchronousCalls, 1);
    EventWait::runFor(50);
    EXPECT_EQ(sandbox.requestLog().size(), 0u) << "without a configuration nothing is sent";
    EXPECT_FALSE(manager->getClient().getConfiguration().isConfigured());
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();

    // A provider that answers later: the sign-in goes on from there, with the anonymous figures.
    providerSetup().noOperation = false;
    providerSetup().completeLater = true;
    open();
    ASSERT_EQ(providerSetup().pending.size(), 1u);
    EventWait::runFor(30);
    EXPECT_EQ(sandbox.requestLog().size(), 0u);
    providerSetup().pending.front()->complete(
        static_cast<IAttributeList*>(makeRef<AttributeList>(providerSetup().values).get()));
    ASSERT_TRUE(EventWait::until([&] { return requests(Endpoint::AnonymousActivity) == 1; }, kTimeoutMs));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(manager->getClient().getConfiguration().isConfigured());
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_EQ(requests(Endpoint::Titles), 0u) << "no products while signed out";

    // A fetch that fails leaves the client unconfigured and starts nothing.
    manager->removeObserver(observer);
    manager->terminate();
    manager.reset();
    providerSetup().pending.clear();
    const size_t before = sandbox.requestLog().size();
    open();
    ASSERT_EQ(providerSetup().pending.size(), 1u);
    providerSetup().pending.front()->fail();
    EventWait::runFor(30);
    EXPECT_EQ(sandbox.requestLog().size(), before);
    EXPECT_FALSE(manager->getClient().getConfiguration().isConfigured());
}

TEST_F(ManagerAgainstSandbox, AWrongPasswordShowsTheLoginAlertOnceAndReturnsToTheLoginView)
{
    open();
    ASSERT_TRUE(signIn("Sandbox-Demo")); // passwords are case sensitive
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_EQ(alerts->shown, std::vector<std::string>{kLoginFailed});
    EXPECT_TRUE(products().empty());
    EXPECT_FALSE(param("upload").isEnabled());

    // The right one then signs in; the remember switch was off, so nothing was stored.
    alerts->shown.clear();
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_TRUE(alerts->shown.empty());
    EXPECT_EQ(std::system("secret-tool lookup target sorvel.com >/dev/null 2>&1"), 256) << "nothing stored";

    // Sign-out forgets the login that was not to be remembered, and the products.
    press("signOut");
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_TRUE(products().empty());
    EXPECT_EQ(credential("password").stringValue(), "");
    EXPECT_EQ(param("replaceMode").intValue(), 1);
    EXPECT_FALSE(manager->getClient().isAuthorized());
    EXPECT_TRUE(manager->getClient().getConfiguration().token.isEmpty());
    EXPECT_EQ(manager->findChild("ActivityInfo")->findParameter("userName")->stringValue(), "");

    // With the switch on, a successful sign-in stores the login and sign-out keeps it typed.
    credential("saveChecked").setValue(1);
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_EQ(std::system("secret-tool lookup target sorvel.com >/dev/null 2>&1"), 0) << "stored";
    press("signOut");
    EXPECT_EQ(credential("password").stringValue(), String(login.password));
}

TEST_F(ManagerAgainstSandbox, AnAccountWithoutProductsOffersOnlyANewOne)
{
    const auto seed = std::filesystem::temp_directory_path() / ("sorvel-empty-" + std::to_string(::getpid()) + ".json");
    std::ofstream(seed) << R"({"accounts": [{"id": 7, "username": "solo", "password": "pass one", "name": "Solo",
        "total_fans": 1, "total_sales": 0, "currency": "EUR", "start_date": "2014-3-7", "end_date": "2014-4-6",
        "active_promos": 0, "user_message": "", "action_icon_id": "thumb", "action_link": "https://example.com",
        "action_text": "Go", "titles": []}]})";
    sandbox.stop();
    SorvelSandbox::Sandbox::Options options;
    options.seedFile = seed.string();
    std::string error;
    ASSERT_GT(sandbox.start(options, error), 0) << error;
    std::filesystem::remove(seed);
    login = sandbox.demoLogin();
    providerSetup().values.set("ServerURL", String(sandbox.baseUrl()));
    providerSetup().values.set("LoginURL", String(sandbox.loginUrl()));

    open();
    ASSERT_TRUE(signIn(login.password));
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_EQ(products(), std::vector<std::string>{kAddNew});
    EXPECT_EQ(param("replaceMode").intValue(), 0);
    EXPECT_EQ(param("titlesList").intValue(), 0);
    EXPECT_EQ(param("newProductName").stringValue(), "Untitled");
    EXPECT_EQ(manager->selectedTitle(), nullptr);
}

TEST_F(ManagerAgainstSandbox, TheProductChoiceFollowsTheSelectBoxAndSurvivesAReload)
{
    open();
    ASSERT_TRUE(signIn(login.password));
    // A typed name that matches no product: the add-new entry.
    EXPECT_EQ(param("replaceMode").intValue(), 0);
    EXPECT_EQ(param("titlesList").intValue(), 3);

    // Choosing a product switches to replace mode and lists its tracks.
    param("titlesList").setValue(0, true);
    EXPECT_EQ(param("replaceMode").intValue(), 1);
    ASSERT_NE(manager->selectedTitle(), nullptr);
    EXPECT_EQ(manager->selectedTitle()->name, "Night Drive");
    EXPECT_EQ(rows(), (std::vector<Row>{{"Headlights", "", "Uploaded"}, {"Tunnel", "", "Uploaded"}}));
    param("titlesList").setValue(1, true);
    EXPECT_EQ(rows(), (std::vector<Row>{{"Rain on Tin", "", "Uploaded"}}));

    // The add-new entry switches replace mode off; the product name box gets the focus.
    auto focus = makeRef<SignalRecorder>();
    param("newProductName").addObserver(focus);
    param("titlesList").setValue(3, true);
    EXPECT_EQ(param("replaceMode").intValue(), 0);
    EXPECT_TRUE(rows().empty());
    EXPECT_EQ(focus->count("requestFocus"), 1);
    param("newProductName").removeObserver(focus);

    // A reload from the context menu keeps the chosen product, found by its identifier.
    param("titlesList").setValue(1, true);
    const String chosen = manager->selectedTitle()->id;
    auto menu = makeRef<Menu>();
    menu->addEntry(String("Night Drive"), "", "", "", nullptr);
    menu->addEntry(String("Field Recordings"), "", "", "", nullptr);
    manager->notify(nullptr, *Message::make("extendMenu", {Variant(static_cast<Object*>(menu.get())),
                                                           Variant(static_cast<Object*>(&param("titlesList")))}));
    ASSERT_EQ(menu->count(), 3);
    EXPECT_EQ(menu->at(0)->icon, "ProductIcon");
    EXPECT_EQ(menu->at(1)->icon, "") << "the last entry keeps its icon";
    EXPECT_EQ(menu->at(2)->title, "Refresh");
    EXPECT_EQ(menu->at(2)->category, "Application");
    EXPECT_EQ(menu->at(2)->name, "Request Titles");
    ASSERT_TRUE(menu->isEnabled(2));
    const size_t titleRequests = requests(Endpoint::Titles);
    ASSERT_TRUE(menu->choose(2));
    EXPECT_FALSE(menu->isEnabled(2)) << "not while the request is under way";
    ASSERT_TRUE(settle());
    EXPECT_EQ(requests(Endpoint::Titles), titleRequests + 1);
    EXPECT_EQ(manager->selectedTitle()->id, chosen);
    EXPECT_EQ(param("replaceMode").intValue(), 1);

    // A menu of another parameter is left alone.
    auto other = makeRef<Menu>();
    manager->notify(nullptr, *Message::make("extendMenu", {Variant(static_cast<Object*>(other.get())), Variant("upload")}));
    EXPECT_EQ(other->count(), 0);
}

TEST_F(ManagerAgainstSandbox, ASessionThatExpiredSignsOutWithOneAlert)
{
    open();
    ASSERT_TRUE(signIn(login.password));
    ASSERT_EQ(phase(), Manager::kSignedIn);
    sandbox.injectFault(Endpoint::Titles, Fault::statusCode(403));
    auto menu = makeRef<Menu>();
    manager->notify(nullptr, *Message::make("extendMenu", {Variant(static_cast<Object*>(menu.get())), Variant("titlesList")}));
    ASSERT_TRUE(menu->choose(0));
    ASSERT_TRUE(settle());
    EXPECT_EQ(alerts->shown, std::vector<std::string>{kSessionExpired});
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_TRUE(products().empty());
    EXPECT_FALSE(manager->getClient().isAuthorized());
    EXPECT_FALSE(menu->isEnabled(0)) << "no refresh while signed out";
}

TEST_F(ManagerAgainstSandbox, RepliesOfAnyShapeReplaceTheProductsWholeOrLeaveThemAlone)
{
    open();
    ASSERT_TRUE(signIn(login.password));
    const auto all = products();
    ASSERT_EQ(all.size(), 4u);
    auto refresh = [&] {
        auto menu = makeRef<Menu>();
        manager->notify(nullptr,
                        *Message::make("extendMenu", {Variant(static_cast<Object*>(menu.get())), Variant("titlesList")}));
        return menu->choose(0) && settle();
    };

    // Not JSON, cut short, an error status: the list stays as it was.
    for (const Fault& fault : {Fault::invalidBody(), Fault::truncatedBody(), Fault::statusCode(500), Fault::emptyBody()})
    {
        sandbox.injectFault(Endpoint::Titles, fault);
        ASSERT_TRUE(refresh());
        EXPECT_EQ(products(), all);
        EXPECT_EQ(phase(), Manager::kSignedIn);
    }
    // "data" of the wrong type or with elements that are no objects, unknown members, a huge
    // list: replaced whole.
    sandbox.injectFault(Endpoint::Titles, Fault::replacedBody(R"({"status_code":200,"data":{"id":1}})"));
    ASSERT_TRUE(refresh());
    EXPECT_EQ(products(), std::vector<std::string>{kAddNew});
    sandbox.injectFault(Endpoint::Titles,
                        Fault::replacedBody(R"({"status_code":200.9,"extra":[1],"data":[7,"x",{"id":"9","name":"Kept",)"
                                            R"("tracks":"none","upc":5}]})"));
    ASSERT_TRUE(refresh());
    EXPECT_EQ(products(), (std::vector<std::string>{"[no title]", "[no title]", "Kept", kAddNew}));
    std::string huge = R"({"status_code":200,"data":[)";
    for (int i = 0; i < 5000; ++i)
        huge += (i ? "," : "") + std::string(R"({"id":")") + std::to_string(i) + R"(","name":"P)" + std::to_string(i) + "\"}";
    huge += "]}";
    sandbox.injectFault(Endpoint::Titles, Fault::replacedBody(huge));
    ASSERT_TRUE(refresh());
    EXPECT_EQ(products().size(), 5001u);
    EXPECT_EQ(products()[4999], "P4999");
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_TRUE(alerts->shown.empty());

    // Account figures: a damaged reply empties what is shown; a reply whose "data" is no object
    // is read as nothing, which shows the record kept from before. Either way the products are
    // asked for next, and the phase holds.
    Parameter& shownName = *manager->findChild("ActivityInfo")->findParameter("userName");
    const std::pair<Fault, std::string> cases[] = {
        {Fault::invalidBody(), ""},
        {Fault::replacedBody(R"({"status_code":200,"data":[1,2]})"), "Demo Artist"},
    };
    for (const auto& [fault, expected] : cases)
    {
        sandbox.injectFault(Endpoint::Titles, Fault::replacedBody(R"({"status_code":200,"data":[]})"));
        sandbox.injectFault(Endpoint::Activity, fault);
        const size_t titles = requests(Endpoint::Titles);
        manager->requestActivity();
        ASSERT_TRUE(EventWait::until([&] { return requests(Endpoint::Titles) > titles; }, kTimeoutMs));
        ASSERT_TRUE(settle());
        EXPECT_EQ(shownName.stringValue(), String(expected));
        EXPECT_EQ(products(), std::vector<std::string>{kAddNew});
        EXPECT_EQ(phase(), Manager::kSignedIn);
    }
    EXPECT_TRUE(alerts->shown.empty());
}

TEST_F(ManagerAgainstSandbox, TheDashboardLinkOpensTheSignedPageOnlyWithALogin)
{
    open();
    ASSERT_TRUE(settle());
    // No password typed or stored: nothing happens.
    press("openDashboard");
    EXPECT_TRUE(browser->opened.empty());

    ASSERT_TRUE(signIn(login.password));
    ASSERT_EQ(manager->selectedTitle(), nullptr);
    press("openDashboard");
    ASSERT_EQ(browser->opened.size(), 1u);
    EXPECT_EQ(browser->opened[0].rfind(sandbox.loginUrl(), 0), 0u) << browser->opened[0];
    EXPECT_EQ(browser->opened[0].find("open_title="), std::string::npos) << "the general page";
    EXPECT_EQ(browser->opened[0].find(login.password), std::string::npos) << "never the password itself";

    param("titlesList").setValue(0, true);
    press("openDashboard");
    ASSERT_EQ(browser->opened.size(), 2u);
    EXPECT_NE(browser->opened[1].find("open_title=" + manager->selectedTitle()->id.toUtf8()), std::string::npos)
        << browser->opened[1];
}

TEST_F(ManagerAgainstSandbox, SignOutWhileARequestIsUnderWayIsIgnored)
{
    open();
    ASSERT_TRUE(signIn(login.password));
    sandbox.injectFault(Endpoint::Titles, Fault::delayed(std::chrono::milliseconds(400)));
    manager->requestTitles(false);
    ASSERT_TRUE(busy());
    press("signOut");
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_TRUE(manager->getClient().isAuthorized());
    ASSERT_TRUE(settle());
    EXPECT_EQ(products().size(), 4u);
    press("signOut");
    EXPECT_EQ(phase(), Manager::kSignedOut);
}

} // namespace
