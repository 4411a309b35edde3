// The framework's list model without the track table: default behaviour of rows and columns,
// attaching views, drag sessions, style lookups with their fallbacks, and menus of commands.

#include "RecordingPort.h"
#include "TestItemView.h"
#include "ViewTestSupport.h"

#include "framework/command/CommandDelegate.h"
#include "framework/command/Menu.h"
#include "framework/component/Signals.h"
#include "framework/graphics/Color.h"
#include "framework/graphics/StyleReader.h"
#include "framework/graphics/ViewStyle.h"
#include "framework/list/ListViewModel.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace ViewTests;

TEST(ListViewModel, RowsAreKeptInOrderAndDrawnFromTheirDetail)
{
    auto model = makeRef<ListViewModel>();
    model->columns().addColumn(120, "Name", ListViewItem::kTitleColumn, ColumnList::kEditable);
    model->columns().addColumn(60, "Other", "other");
    auto first = makeRef<ListViewItem>("first");
    auto second = makeRef<ListViewItem>("second");
    second->setIcon("TrackIcon");
    EXPECT_TRUE(model->appendItem(first));
    EXPECT_TRUE(model->appendItem(second));
    EXPECT_FALSE(model->appendItem(nullptr));
    EXPECT_EQ(model->countItems(), 2);
    EXPECT_EQ(model->indexOf(second), 1);
    EXPECT_EQ(model->getItem(-1), nullptr);
    EXPECT_EQ(model->getItem(2), nullptr);

    IItemModel& host = *model;
    const char* text = nullptr;
    ASSERT_EQ(host.getRowTitle(1, text), kResultOk);
    EXPECT_STREQ(text, "second");
    ASSERT_EQ(host.getRowIcon(1, text), kResultOk);
    EXPECT_STREQ(text, "TrackIcon");
    int32 flag = 0;
    ASSERT_EQ(host.getRowFlag(0, flag), kResultOk);
    EXPECT_EQ(flag, 1) << "a row's own flag is set from construction";
    EXPECT_EQ(host.getTooltip(0, 0, text), kInvalidArgument) << "plain rows have no tooltips";

    // The base keeps its rows and takes no drops.
    EXPECT_EQ(host.canRemoveRow(0), kInvalidArgument);
    EXPECT_EQ(host.removeRow(0), kInvalidArgument);
    EXPECT_EQ(host.canAcceptDrop(0, drag({})), kInvalidArgument);
    EXPECT_EQ(host.acceptDrop(0, drag({})), kInvalidArgument);
    EXPECT_EQ(model->countItems(), 2);

    auto port = makeRef<RecordingPort>();
    auto style = makeRef<ViewStyle>("Plain");
    style->setColor("textcolor", 0x112233FF).setFont("textfont", ViewStyle::makeFont("Arial", 11));
    ASSERT_EQ(host.paintCell(0, 0, {0, 0, 120, 20}, port, style), kResultOk);
    ASSERT_EQ(port->texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "first");
    EXPECT_EQ(port->texts[0].rgba, 0x112233FFu);
    EXPECT_EQ(port->texts[0].font.size, 11);
    ASSERT_EQ(host.paintCell(0, 1, {120, 0, 180, 20}, port, style), kResultOk);
    EXPECT_EQ(port->texts.size(), 1u) << "no detail for the other column";

    EXPECT_TRUE(model->removeFromList(first));
    EXPECT_FALSE(model->removeFromList(first));
    EXPECT_EQ(model->getItem(0), second.get());
}

