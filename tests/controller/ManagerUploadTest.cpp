// The gadget's controller laying files out beside a product's tracks and uploading them, driven
// as its form and the publishing target drive it, against the service emulator.

#include "tests/controller/ManagerFixture.h"
#include "tests/views/TestItemView.h"

using namespace ControllerTests;
using SorvelSandbox::Endpoint;
using SorvelSandbox::Fault;

namespace {

class ManagerUploads : public ManagerAgainstSandbox
{
protected:
    void SetUp() override
    {
        ManagerAgainstSandbox::SetUp();
        if (HasFatalFailure())
            return;
        open();
        ASSERT_TRUE(signIn(login.password));
        ASSERT_EQ(phase(), Manager::kSignedIn);
        session = makeRef<SignalRecorder>();
        manager->getUploadSession().addObserver(session);
    }
    void TearDown() override
    {
        if (manager && session)
            manager->getUploadSession().removeObserver(session);
        ManagerAgainstSandbox::TearDown();
    }

    void list(std::initializer_list<Ref<LocalTrack>> files, const std::string& product)
    {
        TypedObjectArray<LocalTrack> tracks(true);
        for (const auto& track : files)
            tracks.add(track);
        manager->setTracks(tracks, String(product));
    }
    /// Presses "Upload" and waits until the batch has ended and what follows it has settled.
    bool upload()
    {
        const int finished = session->count("sessionFinished");
        press("upload");
        return EventWait::until([&] { return session->count("sessionFinished") > finished; }, kTimeoutMs) && settle();
    }

