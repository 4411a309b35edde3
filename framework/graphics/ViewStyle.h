#pragma once

#include "framework/core/Object.h"
#include "framework/interfaces/IViewStyle.h"
#include "framework/text/CString.h"

#include <map>
#include <string>

namespace KVX {

/// A view style as a plain record of named colours, metrics and fonts, for a view that has no
/// theme behind it (a program drawing a picture, a test). A themed view gets its styles from
/// the theme instead (the graphics module's createViewStyle). User-interface thread.
class ViewStyle : public Object, public IViewStyle
{
    KVX_DECLARE_CLASS(ViewStyle, Object)
public:
    explicit ViewStyle(std::string_view name) : name_(name) {}

    ViewStyle& setColor(std::string_view name, uint32 rgba);
    ViewStyle& setMetric(std::string_view name, double value);
    ViewStyle& setFont(std::string_view name, const FontRecord& font);
    /// A font record of `face` (cut to fit the record), `size` and style bits.
    static FontRecord makeFont(std::string_view face, double size, uint32 style = FontRecord::kNormal);

    const char* getStyleName() override { return name_.c_str(); }
    tresult getColor(const char* name, uint32& rgba) override;
    tresult getMetric(const char* name, double& value) override;
    tresult getFont(const char* name, FontRecord& font) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    CString name_;
    std::map<std::string, uint32, std::less<>> colors_;
    std::map<std::string, double, std::less<>> metrics_;
    std::map<std::string, FontRecord, std::less<>> fonts_;
};

} // namespace KVX
