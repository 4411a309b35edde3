#pragma once

#include "framework/core/IUnknown.h"

#include <type_traits>

namespace KVX {

/// One entry of a menu as the host shows it. The texts belong to the menu and stay valid as
/// long as it lives.
struct MenuEntryRecord
{
    const char* title;    ///< what the entry reads (UTF-8)
    const char* icon;     ///< the name of a theme image, "" for none
    const char* category; ///< the command's category
    const char* name;     ///< the command's name
    int32 enabled;        ///< 1 when the entry can be chosen now
};

static_assert(std::is_trivially_copyable_v<MenuEntryRecord> && std::is_standard_layout_v<MenuEntryRecord>);

/// A menu that a module fills (a list's context menu) and the host shows: entries with a
/// title, an icon and a command, each enabled as its target decides when asked.
/// User-interface thread.
class IMenu : public IUnknown
{
public:
    virtual int32 countEntries() = 0;
    /// The entry at `index`, its enabled state checked at this call. kInvalidArgument out of
    /// range.
    virtual tresult getEntry(int32 index, MenuEntryRecord& entry) = 0;
    /// The user chose the entry at `index`: its command runs if it is enabled. kInvalidArgument
    /// when out of range or disabled; kUnexpected when the command failed.
    virtual tresult chooseEntry(int32 index) = 0;

    static constexpr UID kIID = UID::fromString("{B3F17C48-2D95-4E6A-9C03-D8A4E6F1B572}");
};

} // namespace KVX
