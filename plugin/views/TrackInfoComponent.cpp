#include "plugin/views/TrackInfoComponent.h"

#include "framework/component/Signals.h"
#include "framework/text/NumberFormat.h"
#include "plugin/shell/Texts.h"
#include "plugin/views/ITrackListOwner.h"
#include "plugin/views/TrackList.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(TrackInfoComponent, Component, "TrackInfoComponent")

namespace {

/// Appends `value` to `text`, with "; " between them when both have something.
void join(String& text, const String& value)
{
    if (value.isEmpty())
        return;
    if (!text.isEmpty())
        text += String("; ");
    text += value;
}

String yearText(int32 year)
{
    return year > 0 ? String(NumberFormat::formatInt64(year).view()) : String();
}

/// Joins the six fields that every selected row shares, in tag order from kYear.
void joinSharedFields(std::array<String, 8>& texts, const Track& track)
{
    join(texts[TrackInfoComponent::kYear], yearText(track.year));
    join(texts[TrackInfoComponent::kGenre], track.genre);
    join(texts[TrackInfoComponent::kComment], track.comment);
    join(texts[TrackInfoComponent::kArranger], track.arranger);
    join(texts[TrackInfoComponent::kComposer], track.composer);
    join(texts[TrackInfoComponent::kSongwriter], track.songwriter);
}

bool isNewRow(const TrackItem& row)
{
    return row.getLocalTrack() && !row.getRemoteTrack();
}

} // namespace

TrackInfoComponent::TrackInfoComponent() : Component("TrackInfo")
{
    addParameter(Parameter::kString, "name", kName);
    addParameter(Parameter::kString, "isrc", kIsrc);
    addParameter(Parameter::kString, "year", kYear);
    addParameter(Parameter::kString, "genre", kGenre);
    addParameter(Parameter::kString, "comment", kComment);
    addParameter(Parameter::kString, "arranger", kArranger);
    addParameter(Parameter::kString, "composer", kComposer);
    addParameter(Parameter::kString, "songwriter", kSongwriter);
    update();
}

TrackList* TrackInfoComponent::findTrackList() const
{
    if (!parent())
        return nullptr;
    void* owner = nullptr;
    if (parent()->queryInterface(ITrackListOwner::kIID, &owner) != kResultOk)
        return nullptr;
    return Ref<ITrackListOwner>::adopt(static_cast<ITrackListOwner*>(owner))->getTrackList();
}

void TrackInfoComponent::update()
{
    const bool wasUpdating = updating_;
    updating_ = true;
    hasFocusItem_ = false;

    Ref<TrackList> trackList = findTrackList();
    TypedObjectArray<ListViewItem> selection;
    if (trackList)
        trackList->getSelectedItems(selection);

    std::vector<Ref<TrackItem>> rows;
    for (ListViewItem* item : selection)
        if (auto* row = object_cast<TrackItem>(item))
            rows.emplace_back(row);

    if (!rows.empty())
    {
        int newRows = 0;
        for (const Ref<TrackItem>& row : rows)
            if (isNewRow(*row) && ++newRows == 2)
                break;
        const bool hasNewRow = newRows > 0;
        const bool multiple = newRows > 1;

        std::array<String, 8> texts;
        std::optional<bool> titleEnabled; // untouched unless a row decides
        for (const Ref<TrackItem>& row : rows)
        {
            LocalTrack* file = row->getLocalTrack();
            Track* remote = row->getRemoteTrack();
            if (!remote || hasNewRow)
            {
                // Files whose upload has ended contribute only their title and ISRC.
                if (file && !remote && file->uploadState < LocalTrack::kUploaded)
                    joinSharedFields(texts, *file);
            }
            else
            {
                joinSharedFields(texts, *remote);
            }

            if (multiple)
            {
                texts[kName] = texts[kIsrc] = Texts::translate(Engine::TextKeys::kMultipleTracks);
                titleEnabled = false;
            }
            else if (file && !remote)
            {
                texts[kName] = file->name;
                texts[kIsrc] = file->isrc;
                titleEnabled = hasNewRow;
            }
            else if (remote && !hasNewRow)
            {
                join(texts[kName], remote->name);
                join(texts[kIsrc], remote->isrc);
                titleEnabled = false;
            }
        }

        for (int32 tag = kName; tag <= kSongwriter; ++tag)
            findParameter(tag)->setValue(texts[static_cast<size_t>(tag)]);
        if (titleEnabled)
        {
            findParameter(kName)->enable(*titleEnabled);
            findParameter(kIsrc)->enable(*titleEnabled);
        }
        for (int32 tag = kYear; tag <= kSongwriter; ++tag)
            findParameter(tag)->enable(hasNewRow);
        hasFocusItem_ = true;
    }

    signal(Signals::kChanged);
    updating_ = wasUpdating;
}

bool TrackInfoComponent::paramChanged(Parameter& parameter)
{
    if (updating_)
        return true;
    Ref<TrackList> trackList = findTrackList();
    TypedObjectArray<ListViewItem> selection;
    if (trackList)
        trackList->getSelectedItems(selection);
    if (selection.isEmpty())
    {
        update();
        return true;
    }

    const bool multiple = selection.count() > 1;
    const int32 tag = parameter.tag();
    const String text = parameter.stringValue();
    for (ListViewItem* item : selection)
    {
        auto* row = object_cast<TrackItem>(item);
        Track* target = !row ? nullptr : row->getLocalTrack() ? row->getLocalTrack() : row->getRemoteTrack();
        if (!target)
            continue;
        switch (tag)
        {
        case kName:
            if (multiple)
                break;
            // A new title only needs the table drawn again: the inspector already shows it.
            target->name = text;
            trackList->invalidate();
            return true;
        case kIsrc:
            if (!multiple)
                target->isrc = text;
            break;
        case kYear:
            target->year = static_cast<int32>(std::clamp<int64>(NumberFormat::toInt64(text.toUtf8()),
                                                                std::numeric_limits<int32>::min(),
                                                                std::numeric_limits<int32>::max()));
            break;
        case kGenre:
            target->genre = text;
            break;
        case kComment:
            target->comment = text;
            break;
        case kArranger:
            target->arranger = text;
            break;
        case kComposer:
            target->composer = text;
            break;
        case kSongwriter:
            target->songwriter = text;
            break;
        default:
            break;
        }
    }
    trackList->invalidate();
    update();
    return true;
}

bool TrackInfoComponent::getProperty(Variant& value, std::string_view name) const
{
    if (name == "hasFocusItem")
    {
        value = hasFocusItem_ ? 1 : 0;
        return true;
    }
    return Component::getProperty(value, name);
}

} // namespace Sorvel
