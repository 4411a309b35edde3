// sorvel-artwork: draws the theme's images and writes them as PNG files.
//
//   sorvel-artwork FOLDER
//
// Writes FOLDER/images/*.png: the gadget's icons, buttons and backgrounds, drawn from simple
// shapes so that the repository keeps code instead of binary pictures. Strips of frames are
// drawn frame by frame at their offsets; the skin declares their order.
#include "Canvas.h"
#include "PngWriter.h"
#include "Sdf.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <string>
#include <vector>

using namespace Artwork;

namespace {

constexpr float kPi = std::numbers::pi_v<float>;

const Colour kAccent = Colour::rgb(0x0f9cd5);
const Colour kNavy = Colour::rgb(0x031339);
const Colour kDeepBlue = Colour::rgb(0x0b2a55);
const Colour kSlate = Colour::rgb(0x9099a2);
const Colour kPurple = Colour::rgb(0x56568c);
const Colour kGreen = Colour::rgb(0x1b9e4f);
const Colour kGold = Colour::rgb(0xf2b01e);
const Colour kWhite = Colour::rgb(0xffffff);
const Colour kBorder = Colour::rgb(0xb8c1ca);

Sdf::Field whole(const Canvas& canvas)
{
    return Sdf::box(canvas.width() / 2.0f, canvas.height() / 2.0f, canvas.width() / 2.0f, canvas.height() / 2.0f, 0);
}

std::vector<Sdf::Point> arc(float cx, float cy, float radius, float fromDegrees, float toDegrees, int steps = 24)
{
    std::vector<Sdf::Point> points;
    for (int i = 0; i <= steps; ++i)
    {
        const float angle = (fromDegrees + (toDegrees - fromDegrees) * i / steps) * kPi / 180;
        points.emplace_back(cx + radius * std::cos(angle), cy + radius * std::sin(angle));
    }
    return points;
}

// The brand's mark: a disc with three bars of a level meter.
void drawMark(Canvas& canvas, float cx, float cy, float radius, const Colour& disc, const Colour& bars)
{
    canvas.fill(Sdf::circle(cx, cy, radius), disc);
    const float width = radius * 0.26f, step = radius * 0.42f, bottom = cy + radius * 0.42f;
    const float heights[] = {0.45f, 0.85f, 0.6f};
    for (int i = 0; i < 3; ++i)
    {
        const float x = cx + (i - 1) * step;
        canvas.fill(Sdf::line({x, bottom}, {x, bottom - heights[i] * radius}, width), bars);
    }
}

// The word "sorvel" in strokes, from the left edge x at the given baseline.
void drawWordmark(Canvas& canvas, float x, float baseline, float height, float stroke, const Colour& colour)
{
    const float top = baseline - height, half = stroke / 2, gap = stroke;
    // s
    const float sWidth = height * 0.72f;
    canvas.fill(Sdf::polyline({{x + sWidth - half, top + half},
                               {x + half, top + half},
                               {x + half, top + height / 2},
                               {x + sWidth - half, top + height / 2},
                               {x + sWidth - half, baseline - half},
                               {x + half, baseline - half}},
                              stroke),
                colour);
    x += sWidth + gap;
    // o
    canvas.fill(Sdf::ring(x + height / 2, top + height / 2, height / 2 - half, stroke), colour);
    x += height + gap;
    // r
    canvas.fill(Sdf::line({x + half, top + half}, {x + half, baseline - half}, stroke), colour);
    canvas.fill(Sdf::polyline(arc(x + height * 0.5f, top + height * 0.5f, height * 0.5f - half, 180, 270, 12), stroke),
                colour);
    x += height * 0.5f + gap;
    // v
    const float vWidth = height * 0.85f;
    canvas.fill(
        Sdf::polyline({{x + half, top + half}, {x + vWidth / 2, baseline - half}, {x + vWidth - half, top + half}},
                      stroke),
        colour);
    x += vWidth + gap;
    // e
    const float cx = x + height / 2, cy = top + height / 2, radius = height / 2 - half;
    canvas.fill(Sdf::line({x + half, cy}, {x + height - half, cy}, stroke), colour);
    canvas.fill(Sdf::polyline(arc(cx, cy, radius, 0, -305, 36), stroke), colour);
    x += height + gap;
    // l
    canvas.fill(Sdf::line({x + half, baseline - half}, {x + half, top - height * 0.55f}, stroke), colour);
}

// A rounded button face with a 1-pixel border, filled with a gradient.
void drawButtonFace(Canvas& canvas, float top, float width, float height, const Colour& upper, const Colour& lower,
                    const Colour& border)
{
    canvas.fill(Sdf::box(width / 2, top + height / 2, width / 2 - 0.5f, height / 2 - 0.5f, 4), border);
    canvas.fill(Sdf::box(width / 2, top + height / 2, width / 2 - 1.5f, height / 2 - 1.5f, 3),
                Canvas::verticalGradient(upper, lower, top, top + height));
}

void drawTextBox(Canvas& canvas, const Colour& border, const Colour& inside)
{
    const float w = canvas.width() / 2.0f, h = canvas.height() / 2.0f;
    canvas.fill(Sdf::box(w, h, w - 0.5f, h - 0.5f, 3), border);
    canvas.fill(Sdf::box(w, h, w - 1.5f, h - 1.5f, 2.2f), inside);
}

Canvas actionIcons()
{
    Canvas canvas(5 * 24, 24);
    // bulb
    canvas.fill(
        Sdf::unite(Sdf::circle(12, 10, 6.5f), Sdf::polygon({{8.2f, 12.5f}, {15.8f, 12.5f}, {14.6f, 17}, {9.4f, 17}})),
        kGold);
    canvas.fill(Sdf::box(12, 18.8f, 3, 1, 0.8f), kSlate);
    canvas.fill(Sdf::box(12, 21, 2, 0.9f, 0.7f), kSlate);
    canvas.fill(Sdf::polyline(arc(12, 10, 4, 200, 260, 8), 1.3f), kWhite.withAlpha(0.7f));
    // check
    canvas.fill(Sdf::circle(36, 12, 10), kGreen);
    canvas.fill(Sdf::polyline({{31, 12.5f}, {34.5f, 16}, {41, 8.5f}}, 2.6f), kWhite);
    // music
    canvas.fill(Sdf::circle(56, 17.5f, 3), kPurple);
    canvas.fill(Sdf::circle(65, 15.5f, 3), kPurple);
    canvas.fill(Sdf::line({58.6f, 17.5f}, {58.6f, 6}, 1.8f), kPurple);
    canvas.fill(Sdf::line({67.6f, 15.5f}, {67.6f, 4}, 1.8f), kPurple);
    canvas.fill(Sdf::polygon({{57.7f, 5}, {68.5f, 3}, {68.5f, 6.2f}, {57.7f, 8.2f}}), kPurple);
    // star
    std::vector<Sdf::Point> star;
    for (int i = 0; i < 10; ++i)
    {
        const float angle = -kPi / 2 + i * kPi / 5, radius = i % 2 == 0 ? 10.5f : 4.3f;
        star.emplace_back(84 + radius * std::cos(angle), 12.8f + radius * std::sin(angle));
    }
    canvas.fill(Sdf::polygon(star), kGold);
    // thumb
    canvas.fill(Sdf::box(101, 15.5f, 2.5f, 6, 1), kSlate);
    canvas.fill(Sdf::unite(Sdf::box(110, 15.5f, 5.8f, 6, 2.5f), Sdf::line({108.5f, 10.5f}, {109.8f, 4.2f}, 4)),
                kAccent);
    return canvas;
}

Canvas statsIcons()
{
    Canvas canvas(3 * 24, 24);
    // followers
    canvas.fill(Sdf::circle(15.5f, 7.5f, 3.2f), kSlate);
    canvas.fill(Sdf::box(15.5f, 16.5f, 5.5f, 4.5f, 4), kSlate);
    canvas.fill(Sdf::circle(9.5f, 9, 3.6f), kAccent);
    canvas.fill(Sdf::box(9.5f, 18.5f, 6.2f, 4.5f, 4.5f), kAccent);
    // sales
    canvas.fill(Sdf::box(30, 18, 2, 4, 0.8f), kAccent);
    canvas.fill(Sdf::box(36, 15.5f, 2, 6.5f, 0.8f), kAccent);
    canvas.fill(Sdf::box(42, 12.5f, 2, 9.5f, 0.8f), kAccent);
    canvas.fill(Sdf::polyline({{27, 11}, {33, 6}, {37, 8}, {44, 2.5f}}, 1.5f), kGreen);
    // promos
    canvas.fill(Sdf::polygon({{52, 10}, {57, 10}, {66, 4.5f}, {66, 19.5f}, {57, 14}, {52, 14}}), kAccent);
    canvas.fill(Sdf::box(56, 17.5f, 1.5f, 3, 0.8f), kSlate);
    canvas.fill(Sdf::line({68.5f, 9}, {70, 8}, 1.4f), kSlate);
    canvas.fill(Sdf::line({68.5f, 12}, {70.5f, 12}, 1.4f), kSlate);
    canvas.fill(Sdf::line({68.5f, 15}, {70, 16}, 1.4f), kSlate);
    return canvas;
}

Canvas busy()
{
    constexpr int kFrames = 17, kDots = 12;
    Canvas canvas(kFrames * 16, 16);
    for (int frame = 0; frame < kFrames; ++frame)
    {
        const float head = 2 * kPi * frame / kFrames;
        for (int dot = 0; dot < kDots; ++dot)
        {
            const float angle = 2 * kPi * dot / kDots;
            const float behind = std::fmod(head - angle + 4 * kPi, 2 * kPi) / (2 * kPi);
            const float cx = frame * 16 + 8 + 5.5f * std::sin(angle), cy = 8 - 5.5f * std::cos(angle);
            canvas.fill(Sdf::circle(cx, cy, 1.3f), kAccent.withAlpha(std::max(0.15f, 1 - behind)));
        }
    }
    return canvas;
}

Canvas gadgetButton()
{
    Canvas canvas(32, 64);
    const Colour faces[2][2] = {{Colour::rgb(0xa3abb3), Colour::rgb(0x7b848d)},
                                {Colour::rgb(0x2bb2e8), Colour::rgb(0x0b86bb)}};
    for (int frame = 0; frame < 2; ++frame)
    {
        const float top = frame * 32.0f;
        canvas.fill(Sdf::box(16, top + 16, 14.5f, 14.5f, 6),
                    Canvas::verticalGradient(faces[frame][0], faces[frame][1], top, top + 32));
        const float heights[] = {7, 13, 9};
        for (int i = 0; i < 3; ++i)
            canvas.fill(Sdf::line({10.0f + 6 * i, top + 22}, {10.0f + 6 * i, top + 22 - heights[i]}, 3.6f), kWhite);
    }
    return canvas;
}

Canvas background()
{
    Canvas canvas(16, 512);
    canvas.fill(whole(canvas), Canvas::verticalGradient(Colour::rgb(0xf5f7f9), Colour::rgb(0xe2e7ec), 0, 512));
    return canvas;
}

Canvas backgroundLogIn()
{
    Canvas canvas(284, 176);
    canvas.fill(whole(canvas), Canvas::verticalGradient(kNavy, Colour::rgb(0x0d3a66), 0, 176));
    canvas.fill(Sdf::circle(240, 30, 70), kWhite.withAlpha(0.05f));
    canvas.fill(Sdf::circle(30, 170, 90), kAccent.withAlpha(0.10f));
    canvas.fill(Sdf::circle(200, 160, 40), kAccent.withAlpha(0.08f));
    return canvas;
}

Canvas headlines()
{
    Canvas canvas(16, 32);
    canvas.fill(whole(canvas), Canvas::verticalGradient(Colour::rgb(0x22303d), Colour::rgb(0x141d26), 0, 32));
    canvas.fill(Sdf::box(8, 0.5f, 8, 0.5f, 0), kWhite.withAlpha(0.12f));
    return canvas;
}

Canvas listHeader()
{
    Canvas canvas(16, 26);
    canvas.fill(whole(canvas), Canvas::verticalGradient(Colour::rgb(0xf0f3f6), Colour::rgb(0xdbe1e7), 0, 26));
    canvas.fill(Sdf::box(8, 25.5f, 8, 0.5f, 0), kBorder);
    return canvas;
}

Canvas twoStateButton(int width, const Colour& upper, const Colour& lower, const Colour& border)
{
    Canvas canvas(width, 52);
    drawButtonFace(canvas, 0, float(width), 26, upper, lower, border);
    drawButtonFace(canvas, 26, float(width), 26, lower, lower.mix(Colour::rgb(0), 0.25f), border);
    return canvas;
}

Canvas sorvelLogo()
{
    Canvas canvas(150, 40);
    drawMark(canvas, 20, 20, 16, kAccent, kWhite);
    drawWordmark(canvas, 44, 29, 15, 3.2f, kWhite);
    return canvas;
}

Canvas mark(int size)
{
    Canvas canvas(size, size);
    drawMark(canvas, size / 2.0f, size / 2.0f, size / 2.0f - 0.5f, kAccent, kWhite);
    return canvas;
}

Canvas productIcon()
{
    Canvas canvas(16, 16);
    canvas.fill(Sdf::circle(8, 8, 7), kNavy);
    canvas.fill(Sdf::ring(8, 8, 4.6f, 0.8f), kSlate.withAlpha(0.6f));
    canvas.fill(Sdf::subtract(Sdf::circle(8, 8, 2.2f), Sdf::circle(8, 8, 0.8f)), kAccent);
    return canvas;
}

Canvas trackIcon()
{
    Canvas canvas(16, 16);
    canvas.fill(Sdf::circle(6, 12.5f, 2.8f), kPurple);
    canvas.fill(Sdf::line({8.2f, 12.5f}, {8.2f, 2.5f}, 1.6f), kPurple);
    canvas.fill(Sdf::polyline({{8.2f, 2.5f}, {12, 5.2f}, {12, 8}}, 1.6f), kPurple);
    return canvas;
}

Canvas uploadIcon()
{
    Canvas canvas(16, 16);
    canvas.fill(Sdf::polygon({{8, 1.5f}, {13, 7}, {10, 7}, {10, 10.5f}, {6, 10.5f}, {6, 7}, {3, 7}}), kWhite);
    canvas.fill(Sdf::polyline({{2.5f, 10}, {2.5f, 13.5f}, {13.5f, 13.5f}, {13.5f, 10}}, 1.6f), kWhite);
    return canvas;
}

Canvas linkIcon()
{
    Canvas canvas(12, 12);
    canvas.fill(Sdf::polyline({{4, 2.5f}, {8, 6}, {4, 9.5f}}, 2), kAccent);
    return canvas;
}

Canvas textBox(bool onDark)
{
    Canvas canvas(140, 26);
    if (onDark)
        drawTextBox(canvas, kAccent.withAlpha(0.9f), kWhite.withAlpha(0.95f));
    else
        drawTextBox(canvas, kBorder, kWhite);
    return canvas;
}

struct Picture
{
    const char* file;
    Canvas canvas;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: sorvel-artwork FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = std::filesystem::path(argv[1]) / "images";
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
    {
        std::fprintf(stderr, "sorvel-artwork: cannot make %s: %s\n", folder.c_str(), error.message().c_str());
        return 1;
    }

