// What the track table draws in its cells, read back from a recording port: the status cell of
// every state with its colours and bar, dimmed and bold texts, paths shortened by the real font
// metrics, and the tooltips of the cells.

#include "RecordingPort.h"
#include "TestItemView.h"
#include "ViewTestSupport.h"

#include "framework/graphics/ViewStyle.h"
#include "framework/interfaces/TrackRowState.h"
#include "framework/services/TextServices.h"
#include "plugin/views/TrackList.h"

#include <gtest/gtest.h>

using namespace KVX;
using namespace Sorvel;
using namespace ViewTests;

namespace {

// The theme's "TrackList" colours, as the skin writes them.
constexpr uint32 kOnServer = 0x9099A2FF;
constexpr uint32 kError = 0xCE2E23FF;
constexpr uint32 kUpload = 0x59BCDCFF;
constexpr uint32 kReplace = 0x56568CFF;
constexpr uint32 kSuccess = 0x1B9E4FFF;
constexpr uint32 kUploading = 0x0F9CD5FF;
constexpr uint32 kStatus = 0xFFFFFFFF;
constexpr uint32 kStatusUp = 0x031339FF;
constexpr uint32 kText = 0x000000FF;
constexpr uint32 kTextDimmed = 0x0000007F;

class TrackTableCells : public testing::Test
{
protected:
    void SetUp() override { view->attach(table); }
    void TearDown() override { view->detach(); }

    /// Draws one cell of `row` as the view does, into a rectangle `width` pixels wide.
    RecordingPort& paint(int32 row, const char* column, int32 width = 200, IViewStyle* withStyle = nullptr)
    {
        port->clear();
        const int32 index = table->columns().indexOf(column);
        EXPECT_EQ(static_cast<IItemModel&>(*table).paintCell(row, index, {10, 40, 10 + width, 66}, port,
                                                             withStyle ? withStyle : style.get()),
                  kResultOk);
        return *port;
    }
    std::string tooltip(int32 row, const char* column)
    {
        const char* text = nullptr;
        if (static_cast<IItemModel&>(*table).getTooltip(row, table->columns().indexOf(column), text) != kResultOk)
            return "(none)";
        return text;
    }
    double width(const std::string& text, const FontRecord& font)
    {
        double measured = 0;
        EXPECT_EQ(GetGraphicsHelper()->measureText(text.c_str(), font, measured), kResultOk);
        return measured;
    }

    Ref<TrackList> table = makeRef<TrackList>();
    Ref<TestItemView> view = makeRef<TestItemView>();
    Ref<RecordingPort> port = makeRef<RecordingPort>();
    Ref<IViewStyle> style = themeStyle("TrackList");
};

} // namespace