    Ref<SignalRecorder> session;
};

TEST_F(ManagerUploads, FilesNamedLikeAProductsTracksReplaceThemAndNewOnesFollow)
{
    auto tunnel = file("Tunnel");
    auto fresh = file("Dawn");
    list({fresh, tunnel}, "Night Drive");
    EXPECT_EQ(param("replaceMode").intValue(), 1);
    EXPECT_EQ(param("titlesList").intValue(), productIndex("Night Drive"));
    EXPECT_EQ(param("newProductName").stringValue(), "Night Drive");
    EXPECT_EQ(rows(), (std::vector<Row>{{"Headlights", "", "Uploaded"}, {"Tunnel", "Tunnel", "Replace"}, {"", "Dawn", "Add"}}));

    // Choosing another product lays the same files out again, as new tracks there.
    param("titlesList").setValue(productIndex("Work in Progress"), true);
    EXPECT_EQ(rows(), (std::vector<Row>{{"", "Tunnel", "Add"}, {"", "Dawn", "Add"}})) << "in the order of the rows";

    // A name that no product has: a new product of that name.
    list({file("One")}, "Brand New");
    EXPECT_EQ(param("replaceMode").intValue(), 0);
    EXPECT_EQ(param("titlesList").intValue(), param("titlesList").maximum());
    EXPECT_EQ(param("newProductName").stringValue(), "Brand New");
    EXPECT_EQ(manager->selectedTitle(), nullptr);
    EXPECT_EQ(rows(), (std::vector<Row>{{"", "One", "Add"}}));

    // The table's selection reaches the inspector: a view selecting a row shows its fields.
    Component* inspector = manager->findChild("TrackInfo");
    Variant focus;
    auto view = makeRef<ViewTests::TestItemView>();
    view->attach(manager->getTrackList());
    list({file("Tunnel"), file("Dawn")}, "Night Drive");
    view->select({1});
    ASSERT_TRUE(inspector->getProperty(focus, "hasFocusItem"));
    EXPECT_EQ(focus.asInt(), 1);
    EXPECT_EQ(inspector->findParameter("name")->stringValue(), "Tunnel");
    view->select({2});
    EXPECT_EQ(inspector->findParameter("name")->stringValue(), "Dawn");
    view->select({});
    ASSERT_TRUE(inspector->getProperty(focus, "hasFocusItem"));
    EXPECT_EQ(focus.asInt(), 0);
    view->detach();
}

TEST_F(ManagerUploads, AWholeUploadMovesEachRowToCompleteThenShowsTheProductAsTheServiceHasIt)
{
    std::vector<std::vector<Row>> seen;
    std::vector<int64> uploading;
    session->onSignal = [&](const std::string& id) {
        seen.push_back(rows());
        uploading.push_back(property("isUploading"));
        if (id == "sessionStarted")
        {
            EXPECT_TRUE(param("cancel").isEnabled());
            EXPECT_FALSE(param("signOut").isEnabled());
            EXPECT_FALSE(param("replaceMode").isEnabled());
            EXPECT_FALSE(param("titlesList").isEnabled());
            EXPECT_TRUE(param("upload").isEnabled());
        }
    };
    list({file("Alpha", ""), file("Beta", "5012345678900")}, "Fresh Album");
    ASSERT_EQ(rows(), (std::vector<Row>{{"", "Alpha", "Add"}, {"", "Beta", "Add"}}));
    const int changes = observer->count(Signals::kPropertyChanged);
    ASSERT_TRUE(upload());

    // Add, then a progress text while the file goes, then complete, row by row.
    ASSERT_GE(seen.size(), 6u);
    EXPECT_EQ(uploading.front(), 1);
    EXPECT_EQ(seen[1][0].status, "Add - 0.0% uploaded") << "the row being sent shows its progress";
    bool alphaProgress = false, alphaComplete = false, betaProgress = false;
    for (const auto& snapshot : seen)
    {
        alphaProgress = alphaProgress || snapshot[0].status.find("% uploaded") != std::string::npos;
        alphaComplete = alphaComplete || snapshot[0].status == "Add - Upload Complete";
        betaProgress = betaProgress || (alphaComplete && snapshot[1].status.find("% uploaded") != std::string::npos);
    }
    EXPECT_TRUE(alphaProgress);
    EXPECT_TRUE(alphaComplete);
    EXPECT_TRUE(betaProgress) << "the second row is sent after the first is complete";
    EXPECT_EQ(uploading.back(), 0) << "sessionFinished is sent once the worker is gone";
    EXPECT_GE(observer->count(Signals::kPropertyChanged), changes + 2);

    // The new product got the first barcode that was not empty, and both files arrived.
    const auto created = sandbox.requestLog().entries(Endpoint::CreateTitle);
    ASSERT_EQ(created.size(), 1u);
    EXPECT_NE(created[0].body.find(R"("upc":"5012345678900")"), std::string::npos) << created[0].body;
    EXPECT_NE(created[0].body.find(R"("name":"Fresh Album")"), std::string::npos) << created[0].body;
    EXPECT_EQ(sandbox.storedFiles().size(), 2u);

    // The product page opened once; the products were reloaded and the rows show the service's.
    ASSERT_EQ(browser->opened.size(), 1u);
    EXPECT_NE(browser->opened[0].find("open_title="), std::string::npos) << browser->opened[0];
    EXPECT_TRUE(alerts->shown.empty());
    EXPECT_EQ(productIndex("Fresh Album"), 3);
    EXPECT_EQ(param("replaceMode").intValue(), 1);
    EXPECT_EQ(param("titlesList").intValue(), 3);
    EXPECT_EQ(rows(), (std::vector<Row>{{"Alpha", "", "Uploaded"}, {"Beta", "", "Uploaded"}}));
    EXPECT_FALSE(param("cancel").isEnabled());
    EXPECT_TRUE(param("signOut").isEnabled());
}

TEST_F(ManagerUploads, NothingChangesWhileABatchRunsAndCancellingEndsWithoutAnAlert)
{
    list({file("Slow")}, "Slow Album");
    sandbox.injectFault(Endpoint::Upload, Fault::delayed(std::chrono::milliseconds(600)));
    press("upload");
    ASSERT_TRUE(manager->isUploading());
    EXPECT_EQ(property("isUploading"), 1);

    // Files handed over meanwhile and a second press are ignored; the form cannot sign out.
    list({file("Other")}, "Night Drive");
    EXPECT_EQ(rows(), (std::vector<Row>{{"", "Slow", "Add"}}));
    EXPECT_EQ(param("newProductName").stringValue(), "Slow Album");
    press("upload");
    EXPECT_FALSE(param("signOut").isEnabled());

    press("cancel");
    ASSERT_TRUE(EventWait::until([&] { return session->count("sessionFinished") == 1; }, kTimeoutMs));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(alerts->shown.empty()) << "a cancelled batch shows nothing";
    EXPECT_TRUE(browser->opened.empty());
    EXPECT_EQ(session->count("sessionStarted"), 1);
    EXPECT_EQ(phase(), Manager::kSignedIn);
    EXPECT_FALSE(manager->isUploading());
}

TEST_F(ManagerUploads, AFailedBatchShowsOneAlertAndAnExpiredSessionSignsOut)
{
    list({file("Broken")}, "Broken Album");
    sandbox.injectFault(Endpoint::Upload, Fault::httpStatus(500));
    ASSERT_TRUE(upload());
    EXPECT_EQ(alerts->shown, std::vector<std::string>{Engine::TextKeys::kUploadFailed});
    EXPECT_EQ(rows(), (std::vector<Row>{{"", "Broken", "Add - Upload Failed"}}));
    EXPECT_TRUE(browser->opened.empty());
    EXPECT_EQ(phase(), Manager::kSignedIn);

    // A 403 during the upload: the session alert, once, and the login view.
    alerts->shown.clear();
    sandbox.injectFault(Endpoint::UploadToken, Fault::statusCode(403));
    ASSERT_TRUE(upload());
    EXPECT_EQ(alerts->shown, std::vector<std::string>{kSessionExpired});
    EXPECT_EQ(phase(), Manager::kSignedOut);
    EXPECT_FALSE(manager->getClient().isAuthorized());
}

TEST_F(ManagerUploads, RowsThatCannotBeUploadedStartNothing)
{
    auto bad = file("Mono");
    bad->incompatible = true;
    list({bad}, "");
    EXPECT_EQ(rows(), (std::vector<Row>{{"", "Mono", "Invalid Format"}}));
    press("upload");
    EXPECT_FALSE(manager->isUploading());
    EXPECT_EQ(session->count("sessionStarted"), 0);

    // Remote rows alone start nothing either.
    param("titlesList").setValue(productIndex("Night Drive"), true);
    list({}, "Night Drive");
    EXPECT_EQ(rows().size(), 2u);
    press("upload");
    EXPECT_FALSE(manager->isUploading());
    EXPECT_TRUE(alerts->shown.empty());
    EXPECT_EQ(requests(Endpoint::CreateTitle) + requests(Endpoint::CreateTrack), 0u);
}

} // namespace
