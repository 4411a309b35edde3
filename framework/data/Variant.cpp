#include "framework/data/Variant.h"

#include "framework/text/NumberFormat.h"

namespace KVX {

int64 Variant::asInt() const
{
    if (auto* i = std::get_if<int64>(&value_))
        return *i;
    if (auto* d = std::get_if<double>(&value_))
        return NumberFormat::truncate(*d);
    return 0;
}

double Variant::asDouble() const
{
    if (auto* d = std::get_if<double>(&value_))
        return *d;
    if (auto* i = std::get_if<int64>(&value_))
        return static_cast<double>(*i);
    return 0.0;
}

String Variant::toString() const
{
    switch (type())
    {
    case kInt:
        return String(NumberFormat::formatInt64(std::get<int64>(value_)).view());
    case kDouble:
        return String(NumberFormat::formatDouble(std::get<double>(value_)).view());
    case kString:
        return std::get<String>(value_);
    default:
        return String();
    }
}

const String& Variant::asString() const
{
    static const String empty;
    auto* s = std::get_if<String>(&value_);
    return s ? *s : empty;
}

IUnknown* Variant::asUnknown() const
{
    auto* o = std::get_if<Ref<IUnknown>>(&value_);
    return o ? o->get() : nullptr;
}

} // namespace KVX