TEST(ListViewModel, TheAttachedViewSelectsRedrawsEditsAndReportsSelections)
{
    auto model = makeRef<ListViewModel>();
    model->columns().addColumn(120, "Name", ListViewItem::kTitleColumn, ColumnList::kEditable);
    model->columns().addColumn(60, "Other", "other");
    for (const char* title : {"a", "b", "c"})
        model->appendItem(makeRef<ListViewItem>(title));
    auto log = makeRef<SignalLog>(static_cast<ISubject*>(model.get()));

    // Without a view: nothing to select, redraw or edit, and no selection.
    EXPECT_FALSE(model->selectRow(0));
    model->invalidate();
    EXPECT_EQ(static_cast<IItemModel&>(*model).clickCell(0, 0), kInvalidArgument);
    TypedObjectArray<ListViewItem> selection;
    model->getSelectedItems(selection);
    EXPECT_TRUE(selection.isEmpty());

    auto view = makeRef<TestItemView>();
    auto other = makeRef<TestItemView>();
    view->attach(model);
    EXPECT_EQ(model->view(), static_cast<IItemView*>(view.get()));
    EXPECT_EQ(model->detachView(other), kInvalidArgument) << "only the attached view detaches";
    EXPECT_EQ(model->attachView(nullptr), kInvalidArgument);

    EXPECT_TRUE(model->selectRow(2));
    EXPECT_FALSE(model->selectRow(3));
    view->select({2, 0});
    model->getSelectedItems(selection);
    ASSERT_EQ(selection.count(), 2u);
    EXPECT_EQ(selection.at(0)->title(), "c");
    EXPECT_EQ(selection.at(1)->title(), "a");
    EXPECT_EQ(log->count(ItemModel::kSelectionChanged), 2);

    model->invalidate();
    EXPECT_EQ(view->invalidations, 1);
    model->signalItemsChanged();
    EXPECT_EQ(log->count(Signals::kChanged), 1);

    // A click in an editable column opens the cell's editor; elsewhere it is the view's.
    EXPECT_EQ(static_cast<IItemModel&>(*model).clickCell(1, 0), kResultOk);
    EXPECT_EQ(static_cast<IItemModel&>(*model).clickCell(1, 1), kInvalidArgument);
    EXPECT_EQ(view->edits, (std::vector<std::pair<int32, int32>>{{1, 0}}));

    view->detach();
    EXPECT_EQ(model->view(), nullptr);
    EXPECT_EQ(view->referenceCount(), 1u) << "the model let go of the view";
}

TEST(DragSession, KeepsItsObjectsInOrderAndOnlyKnownDropResults)
{
    auto a = makeRef<Object>();
    auto b = makeRef<Object>();
    auto source = makeRef<Object>();
    auto session = makeRef<DragSession>(source);
    EXPECT_TRUE(session->addItem(a));
    EXPECT_TRUE(session->addItem(b));
    EXPECT_FALSE(session->addItem(nullptr));
    EXPECT_EQ(session->countItems(), 2);
    EXPECT_EQ(session->getItem(0), static_cast<IUnknown*>(a.get()));
    EXPECT_EQ(session->getItem(1), static_cast<IUnknown*>(b.get()));
    EXPECT_EQ(session->getItem(2), nullptr);
    EXPECT_EQ(session->getItem(-1), nullptr);
    EXPECT_EQ(session->getSource(), static_cast<IUnknown*>(source.get()));
    EXPECT_EQ(session->getSourceImage(), nullptr);
    EXPECT_EQ(a->referenceCount(), 2u) << "the session holds its objects";

    EXPECT_EQ(session->getDropResult(), kDropNone);
    for (int32 result : {kDropCopy, kDropMove, kDropLink, kDropNone})
    {
        EXPECT_EQ(session->setDropResult(result), kResultOk);
        EXPECT_EQ(session->getDropResult(), result);
    }
    EXPECT_EQ(session->setDropResult(3), kInvalidArgument);
    EXPECT_EQ(session->setDropResult(-1), kInvalidArgument);
    EXPECT_EQ(session->getDropResult(), kDropNone);
    EXPECT_EQ(kDropLink, 4) << "the value hosts know the link result by";
}

