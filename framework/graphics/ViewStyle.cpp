#include "framework/graphics/ViewStyle.h"

#include <algorithm>
#include <cstring>

namespace KVX {

KVX_DEFINE_CLASS(ViewStyle, Object, "ViewStyle")

tresult ViewStyle::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IViewStyle)
    return Object::queryInterface(iid, object);
}

ViewStyle& ViewStyle::setColor(std::string_view name, uint32 rgba)
{
    colors_.insert_or_assign(std::string(name), rgba);
    return *this;
}

ViewStyle& ViewStyle::setMetric(std::string_view name, double value)
{
    metrics_.insert_or_assign(std::string(name), value);
    return *this;
}

ViewStyle& ViewStyle::setFont(std::string_view name, const FontRecord& font)
{
    fonts_.insert_or_assign(std::string(name), font);
    return *this;
}

FontRecord ViewStyle::makeFont(std::string_view face, double size, uint32 style)
{
    FontRecord font{};
    const size_t length = std::min(face.size(), sizeof font.face - 1);
    std::memcpy(font.face, face.data(), length);
    font.face[length] = 0;
    font.size = size;
    font.style = style;
    return font;
}

namespace {

template <class Map, class Value> tresult lookUp(const Map& map, const char* name, Value& value)
{
    if (!name)
        return kInvalidArgument;
    auto found = map.find(std::string_view(name));
    if (found == map.end())
        return kInvalidArgument;
    value = found->second;
    return kResultOk;
}

} // namespace

tresult ViewStyle::getColor(const char* name, uint32& rgba)
{
    return lookUp(colors_, name, rgba);
}

tresult ViewStyle::getMetric(const char* name, double& value)
{
    return lookUp(metrics_, name, value);
}

tresult ViewStyle::getFont(const char* name, FontRecord& font)
{
    return lookUp(fonts_, name, font);
}

} // namespace KVX
