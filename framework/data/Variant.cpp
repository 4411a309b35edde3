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

void Variant::toRecord(ValueRecord& record) const
{
    record = ValueRecord{};
    record.type = type();
    switch (type())
    {
    case kInt:
        record.intValue = std::get<int64>(value_);
        break;
    case kDouble:
        record.doubleValue = std::get<double>(value_);
        break;
    case kString:
    {
        const std::string& text = std::get<String>(value_).toUtf8();
        record.text = text.c_str();
        record.textLength = text.size();
        break;
    }
    case kObject:
        record.object = std::get<Ref<IUnknown>>(value_).get();
        break;
    default:
        break;
    }
}

Variant Variant::fromRecord(const ValueRecord& record)
{
    switch (record.type)
    {
    case ValueRecord::kInt:
        return Variant(record.intValue);
    case ValueRecord::kDouble:
        return Variant(record.doubleValue);
    case ValueRecord::kString:
        return Variant(String::fromUtf8(std::string_view(record.text ? record.text : "",
                                                         record.text ? record.textLength : 0)));
    case ValueRecord::kObject:
        return Variant(record.object);
    default:
        return Variant();
    }
}

} // namespace KVX
