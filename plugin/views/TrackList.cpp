#include "plugin/views/TrackList.h"

#include "framework/data/UrlObject.h"
#include "framework/services/SystemServices.h"
#include "framework/text/TextFormatter.h"
#include "plugin/shell/Texts.h"

#include <algorithm>
#include <limits>
#include <vector>

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(TrackList, ListViewModel, "TrackList")

TrackList::TrackList(IUploadState* uploadState) : uploadState_(uploadState)
{
    columns().addColumn(20, String(), TrackItem::kRemoveColumn);
    columns().addColumn(200, Engine::TextKeys::kTrackColumn, TrackItem::kRemoteTrackColumn, ColumnList::kSizable);
    columns().addColumn(300, Engine::TextKeys::kFileColumn, TrackItem::kLocalTrackColumn, ColumnList::kSizable);
    columns().addColumn(200, Engine::TextKeys::kStateColumn, TrackItem::kStatusColumn);
}

bool TrackList::isUploading() const
{
    return uploadState_ && uploadState_->isUploading();
}

TrackItem* TrackList::getTrackItem(int32 index) const
{
    return object_cast<TrackItem>(getItem(index));
}

void TrackList::setCurrentItem(TrackItem* item)
{
    if (item == currentItem_.get())
        return;
    currentItem_ = item;
    progress_ = 0;
    invalidate();
}

void TrackList::setProgress(double progress)
{
    progress_ = progress > 0 ? std::min(progress, 1.0) : 0.0; // NaN counts as 0
    invalidate();
}

TrackItem* TrackList::findRemoteOnlyRowByName(const Track& track) const
{
    for (int32 index = 0; index < countItems(); ++index)
    {
        TrackItem* row = getTrackItem(index);
        if (row && !row->getLocalTrack() && row->getRemoteTrack() && row->getRemoteTrack()->name == track.name)
            return row;
    }
    return nullptr;
}

bool TrackList::removeEmptyRows()
{
    bool removed = false;
    for (int32 index = countItems() - 1; index >= 0; --index)
    {
        TrackItem* row = getTrackItem(index);
        if (row && row->isEmpty())
            removed = removeFromList(row) || removed;
    }
    return removed;
}

String TrackList::getColumnTitle(int32 index) const
{
    const String title = ListViewModel::getColumnTitle(index);
    return title.isEmpty() ? title : Texts::translate(title);
}

CString TrackList::getItemIcon(ListViewItem&)
{
    return "TrackIcon";
}

bool TrackList::getItemFlag(ListViewItem& item)
{
    auto* row = object_cast<TrackItem>(&item);
    return item.flag() && row && row->getLocalTrack();
}

bool TrackList::canRemoveItem(ListViewItem& item)
{
    auto* row = object_cast<TrackItem>(&item);
    return !isUploading() && row && row->getLocalTrack();
}

bool TrackList::removeItem(ListViewItem& item)
{
    auto* row = object_cast<TrackItem>(&item);
    if (isUploading() || !row || !row->getLocalTrack())
        return false;
    row->setLocalTrack(nullptr);
    if (row->getRemoteTrack())
    {
        invalidate();
        return true;
    }
    Ref<TrackItem> keep(row);
    removeFromList(row);
    signalItemsChanged();
    return true;
}

bool TrackList::isAudioFile(IUnknown* object, Url& url)
{
    if (!UrlObject::fromUnknown(object, url))
        return false;
    const std::string extension = url.extension().toUtf8();
    FileType type{};
    return !extension.empty() && GetFileTypeRegistry()->getFileTypeByExtension(extension.c_str(), type) == kResultOk &&
           type.category == FileType::kCategoryAudio;
}

bool TrackList::canInsertData(int32, IDragSession* session)
{
    if (isUploading())
        return false;
    if (!session)
        return true;
    const int32 count = session->countItems();
    for (int32 index = 0; index < count; ++index)
    {
        IUnknown* object = session->getItem(index);
        Url url;
        if (!unknown_cast<TrackItem>(object) && !isAudioFile(object, url))
            return false;
    }
    session->setDragImage(session->getSourceImage());
    session->setDropResult(kDropLink);
    return true;
}