TEST_F(TrackTableCells, EveryStatusRowHasItsTextColoursAndBar)
{
    struct Case
    {
        Ref<TrackItem> row;
        const char* text;
        uint32 bar;
        uint32 textColor;
        int32 barWidth; // of 200
        int32 state;    // the status cell's value
    };
    auto uploadingRow = row(nullptr, localTrack("up", LocalTrack::kUploading));
    const Case cases[] = {
        {row(remoteTrack("R"), nullptr), "Uploaded", kOnServer, kStatus, 200, Engine::kRowOnService},
        {row(nullptr, localTrack("bad", LocalTrack::kNotUploaded, true)), "Invalid Format", kError, kStatus, 200, Engine::kRowUnsupportedFormat},
        {row(nullptr, localTrack("bad", LocalTrack::kUploaded, true)), "Invalid Format", kError, kStatus, 200, Engine::kRowUnsupportedFormat},
        {row(nullptr, localTrack("new")), "Add", kUpload, kStatus, 200, Engine::kRowWaiting},
        {row(remoteTrack("R"), localTrack("mix")), "Replace", kReplace, kStatus, 200, Engine::kRowWaiting},
        {row(nullptr, localTrack("new", LocalTrack::kUploaded)), "Add - Upload Complete", kSuccess, kStatus, 200, Engine::kRowUploaded},
        {row(remoteTrack("R"), localTrack("mix", LocalTrack::kUploaded)), "Replace - Upload Complete", kSuccess,
         kStatus, 200, Engine::kRowUploaded},
        {row(nullptr, localTrack("new", LocalTrack::kUploadFailed)), "Add - Upload Failed", kError, kStatus, 200, Engine::kRowFailed},
        {row(remoteTrack("R"), localTrack("mix", LocalTrack::kUploadFailed)), "Replace - Upload Failed", kError,
         kStatus, 200, Engine::kRowFailed},
        {uploadingRow, "Add - 50.0% uploaded", kUploading, kStatusUp, 100, Engine::kRowUploading},
        {row(remoteTrack("R"), localTrack("waiting", LocalTrack::kUploading)), "Replace", kReplace, kStatus, 200, Engine::kRowUploading},
        {row(nullptr, localTrack("waiting", LocalTrack::kUploading)), "Add", kUpload, kStatus, 200, Engine::kRowUploading},
    };
    for (const Case& c : cases)
        table->appendItem(c.row);
    table->setCurrentItem(uploadingRow);
    table->setProgress(0.5);

    for (int32 index = 0; index < table->countItems(); ++index)
    {
        const Case& c = cases[index];
        RecordingPort& drawn = paint(index, TrackItem::kStatusColumn);
        ASSERT_EQ(drawn.fills.size(), 1u) << c.text;
        EXPECT_EQ(drawn.fills[0].rgba, c.bar) << c.text;
        EXPECT_EQ(drawn.fills[0].rect.left, 10) << c.text;
        EXPECT_EQ(drawn.fills[0].rect.right - drawn.fills[0].rect.left, c.barWidth) << c.text;
        EXPECT_EQ(drawn.fills[0].rect.bottom - drawn.fills[0].rect.top, 26) << c.text;
        ASSERT_EQ(drawn.texts.size(), 1u) << c.text;
        EXPECT_EQ(drawn.texts[0].text, c.text);
        EXPECT_EQ(drawn.texts[0].rgba, c.textColor) << c.text;
        EXPECT_EQ(drawn.texts[0].alignment, IGraphicsPort::kAlignCenter) << c.text;
        EXPECT_EQ(drawn.texts[0].font.style,
                  c.row == uploadingRow ? uint32(FontRecord::kBold) : uint32(FontRecord::kNormal))
            << "only the current row is bold: " << c.text;
        EXPECT_STREQ(drawn.texts[0].font.face, "Arial");
        EXPECT_EQ(drawn.texts[0].font.size, 12);
        ValueRecord value;
        ASSERT_EQ(static_cast<IItemModel&>(*table).getCellValue(index, table->columns().indexOf(TrackItem::kStatusColumn),
                                                                value),
                  kResultOk)
            << c.text;
        EXPECT_EQ(value.type, ValueRecord::kInt) << c.text;
        EXPECT_EQ(value.intValue, c.state) << c.text;
    }

    // The percentage is the progress narrowed to single precision, with one decimal.
    table->setProgress(0.12345);
    EXPECT_EQ(paint(9, TrackItem::kStatusColumn).texts[0].text, "Add - 12.3% uploaded");
    EXPECT_EQ(port->fills[0].rect.right - port->fills[0].rect.left, 25);
    table->setProgress(0);
    EXPECT_TRUE(paint(9, TrackItem::kStatusColumn).fills.empty()) << "no bar at 0";
    EXPECT_EQ(port->texts[0].text, "Add - 0.0% uploaded");
}

TEST_F(TrackTableCells, TitlesAndTheRemoveMarkAreDimmedOnRowsWithoutAFile)
{
    table->appendItem(row(remoteTrack("On the service"), nullptr));
    table->appendItem(row(remoteTrack("To replace"), localTrack("mix")));
    table->appendItem(row(nullptr, localTrack("Brand new")));

    EXPECT_TRUE(paint(0, TrackItem::kRemoveColumn, 20).texts.empty()) << "no X without a file";
    ASSERT_EQ(paint(0, TrackItem::kRemoteTrackColumn).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "On the service");
    EXPECT_EQ(port->texts[0].rgba, kTextDimmed);
    EXPECT_TRUE(paint(0, TrackItem::kLocalTrackColumn, 300).texts.empty());

    ASSERT_EQ(paint(1, TrackItem::kRemoveColumn, 20).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "X");
    EXPECT_EQ(port->texts[0].rgba, kTextDimmed);
    ASSERT_EQ(paint(1, TrackItem::kRemoteTrackColumn).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "To replace");
    EXPECT_EQ(port->texts[0].rgba, kText);
    ASSERT_EQ(paint(1, TrackItem::kLocalTrackColumn, 300).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "/music/mix.wav");
    EXPECT_EQ(port->texts[0].rgba, kText);

    ASSERT_EQ(paint(2, TrackItem::kRemoteTrackColumn).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "Brand new") << "a new row shows its file's title";
    EXPECT_EQ(port->texts[0].rgba, kText);

    // The current row is drawn in the style of "activefont" (bold) in every column.
    table->setCurrentItem(table->getTrackItem(1));
    for (const char* column : {TrackItem::kRemoveColumn, TrackItem::kRemoteTrackColumn, TrackItem::kLocalTrackColumn})
    {
        ASSERT_EQ(paint(1, column, 300).texts.size(), 1u) << column;
        EXPECT_EQ(port->texts[0].font.style, uint32(FontRecord::kBold)) << column;
    }
}

