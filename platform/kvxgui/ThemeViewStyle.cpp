#include "platform/kvxgui/ThemeViewStyle.h"

namespace KVX::Gui {

KVX_DEFINE_CLASS(ThemeViewStyle, Object, "ThemeViewStyle")

tresult ThemeViewStyle::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IViewStyle)
    return Object::queryInterface(iid, object);
}

// An empty style name would make the theme look among its colour resources instead of a style;
// a view style without a name has no entries.

tresult ThemeViewStyle::getColor(const char* name, uint32& rgba)
{
    return name && !name_.empty() ? theme_->getColor(name_.c_str(), name, rgba) : kInvalidArgument;
}

tresult ThemeViewStyle::getMetric(const char* name, double& value)
{
    return name && !name_.empty() ? theme_->getMetric(name_.c_str(), name, value) : kInvalidArgument;
}

tresult ThemeViewStyle::getFont(const char* name, FontRecord& font)
{
    return name && !name_.empty() ? theme_->getFont(name_.c_str(), name, font) : kInvalidArgument;
}

} // namespace KVX::Gui
