// The track inspector on a table whose selection a test view holds, under a stand-in for the
// gadget's controller that updates it on every selection change.

#include "TestItemView.h"
#include "ViewTestSupport.h"

#include "framework/component/Component.h"
#include "framework/component/Signals.h"
#include "plugin/views/ITrackListOwner.h"
#include "plugin/views/TrackInfoComponent.h"
#include "plugin/views/TrackList.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace Sorvel;
using namespace ViewTests;

namespace {

/// Stands in for the gadget's controller: owns the table and the inspector, and updates the
/// inspector when the table's selection changes.
class FakeManager : public Component, public ITrackListOwner
{
public:
    FakeManager() : Component("Manager")
    {
        addChild(info);
        selection.connect(static_cast<ISubject*>(table.get()), this);
    }
    ~FakeManager() override { selection.disconnect(); }

    TrackList* getTrackList() override { return table; }
    void notify(ISubject*, IMessage& message) override
    {
        if (idOf(message) == ItemModel::kSelectionChanged)
            info->update();
    }
    tresult queryInterface(const UID& iid, void** object) override
    {
        KVX_QUERY_INTERFACE(iid, object, ITrackListOwner)
        return Component::queryInterface(iid, object);
    }
    uint32 retain() override { return Component::retain(); }
    uint32 release() override { return Component::release(); }

    Ref<TrackList> table = makeRef<TrackList>();
    Ref<TrackInfoComponent> info = makeRef<TrackInfoComponent>();
    ObserverConnection selection;
};

class Inspector : public testing::Test
{
protected:
    void SetUp() override { view->attach(manager->table); }
    void TearDown() override { view->detach(); }

    TrackInfoComponent& info() { return *manager->info; }
    std::string text(const char* parameter) { return info().findParameter(parameter)->stringValue().toUtf8(); }
    bool enabled(const char* parameter) { return info().findParameter(parameter)->isEnabled(); }
    /// The enabled state of the eight fields in tag order, as "1" and "0".
    std::string enabledStates()
    {
        std::string states;
        for (int32 tag = TrackInfoComponent::kName; tag <= TrackInfoComponent::kSongwriter; ++tag)
            states += info().findParameter(tag)->isEnabled() ? '1' : '0';
        return states;
    }
    int64 hasFocusItem()
    {
        Variant value;
        EXPECT_TRUE(info().getProperty(value, "hasFocusItem"));
        return value.asInt();
    }
    /// Types `value` into the field, as the form's edit box does.
    void type(const char* parameter, const char* value) { info().findParameter(parameter)->setValue(value, true); }
    int32 add(Track* remote, LocalTrack* local)
    {
        manager->table->appendItem(row(remote, local));
        return manager->table->countItems() - 1;
    }

    Ref<FakeManager> manager = makeRef<FakeManager>();
    Ref<TestItemView> view = makeRef<TestItemView>();
};

Ref<LocalTrack> newFile(const char* name, const char* genre, int32 state = LocalTrack::kNotUploaded)
{
    auto file = localTrack(name, state);
    file->genre = genre;
    file->isrc = String(std::string("ISRC-") + name);
    file->composer = String("Composer of " + std::string(name));
    return file;
}

} // namespace

TEST_F(Inspector, OneNewRowShowsItsFieldsAllEditable)
{
    auto rock = newFile("First", "Rock");
    rock->year = 2014;
    add(nullptr, rock);
    EXPECT_EQ(hasFocusItem(), 0);
    view->select({0});

    EXPECT_EQ(hasFocusItem(), 1);
    EXPECT_EQ(text("genre"), "Rock");
    EXPECT_EQ(text("name"), "First");
    EXPECT_EQ(text("isrc"), "ISRC-First");
    EXPECT_EQ(text("year"), "2014");
    EXPECT_EQ(text("composer"), "Composer of First");
    EXPECT_EQ(enabledStates(), "11111111");
}

TEST_F(Inspector, TwoNewRowsJoinTheirFieldsAndLockTitleAndIsrc)
{
    add(nullptr, newFile("First", "Rock"));
    add(nullptr, newFile("Second", "Pop"));
    view->select({0, 1});
    EXPECT_EQ(text("genre"), "Rock; Pop");
    EXPECT_EQ(text("composer"), "Composer of First; Composer of Second");
    EXPECT_EQ(text("name"), "Multiple Tracks Selected");
    EXPECT_EQ(text("isrc"), "Multiple Tracks Selected");
    EXPECT_EQ(enabledStates(), "00111111");

    view->select({1, 0});
    EXPECT_EQ(text("genre"), "Pop; Rock") << "joined in selection order";
}

TEST_F(Inspector, TypingIntoASharedFieldWritesEverySelectedRow)
{
    auto first = newFile("First", "Rock");
    auto second = newFile("Second", "Pop");
    add(nullptr, first);
    add(nullptr, second);
    view->select({0, 1});

    type("genre", "Jazz");
    EXPECT_EQ(first->genre, "Jazz");
    EXPECT_EQ(second->genre, "Jazz");
    EXPECT_EQ(text("genre"), "Jazz; Jazz");
    EXPECT_EQ(view->invalidations, 1);

    // Title and ISRC cannot be written into several rows at once.
    type("isrc", "XX");
    EXPECT_EQ(first->isrc, "ISRC-First");
    EXPECT_EQ(text("isrc"), "Multiple Tracks Selected");

    // With one new row selected, the write also reaches the remote track of a row without a file.
    auto remote = remoteTrack("On the service");
    remote->genre = "Folk";
    add(remote, nullptr);
    view->select({0, 2});
    EXPECT_EQ(enabled("genre"), true);
    type("genre", "Blues");
    EXPECT_EQ(first->genre, "Blues");
    EXPECT_EQ(remote->genre, "Blues");
    EXPECT_EQ(second->genre, "Jazz");
}

