// The track table driven as the host's list view drives it: drops of files and rows through drag
// sessions, removals and clicks through the model interface, during and outside an upload.

#include "RecordingPort.h"
#include "TestItemView.h"
#include "ViewTestSupport.h"

#include "framework/component/Signals.h"
#include "framework/services/AudioServices.h"
#include "plugin/views/TrackList.h"

#include <gtest/gtest.h>

#include <limits>

using namespace KVX;
using namespace Sorvel;
using namespace ViewTests;

namespace {

class TrackTable : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(RegisterAudioFileClass(), kResultOk);
        view->attach(table);
    }
    void TearDown() override { view->detach(); }

    /// The host's view of the table.
    IItemModel& host() { return *table; }
    TrackItem& at(int32 index)
    {
        TrackItem* item = table->getTrackItem(index);
        EXPECT_NE(item, nullptr) << "no row " << index;
        static TrackItem none;
        return item ? *item : none;
    }
    /// The names of each row's file, "-" for none.
    std::vector<std::string> files()
    {
        std::vector<std::string> names;
        for (int32 index = 0; index < table->countItems(); ++index)
            names.push_back(at(index).getLocalTrack() ? at(index).getLocalTrack()->name.toUtf8() : "-");
        return names;
    }
    std::vector<std::string> remotes()
    {
        std::vector<std::string> names;
        for (int32 index = 0; index < table->countItems(); ++index)
            names.push_back(at(index).getRemoteTrack() ? at(index).getRemoteTrack()->name.toUtf8() : "-");
        return names;
    }

    Ref<FakeUploadState> upload = makeRef<FakeUploadState>();
    Ref<TrackList> table = makeRef<TrackList>(upload);
    Ref<TestItemView> view = makeRef<TestItemView>();
    Ref<SignalLog> signals = makeRef<SignalLog>(table.get());
    TestFolder folder;
};

} // namespace

TEST_F(TrackTable, ThreeFilesDroppedOnRowOneOfTwoReplaceItsFileAndAppendTwoRows)
{
    table->appendItem(row(remoteTrack("Intro"), nullptr));
    table->appendItem(row(remoteTrack("Ballad"), localTrack("old take")));

    auto image = makeRef<Object>();
    auto session = fileDrag({folder.wav("a.wav"), folder.wav("b.wav"), folder.wav("c.wav")}, image);
    ASSERT_EQ(host().canAcceptDrop(1, session), kResultOk);
    EXPECT_EQ(session->getDropResult(), kDropLink);
    EXPECT_EQ(session->getDragImage(), static_cast<IUnknown*>(image.get()));
    ASSERT_EQ(host().acceptDrop(1, session), kResultOk);

    EXPECT_EQ(files(), (std::vector<std::string>{"-", "a", "b", "c"}));
    EXPECT_EQ(remotes(), (std::vector<std::string>{"Intro", "Ballad", "-", "-"}));
    for (int32 index = 1; index <= 3; ++index)
    {
        EXPECT_FALSE(at(index).getLocalTrack()->incompatible) << "the dropped WAV files pass the format check";
        EXPECT_EQ(at(index).getLocalTrack()->uploadState, LocalTrack::kNotUploaded);
    }
    EXPECT_EQ(table->getStatus(at(1)).text, "Replace");
    EXPECT_EQ(table->getStatus(at(2)).text, "Add");
    EXPECT_EQ(signals->count(Signals::kChanged), 1);
    EXPECT_EQ(view->selection, (std::vector<int32>{1})) << "the first row that took a file is selected";
    EXPECT_EQ(signals->count(ItemModel::kSelectionChanged), 1);
}

