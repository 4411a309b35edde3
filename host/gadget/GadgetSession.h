#pragma once

#include "framework/data/Attributes.h"

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/IItemModel.h"
#include "framework/interfaces/IMenu.h"
#include "framework/interfaces/IObserver.h"
#include "host/gadget/GadgetPage.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Host {

class TableView;

/// The live side of the gadget's page, on the user-interface thread: reads what the page's
/// elements bind (parameter values and enabled states, properties, the track table as the
/// model draws it) into one JSON document, carries the page's input back to the components,
/// and notices through the components' signals when the page must be told.
class GadgetSession : public KVX::Object, public KVX::IObserver
{
public:
    /// Binds `page` to the gadget `root` (retained until close), whose theme is `themeName`.
    GadgetSession(KVX::IComponent* root, const GadgetPage& page, std::string themeName);
    ~GadgetSession() override;

    /// Stops observing and lets go of the components and the table views.
    void close();

    /// Everything the page shows now, as JSON: "values" (per parameter key: "v" value, "on"
    /// enabled, "e" list entries, "m" menu entries the controller added), "props" and "lists".
    /// The value of a password field is never part of it.
    std::string state();

    // The page's input. Each answers "" when it was taken, or why not.
    std::string setValue(const std::string& key, const std::string& value, bool notify);
    std::string press(const std::string& key);
    /// The select box's menu entry `index`: a list entry selects it, an added entry runs its command.
    std::string chooseMenuEntry(const std::string& key, int index);
    /// A click at (`row`, `column`) of a list: the model's own reaction (the remove column), else
    /// the selection changes as a list view's does with shift (range) and ctrl (toggle).
    std::string clickCell(const std::string& key, int row, int column, bool shift, bool ctrl);
    /// The selection changed from the keyboard: `row` alone, or with shift the range from the row
    /// last chosen, or with ctrl toggled, as a click would; the model's own reaction to a click in
    /// a cell (the remove column) is not asked for.
    std::string selectRow(const std::string& key, int row, bool shift, bool ctrl);
    /// A column dragged to `width` pixels, if the model lets the user size it.
    std::string resizeColumn(const std::string& key, int column, int width);
    /// `rows` removed, as far as the model lets them go; the selected rows when `rows` is empty
    /// (the Delete key).
    std::string removeRows(const std::string& key, std::vector<int> rows);
    /// Rows of the list dragged onto `row` (-1: after the last).
    std::string moveRows(const std::string& key, const std::vector<int>& rows, int row);
    /// Files (paths on this machine) dropped onto `row` of the list from outside.
    std::string dropFiles(const std::string& key, const std::vector<std::string>& paths, int row);

    /// The key of the list bound to the component's object `name` ("trackList"); "" when the
    /// page has none.
    std::string listKey(const std::string& name) const;
    /// The rows selected in the list `key`, in the order they were selected.
    std::vector<int> selectedRows(const std::string& key) const;
    /// Selects exactly `rows` of the list `key` (none: nothing), as the page's clicks would, so
    /// that the components hear of it.
    void selectRows(const std::string& key, const std::vector<int>& rows);

    /// The pre-flight report of each file the host rendered, by the file's path as the table's
    /// file column names it: rows listing such a file carry it in the state, for a badge and for
    /// the figures shown beside the inspector.
    void setFileReports(std::map<std::string, KVX::Ref<KVX::Attributes>> reports) { fileReports_ = std::move(reports); }
    /// The report of the file at `path`, or nothing.
    KVX::Attributes* fileReport(const std::string& path) const;

    /// What the host notes of a track of the product that holds no file, by the track's name: a
    /// document like a pre-flight report ("check", "findings") shown as the row's badge and read
    /// in the grid's first column. Setting other notes redraws the table.
    void setTrackNotes(std::map<std::string, KVX::Ref<KVX::Attributes>> notes);
    KVX::Attributes* trackNote(const std::string& name) const;

    /// Called with a button's key when the page presses it, before the button acts: the host
    /// learns of an upload before its first request leaves.
    std::function<void(const std::string& key)> beforePress;

    /// An event for the page besides the state (an alert, an address to open, "activate").
    void queueEvent(const std::string& name, const std::string& data);
    /// What the page must be sent now: the queued events, then, when a component signalled and
    /// the state differs from what was sent last, the state under the name of the signal seen
    /// ("changed", "propertyChanged" or "progress").
    std::vector<std::pair<std::string, std::string>> takeEvents();
    /// Whether takeEvents has something to look at.
    bool hasPending() const { return !events_.empty() || !pendingSignal_.empty(); }
    /// Whether what is pending must not wait: an alert, or a property's change (a phase, the
    /// start or end of an upload), which the page must not see merged into what follows it.
    bool hasUrgent() const { return !events_.empty() || pendingSignal_ == "propertyChanged"; }

    void notify(KVX::ISubject* subject, KVX::IMessage& message) override;
    void tableInvalidated();
    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Object::retain(); }
    KVX::uint32 release() override { return Object::release(); }

private:
    KVX::IComponent* componentAt(const std::string& controller) const;
    KVX::IParameter* parameterOf(const std::string& key, KVX::IComponent** owner = nullptr) const;
    TableView* tableOf(const std::string& key) const;
    void observe(KVX::IUnknown* object);
    /// The select box menu of `binding`: the list's entries, then what the controller adds.
    KVX::Ref<KVX::IMenu> menuOf(const PageBinding& binding, KVX::IParameter& parameter) const;

    KVX::Ref<KVX::IComponent> root_;
    std::map<std::string, PageBinding> bindings_;
    std::string themeName_;
    std::vector<KVX::Ref<KVX::IUnknown>> observed_;
    std::map<std::string, KVX::Ref<TableView>> tables_;
    std::vector<std::pair<std::string, std::string>> events_;
    std::string pendingSignal_;
    std::string lastState_;
    std::map<std::string, KVX::Ref<KVX::Attributes>> fileReports_;
    std::map<std::string, KVX::Ref<KVX::Attributes>> trackNotes_;
};

} // namespace Host