    const Picture pictures[] = {
        {"ActionIcons.png", actionIcons()},
        {"Background.png", background()},
        {"BackgroundLogIn.png", backgroundLogIn()},
        {"BGHeadlines.png", headlines()},
        {"busy.png", busy()},
        {"DarkButton.png", twoStateButton(120, kDeepBlue, kNavy, Colour::rgb(0x021030))},
        {"GadgetButton.png", gadgetButton()},
        {"GadgetMenuIcon.png", mark(16)},
        {"LinkIcon.png", linkIcon()},
        {"ListHeaderSorvel.png", listHeader()},
        {"LogButton.png", twoStateButton(140, Colour::rgb(0x27b0e6), Colour::rgb(0x0b86bb), Colour::rgb(0x0a6f9c))},
        {"SorvelIcon.png", mark(32)},
        {"SorvelLogo.png", sorvelLogo()},
        {"ProductIcon.png", productIcon()},
        {"StatsIcons.png", statsIcons()},
        {"TextBoxBack.png", textBox(false)},
        {"TextBoxBackStart.png", textBox(true)},
        {"TrackIcon.png", trackIcon()},
        {"UploadIcon.png", uploadIcon()},
    };
    for (const Picture& picture : pictures)
    {
        const std::string path = (folder / picture.file).string();
        if (!PngWriter::write(path, picture.canvas.width(), picture.canvas.height(), picture.canvas.pixels()))
        {
            std::fprintf(stderr, "sorvel-artwork: cannot write %s\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