bool TrackList::insertData(int32 index, IDragSession* session)
{
    if (isUploading())
        return false;

    std::vector<Ref<TrackItem>> movedRows;
    std::vector<Ref<LocalTrack>> newFiles;
    const int32 count = session ? session->countItems() : 0;
    for (int32 position = 0; position < count; ++position)
    {
        IUnknown* object = session->getItem(position);
        Url url;
        if (TrackItem* row = unknown_cast<TrackItem>(object))
            movedRows.emplace_back(row);
        else if (isAudioFile(object, url))
            newFiles.push_back(LocalTrack::createFromFile(url));
    }

    // Indices are computed in 64 bits: a host may hand any row number, and a row past the end
    // simply means "append".
    auto rowAt = [this](int64 target) -> TrackItem* {
        return target >= 0 && target <= std::numeric_limits<int32>::max() ? getTrackItem(static_cast<int32>(target))
                                                                          : nullptr;
    };
    auto rowAtOrAppended = [&](int64 target) -> TrackItem* {
        if (TrackItem* row = rowAt(target))
            return row;
        auto fresh = makeRef<TrackItem>();
        appendItem(fresh);
        return fresh;
    };

    bool changed = false;
    std::vector<Ref<TrackItem>> targets;

    int64 moved = 0;
    for (const Ref<TrackItem>& dragged : movedRows)
    {
        Ref<LocalTrack> file = dragged->getLocalTrack();
        if (!file)
            continue;
        const int64 target = int64(index) + moved;
        if (rowAt(target) == dragged.get())
            continue;
        TrackItem* row = rowAtOrAppended(target);
        row->setLocalTrack(file);
        dragged->setLocalTrack(nullptr);
        file->uploadState = LocalTrack::kNotUploaded;
        ++moved;
        changed = true;
        targets.emplace_back(row);
    }

    changed = removeEmptyRows() || changed;

    const int64 first = index < 0 ? 0 : index;
    for (size_t n = 0; n < newFiles.size(); ++n)
    {
        TrackItem* row = rowAtOrAppended(first + int64(n));
        row->setLocalTrack(newFiles[n]);
        changed = true;
        targets.emplace_back(row);
    }

    if (changed)
        signalItemsChanged();

    // The first row that took something is selected, where it stands now that empty rows are
    // gone.
    int32 selected = -1;
    for (const Ref<TrackItem>& row : targets)
    {
        const int32 position = indexOf(row);
        if (position >= 0 && (selected < 0 || position < selected))
            selected = position;
    }
    if (selected >= 0)
        selectRow(selected);
    return true;
}

bool TrackList::onCellClicked(ListViewItem& item, int32 column)
{
    const ColumnList::Column* info = columns().at(column);
    if (info && info->identifier == TrackItem::kRemoveColumn)
        return removeItem(item);
    return ListViewModel::onCellClicked(item, column);
}

TrackList::Status TrackList::getStatus(const TrackItem& row) const
{
    const LocalTrack* file = row.getLocalTrack();
    if (!file)
        return {Texts::translate(Engine::TextKeys::kUploaded), "onserver", "status", 1};
    if (file->incompatible)
        return {Texts::translate(Engine::TextKeys::kInvalidFormat), "error", "status", 1};

    const bool replaces = row.getRemoteTrack() != nullptr;
    const String base = Texts::translate(replaces ? Engine::TextKeys::kReplace : Engine::TextKeys::kAdd);
    const char* baseColor = replaces ? "replace" : "upload";
    const String separator(" - ");
    switch (file->uploadState)
    {
    case LocalTrack::kUploaded:
        return {base + separator + Texts::translate(Engine::TextKeys::kUploadComplete), "success", "status", 1};
    case LocalTrack::kUploadFailed:
        return {base + separator + Texts::translate(Engine::TextKeys::kUploadFailedState), "error", "status", 1};
    case LocalTrack::kUploading:
        if (&row == currentItem_.get())
        {
            const double percent = static_cast<float>(progress_ * 100);
            const String uploaded = TextFormatter::format(Texts::translate(Engine::TextKeys::kPercentUploaded), {Variant(percent)});
            return {base + separator + uploaded, "uploading", "statusup", progress_};
        }
        break;
    default:
        break;
    }
    return {base, baseColor, "status", 1};
}

void TrackList::drawStatus(const TrackItem& row, ListCell& cell) const
{
    const Status status = getStatus(row);
    cell.fill(status.fill, cell.style().color(status.barColor));
    cell.drawText(status.text, cell.fontStyle(), cell.style().color(status.textColor), IGraphicsPort::kAlignCenter);
}

bool TrackList::drawCell(ListViewItem& item, ListCell& cell)
{
    auto* row = object_cast<TrackItem>(&item);
    if (!row)
        return ListViewModel::drawCell(item, cell);

    const bool current = row == currentItem_.get();
    cell.setFontStyle(current ? cell.style().font("activefont").style : uint32(FontRecord::kNormal));
    LocalTrack* file = row->getLocalTrack();
    Track* remote = row->getRemoteTrack();
    const CString& column = cell.columnId();

    if (column == TrackItem::kRemoveColumn)
    {
        if (!file)
            return false;
        cell.drawText("X", cell.fontStyle(), true, IGraphicsPort::kAlignCenter);
        return true;
    }
    if (column == TrackItem::kLocalTrackColumn)
        return file && row->drawCell(cell);
    if (column == TrackItem::kRemoteTrackColumn)
    {
        if (remote)
            drawText(cell, remote->name, cell.fontStyle(), file == nullptr);
        else if (file)
            drawText(cell, file->name, cell.fontStyle(), false);
        return remote || file;
    }
    if (column == TrackItem::kStatusColumn)
    {
        drawStatus(*row, cell);
        return true;
    }
    return ListViewModel::drawCell(item, cell);
}

} // namespace Sorvel