TEST(ViewStyle, MissingEntriesHaveDefinedFallbacksAndAreReportedOnce)
{
    EXPECT_EQ(Color::dimmed(0x000000FF), 0x0000007Fu);
    EXPECT_EQ(Color::dimmed(0x59BCDCFF), 0x59BCDC7Fu);
    EXPECT_EQ(Color::dimmed(Color::dimmed(0xFFFFFFFF)), 0xFFFFFF3Fu);

    auto style = makeRef<ViewStyle>("Partial");
    style->setColor("status", 0xFFFFFFFF)
        .setMetric("rowHeight", 26)
        .setFont("textfont", ViewStyle::makeFont("Arial", 12));
    const StyleReader reader(style);
    EXPECT_EQ(reader.color("status"), 0xFFFFFFFFu);
    EXPECT_EQ(reader.metric("rowHeight", 20), 26);
    EXPECT_STREQ(reader.font("textfont").face, "Arial");

    const int before = StyleReader::reportedCount();
    EXPECT_EQ(reader.color("success"), Color::kBlack);
    EXPECT_EQ(reader.color("success"), Color::kBlack);
    EXPECT_EQ(reader.metric("headerHeight", 20), 20);
    EXPECT_STREQ(reader.font("activefont").face, StyleReader::defaultFont().face);
    const StyleReader nothing(nullptr);
    EXPECT_EQ(nothing.color("textcolor"), Color::kBlack);
#ifdef NDEBUG
    EXPECT_EQ(StyleReader::reportedCount(), before) << "release builds stay silent";
#else
    EXPECT_EQ(StyleReader::reportedCount(), before + 4) << "each missing entry once";
#endif

    // A face longer than the record holds is cut, terminated.
    const FontRecord font = ViewStyle::makeFont(std::string(100, 'F'), 10);
    EXPECT_EQ(std::string(font.face), std::string(sizeof font.face - 1, 'F'));
    uint32 rgba = 1;
    EXPECT_EQ(style->getColor(nullptr, rgba), kInvalidArgument);
    EXPECT_EQ(rgba, 1u);
}

namespace {

/// A target of menu commands: "Edit" "Delete" runs while something is selected.
class CommandTarget : public Object
{
public:
    bool onCommand(const CommandMessage& command)
    {
        if (!command.is("Edit", "Delete") || !hasSelection)
            return false;
        if (!command.checkOnly())
            ++deletions;
        return true;
    }
    bool hasSelection = true;
    int deletions = 0;
};

} // namespace

TEST(Menu, EntriesAreEnabledByTheirTargetAndRunOnlyWhenEnabled)
{
    auto target = makeRef<CommandTarget>();
    auto menu = makeRef<Menu>();
    menu->addEntry("Remove", "RemoveIcon", "Edit", "Delete",
                   CommandDelegate<CommandTarget>::make(target, &CommandTarget::onCommand));
    menu->addEntry("Rename", "", "Edit", "Rename",
                   CommandDelegate<CommandTarget>::make(target, &CommandTarget::onCommand));
    menu->addEntry("Nothing", "", "Edit", "Nothing", nullptr);

    IMenu& host = *menu;
    ASSERT_EQ(host.countEntries(), 3);
    MenuEntryRecord entry{};
    ASSERT_EQ(host.getEntry(0, entry), kResultOk);
    EXPECT_STREQ(entry.title, "Remove");
    EXPECT_STREQ(entry.icon, "RemoveIcon");
    EXPECT_STREQ(entry.category, "Edit");
    EXPECT_STREQ(entry.name, "Delete");
    EXPECT_EQ(entry.enabled, 1);
    ASSERT_EQ(host.getEntry(1, entry), kResultOk);
    EXPECT_EQ(entry.enabled, 0) << "the target does not know the command";
    ASSERT_EQ(host.getEntry(2, entry), kResultOk);
    EXPECT_EQ(entry.enabled, 0) << "an entry without a target";
    EXPECT_EQ(host.getEntry(3, entry), kInvalidArgument);
    EXPECT_EQ(target->deletions, 0) << "checking runs nothing";

    EXPECT_EQ(host.chooseEntry(0), kResultOk);
    EXPECT_EQ(target->deletions, 1);
    EXPECT_EQ(host.chooseEntry(1), kInvalidArgument);
    EXPECT_EQ(host.chooseEntry(-1), kInvalidArgument);
    target->hasSelection = false;
    EXPECT_FALSE(menu->isEnabled(0));
    EXPECT_FALSE(menu->choose(0));
    EXPECT_EQ(target->deletions, 1);
}
