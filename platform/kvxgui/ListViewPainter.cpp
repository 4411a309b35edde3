#include "platform/kvxgui/ListViewPainter.h"

#include <algorithm>
#include <cmath>

namespace KVX::Gui {

namespace {

constexpr uint32 kBlack = 0x000000FF;
constexpr uint32 kWhite = 0xFFFFFFFF;

uint32 colorOf(IViewStyle& style, const char* name, uint32 fallback)
{
    uint32 rgba = fallback;
    return style.getColor(name, rgba) == kResultOk ? rgba : fallback;
}

int32 metricOf(IViewStyle& style, const char* name, int32 fallback)
{
    double value = fallback;
    if (style.getMetric(name, value) != kResultOk || !(value >= 0 && value < 10000))
        return fallback;
    return static_cast<int32>(std::lround(value));
}

FontRecord fontOf(IViewStyle& style, const char* name)
{
    FontRecord font{"Sans", 12, FontRecord::kNormal};
    style.getFont(name, font);
    return font;
}

} // namespace

void ListViewPainter::draw(IGraphicsPort& port, const RectRecord& area)
{
    port.fillRect(area, colorOf(style_, "backcolor", kWhite));
    drawRows(port, area, drawHeader(port, area));
}

int32 ListViewPainter::drawHeader(IGraphicsPort& port, const RectRecord& area)
{
    if (!headerStyle_)
        return area.top;
    const int32 height = metricOf(*headerStyle_, "headerHeight", 20);
    const RectRecord header{area.left, area.top, area.right, std::min(area.bottom, area.top + height)};
    port.fillRect(header, colorOf(*headerStyle_, "backcolor", kWhite));
    const FontRecord font = fontOf(*headerStyle_, "textfont");
    const uint32 text = colorOf(*headerStyle_, "textcolor", kBlack);
    const uint32 line = colorOf(style_, "gridcolor", kBlack);
    const int32 padding = metricOf(style_, "columnSpacing", 0) / 2 + 2;

    int32 left = area.left;
    for (int32 column = 0; column < model_.countColumns() && left < area.right; ++column)
    {
        ColumnRecord record{};
        if (model_.getColumn(column, record) != kResultOk)
            continue;
        const int32 right = std::min(area.right, left + std::max(record.width, 0));
        port.drawText({left + padding, header.top, right - padding, header.bottom}, record.title ? record.title : "",
                      font, text, IGraphicsPort::kAlignLeft);
        port.fillRect({right - 1, header.top + 4, right, header.bottom - 4}, line);
        left = right;
    }
    port.fillRect({area.left, header.bottom - 1, area.right, header.bottom}, line);
    return header.bottom;
}

void ListViewPainter::drawRows(IGraphicsPort& port, const RectRecord& area, int32 top)
{
    const int32 height = std::max(metricOf(style_, "rowHeight", 20), 1);
    const int32 inset = metricOf(style_, "columnSpacing", 0) / 2;
    const uint32 background = colorOf(style_, "backcolor", kWhite);
    const uint32 line = colorOf(style_, "gridcolor", kBlack);

    for (int32 row = 0; row < model_.countRows() && top < area.bottom; ++row, top += height)
    {
        const int32 bottom = std::min(area.bottom, top + height);
        port.fillRect({area.left, top, area.right, bottom}, background);
        int32 left = area.left;
        for (int32 column = 0; column < model_.countColumns() && left < area.right; ++column)
        {
            ColumnRecord record{};
            if (model_.getColumn(column, record) != kResultOk)
                continue;
            const int32 right = std::min(area.right, left + std::max(record.width, 0));
            model_.paintCell(row, column, {left + inset, top, right - inset, bottom - 1}, &port, &style_);
            left = right;
        }
        port.fillRect({area.left, bottom - 1, area.right, bottom}, line);
    }
}

} // namespace KVX::Gui
