#pragma once

#include "framework/interfaces/IItemModel.h"

namespace KVX::Gui {

/// Draws a list model the way the host's list view shows it: a header with the column titles,
/// then the rows, each cell drawn by the model. Columns keep their widths; cells are inset by
/// half the style's "columnSpacing" on either side. User-interface thread.
class ListViewPainter
{
public:
    ListViewPainter(IItemModel& model, IViewStyle& style, IViewStyle* headerStyle)
        : model_(model), style_(style), headerStyle_(headerStyle)
    {
    }

    void draw(IGraphicsPort& port, const RectRecord& area);

private:
    int32 drawHeader(IGraphicsPort& port, const RectRecord& area);
    void drawRows(IGraphicsPort& port, const RectRecord& area, int32 top);

    IItemModel& model_;
    IViewStyle& style_;
    IViewStyle* headerStyle_;
};

} // namespace KVX::Gui
