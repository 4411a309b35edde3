#include "framework/data/Attributes.h"

#include "framework/data/AttributeArray.h"

#include <algorithm>
#include <limits>

namespace KVX {

KVX_DEFINE_CLASS(Attributes, Object, "Attributes")

void Attributes::set(std::string_view name, const Variant& value)
{
    auto first = std::find_if(members_.begin(), members_.end(), [&](const Member& m) { return m.name == name; });
    if (first == members_.end())
    {
        members_.push_back({AttributeName(name), value});
        return;
    }
    first->value = value;
    members_.erase(std::remove_if(first + 1, members_.end(), [&](const Member& m) { return m.name == name; }),
                   members_.end());
}

void Attributes::add(std::string_view name, const Variant& value)
{
    members_.push_back({AttributeName(name), value});
}

bool Attributes::remove(std::string_view name)
{
    auto newEnd = std::remove_if(members_.begin(), members_.end(), [&](const Member& m) { return m.name == name; });
    bool removed = newEnd != members_.end();
    members_.erase(newEnd, members_.end());
    return removed;
}

void Attributes::addAll(const Attributes& other)
{
    if (&other == this)
    {
        auto copy = members_;
        members_.insert(members_.end(), copy.begin(), copy.end());
        return;
    }
    members_.insert(members_.end(), other.members_.begin(), other.members_.end());
}

const Variant* Attributes::find(std::string_view name) const
{
    for (const Member& m : members_)
        if (m.name == name)
            return &m.value;
    return nullptr;
}

int64 Attributes::getInt64(std::string_view name) const
{
    const Variant* v = find(name);
    return v ? v->asInt() : 0;
}

int32 Attributes::getInt(std::string_view name) const
{
    int64 value = getInt64(name);
    return static_cast<int32>(std::clamp<int64>(value, std::numeric_limits<int32>::min(),
                                                std::numeric_limits<int32>::max()));
}

double Attributes::getDouble(std::string_view name) const
{
    const Variant* v = find(name);
    return v ? v->asDouble() : 0.0;
}

String Attributes::getString(std::string_view name) const
{
    const Variant* v = find(name);
    return v ? v->toString() : String();
}

Attributes* Attributes::getAttributes(std::string_view name) const
{
    const Variant* v = find(name);
    return v ? v->asObject<Attributes>() : nullptr;
}

AttributeArray* Attributes::getArray(std::string_view name) const
{
    const Variant* v = find(name);
    return v ? v->asObject<AttributeArray>() : nullptr;
}

} // namespace KVX
