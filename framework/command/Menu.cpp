#include "framework/command/Menu.h"

namespace KVX {

KVX_DEFINE_CLASS(Menu, Object, "Menu")

tresult Menu::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IMenu)
    return Object::queryInterface(iid, object);
}

void Menu::addEntry(const String& title, std::string_view icon, std::string_view category, std::string_view name,
                    ICommandHandler* handler)
{
    entries_.push_back({title, CString(icon), CString(category), CString(name), Ref<ICommandHandler>(handler)});
}

bool Menu::setIcon(int32 index, std::string_view icon)
{
    if (index < 0 || index >= count())
        return false;
    entries_[static_cast<size_t>(index)].icon = CString(icon);
    return true;
}

const Menu::Entry* Menu::at(int32 index) const
{
    return index >= 0 && index < count() ? &entries_[static_cast<size_t>(index)] : nullptr;
}

tresult Menu::run(const Entry& entry, bool checkOnly) const
{
    if (!entry.handler)
        return kInvalidArgument;
    // The handler may change the menu while it runs, so it is asked with copies.
    const CString category = entry.category;
    const CString name = entry.name;
    Ref<ICommandHandler> handler = entry.handler;
    return handler->interpretCommand({category.c_str(), name.c_str(), checkOnly ? 1 : 0});
}

bool Menu::isEnabled(int32 index) const
{
    const Entry* entry = at(index);
    return entry && run(*entry, true) == kResultOk;
}

bool Menu::choose(int32 index)
{
    return chooseEntry(index) == kResultOk;
}

tresult Menu::getEntry(int32 index, MenuEntryRecord& record)
{
    // The check runs first: a handler that adds entries would move the texts handed out.
    const bool enabled = isEnabled(index);
    const Entry* entry = at(index);
    if (!entry)
        return kInvalidArgument;
    record.title = entry->title.toUtf8().c_str();
    record.icon = entry->icon.c_str();
    record.category = entry->category.c_str();
    record.name = entry->name.c_str();
    record.enabled = enabled ? 1 : 0;
    return kResultOk;
}

tresult Menu::chooseEntry(int32 index)
{
    const Entry* entry = at(index);
    if (!entry)
        return kInvalidArgument;
    const Entry chosen = *entry; // the handler may change the menu
    if (run(chosen, true) != kResultOk)
        return kInvalidArgument;
    return run(chosen, false) == kResultOk ? kResultOk : kUnexpected;
}

} // namespace KVX
