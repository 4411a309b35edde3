#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IViewStyle.h"

#include <string>

namespace KVX::Gui {

/// One style of a loaded theme as a view reads it: every lookup goes to the theme, which
/// follows the style's inheritance. Keeps the theme alive. User-interface thread.
class ThemeViewStyle : public Object, public IViewStyle
{
    KVX_DECLARE_CLASS(ThemeViewStyle, Object)
public:
    ThemeViewStyle(ITheme* theme, const char* styleName) : theme_(theme), name_(styleName ? styleName : "") {}

    const char* getStyleName() override { return name_.c_str(); }
    tresult getColor(const char* name, uint32& rgba) override;
    tresult getMetric(const char* name, double& value) override;
    tresult getFont(const char* name, FontRecord& font) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    Ref<ITheme> theme_;
    std::string name_;
};

} // namespace KVX::Gui
