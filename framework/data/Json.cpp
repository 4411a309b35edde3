#include "framework/data/Json.h"

#include "framework/data/AttributeArray.h"
#include "framework/services/IJsonHandler.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"

#include <iterator>
#include <limits>
#include <string>
#include <unordered_map>
#include <vector>

namespace KVX {

namespace {

constexpr int kMaxDepth = 512;

using Members = std::vector<Attributes::Member>;

/// Leaves one member per name: at the position where the name first appears, with the value it
/// was given last.
void collapseRepeatedNames(Members& members)
{
    const size_t count = members.size();
    if (count < 2)
        return;

    // Small objects are checked pair by pair, which costs no allocation.
    constexpr size_t kPairwiseLimit = 16;
    if (count <= kPairwiseLimit)
    {
        bool repeated = false;
        for (size_t i = 1; i < count && !repeated; ++i)
            for (size_t j = 0; j < i && !repeated; ++j)
                repeated = members[i].name == members[j].name;
        if (!repeated)
            return;
    }

    std::unordered_map<std::string_view, size_t> lastIndex;
    lastIndex.reserve(count);
    bool repeated = false;
    for (size_t i = 0; i < count; ++i)
    {
        auto [entry, inserted] = lastIndex.try_emplace(members[i].name.view(), i);
        if (!inserted)
        {
            entry->second = i;
            repeated = true;
        }
    }
    if (!repeated)
        return;

    constexpr size_t kTaken = std::numeric_limits<size_t>::max();
    Members collapsed;
    for (size_t i = 0; i < count; ++i)
    {
        auto entry = lastIndex.find(members[i].name.view());
        if (entry->second == kTaken)
            continue;
        collapsed.push_back({members[i].name, members[entry->second].value});
        entry->second = kTaken;
    }
    members = std::move(collapsed);
}

/// Builds the value tree from the text module's values. The members and elements of the open
/// containers wait on two stacks, and each container is made when it closes, with exactly the
/// room it needs: one allocation per container instead of one per doubling. A failed parse
/// frees what was built with the builder.
class TreeBuilder : public Object, public IJsonHandler
{
public:
    tresult onNull() override { return put(Variant()); }
    tresult onInteger(int64 value) override { return put(Variant(value)); }
    tresult onDouble(double value) override { return put(Variant(value)); }
    tresult onString(const char* text, uint64 length) override
    {
        // The text module has checked the text: it is not checked a second time.
        return put(Variant(String::fromValidatedUtf8(std::string_view(text, static_cast<size_t>(length)))));
    }
    tresult onKey(const char* text, uint64 length) override
    {
        key_.assign(text, static_cast<size_t>(length));
        return kResultOk;
    }
    tresult onStartObject() override { return open(true); }
    tresult onEndObject() override
    {
        if (open_.empty() || !open_.back().isObject)
            return kInvalidArgument;
        const Open closing = std::move(open_.back());
        open_.pop_back();
        Members own(std::make_move_iterator(members_.begin() + static_cast<std::ptrdiff_t>(closing.start)),
                    std::make_move_iterator(members_.end()));
        members_.resize(closing.start);
        collapseRepeatedNames(own);
        auto object = makeRef<Attributes>();
        object->assignMembers(std::move(own));
        key_ = std::move(closing.key);
        return put(Variant(object));
    }
    tresult onStartArray() override { return open(false); }
    tresult onEndArray() override
    {
        if (open_.empty() || open_.back().isObject)
            return kInvalidArgument;
        const Open closing = std::move(open_.back());
        open_.pop_back();
        std::vector<Variant> own(std::make_move_iterator(values_.begin() + static_cast<std::ptrdiff_t>(closing.start)),
                                 std::make_move_iterator(values_.end()));
        values_.resize(closing.start);
        auto array = makeRef<AttributeArray>();
        array->assignValues(std::move(own));
        key_ = std::move(closing.key);
        return put(Variant(array));
    }
    KVX_FORWARD_UNKNOWN(Object)

