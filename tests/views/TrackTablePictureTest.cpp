// The graphics module's own parts: text measured with the faces that stand in for the theme's,
// pictures drawn through Cairo, and a whole track table drawn into a PNG file that a person can
// look at (track-table.png next to this test program's build folder).

#include "ViewTestSupport.h"

#include "framework/graphics/ViewStyle.h"
#include "plugin/views/TrackList.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace KVX;
using namespace Sorvel;
using namespace ViewTests;

namespace {

Ref<IImagePort> picture(int32 width, int32 height, uint32 background = 0xFFFFFFFF)
{
    IImagePort* port = nullptr;
    EXPECT_EQ(GetGraphicsHelper()->createImagePort(width, height, background, &port), kResultOk);
    return Ref<IImagePort>::adopt(port);
}

uint32 pixel(IImagePort& port, int32 x, int32 y)
{
    uint32 rgba = 0;
    EXPECT_EQ(port.readPixel(x, y, rgba), kResultOk) << x << "," << y;
    return rgba;
}

double measure(const char* text, const FontRecord& font)
{
    double width = -1;
    EXPECT_EQ(GetGraphicsHelper()->measureText(text, font, width), kResultOk);
    return width;
}

} // namespace

TEST(GraphicsHelper, ArialIsMeasuredWithTheMetricsOfItsStandIn)
{
    const FontRecord arial = ViewStyle::makeFont("Arial", 12);
    // Arial's advance widths, in 2048ths of the size: H 1479, e 1139, l 455, o 1139.
    EXPECT_NEAR(measure("Hello", arial), (1479 + 1139 + 455 + 455 + 1139) * 12.0 / 2048, 0.05);
    EXPECT_NEAR(measure("Hello", ViewStyle::makeFont("Arial", 24)), 2 * measure("Hello", arial), 0.05);
    EXPECT_GT(measure("Hello", ViewStyle::makeFont("Arial", 12, FontRecord::kBold)), measure("Hello", arial));
    EXPECT_EQ(measure("", arial), 0);
    EXPECT_GT(measure("Grüße (..)", arial), measure("Grüße", arial));

    double width = -1;
    EXPECT_EQ(GetGraphicsHelper()->measureText(nullptr, arial, width), kInvalidArgument);
    EXPECT_EQ(width, 0);
    // An image port measures as the helper does, so a text measured to fit fits when drawn.
    auto port = picture(10, 10);
    ASSERT_EQ(port->measureText("/music/a long path/take.wav", arial, width), kResultOk);
    EXPECT_DOUBLE_EQ(width, measure("/music/a long path/take.wav", arial));
}

TEST(GraphicsHelper, ImagePortsFillDrawAndWritePictures)
{
    IImagePort* none = nullptr;
    EXPECT_EQ(GetGraphicsHelper()->createImagePort(0, 10, 0, &none), kInvalidArgument);
    EXPECT_EQ(GetGraphicsHelper()->createImagePort(10, 20000, 0, &none), kInvalidArgument);
    EXPECT_EQ(GetGraphicsHelper()->createImagePort(10, 10, 0, nullptr), kInvalidArgument);
    EXPECT_EQ(none, nullptr);

    auto port = picture(40, 20, 0x102030FF);
    EXPECT_EQ(port->getWidth(), 40);
    EXPECT_EQ(pixel(*port, 0, 0), 0x102030FFu);
    ASSERT_EQ(port->fillRect({10, 0, 20, 20}, 0xCE2E23FF), kResultOk);
    EXPECT_EQ(pixel(*port, 10, 5), 0xCE2E23FFu);
    EXPECT_EQ(pixel(*port, 20, 5), 0x102030FFu) << "right is outside";
    ASSERT_EQ(port->fillRect({0, 0, 40, 20}, 0xFFFFFF00), kResultOk);
    EXPECT_EQ(pixel(*port, 0, 0), 0x102030FFu) << "a transparent fill leaves what is underneath";
    EXPECT_EQ(port->fillRect({30, 5, 30, 10}, 0xFFFFFFFF), kResultOk) << "an empty rectangle draws nothing";
    EXPECT_EQ(pixel(*port, 30, 6), 0x102030FFu);

    uint32 rgba = 0;
    EXPECT_EQ(port->readPixel(40, 0, rgba), kInvalidArgument);
    EXPECT_EQ(port->readPixel(-1, 0, rgba), kInvalidArgument);
    const FontRecord font = ViewStyle::makeFont("Arial", 12);
    EXPECT_EQ(port->drawText({0, 0, 40, 20}, nullptr, font, 0xFFFFFFFF, 0), kInvalidArgument);
    EXPECT_EQ(port->drawText({0, 0, 40, 20}, "X", font, 0xFFFFFFFF, 7), kInvalidArgument);
    EXPECT_EQ(port->writePng(nullptr), kInvalidArgument);
    EXPECT_EQ(port->writePng("/nonexistent-folder/picture.png"), kUnexpected);
}

TEST(GraphicsHelper, TextIsClippedToItsRectangle)
{
    auto port = picture(100, 30);
    ASSERT_EQ(port->drawText({0, 0, 50, 30}, "WWWWWWWWWWWWWWWWWWWW", ViewStyle::makeFont("Arial", 14, 1), 0x000000FF,
                             IGraphicsPort::kAlignLeft),
              kResultOk);
    bool inked = false;
    for (int32 y = 0; y < 30; ++y)
    {
        inked = inked || pixel(*port, 25, y) != 0xFFFFFFFF;
        EXPECT_EQ(pixel(*port, 60, y), 0xFFFFFFFFu) << "nothing beyond the rectangle, row " << y;
    }
    EXPECT_TRUE(inked) << "the text was drawn inside";
}

