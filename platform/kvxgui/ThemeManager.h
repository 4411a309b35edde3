#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IThemeManager.h"
#include "platform/kvxgui/Theme.h"

#include <map>
#include <mutex>
#include <string>

namespace KVX::Gui {

/// IThemeManager: the themes that modules loaded, by name. Loading under a name that is taken
/// replaces the earlier theme, which lives on while someone retains it.
class ThemeManager : public Object, public IThemeManager
{
    KVX_DECLARE_CLASS(ThemeManager, Object)
public:
    tresult loadTheme(const char* themeName, const void* data, uint64 size) override;
    ITheme* getTheme(const char* themeName) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::mutex mutex_;
    std::map<std::string, Ref<Theme>> themes_;
};

} // namespace KVX::Gui
