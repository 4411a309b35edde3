#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/IDragSession.h"
#include "framework/interfaces/IGraphicsPort.h"
#include "framework/interfaces/IItemView.h"
#include "framework/interfaces/IViewStyle.h"
#include "framework/interfaces/RectRecord.h"
#include "framework/interfaces/ValueRecord.h"

#include <type_traits>

namespace KVX {

/// One column of a list as a view shows it. The texts belong to the model and stay valid until
/// its columns change.
struct ColumnRecord
{
    enum Flags : uint32
    {
        kSizable = 1 << 0,  ///< the user may change its width
        kEditable = 1 << 1, ///< a click in one of its cells opens the cell's editor
    };

    int32 width;            ///< in pixels
    const char* title;      ///< the header's text (UTF-8, may be empty)
    const char* identifier; ///< what the model calls the column ("status")
    uint32 flags;           ///< Flags
};

static_assert(std::is_trivially_copyable_v<ColumnRecord> && std::is_standard_layout_v<ColumnRecord>);

/// A list of rows with columns, as the host's list view sees the model behind it. The model
/// draws its own cells through the port the view hands it, answers tooltips, decides removals
/// and drops, and reacts to clicks. Observers are added through its ISubject: "changed" when its
/// rows changed (the view reads them again), "selectionChanged" after the view reported a new
/// selection.
///
/// User-interface thread. Rows and columns are counted from 0; a row index out of range is
/// answered with kInvalidArgument and changes nothing. Texts handed out stay valid until the
/// next call of the same operation on this model.
class IItemModel : public IUnknown
{
public:
    // Views
    /// Attaches `view`, which the model retains until detachView, so that it can read the
    /// selection and ask for redraws; one view at a time (a second replaces the first). The view
    /// must detach before it goes away, since the two keep each other alive while attached.
    virtual tresult attachView(IItemView* view) = 0;
    /// Detaches `view`; kInvalidArgument when it is not the attached view.
    virtual tresult detachView(IItemView* view) = 0;
    /// The attached view's selection changed; the model tells its observers.
    virtual tresult onSelectionChanged() = 0;

    // Columns
    virtual int32 countColumns() = 0;
    virtual tresult getColumn(int32 column, ColumnRecord& record) = 0;

    // Rows
    virtual int32 countRows() = 0;
    /// The row as an object, for a drag that starts on it; no reference is passed. Null when out
    /// of range.
    virtual IUnknown* getRowObject(int32 row) = 0;
    virtual tresult getRowTitle(int32 row, const char*& title) = 0;
    /// The name of the theme image shown as the row's icon ("" for none).
    virtual tresult getRowIcon(int32 row, const char*& imageName) = 0;
    /// The row's yes/no flag: 1 or 0.
    virtual tresult getRowFlag(int32 row, int32& flag) = 0;
    /// The tooltip of a cell. kInvalidArgument when the cell has none (an empty text is a
    /// tooltip that shows nothing).
    virtual tresult getTooltip(int32 row, int32 column, const char*& text) = 0;
    /// The value behind a cell, for a host that acts on what a row is rather than on the words
    /// its painting shows (which a language file may translate). Each model says what its
    /// columns hold. A text in `value` stays valid until the next call of this operation; no
    /// object is handed out. kInvalidArgument when the cell has no value.
    virtual tresult getCellValue(int32 row, int32 column, ValueRecord& value) = 0;

    // Editing
    /// kResultOk when the row may be removed now; kInvalidArgument when not.
    virtual tresult canRemoveRow(int32 row) = 0;
    /// Removes the row, or what of it may go. kResultOk when something was removed.
    virtual tresult removeRow(int32 row) = 0;
    /// Whether a drop of `session`'s objects at `row` (-1 when not on a row) would be taken.
    /// kResultOk when it would; the model then sets the session's drop result and drag image.
    /// A null session asks only whether the model takes drops at all now.
    virtual tresult canAcceptDrop(int32 row, IDragSession* session) = 0;
    /// Takes the drop of `session`'s objects at `row` (-1 when not on a row). kResultOk when it
    /// was taken; kInvalidArgument when it was refused as a whole.
    virtual tresult acceptDrop(int32 row, IDragSession* session) = 0;
    /// A click in a cell. kResultOk when the model handled it; kInvalidArgument when the view
    /// should do what it does by default (select the row).
    virtual tresult clickCell(int32 row, int32 column) = 0;
    /// Draws the cell's content into `rect` of `port` in `style`; the view has drawn the row's
    /// background and draws the selection and grid itself.
    virtual tresult paintCell(int32 row, int32 column, const RectRecord& rect, IGraphicsPort* port,
                              IViewStyle* style) = 0;

    static constexpr UID kIID = UID::fromString("{A5D83E16-4B7C-4F92-8E3A-0C61F7B29D48}");
};

} // namespace KVX
