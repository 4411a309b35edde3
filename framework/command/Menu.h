#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/ICommandHandler.h"
#include "framework/interfaces/IMenu.h"
#include "framework/text/String.h"

#include <vector>

namespace KVX {

/// A menu built by a module for the host to show: entries of icon, title, command category and
/// name, and the handler that checks (for the enabled state) and runs the command.
/// User-interface thread.
class Menu : public Object, public IMenu
{
    KVX_DECLARE_CLASS(Menu, Object)
public:
    struct Entry
    {
        String title;
        CString icon;
        CString category;
        CString name;
        Ref<ICommandHandler> handler;
    };

    /// Appends an entry; `handler` is retained (an entry without one is never enabled).
    void addEntry(const String& title, std::string_view icon, std::string_view category, std::string_view name,
                  ICommandHandler* handler);
    /// Gives the entry at `index` the theme image `icon`; false when there is no such entry.
    bool setIcon(int32 index, std::string_view icon);
    int32 count() const { return static_cast<int32>(entries_.size()); }
    /// The entry at `index`, or null.
    const Entry* at(int32 index) const;
    /// Asks the entry's handler whether its command could run now.
    bool isEnabled(int32 index) const;
    /// Runs the entry's command if it is enabled; false when it is not, or the command failed.
    bool choose(int32 index);

    int32 countEntries() override { return count(); }
    tresult getEntry(int32 index, MenuEntryRecord& entry) override;
    tresult chooseEntry(int32 index) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    tresult run(const Entry& entry, bool checkOnly) const;

    std::vector<Entry> entries_;
};

} // namespace KVX
