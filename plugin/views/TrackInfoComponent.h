#pragma once

#include "framework/component/Component.h"

namespace Sorvel {

class TrackList;

/// The track inspector ("TrackInfo"): shows the metadata of the rows selected in the track
/// table and writes edits back into them. Rows that hold a file and no remote track ("new"
/// rows) make the shared fields editable; with two or more of them the title and ISRC read
/// "Multiple Tracks Selected" and cannot be edited. Edits of the shared fields go to every
/// selected row (its file, or its remote track when it has none). The table is found through
/// the parent, which offers ITrackListOwner, at each use.
///
/// Property "hasFocusItem": 1 while a selection is shown, so that the form shows the fields
/// instead of "No track selected". User-interface thread.
class TrackInfoComponent : public KVX::Component
{
    KVX_DECLARE_CLASS(TrackInfoComponent, KVX::Component)
public:
    enum Tags : KVX::int32
    {
        kName = 0,
        kIsrc = 1,
        kYear = 2,
        kGenre = 3,
        kComment = 4,
        kArranger = 5,
        kComposer = 6,
        kSongwriter = 7,
    };

    /// Names the component "TrackInfo", adds the eight text parameters and updates once.
    TrackInfoComponent();

    /// Refills the parameters from the table's selection; with no selection the texts stay and
    /// hasFocusItem is 0. Signals "changed" in either case. The owner calls it whenever the
    /// table's selection changes.
    void update();
    bool hasFocusItem() const { return hasFocusItem_; }

    /// An edit of one of the parameters, written into the selected rows.
    bool paramChanged(KVX::Parameter& parameter) override;
    /// "hasFocusItem", then the base's.
    bool getProperty(KVX::Variant& value, std::string_view name) const override;

private:
    TrackList* findTrackList() const;

    bool hasFocusItem_ = false;
    bool updating_ = false;
};

} // namespace Sorvel
