#include "host/app/JsonOutput.h"
#include "host/app/Complaint.h"

#include "framework/data/AttributeArray.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace Host {

using namespace KVX;

JsonOutput::Value JsonOutput::text(std::string_view value)
{
    const String valid = String::fromUtf8(value);
    return Value(valid.toUtf8().data(), static_cast<rapidjson::SizeType>(valid.toUtf8().size()), allocator());
}

void JsonOutput::set(Value& object, std::string_view key, Value value)
{
    if (auto found = object.FindMember(Value(rapidjson::StringRef(key.data(), key.size()))); found != object.MemberEnd())
        found->value = value;
    else
        object.AddMember(text(key), value, allocator());
}

JsonOutput::Value JsonOutput::fromVariant(const Variant& value)
{
    switch (value.type())
    {
    case Variant::kInt:
        return Value(static_cast<int64_t>(value.asInt()));
    case Variant::kDouble:
        return Value(value.asDouble());
    case Variant::kString:
        return text(value.asString().toUtf8());
    case Variant::kObject:
        if (const Attributes* nested = value.asObject<Attributes>())
            return from(*nested);
        if (const AttributeArray* list = value.asObject<AttributeArray>())
        {
            Value result = array();
            for (size_t i = 0; i < list->count(); ++i)
                append(result, fromVariant(list->at(i)));
            return result;
        }
        return Value();
    default:
        return Value();
    }
}

JsonOutput::Value JsonOutput::from(const Attributes& attributes)
{
    Value result = object();
    for (const Attributes::Member& member : attributes)
        set(result, member.name.view(), fromVariant(member.value));
    return result;
}

std::string JsonOutput::toText() const
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document_.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

namespace {

unsigned printed = 0;

} // namespace

unsigned JsonOutput::printedCount()
{
    return printed;
}

void JsonOutput::print(FILE* out) const
{
    ++printed;
    std::fprintf(out, "%s\n", toText().c_str());
    flushOutput(out);
}

} // namespace Host