TEST(GraphicsHelper, ThemeStylesAreReadThroughTheThemeManager)
{
    auto style = themeStyle("TrackList");
    ASSERT_NE(style, nullptr);
    EXPECT_STREQ(style->getStyleName(), "TrackList");
    uint32 rgba = 0;
    ASSERT_EQ(style->getColor("statusup", rgba), kResultOk);
    EXPECT_EQ(rgba, 0x031339FFu);
    ASSERT_EQ(style->getColor("gridcolor", rgba), kResultOk) << "inherited from the list view's style";
    double height = 0;
    ASSERT_EQ(style->getMetric("rowHeight", height), kResultOk);
    EXPECT_EQ(height, 26);
    FontRecord font{};
    ASSERT_EQ(style->getFont("activefont", font), kResultOk);
    EXPECT_EQ(font.style, uint32(FontRecord::kBold));
    EXPECT_EQ(style->getColor("nonesuch", rgba), kInvalidArgument);
    EXPECT_EQ(style->getColor(nullptr, rgba), kInvalidArgument);

    IViewStyle* none = nullptr;
    EXPECT_EQ(GetGraphicsHelper()->createViewStyle("no such theme", "TrackList", &none), kInvalidArgument);
    EXPECT_EQ(GetGraphicsHelper()->createViewStyle(nullptr, "TrackList", &none), kInvalidArgument);
    EXPECT_EQ(none, nullptr);
    ASSERT_EQ(GetGraphicsHelper()->createViewStyle("sorvel", "NoSuchStyle", &none), kResultOk);
    Ref<IViewStyle> unknown = Ref<IViewStyle>::adopt(none);
    EXPECT_EQ(unknown->getColor("textcolor", rgba), kInvalidArgument);
}

TEST(TrackTablePicture, AddReplaceUploadedInvalidAndUploadingRowsAsTheViewDrawsThem)
{
    auto table = makeRef<TrackList>();
    auto uploading = row(remoteTrack("Night Drive"), localTrack("Night Drive (final)", LocalTrack::kUploading));
    uploading->getLocalTrack()->url = Url::fromNativePath(
        "/home/someone/Music/Projects/Second Album/Mixdowns/Rendered for the store/Night Drive (final).wav");
    table->appendItem(row(nullptr, localTrack("Opening Credits")));
    table->appendItem(row(remoteTrack("Harbour Lights"), localTrack("Harbour Lights v2")));
    table->appendItem(row(remoteTrack("Old Friends"), nullptr));
    table->appendItem(row(nullptr, localTrack("Voice Memo", LocalTrack::kNotUploaded, true)));
    table->appendItem(uploading);
    table->setCurrentItem(uploading);
    table->setProgress(0.5);

    const int32 width = 720, header = 26, rowHeight = 26;
    const int32 height = header + 5 * rowHeight;
    auto port = picture(width, height);
    auto style = themeStyle("TrackList");
    auto headerStyle = themeStyle("TrackList.HeaderView");
    ASSERT_EQ(GetGraphicsHelper()->drawListView(table, style, headerStyle, port, {0, 0, width, height}), kResultOk);

    const std::string file = std::string(BuildPaths::pictureDir()) + "/track-table.png";
    ASSERT_EQ(port->writePng(file.c_str()), kResultOk);
    EXPECT_GT(std::filesystem::file_size(file), 1000u);

    // The status bars, sampled above the text: the column starts at 520, cells are inset by 2.
    const int32 status = 20 + 200 + 300 + 2;
    auto statusPixel = [&](int32 row, int32 x) { return pixel(*port, x, header + row * rowHeight + 3); };
    EXPECT_EQ(statusPixel(0, status + 4), 0x59BCDCFFu) << "Add";
    EXPECT_EQ(statusPixel(1, status + 4), 0x56568CFFu) << "Replace";
    EXPECT_EQ(statusPixel(2, status + 4), 0x9099A2FFu) << "Uploaded";
    EXPECT_EQ(statusPixel(3, status + 4), 0xCE2E23FFu) << "Invalid Format";
    EXPECT_EQ(statusPixel(4, status + 4), 0x0F9CD5FFu) << "uploading, the filled half";
    EXPECT_EQ(statusPixel(4, status + 95), 0x0F9CD5FFu);
    EXPECT_EQ(statusPixel(4, status + 100), 0xFFFFFFFFu) << "uploading, the half still to go";
    EXPECT_EQ(statusPixel(4, width - 4), 0xFFFFFFFFu);

    // The header is drawn on its own colour; grid lines close every row.
    EXPECT_EQ(pixel(*port, 3, 3), 0xE8ECF0FFu);
    EXPECT_EQ(pixel(*port, 5, header + rowHeight - 1), 0xE3E8ECFFu);

    // Drawing a list with nothing to draw on, or nothing to draw, is refused.
    EXPECT_EQ(GetGraphicsHelper()->drawListView(nullptr, style, headerStyle, port, {0, 0, 10, 10}), kInvalidArgument);
    EXPECT_EQ(GetGraphicsHelper()->drawListView(table, nullptr, headerStyle, port, {0, 0, 10, 10}), kInvalidArgument);
    EXPECT_EQ(GetGraphicsHelper()->drawListView(table, style, headerStyle, nullptr, {0, 0, 10, 10}), kInvalidArgument);
}
