#include "plugin/views/TrackItem.h"

#include "plugin/shell/Texts.h"

#include "framework/interfaces/TrackRowState.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(TrackItem, ListViewItem, "TrackItem")

String TrackItem::getLocalPathText() const
{
    if (!localTrack_)
        return {};
    const Url& url = localTrack_->url;
    return url.protocol() == "file" ? url.nativePath() : url.toDisplayString();
}

namespace {

double widthOf(const String& text, IGraphicsPort& port, const FontRecord& font)
{
    double width = 0;
    port.measureText(text.toUtf8().c_str(), font, width);
    return width;
}

} // namespace

String TrackItem::shortenPath(const String& path, double width, IGraphicsPort& port, const FontRecord& font)
{
    if (widthOf(path, port, font) <= width)
        return path;
    const String ellipsis(kEllipsis);
    const double available = width - widthOf(ellipsis, port, font);

    // The fewest leading characters whose removal makes the rest fit. The width of what is left
    // only shrinks as characters go, so a binary search finds the same cut as dropping them one
    // by one, with a handful of measurements instead of one per character.
    size_t fits = path.length(); // dropping every character always fits: nothing is left
    size_t tooFew = 0;           // dropping none does not fit (checked above)
    while (fits - tooFew > 1)
    {
        const size_t middle = tooFew + (fits - tooFew) / 2;
        if (widthOf(path.substring(middle), port, font) <= available)
            fits = middle;
        else
            tooFew = middle;
    }
    return ellipsis + path.substring(fits);
}

bool TrackItem::drawCell(ListCell& cell)
{
    if (cell.columnId() != kLocalTrackColumn || !localTrack_)
        return ListViewItem::drawCell(cell);
    const String path = getLocalPathText();
    if (path.isEmpty())
        return ListViewItem::drawCell(cell);

    const uint32 fontStyle =
        localTrack_->uploadState == LocalTrack::kUploading ? cell.style().font("activefont").style : cell.fontStyle();
    cell.drawText(shortenPath(path, cell.width(), cell.port(), cell.textFont(fontStyle)), fontStyle, false);
    return true;
}

bool TrackItem::getTooltip(String& tooltip, std::string_view columnId) const
{
    if (columnId == kRemoveColumn)
    {
        tooltip = localTrack_ ? Texts::translate(Engine::TextKeys::kRemove) : String();
        return true;
    }
    if (localTrack_ && localTrack_->incompatible)
    {
        tooltip = Texts::translate(Engine::TextKeys::kFormatNotSupported);
        return true;
    }
    if (columnId == kRemoteTrackColumn)
    {
        tooltip = remoteTrack_ ? remoteTrack_->name : localTrack_ ? localTrack_->name : String();
        return true;
    }
    if (columnId == kLocalTrackColumn && localTrack_)
    {
        tooltip = getLocalPathText();
        return true;
    }
    return false;
}

static_assert(int32(LocalTrack::kNotUploaded) == int32(Engine::kRowWaiting) &&
                  int32(LocalTrack::kUploading) == int32(Engine::kRowUploading) &&
                  int32(LocalTrack::kUploaded) == int32(Engine::kRowUploaded) &&
                  int32(LocalTrack::kUploadFailed) == int32(Engine::kRowFailed),
              "a row's state value is its file's upload state");

bool TrackItem::getValue(Variant& value, std::string_view columnId) const
{
    if (columnId == kStatusColumn)
    {
        if (!localTrack_)
            value = static_cast<int32>(Engine::kRowOnService);
        else if (localTrack_->incompatible)
            value = static_cast<int32>(Engine::kRowUnsupportedFormat);
        else
            value = static_cast<int32>(localTrack_->uploadState); // the track table's own 0 to 3
        return true;
    }
    if (columnId == kRemoteTrackColumn && remoteTrack_)
    {
        value = remoteTrack_->name;
        return true;
    }
    if (columnId == kLocalTrackColumn && localTrack_)
    {
        value = getLocalPathText();
        return true;
    }
    return false;
}

} // namespace Sorvel