TEST_F(Inspector, RemoteRowsOnlyAreShownJoinedAndNothingIsEditable)
{
    auto a = remoteTrack("Alpha");
    a->genre = "Rock";
    a->isrc = "AA";
    a->year = 1999;
    auto b = remoteTrack("Beta");
    b->genre = "Rock";
    b->isrc = "BB";
    add(a, nullptr);
    add(b, localTrack("replacement"));
    view->select({0, 1});

    EXPECT_EQ(hasFocusItem(), 1);
    EXPECT_EQ(text("name"), "Alpha; Beta");
    EXPECT_EQ(text("isrc"), "AA; BB");
    EXPECT_EQ(text("genre"), "Rock; Rock") << "equal values are not merged";
    EXPECT_EQ(text("year"), "1999");
    EXPECT_EQ(enabledStates(), "00000000");
}

TEST_F(Inspector, ANewRowWhoseUploadEndedShowsOnlyItsTitleAndIsrc)
{
    auto done = newFile("Done", "Rock", LocalTrack::kUploaded);
    done->year = 2020;
    add(nullptr, done);
    view->select({0});
    EXPECT_EQ(text("name"), "Done");
    EXPECT_EQ(text("isrc"), "ISRC-Done");
    EXPECT_EQ(text("genre"), "");
    EXPECT_EQ(text("year"), "");
    EXPECT_EQ(text("composer"), "");

    done->uploadState = LocalTrack::kUploadFailed;
    info().update();
    EXPECT_EQ(text("genre"), "");
    done->uploadState = LocalTrack::kUploading;
    info().update();
    EXPECT_EQ(text("genre"), "Rock");
}

TEST_F(Inspector, YearZeroIsEmptyAndTextThatIsNoNumberStoresZero)
{
    auto file = newFile("Take", "Rock");
    add(nullptr, file);
    view->select({0});
    EXPECT_EQ(text("year"), "");

    type("year", "2014");
    EXPECT_EQ(file->year, 2014);
    EXPECT_EQ(text("year"), "2014");
    type("year", "abc");
    EXPECT_EQ(file->year, 0);
    EXPECT_EQ(text("year"), "");
    type("year", "-5");
    EXPECT_EQ(file->year, -5);
    EXPECT_EQ(text("year"), "") << "only a year above 0 is shown";
}

TEST_F(Inspector, ATitleEditRedrawsTheTableWithoutUpdating)
{
    auto file = newFile("Old name", "Rock");
    add(nullptr, file);
    view->select({0});
    auto signals = makeRef<SignalLog>(static_cast<ISubject*>(&info()));
    file->genre = "Changed behind the inspector's back";

    type("name", "New name");
    EXPECT_EQ(file->name, "New name");
    EXPECT_EQ(view->invalidations, 1);
    EXPECT_EQ(text("genre"), "Rock") << "update did not run";
    EXPECT_EQ(signals->count(Signals::kChanged), 0);
    const char* title = nullptr;
    const int32 titleColumn = manager->table->columns().indexOf(TrackItem::kRemoteTrackColumn);
    ASSERT_EQ(static_cast<IItemModel&>(*manager->table).getTooltip(0, titleColumn, title), kResultOk);
    EXPECT_STREQ(title, "New name");

    // Any other field runs update after the write.
    type("comment", "fine");
    EXPECT_EQ(text("genre"), "Changed behind the inspector's back");
    EXPECT_EQ(signals->count(Signals::kChanged), 1);
}

TEST_F(Inspector, ClearingTheSelectionKeepsTheTextsAndShowsNoTrackSelected)
{
    add(nullptr, newFile("Kept", "Rock"));
    view->select({0});
    ASSERT_EQ(hasFocusItem(), 1);
    auto signals = makeRef<SignalLog>(static_cast<ISubject*>(&info()));

    view->select({});
    EXPECT_EQ(hasFocusItem(), 0);
    EXPECT_EQ(text("name"), "Kept");
    EXPECT_EQ(text("genre"), "Rock");
    EXPECT_EQ(signals->count(Signals::kChanged), 1) << "the form reads hasFocusItem again";

    // An edit with nothing selected writes nothing and only refreshes.
    type("genre", "Lost");
    EXPECT_EQ(manager->table->getTrackItem(0)->getLocalTrack()->genre, "Rock");
    EXPECT_EQ(hasFocusItem(), 0);
}

TEST(InspectorAlone, WithoutAnOwnerItShowsNothingAndIgnoresEdits)
{
    auto info = makeRef<TrackInfoComponent>();
    EXPECT_EQ(info->name(), "TrackInfo");
    EXPECT_STREQ(info->className(), "TrackInfoComponent");
    ASSERT_EQ(info->parameterCount(), 8u);
    const char* names[] = {"name", "isrc", "year", "genre", "comment", "arranger", "composer", "songwriter"};
    for (int32 tag = 0; tag < 8; ++tag)
        EXPECT_EQ(info->findParameter(tag)->name(), names[tag]);

    info->findParameter("genre")->setValue("Rock", true);
    EXPECT_FALSE(info->hasFocusItem());
    EXPECT_EQ(info->findParameter("genre")->stringValue(), "Rock") << "the field keeps what was typed";

    // A parent that does not own a table is no owner.
    auto parent = makeRef<Component>("Other");
    parent->addChild(info);
    info->update();
    EXPECT_FALSE(info->hasFocusItem());
    Variant value;
    EXPECT_TRUE(info->getProperty(value, "name")) << "other properties go to the base";
}