TEST_F(TrackTableCells, ALongPathLosesItsBeginningByTheMeasuredWidthAndTheTooltipKeepsItWhole)
{
    std::string path = "/home/someone/Music/Projects/";
    while (path.size() < 185)
        path += "session-mixdown/";
    path.resize(185);
    path += "/final take.wav";
    ASSERT_EQ(path.size(), 200u);
    auto file = localTrack("final take");
    file->url = Url::fromNativePath(String(path));
    table->appendItem(row(nullptr, file));

    const RecordingPort& drawn = paint(0, TrackItem::kLocalTrackColumn, 300);
    ASSERT_EQ(drawn.texts.size(), 1u);
    const std::string shown = drawn.texts[0].text;
    const FontRecord font = drawn.texts[0].font;
    EXPECT_STREQ(font.face, "Arial");
    EXPECT_EQ(font.style, uint32(FontRecord::kNormal));
    ASSERT_EQ(shown.rfind("(..)", 0), 0u) << shown;
    const std::string tail = shown.substr(4);
    ASSERT_LT(tail.size(), path.size());
    EXPECT_EQ(path.substr(path.size() - tail.size()), tail) << "the end of the path stays";
    EXPECT_TRUE(tail.ends_with("final take.wav"));

    // As much of the end as fits beside "(..)" in 300 pixels, and not one character more.
    const double available = 300 - width("(..)", font);
    EXPECT_LE(width(tail, font), available);
    EXPECT_GT(width(path.substr(path.size() - tail.size() - 1), font), available);
    EXPECT_GT(tail.size(), 20u) << "Arial 12 fits more than a file name into 300 pixels";

    EXPECT_EQ(tooltip(0, TrackItem::kLocalTrackColumn), path);

    // A path that fits is drawn as it is.
    file->url = Url::fromNativePath("/music/short.wav");
    ASSERT_EQ(paint(0, TrackItem::kLocalTrackColumn, 300).texts.size(), 1u);
    EXPECT_EQ(port->texts[0].text, "/music/short.wav");
}

TEST_F(TrackTableCells, AFileBeingUploadedIsDrawnBold)
{
    auto file = localTrack("take");
    table->appendItem(row(nullptr, file));
    for (int32 state :
         {LocalTrack::kNotUploaded, LocalTrack::kUploading, LocalTrack::kUploaded, LocalTrack::kUploadFailed})
    {
        file->uploadState = state;
        ASSERT_EQ(paint(0, TrackItem::kLocalTrackColumn, 300).texts.size(), 1u);
        EXPECT_EQ(port->texts[0].font.style,
                  state == LocalTrack::kUploading ? uint32(FontRecord::kBold) : uint32(FontRecord::kNormal))
            << "state " << state;
    }
}

TEST_F(TrackTableCells, TooltipsOfEachColumn)
{
    table->appendItem(row(remoteTrack("Remote title"), nullptr));
    table->appendItem(row(nullptr, localTrack("odd", LocalTrack::kNotUploaded, true)));
    table->appendItem(row(remoteTrack("Remote"), localTrack("mix")));
    table->appendItem(row(nullptr, localTrack("new")));
    const std::string unsupported = "The file format is not supported (WAV 44.1 Khz expected).";

    EXPECT_EQ(tooltip(0, TrackItem::kRemoveColumn), "") << "answered, but empty";
    EXPECT_EQ(tooltip(0, TrackItem::kRemoteTrackColumn), "Remote title");
    EXPECT_EQ(tooltip(0, TrackItem::kLocalTrackColumn), "(none)");
    EXPECT_EQ(tooltip(0, TrackItem::kStatusColumn), "(none)");

    EXPECT_EQ(tooltip(1, TrackItem::kRemoveColumn), "Remove");
    EXPECT_EQ(tooltip(1, TrackItem::kStatusColumn), unsupported);
    EXPECT_EQ(tooltip(1, TrackItem::kRemoteTrackColumn), unsupported);
    EXPECT_EQ(tooltip(1, TrackItem::kLocalTrackColumn), unsupported);

    EXPECT_EQ(tooltip(2, TrackItem::kRemoteTrackColumn), "Remote");
    EXPECT_EQ(tooltip(2, TrackItem::kLocalTrackColumn), "/music/mix.wav");
    EXPECT_EQ(tooltip(2, TrackItem::kStatusColumn), "(none)");
    EXPECT_EQ(tooltip(3, TrackItem::kRemoteTrackColumn), "new");
}

