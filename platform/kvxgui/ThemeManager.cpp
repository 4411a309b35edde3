#include "platform/kvxgui/ThemeManager.h"

namespace KVX::Gui {

KVX_DEFINE_CLASS(ThemeManager, Object, "ThemeManager")

tresult ThemeManager::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IThemeManager)
    return Object::queryInterface(iid, object);
}

tresult ThemeManager::loadTheme(const char* themeName, const void* data, uint64 size)
{
    if (!themeName || !*themeName || (!data && size > 0))
        return kInvalidArgument;
    Ref<Theme> theme = Theme::create({static_cast<const uint8*>(data), static_cast<size_t>(size)});
    if (!theme)
        return kInvalidArgument;
    Ref<Theme> replaced; // released after the lock
    std::lock_guard lock(mutex_);
    Ref<Theme>& slot = themes_[themeName];
    replaced = std::move(slot);
    slot = std::move(theme);
    return kResultOk;
}

ITheme* ThemeManager::getTheme(const char* themeName)
{
    if (!themeName)
        return nullptr;
    std::lock_guard lock(mutex_);
    const auto found = themes_.find(themeName);
    return found == themes_.end() ? nullptr : found->second.get();
}

} // namespace KVX::Gui
