#include "host/app/CellReader.h"

#include "framework/core/Ref.h"
#include "framework/services/GuiServices.h"

#include <algorithm>

namespace Host {

using namespace KVX;

Ref<IViewStyle> CellReader::trackListStyle()
{
    IViewStyle* style = nullptr;
    if (IGraphicsHelper* helper = GetGraphicsHelper();
        helper && helper->createViewStyle("sorvel", "TrackList", &style) == kResultOk)
        return Ref<IViewStyle>::adopt(style);
    return {};
}

CellReader::Cell CellReader::read(IItemModel& model, int32 row, int32 column, int32 width, IViewStyle* style)
{
    auto reader = makeRef<CellReader>();
    reader->cell_ = RectRecord{0, 0, std::max(width, 1), 26};
    model.paintCell(row, column, reader->cell_, reader, style);
    return reader->read_;
}

tresult CellReader::fillRect(const RectRecord& rect, uint32 rgba)
{
    const double cellWidth = cell_.right - cell_.left;
    const double covered = std::clamp(rect.right, cell_.left, cell_.right) - std::clamp(rect.left, cell_.left, cell_.right);
    if (covered / cellWidth > read_.fill)
    {
        read_.fill = covered / cellWidth;
        read_.fillColor = rgba;
    }
    return kResultOk;
}

tresult CellReader::drawText(const RectRecord&, const char* text, const FontRecord& font, uint32, int32)
{
    if (!text)
        return kInvalidArgument;
    if (!read_.text.empty())
        read_.text += ' ';
    read_.text += text;
    read_.bold = read_.bold || (font.style & FontRecord::kBold) != 0;
    return kResultOk;
}

tresult CellReader::measureText(const char* text, const FontRecord& font, double& width)
{
    width = 0;
    if (!text)
        return kInvalidArgument;
    if (IGraphicsHelper* helper = GetGraphicsHelper())
        return helper->measureText(text, font, width);
    width = 7.0 * std::char_traits<char>::length(text); // an average Arial letter at 12 points
    return kResultOk;
}

tresult CellReader::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IGraphicsPort)
    return Object::queryInterface(iid, object);
}

} // namespace Host