TEST_F(TrackTableCells, AStyleWithoutAColourDrawsInBlack)
{
    auto sparse = makeRef<ViewStyle>("Sparse");
    sparse->setColor("status", 0xFFFFFFFF).setFont("textfont", ViewStyle::makeFont("Arial", 12));
    table->appendItem(row(nullptr, localTrack("done", LocalTrack::kUploaded)));

    RecordingPort& drawn = paint(0, TrackItem::kStatusColumn, 200, sparse);
    ASSERT_EQ(drawn.fills.size(), 1u);
    EXPECT_EQ(drawn.fills[0].rgba, kText) << "\"success\" is missing";
    ASSERT_EQ(drawn.texts.size(), 1u);
    EXPECT_EQ(drawn.texts[0].rgba, 0xFFFFFFFF);
    EXPECT_EQ(drawn.texts[0].font.style, uint32(FontRecord::kNormal)) << "no \"activefont\": plain";

    // With no style at all, the cell still draws: black, in the default font.
    port->clear();
    ASSERT_EQ(static_cast<IItemModel&>(*table).paintCell(0, 3, {0, 0, 200, 26}, port, nullptr), kResultOk);
    ASSERT_EQ(port->texts.size(), 1u);
    EXPECT_EQ(port->texts[0].rgba, kText);
    EXPECT_EQ(port->texts[0].font.size, 12);
}

TEST_F(TrackTableCells, TheValuesBehindTheCellsStayWhenALanguageFileTranslatesTheirWords)
{
    table->appendItem(row(remoteTrack("Tunnel"), localTrack("mix", LocalTrack::kUploaded)));
    table->appendItem(row(nullptr, localTrack("new")));
    table->appendItem(row(remoteTrack("Headlights"), nullptr));
    auto& model = static_cast<IItemModel&>(*table);
    const int32 status = table->columns().indexOf(TrackItem::kStatusColumn);
    const int32 title = table->columns().indexOf(TrackItem::kRemoteTrackColumn);
    const int32 file = table->columns().indexOf(TrackItem::kLocalTrackColumn);
    auto text = [&](int32 row, int32 column) {
        ValueRecord value;
        if (model.getCellValue(row, column, value) != kResultOk)
            return std::string("(none)");
        EXPECT_EQ(value.type, ValueRecord::kString);
        return std::string(value.text, value.textLength);
    };

    ASSERT_EQ(SetLocalizedText("Sorvel", "Replace", "Ersetzen"), kResultOk);
    ASSERT_EQ(SetLocalizedText("Sorvel", "Upload Complete", "Hochgeladen"), kResultOk);
    EXPECT_EQ(paint(0, TrackItem::kStatusColumn).texts[0].text, "Ersetzen - Hochgeladen");
    ValueRecord value;
    ASSERT_EQ(model.getCellValue(0, status, value), kResultOk);
    EXPECT_EQ(value.intValue, Engine::kRowUploaded);
    ClearLocalizedTexts("Sorvel");
    EXPECT_EQ(paint(0, TrackItem::kStatusColumn).texts[0].text, "Replace - Upload Complete")
        << "the English text is the fallback again";

    // The product's track by name, the file by its whole path; no value where the row has none.
    EXPECT_EQ(text(0, title), "Tunnel");
    EXPECT_EQ(text(1, title), "(none)") << "a new file pairs no track";
    EXPECT_EQ(text(2, title), "Headlights");
    EXPECT_EQ(text(1, file), tooltip(1, TrackItem::kLocalTrackColumn)) << "the whole path";
    EXPECT_EQ(text(2, file), "(none)");
    EXPECT_EQ(model.getCellValue(0, table->columns().indexOf(TrackItem::kRemoveColumn), value), kInvalidArgument);
    EXPECT_EQ(model.getCellValue(3, status, value), kInvalidArgument) << "no such row";
    EXPECT_EQ(model.getCellValue(0, 9, value), kInvalidArgument) << "no such column";
}
