#include "framework/data/Json.h"

#include "framework/data/AttributeArray.h"
#include "framework/services/IJsonHandler.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"

#include <algorithm>
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
    collapsed.reserve(lastIndex.size());
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

/// Builds the value tree from the text module's values.
///
/// Each open container collects its members or elements in the storage it will keep. That
/// storage is reserved for as many as the container closed last at the same depth had, which in
/// a list of similar records (tracks, products) is exactly right: each member is moved once, and
/// each container costs one allocation. The repeated-name rule costs one comparison per member
/// while an object's names are those of the object before it at that depth, which were already
/// found distinct. A failed parse frees what was built with the builder.
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
        key_ = AttributeName(std::string_view(text, static_cast<size_t>(length)));
        return kResultOk;
    }
    tresult onStartObject() override
    {
        Level* level = open(true);
        if (!level)
            return kInvalidArgument;
        level->members.reserve(std::min(level->lastObjectSize, kMaxHint));
        level->sameNames = level->lastObject != nullptr;
        return kResultOk;
    }
    tresult onEndObject() override
    {
        if (depth_ == 0 || !levels_[depth_ - 1].isObject)
            return kInvalidArgument;
        Level& level = levels_[--depth_];
        Members& members = level.members;
        if (!level.sameNames || members.size() != level.lastObject->count())
            collapseRepeatedNames(members);
        if (members.capacity() != members.size())
            members.shrink_to_fit();
        level.lastObjectSize = members.size();
        auto object = makeRef<Attributes>();
        object->assignMembers(std::move(members));
        members = Members();
        level.lastObject = object;
        key_ = std::move(level.key);
        return put(Variant(object));
    }
    tresult onStartArray() override
    {
        Level* level = open(false);
        if (!level)
            return kInvalidArgument;
        level->values.reserve(std::min(level->lastArraySize, kMaxHint));
        return kResultOk;
    }
    tresult onEndArray() override
    {
        if (depth_ == 0 || levels_[depth_ - 1].isObject)
            return kInvalidArgument;
        Level& level = levels_[--depth_];
        std::vector<Variant>& values = level.values;
        if (values.capacity() != values.size())
            values.shrink_to_fit();
        level.lastArraySize = values.size();
        auto array = makeRef<AttributeArray>();
        array->assignValues(std::move(values));
        values = std::vector<Variant>();
        key_ = std::move(level.key);
        return put(Variant(array));
    }
    KVX_FORWARD_UNKNOWN(Object)

    Variant& root() { return root_; }

private:
    /// A larger container at a depth does not make every later one there start that large.
    static constexpr size_t kMaxHint = 256;

    /// One depth of nesting: the container open there, and what the last one closed there was.
    struct Level
    {
        bool isObject = false;
        /// The name the open container will have in the object that holds it.
        AttributeName key;
        Members members;
        std::vector<Variant> values;
        /// Whether the open object's names so far are, in order, those of lastObject.
        bool sameNames = false;
        Ref<Attributes> lastObject;
        size_t lastObjectSize = 0;
        size_t lastArraySize = 0;
    };

    Level* open(bool isObject)
    {
        if (depth_ >= kMaxDepth)
            return nullptr;
        if (depth_ == levels_.size())
            levels_.emplace_back();
        Level& level = levels_[depth_++];
        level.isObject = isObject;
        level.key = std::move(key_);
        return &level;
    }

    tresult put(Variant&& value)
    {
        if (depth_ == 0)
        {
            root_ = std::move(value);
            return kResultOk;
        }
        Level& level = levels_[depth_ - 1];
        if (level.isObject)
        {
            if (level.sameNames)
            {
                const size_t index = level.members.size();
                level.sameNames = index < level.lastObject->count() && level.lastObject->at(index).name == key_;
            }
            level.members.push_back(Attributes::Member{std::move(key_), std::move(value)});
        }
        else
            level.values.push_back(std::move(value));
        return kResultOk;
    }

    Variant root_;
    /// Grown as deep as the document goes and never shrunk: a level keeps its hints.
    std::vector<Level> levels_;
    size_t depth_ = 0;
    AttributeName key_;
};

tresult TreeBuilder::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IJsonHandler)
    return Object::queryInterface(iid, object);
}

/// The framework object behind a value's interface, or nullptr. Takes no reference.
Object* objectOf(const Variant& value)
{
    IUnknown* unknown = value.asUnknown();
    void* pointer = nullptr;
    if (!unknown || unknown->queryInterface(Object::kIID, &pointer) != kResultOk || !pointer)
        return nullptr;
    auto* object = static_cast<Object*>(pointer);
    object->release();
    return object;
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
    Object* object = objectOf(value);
    // The exact classes are recognised without comparing class names, which a tree of
    // thousands of containers would otherwise do for each of them.
    const ClassInfo* info = object ? &object->getClassInfo() : nullptr;
    if (info == &Attributes::classInfo() || object_cast<Attributes>(object))
    {
        const auto& members = *static_cast<const Attributes*>(object);
        tresult result = writer.onStartObject();
        for (auto member = members.begin(); result == kResultOk && member != members.end(); ++member)
        {
            result = writer.onKey(member->name.data(), member->name.length());
            if (result == kResultOk)
                result = writeValue(writer, member->value, depth + 1);
        }
        return result == kResultOk ? writer.onEndObject() : result;
    }
    if (info == &AttributeArray::classInfo() || object_cast<AttributeArray>(object))
    {
        const auto& elements = *static_cast<const AttributeArray*>(object);
        tresult result = writer.onStartArray();
        for (auto element = elements.begin(); result == kResultOk && element != elements.end(); ++element)
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
    result = std::move(*parsed);
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