    Variant& root() { return root_; }

private:
    /// An open container: where its members or elements start on their stack, and the name it
    /// will have in the object that holds it.
    struct Open
    {
        bool isObject;
        size_t start;
        std::string key;
    };

    tresult open(bool isObject)
    {
        if (open_.size() >= kMaxDepth)
            return kInvalidArgument;
        open_.push_back({isObject, isObject ? members_.size() : values_.size(), std::move(key_)});
        key_.clear();
        return kResultOk;
    }

    tresult put(Variant&& value)
    {
        if (open_.empty())
            root_ = std::move(value);
        else if (open_.back().isObject)
            members_.push_back({CString(std::string_view(key_)), std::move(value)});
        else
            values_.push_back(std::move(value));
        return kResultOk;
    }

    Variant root_;
    std::vector<Open> open_;
    Members members_;
    std::vector<Variant> values_;
    std::string key_;
};

tresult TreeBuilder::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IJsonHandler)
    return Object::queryInterface(iid, object);
}

/// Hands a tree to the text module's writer, value by value.
tresult writeValue(IJsonWriter& writer, const Variant& value, int depth)
{
    switch (value.type())
    {
    case Variant::kEmpty:
        return writer.onNull();
    case Variant::kInt:
        return writer.onInteger(value.asInt());
    case Variant::kDouble:
        return writer.onDouble(value.asDouble());
    case Variant::kString:
    {
        const std::string& text = value.asString().toUtf8();
        return writer.onString(text.data(), text.size());
    }
    case Variant::kObject:
        break;
    }
    if (depth >= kMaxDepth)
        return kInvalidArgument;
    if (const Attributes* object = value.asObject<Attributes>())
    {
        tresult result = writer.onStartObject();
        for (auto member = object->begin(); result == kResultOk && member != object->end(); ++member)
        {
            result = writer.onKey(member->name.c_str(), member->name.view().size());
            if (result == kResultOk)
                result = writeValue(writer, member->value, depth + 1);
        }
        return result == kResultOk ? writer.onEndObject() : result;
    }
    if (const AttributeArray* array = value.asObject<AttributeArray>())
    {
        tresult result = writer.onStartArray();
        for (auto element = array->begin(); result == kResultOk && element != array->end(); ++element)
            result = writeValue(writer, *element, depth + 1);
        return result == kResultOk ? writer.onEndArray() : result;
    }
    return kInvalidArgument;
}

} // namespace

tresult Json::parse(const void* data, uint64 length, Variant& result)
{
    auto builder = makeRef<TreeBuilder>();
    const tresult parsed = JsonParse(data, length, builder);
    if (parsed == kResultOk)
        result = std::move(builder->root());
    return parsed;
}

tresult Json::write(const Variant& value, IStream& out)
{
    Ref<IJsonWriter> writer = Ref<IJsonWriter>::adopt(CreateJsonWriter(&out));
    if (!writer)
        return kUnexpected;
    const tresult written = writeValue(*writer, value, 0);
    const tresult finished = writer->finish();
    return written != kResultOk ? written : finished;
}

bool Json::load(Attributes& result, IStream& stream)
{
    std::string bytes;
    char buffer[16384];
    for (;;)
    {
        int64 got = stream.read(buffer, sizeof buffer);
        if (got < 0)
        {
            result.clear();
            return false;
        }
        if (got == 0)
            break;
        bytes.append(buffer, static_cast<size_t>(got));
    }
    return load(result, bytes);
}

bool Json::load(Attributes& result, std::string_view bytes)
{
    result.clear();
    Variant root;
    if (parse(bytes.data(), bytes.size(), root) != kResultOk)
        return false;
    Attributes* parsed = root.asObject<Attributes>();
    if (!parsed)
        return false;
    result = *parsed;
    return true;
}

bool Json::save(IStream& stream, const Attributes& attributes)
{
    Variant value(const_cast<Attributes*>(&attributes));
    return write(value, stream) == kResultOk;
}

std::string Json::toText(const Attributes& attributes)
{
    auto stream = makeRef<MemoryStream>();
    if (!save(*stream, attributes))
        return {};
    return std::string(stream->view());
}

} // namespace KVX
