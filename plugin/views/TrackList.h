#pragma once

#include "framework/list/ListViewModel.h"
#include "plugin/views/IUploadState.h"
#include "plugin/views/TrackItem.h"

namespace Sorvel {

/// The model of the gadget's track table: each row a TrackItem pairing a track of the chosen
/// product with a local file to upload. Columns, in order: "remove" (an "X" on rows with a file),
/// "remote_track" (the track's title), "local_track" (the file's path) and "status" (the row's
/// state on a coloured bar that doubles as the progress bar of the file being uploaded).
///
/// While an upload runs, removals and drops are refused; whether one runs is asked, at each
/// use, of the IUploadState that the owner hands over. Rows are filled by the owner, by the
/// publishing target, and by dropping audio files or rows onto the table.
///
/// Signals: "changed" when rows were added or removed, "selectionChanged" when the view's
/// selection changed (the owner then updates the inspector). User-interface thread.
class TrackList : public KVX::ListViewModel
{
    KVX_DECLARE_CLASS(TrackList, KVX::ListViewModel)
public:
    /// Creates the four columns. `uploadState` (retained; may be null: never uploading) is the
    /// owner's answer to whether an upload runs. An owner that implements it itself is kept
    /// alive by the table until it calls setUploadState(nullptr) as it closes.
    explicit TrackList(IUploadState* uploadState = nullptr);

    void setUploadState(IUploadState* uploadState) { uploadState_ = uploadState; }
    bool isUploading() const;

    /// The row at `index` as a TrackItem, or null.
    TrackItem* getTrackItem(KVX::int32 index) const;

    /// The row whose file is being uploaded now, or null.
    TrackItem* getCurrentItem() const { return currentItem_; }
    /// Makes `item` (retained; null for none) the current row; when it differs from the
    /// current one, the progress goes back to 0 and the view draws again.
    void setCurrentItem(TrackItem* item);
    /// The upload progress of the current row, 0 to 1.
    double getProgress() const { return progress_; }
    /// Sets the progress (clamped to 0 to 1) and asks the view to draw again.
    void setProgress(double progress);

    /// The first row, in row order, with a remote track and no file whose remote track is
    /// called as `track` is; null when there is none.
    TrackItem* findRemoteOnlyRowByName(const Track& track) const;
    /// Removes every row that holds neither a file nor a remote track; true when any went.
    /// Observers are not told; the caller signals after its own changes.
    bool removeEmptyRows();

    KVX::String getColumnTitle(KVX::int32 index) const override;
    /// Every row shows the theme image "TrackIcon".
    KVX::CString getItemIcon(KVX::ListViewItem& item) override;
    /// Set only on rows that hold a file (and whose own flag is set).
    bool getItemFlag(KVX::ListViewItem& item) override;
    /// A row with a file may lose it while no upload runs.
    bool canRemoveItem(KVX::ListViewItem& item) override;
    /// Drops the row's file; the row stays as a remote-only row when it has a remote track and
    /// goes otherwise. False while an upload runs or when the row has no file.
    bool removeItem(KVX::ListViewItem& item) override;
    /// Takes drops of rows of this table and of audio files, not while an upload runs; refuses a
    /// drop holding anything else as a whole. Sets the session's drag image (the source's
    /// picture) and its result (kDropLink: the table refers to the files where they are).
    bool canInsertData(KVX::int32 index, KVX::IDragSession* session) override;
    /// Moves the dropped rows' files to the rows from `index` (-1: the first to a new row at
    /// the end, the next ones to rows 0, 1, ...), removes the rows left empty, then puts the
    /// dropped audio files on the rows from `index` (0 when -1) down, appending rows as needed,
    /// and selects the first row that took something. Objects of other kinds are skipped.
    bool insertData(KVX::int32 index, KVX::IDragSession* session) override;
    /// A click in the "remove" column removes the row's file.
    bool onCellClicked(KVX::ListViewItem& item, KVX::int32 column) override;
    bool drawCell(KVX::ListViewItem& item, KVX::ListCell& cell) override;

    /// The status cell of `row`: its text, bar and text colour names, and how much of the cell
    /// the bar fills (0 to 1).
    struct Status
    {
        KVX::String text;
        const char* barColor;
        const char* textColor;
        double fill;
    };
    Status getStatus(const TrackItem& row) const;

private:
    void drawStatus(const TrackItem& row, KVX::ListCell& cell) const;
    /// Whether `object` is an audio file, and where.
    static bool isAudioFile(KVX::IUnknown* object, KVX::Url& url);

    KVX::Ref<IUploadState> uploadState_;
    KVX::Ref<TrackItem> currentItem_;
    double progress_ = 0;
};

} // namespace Sorvel