TEST_F(TrackTable, FilesDroppedBesideTheRowsStartAtTheTopAndFilesPastTheEndAreAppended)
{
    table->appendItem(row(remoteTrack("One"), nullptr));
    table->appendItem(row(remoteTrack("Two"), nullptr));
    ASSERT_EQ(host().acceptDrop(-1, fileDrag({folder.wav("a.wav"), folder.wav("b.wav"), folder.wav("c.wav")})),
              kResultOk);
    EXPECT_EQ(files(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(view->selection, (std::vector<int32>{0}));

    // A row number past the end, even the largest there is, appends.
    ASSERT_EQ(host().acceptDrop(10, fileDrag({folder.wav("d.wav")})), kResultOk);
    ASSERT_EQ(
        host().acceptDrop(std::numeric_limits<int32>::max(), fileDrag({folder.wav("e.wav"), folder.wav("f.wav")})),
        kResultOk);
    EXPECT_EQ(files(), (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}));
    EXPECT_EQ(view->selection, (std::vector<int32>{4}));
}

TEST_F(TrackTable, ARowDraggedOntoItselfChangesNothing)
{
    table->appendItem(row(nullptr, localTrack("first")));
    table->appendItem(row(remoteTrack("Two"), localTrack("second", LocalTrack::kUploadFailed)));
    table->appendItem(row(nullptr, localTrack("third")));
    view->select({2});
    signals->ids.clear();

    auto session = drag({table->getRowObject(1)}, static_cast<IItemView*>(view.get()));
    ASSERT_EQ(host().canAcceptDrop(1, session), kResultOk);
    ASSERT_EQ(host().acceptDrop(1, session), kResultOk);

    EXPECT_EQ(files(), (std::vector<std::string>{"first", "second", "third"}));
    EXPECT_EQ(at(1).getLocalTrack()->uploadState, LocalTrack::kUploadFailed) << "a file that stays keeps its state";
    EXPECT_TRUE(signals->ids.empty());
    EXPECT_EQ(view->selection, (std::vector<int32>{2}));
}

TEST_F(TrackTable, AFileMovedAwayLeavesAnEmptyRowThatDisappears)
{
    table->appendItem(row(nullptr, localTrack("take", LocalTrack::kUploadFailed)));
    table->appendItem(row(remoteTrack("Song"), nullptr));
    table->appendItem(row(remoteTrack("Other"), nullptr));

    ASSERT_EQ(host().acceptDrop(1, drag({table->getRowObject(0)}, static_cast<IItemView*>(view.get()))), kResultOk);

    EXPECT_EQ(remotes(), (std::vector<std::string>{"Song", "Other"}));
    EXPECT_EQ(files(), (std::vector<std::string>{"take", "-"}));
    EXPECT_EQ(at(0).getLocalTrack()->uploadState, LocalTrack::kNotUploaded) << "a moved file starts over";
    EXPECT_EQ(table->getStatus(at(0)).text, "Replace");
    EXPECT_EQ(signals->count(Signals::kChanged), 1);
    EXPECT_EQ(view->selection, (std::vector<int32>{0})) << "the row that took the file, where it stands now";
}

TEST_F(TrackTable, MovedFilesBesideTheRowsGoToANewLastRowThenFromTheTop)
{
    table->appendItem(row(remoteTrack("A"), localTrack("x")));
    table->appendItem(row(remoteTrack("B"), localTrack("y")));
    table->appendItem(row(remoteTrack("C"), nullptr));

    ASSERT_EQ(host().acceptDrop(-1, drag({table->getRowObject(0), table->getRowObject(1)})), kResultOk);

    // x goes to a new row at the end; y then lands on row 0, whose own file (x) has just left.
    EXPECT_EQ(remotes(), (std::vector<std::string>{"A", "B", "C", "-"}));
    EXPECT_EQ(files(), (std::vector<std::string>{"y", "-", "-", "x"}));
}

TEST_F(TrackTable, ADropHoldingAnythingButRowsAndAudioFilesIsRefusedWhole)
{
    table->appendItem(row(remoteTrack("Song"), nullptr));
    const auto files = fileDrag({folder.wav("fine.wav"), folder.text("notes.txt")});
    EXPECT_EQ(host().canAcceptDrop(0, files), kInvalidArgument);
    EXPECT_EQ(files->getDropResult(), kDropNone);
    EXPECT_EQ(host().acceptDrop(0, files), kInvalidArgument);

    auto stranger = makeRef<Object>();
    auto mixed = drag({fileDrag({folder.wav("also.wav")})->getItem(0), stranger.get()});
    EXPECT_EQ(host().canAcceptDrop(-1, mixed), kInvalidArgument);
    EXPECT_EQ(host().acceptDrop(-1, mixed), kInvalidArgument);

    EXPECT_EQ(this->files(), (std::vector<std::string>{"-"}));
    EXPECT_TRUE(signals->ids.empty());
}

TEST_F(TrackTable, NothingIsRemovedOrDroppedWhileAnUploadRuns)
{
    table->appendItem(row(remoteTrack("Song"), localTrack("mix")));
    table->appendItem(row(nullptr, localTrack("new")));
    const int32 removeColumn = table->columns().indexOf(TrackItem::kRemoveColumn);

    upload->uploading = true;
    EXPECT_EQ(host().canRemoveRow(0), kInvalidArgument);
    EXPECT_EQ(host().removeRow(0), kInvalidArgument);
    EXPECT_EQ(host().removeRow(1), kInvalidArgument);
    EXPECT_EQ(host().clickCell(1, removeColumn), kInvalidArgument);
    EXPECT_EQ(host().canAcceptDrop(-1, nullptr), kInvalidArgument);
    EXPECT_EQ(host().acceptDrop(0, fileDrag({folder.wav("late.wav")})), kInvalidArgument);
    EXPECT_EQ(host().acceptDrop(0, drag({table->getRowObject(1)})), kInvalidArgument);
    EXPECT_EQ(files(), (std::vector<std::string>{"mix", "new"}));
    EXPECT_TRUE(signals->ids.empty());

    // Once it has ended: a row with a remote track stays, as "Uploaded"; a new row goes.
    upload->uploading = false;
    EXPECT_EQ(host().canRemoveRow(0), kResultOk);
    EXPECT_EQ(host().removeRow(0), kResultOk);
    EXPECT_EQ(table->countItems(), 2);
    EXPECT_EQ(table->getStatus(at(0)).text, "Uploaded");
    EXPECT_EQ(host().canRemoveRow(0), kInvalidArgument) << "a remote-only row has nothing to remove";
    EXPECT_EQ(view->invalidations, 1);
    EXPECT_EQ(signals->count(Signals::kChanged), 0);

    EXPECT_EQ(host().clickCell(1, removeColumn), kResultOk);
    EXPECT_EQ(table->countItems(), 1);
    EXPECT_EQ(signals->count(Signals::kChanged), 1);
}

TEST_F(TrackTable, RowsAnswerTheirIconFlagAndTitleAndClicksElsewhereGoToTheView)
{
    table->appendItem(row(remoteTrack("Song"), nullptr));
    table->appendItem(row(nullptr, localTrack("new")));
    const char* text = nullptr;
    int32 flag = -1;
    for (int32 index : {0, 1})
    {
        ASSERT_EQ(host().getRowIcon(index, text), kResultOk);
        EXPECT_STREQ(text, "TrackIcon");
    }
    ASSERT_EQ(host().getRowFlag(0, flag), kResultOk);
    EXPECT_EQ(flag, 0);
    ASSERT_EQ(host().getRowFlag(1, flag), kResultOk);
    EXPECT_EQ(flag, 1);
    at(1).setFlag(false);
    ASSERT_EQ(host().getRowFlag(1, flag), kResultOk);
    EXPECT_EQ(flag, 0) << "the row's own flag must be set too";

    ColumnRecord column{};
    std::vector<std::string> titles, identifiers;
    for (int32 index = 0; index < host().countColumns(); ++index)
    {
        ASSERT_EQ(host().getColumn(index, column), kResultOk);
        titles.emplace_back(column.title);
        identifiers.emplace_back(column.identifier);
        EXPECT_EQ(column.flags == ColumnRecord::kSizable, index == 1 || index == 2) << index;
    }
    EXPECT_EQ(titles, (std::vector<std::string>{"", "Track", "File", "State"}));
    EXPECT_EQ(identifiers, (std::vector<std::string>{"remove", "remote_track", "local_track", "status"}));
    ASSERT_EQ(host().getColumn(0, column), kResultOk);
    EXPECT_EQ(column.width, 20);

    // No column of the table is editable: a click in the title cell is the view's to handle.
    EXPECT_EQ(host().clickCell(1, 1), kInvalidArgument);
    EXPECT_TRUE(view->edits.empty());
    EXPECT_EQ(table->countItems(), 2);
}

TEST_F(TrackTable, CurrentRowFindingAndEmptyRows)
{
    auto song = remoteTrack("Song");
    table->appendItem(row(remoteTrack("Song"), localTrack("mix")));
    table->appendItem(row(nullptr, nullptr));
    table->appendItem(row(song, nullptr));
    table->appendItem(row(nullptr, nullptr));

    EXPECT_EQ(table->findRemoteOnlyRowByName(*localTrack("Song")), &at(2)) << "the first row without a file";
    EXPECT_EQ(table->findRemoteOnlyRowByName(*localTrack("song")), nullptr) << "names are compared exactly";
    EXPECT_TRUE(table->removeEmptyRows());
    EXPECT_EQ(table->countItems(), 2);
    EXPECT_FALSE(table->removeEmptyRows());

    table->setCurrentItem(&at(0));
    table->setProgress(0.25);
    const int drawn = view->invalidations;
    table->setCurrentItem(&at(0));
    EXPECT_EQ(table->getProgress(), 0.25) << "the same row again keeps its progress";
    EXPECT_EQ(view->invalidations, drawn);
    table->setCurrentItem(&at(1));
    EXPECT_EQ(table->getProgress(), 0.0);
    EXPECT_EQ(view->invalidations, drawn + 1);
    table->setProgress(7);
    EXPECT_EQ(table->getProgress(), 1.0);
    table->setCurrentItem(nullptr);
    EXPECT_EQ(table->getCurrentItem(), nullptr);
}

TEST_F(TrackTable, BadIndicesEmptyDropsAndStaleSelectionsHaveDefinedResults)
{
    table->appendItem(row(remoteTrack("Song"), localTrack("mix")));
    table->appendItem(row(nullptr, localTrack("new")));
    auto port = makeRef<RecordingPort>();
    auto style = themeStyle("TrackList");
    const char* text = nullptr;
    int32 flag = 0;
    const int32 most = std::numeric_limits<int32>::max();
    const int32 least = std::numeric_limits<int32>::min();
    for (int32 bad : {-1, 2, most, least})
    {
        EXPECT_EQ(table->getItem(bad), nullptr) << bad;
        EXPECT_EQ(host().getRowObject(bad), nullptr) << bad;
        EXPECT_EQ(host().getRowTitle(bad, text), kInvalidArgument) << bad;
        EXPECT_EQ(host().getRowIcon(bad, text), kInvalidArgument) << bad;
        EXPECT_EQ(host().getRowFlag(bad, flag), kInvalidArgument) << bad;
        EXPECT_EQ(host().getTooltip(bad, 0, text), kInvalidArgument) << bad;
        EXPECT_EQ(host().canRemoveRow(bad), kInvalidArgument) << bad;
        EXPECT_EQ(host().removeRow(bad), kInvalidArgument) << bad;
        EXPECT_EQ(host().clickCell(bad, 0), kInvalidArgument) << bad;
        EXPECT_EQ(host().paintCell(bad, 0, {0, 0, 20, 26}, port, style), kInvalidArgument) << bad;
    }
    for (int32 bad : {-1, 4, most, least})
    {
        ColumnRecord column{};
        EXPECT_EQ(host().getColumn(bad, column), kInvalidArgument) << bad;
        EXPECT_EQ(host().getTooltip(0, bad, text), kInvalidArgument) << bad;
        EXPECT_EQ(host().clickCell(0, bad), kInvalidArgument) << bad;
        EXPECT_EQ(host().paintCell(0, bad, {0, 0, 20, 26}, port, style), kInvalidArgument) << bad;
    }
    EXPECT_EQ(host().paintCell(0, 0, {0, 0, 20, 26}, nullptr, style), kInvalidArgument);
    EXPECT_TRUE(port->fills.empty());
    EXPECT_TRUE(port->texts.empty());
    EXPECT_EQ(files(), (std::vector<std::string>{"mix", "new"}));

    // An empty drag, and none at all, are taken and change nothing.
    auto empty = drag({});
    EXPECT_EQ(host().canAcceptDrop(0, empty), kResultOk);
    EXPECT_EQ(host().acceptDrop(0, empty), kResultOk);
    EXPECT_EQ(host().acceptDrop(-5, nullptr), kResultOk);
    EXPECT_EQ(files(), (std::vector<std::string>{"mix", "new"}));
    EXPECT_TRUE(signals->ids.empty());
    EXPECT_TRUE(view->selectRequests.empty());

    // The view still names rows that have gone: they are left out, the order kept.
    view->selection = {5, 1, -1, 0};
    TypedObjectArray<ListViewItem> selection;
    table->getSelectedItems(selection);
    ASSERT_EQ(selection.count(), 2u);
    EXPECT_EQ(selection.at(0), &at(1));
    EXPECT_EQ(selection.at(1), &at(0));

    // A row removed while it was being dragged still hands its file over.
    Ref<TrackItem> gone = &at(1);
    ASSERT_TRUE(table->removeFromList(gone));
    ASSERT_EQ(host().acceptDrop(0, drag({gone.get()})), kResultOk);
    EXPECT_EQ(files(), (std::vector<std::string>{"new"}));
    EXPECT_EQ(gone->getLocalTrack(), nullptr);
}
