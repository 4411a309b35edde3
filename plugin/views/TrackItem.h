#pragma once

#include "framework/list/ListViewItem.h"
#include "plugin/catalogue/LocalTrack.h"

namespace Sorvel {

/// One row of the track table: at most one track that the chosen product already has on the
/// service and at most one local audio file to upload. Which of the two it holds decides the
/// row's status; the row draws its file column itself (shortening a long path at its start, so
/// that the file name stays visible) and answers the tooltips of its cells. A row with neither
/// is empty, and the table removes it. Registered as "TrackItem", so that a row dragged within
/// the table is recognised when it is dropped. User-interface thread.
class TrackItem : public KVX::ListViewItem
{
    KVX_DECLARE_CLASS(TrackItem, KVX::ListViewItem)
public:
    /// The table's column identifiers.
    static constexpr const char* kRemoveColumn = "remove";
    static constexpr const char* kRemoteTrackColumn = "remote_track";
    static constexpr const char* kLocalTrackColumn = "local_track";
    static constexpr const char* kStatusColumn = "status";
    /// What stands in front of a path that was shortened.
    static constexpr const char* kEllipsis = "(..)";

    TrackItem() = default;
    /// A copy shares both tracks (one more reference to each).
    TrackItem(const TrackItem& other) = default;

    LocalTrack* getLocalTrack() const { return localTrack_; }
    void setLocalTrack(LocalTrack* track) { localTrack_ = track; }
    Track* getRemoteTrack() const { return remoteTrack_; }
    void setRemoteTrack(Track* track) { remoteTrack_ = track; }
    bool isEmpty() const { return !localTrack_ && !remoteTrack_; }

    /// The text by which the row shows its file, in the cell and in the tooltip alike: the path
    /// as the system writes it for a file URL, else the whole URL. Empty without a file.
    KVX::String getLocalPathText() const;
    /// `path` as it fits into `width` pixels in `font` on `port`: unchanged when it fits, else
    /// "(..)" followed by as much of its end as fits beside it.
    static KVX::String shortenPath(const KVX::String& path, double width, KVX::IGraphicsPort& port,
                                   const KVX::FontRecord& font);

    /// Draws the "local_track" cell (the file's path, bold while it uploads); other cells, and a
    /// row without a file, as the base does.
    bool drawCell(KVX::ListCell& cell) override;
    bool getTooltip(KVX::String& tooltip, std::string_view columnId) const override;
    /// What a host acts on (Engine::TrackRowState): the state of the row in "status", the
    /// product's track name in "remote_track", the file's whole path in "local_track".
    bool getValue(KVX::Variant& value, std::string_view columnId) const override;

private:
    KVX::Ref<LocalTrack> localTrack_;
    KVX::Ref<Track> remoteTrack_;
};

} // namespace Sorvel
