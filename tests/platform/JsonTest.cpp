#include "framework/core/Ref.h"
#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/services/IJsonHandler.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"
#include "platform/kvxtext/JsonReader.h"

#include "BoundedStream.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace KVX;
using KVX::Testing::BoundedStream;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

constexpr int kMaxDepth = Text::JsonReader::kMaxDepth;

tresult parse(std::string_view bytes, Variant& result) { return Json::parse(bytes.data(), bytes.size(), result); }

Variant parsed(std::string_view bytes)
{
    Variant result;
    EXPECT_EQ(parse(bytes, result), kResultOk) << "parsing " << bytes;
    return result;
}

/// Parsing fails as invalid and leaves the result as it was.
void expectRejected(std::string_view bytes, const Variant& before = Variant(42))
{
    Variant result = before;
    EXPECT_EQ(parse(bytes, result), kInvalidArgument) << testing::PrintToString(std::string(bytes.substr(0, 80)));
    EXPECT_EQ(result, before) << testing::PrintToString(std::string(bytes.substr(0, 80)));
}

std::string stringify(const Variant& value, tresult expected = kResultOk)
{
    auto out = makeRef<MemoryStream>();
    EXPECT_EQ(Json::write(value, *out), expected);
    return std::string(out->view());
}

Variant holding(std::initializer_list<Variant> elements)
{
    auto array = makeRef<AttributeArray>();
    for (const Variant& element : elements)
        array->append(element);
    return Variant(array);
}

/// The tree as text in which every difference shows: kinds spelled out, texts by their length,
/// doubles by their bits.
std::string dump(const Variant& value)
{
    auto text = [](std::string_view bytes) { return std::to_string(bytes.size()) + ":" + std::string(bytes) + " "; };
    if (Attributes* object = value.asObject<Attributes>())
    {
        std::string out = "{";
        for (const Attributes::Member& member : *object)
            out += text(member.name.view()) + dump(member.value);
        return out + "}";
    }
    if (AttributeArray* array = value.asObject<AttributeArray>())
    {
        std::string out = "[";
        for (const Variant& element : *array)
            out += dump(element);
        return out + "]";
    }
    if (value.isObject())
        return "not a JSON container";
    if (!value.isDouble())
        return std::to_string(value.type()) + text(value.toString().toUtf8());
    return "d" + std::to_string(std::bit_cast<uint64>(value.asDouble())) + " ";
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string nestedArrays(int depth) { return std::string(size_t(depth), '[') + std::string(size_t(depth), ']'); }

std::string nestedObjects(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "{\"a\":";
    return text + "1" + std::string(size_t(depth), '}');
}

/// The escaped form the writer gives a text, spelled out byte by byte.
std::string escapedJson(std::string_view text)
{
    static const char hex[] = "0123456789ABCDEF";
    const std::string_view named = "\"\\\b\f\n\r\t", letters = "\"\\bfnrt";
    std::string out = "\"";
    for (char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (const size_t at = named.find(c); at != std::string_view::npos)
            out += "\\"s + letters[at];
        else if (byte < 0x20)
            out += "\\u00"s + hex[byte >> 4] + hex[byte & 15];
        else
            out += c;
    }
    return out + "\"";
}

/// Takes values until it has seen `limit` of them, then refuses with kUnexpected.
class CountingHandler : public Object, public IJsonHandler
{
public:
    explicit CountingHandler(size_t limit) : limit(limit) {}
    tresult onNull() override { return take("null"); }
    tresult onInteger(int64 value) override { return take(std::to_string(value)); }
    tresult onDouble(double) override { return take("double"); }
    tresult onString(const char* text, uint64 length) override { return take(std::string(text, length)); }
    tresult onStartObject() override { return take("{"); }
    tresult onKey(const char* text, uint64 length) override { return take(std::string(text, length) + ":"); }
    tresult onEndObject() override { return take("}"); }
    tresult onStartArray() override { return take("["); }
    tresult onEndArray() override { return take("]"); }
    KVX_FORWARD_UNKNOWN(Object)
    tresult take(std::string what)
    {
        if (seen.size() >= limit)
            return kUnexpected;
        seen.push_back(std::move(what));
        return kResultOk;
    }
    const size_t limit;
    std::vector<std::string> seen;
};

tresult CountingHandler::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IJsonHandler)
    return Object::queryInterface(iid, object);
}

} // namespace

TEST(JsonConformance, AcceptsEveryValidAndRejectsEveryInvalidSuiteDocument)
{
    namespace fs = std::filesystem;
    // The suite's cases are kept in the repository (tests/data, with their licence).
    const fs::path folder = fs::path(BuildPaths::sourceDir()) / "tests" / "data" / "jsontestsuite" / "test_parsing";
    ASSERT_TRUE(fs::is_directory(folder)) << "the conformance cases are missing: no folder " << folder;
    int valid = 0, invalid = 0, total = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    {
        const std::string name = entry.path().filename().string(), bytes = readFile(entry.path());
        SCOPED_TRACE(name);
        ++total;
        if (name.starts_with("n_"))
        {
            ++invalid;
            expectRejected(bytes, Variant("untouched"));
            continue;
        }
        Variant result;
        const tresult parsedResult = parse(bytes, result);
        valid += name.starts_with("y_");
        EXPECT_TRUE(parsedResult == kResultOk || (parsedResult == kInvalidArgument && !name.starts_with("y_")));
        if (parsedResult != kResultOk)
            continue;
        // Whatever was accepted writes out as UTF-8 that reads back as the same tree.
        std::string text = stringify(result);
        EXPECT_EQ(String::fromUtf8(text).toUtf8(), text) << "not UTF-8";
        EXPECT_EQ(dump(parsed(text)), dump(result)) << text;
    }
    EXPECT_EQ(valid, 95);
    EXPECT_EQ(invalid, 188);
    EXPECT_EQ(total, 318);
}

TEST(JsonNumbers, ReadAsExactIntegersOrCorrectlyRoundedDoublesAndWriteBackExactly)
{
    // Integers to 64 bits stay exact integers (minus zero has no integer form); beyond 64 bits, or
    // with a fraction or an exponent, a number is the nearest double.
    const std::pair<const char*, Variant> cases[] = {
        {"0", 0}, {"-1", -1}, {"2147483648", 2147483648LL}, {"-2147483649", -2147483649LL},
        {"4294967296", 4294967296LL}, {"9007199254740993", 9007199254740993LL},
        {"-9007199254740993", -9007199254740993LL}, {"9223372036854775807", std::numeric_limits<int64>::max()},
        {"-9223372036854775808", std::numeric_limits<int64>::min()}, {"-0", 0},
        {"9223372036854775808", 9223372036854775808.0}, {"-9223372036854775809", -9223372036854775808.0},
        {"18446744073709551615", 18446744073709551616.0}, {"18446744073709551616", 18446744073709551616.0},
        {"123456789012345678901234567890", 1.2345678901234568e29}, {"0.1", 0.1}, {"1.0", 1.0},
        {"-2.5E+3", -2500.0}, {"0.30000000000000004", 0.30000000000000004}, {"1e-300", 1e-300},
        {"2.2250738585072014e-308", 2.2250738585072014e-308}, {"2.2250738585072011e-308", 2.2250738585072011e-308},
        {"1.7976931348623157e308", 1.7976931348623157e308}, {"1.7976931348623158e308", 1.7976931348623157e308},
        {"5e-324", 4.9406564584124654e-324}, {"2.4703282292062328e-324", 4.9406564584124654e-324},
        {"9007199254740993.0", 9007199254740992.0},
        {"1.00000000000000011102230246251565404236316680908203125", 1.0},
        {"1.00000000000000011102230246251565404236316680908203126", 1.0000000000000002},
        // Underflow keeps the sign.
        {"2.4703282292062327e-324", 0.0}, {"1e-400", 0.0}, {"-1e-400", -0.0}, {"-0.0", -0.0},
        {"-123456789012345678901234567890e-360", -0.0},
        // A long run of fraction zeros before a large negative exponent.
        {"0.00000000000000000000000000000000000000000000000000000000001e-300", 0.0},
        {"0.00000000000000000000000000000000000000000000000000000000001e-260", 1e-319},
        {"100000000000000000000000000000000000000000000000000000000000e-359", 1e-300},
    };
    for (const auto& [text, expected] : cases)
    {
        const Variant value = parsed(text);
        EXPECT_EQ(dump(value), dump(expected)) << text;
        if (expected.isInt() && text != "-0"sv)
        {
            EXPECT_EQ(stringify(value), text);
        }
        EXPECT_EQ(dump(parsed(stringify(value))), dump(value)) << text << " written as " << stringify(value);
    }
    // An integral double keeps a fraction, so it reads back as a double.
    const std::pair<double, const char*> written[] = {{1.0, "1.0"}, {-0.0, "-0.0"}, {0.1, "0.1"}, {5e-324, "5e-324"}};
    for (const auto& [number, text] : written)
        EXPECT_EQ(stringify(Variant(number)), text);
    // Numbers beyond the range of a double cannot be read.
    for (const char* text : {"1e309", "-1e309", "1.8e308", "-1.8e308", "17976931348623159e292", "[1,2e400]"})
        expectRejected(text, Variant(7));
    // Doubles of every magnitude survive a write and a read bit for bit.
    std::mt19937_64 bits(20240611);
    for (int checked = 0; checked < 20000; ++checked)
    {
        double number = std::numeric_limits<double>::infinity();
        while (!std::isfinite(number))
            number = std::bit_cast<double>(uint64(bits()));
        ASSERT_EQ(dump(parsed(stringify(Variant(number)))), dump(Variant(number))) << stringify(Variant(number));
    }
}

TEST(JsonValues, DocumentsReadIntoTheTreeTheyWriteBackAs)
{
    // What was read shows in what it writes: the writer spells every kind apart (1 and 1.0, {}
    // and [], null) and is held to exact text by the tests of its own further down.
    std::string many = "{", manyWritten = "{";
    for (int i = 0; i < 40; ++i)
    {
        const std::string name = "\"k" + std::to_string(i) + "\":";
        many += name + std::to_string(i) + ",";
        manyWritten += name + (i == 5 ? "\"five\"" : std::to_string(i == 39 ? -39 : i)) + ",";
    }
    std::string large = "[{";
    for (int i = 0; i < 1000; ++i)
        large += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
    const std::string tree = R"({"z":1,"a":{"y":[3,"two",1.5,null,1,0,{},[]],"b":{}},"m":[]})";
    const std::string unicode = "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""; // é € and an emoji
    const std::pair<std::string, std::string> cases[] = {
        // Members and elements keep their order; true, false and null become 1, 0 and empty.
        {R"({"z":1,"a":{"y":[3,"two",1.5,null,true,false,{},[]],"b":{}},"m":[]})", tree},
        {" \t\r\n{ \"z\" : 1 ,\"a\":{\"y\":[ 3,\"two\",1.5 ,null,true,false,{ },[\n]],\"b\":{}},\"m\":[]}\n\t\r ",
         tree},
        // A scalar root is a document too, and replaces the previous value.
        {"null", "null"}, {" \"s\" ", "\"s\""},
        // A repeated name keeps its first place and its last value, in small and large objects
        // and with names that differ only after a NUL.
        {R"({"a":1,"b":2,"a":3,"c":{"x":1,"x":[2]},"b":"last"})", R"({"a":3,"b":"last","c":{"x":[2]}})"},
        {many + R"("k5":"five","k\u0000":1,"k\u0000x":2,"k39":-39,"k\u0000":3})",
         manyWritten + R"("k\u0000":3,"k\u0000x":2})"},
        // Records after the first are read expecting the names of the one before; each one that
        // differs, repeats a name or stops early is still read by the rule, also after a large one.
        {R"([{"a":1,"b":2},{"a":3,"b":4},{"a":5,"b":6,"a":7},{"a":8,"b":9},{"a":10},{"b":11,"a":12,"b":13},)"
         R"({"a":14,"b":15,"c":16},{"a":{"x":1,"x":2},"b":[{"y":1},{"y":2,"y":3}]},{"a":17,"a":18}])",
         R"([{"a":1,"b":2},{"a":3,"b":4},{"a":7,"b":6},{"a":8,"b":9},{"a":10},{"b":13,"a":12},)"
         R"({"a":14,"b":15,"c":16},{"a":{"x":2},"b":[{"y":1},{"y":3}]},{"a":18}])"},
        {large + R"(},{"k0":1},{"k0":2,"k0":3},[],[1,2],[3]])", large + R"(},{"k0":1},{"k0":3},[],[1,2],[3]])"},
        // Strings and names keep NULs and read escapes; non-ASCII text is written as it is.
        {R"("a\u0000b")", R"("a\u0000b")"}, {R"("\u00e9\u20AC\ud83d\ude00")", unicode}, {unicode, unicode},
        {R"("\"\\\/\b\f\n\r\t")", R"("\"\\/\b\f\n\r\t")"},
        {R"({"n\u0000\u00e9\"":"v"})", "{\"n\\u0000\xC3\xA9\\\"\":\"v\"}"},
    };
    for (const auto& [document, written] : cases)
    {
        Variant result("previous");
        ASSERT_EQ(parse(document, result), kResultOk) << document.substr(0, 80);
        EXPECT_EQ(stringify(result), written) << document.substr(0, 80);
    }
}

TEST(JsonParse, InvalidDocumentsFailWholeAndLeaveTheResultUntouched)
{
    // The conformance cases above hold most ways to break a document; these are ones they lack
    // or leave to the reader (a byte order mark, bytes that are not UTF-8, nesting too deep).
    const std::string documents[] = {
        "}", "{\"a\":}", "1 2", "nulll", "\xEF\xBB\xBF[1]",
        // NUL bytes anywhere are not white space and never end the input early.
        "[1]\0"s, "\0[1]"s, "[1\0]"s, "[1,\0 2]"s, "1\0"s, "\0"s, "[\"a\0b\"]"s, "{\"a\0\":1}"s, "[1]\n\0"s,
        // Bytes that are not UTF-8, in values and in names (unpaired surrogate escapes: below).
        "\"\xFF\"", "\"\xC0\xAF\"", "\"\xC1\xBF\"", "\"\xE0\x80\xAF\"", "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"",
        "\"\xF4\x90\x80\x80\"", "\"\xF8\x88\x80\x80\x80\"", "\"\xE2\x82\"", "\"\x80\"", "\"a\xC3\"", "{\"\xFE\":1}",
        // Nesting is limited without exhausting the stack.
        nestedArrays(kMaxDepth + 1), nestedObjects(kMaxDepth + 1), std::string(100000, '['), nestedArrays(100000),
        std::string(100000, '{'), "[" + nestedObjects(kMaxDepth) + "]"};
    for (const std::string& document : documents)
        expectRejected(document);
    EXPECT_EQ(stringify(parsed(nestedArrays(kMaxDepth))), nestedArrays(kMaxDepth));
    EXPECT_TRUE(parsed(nestedObjects(kMaxDepth)).isObject());
    // Every proper prefix of a document is incomplete.
    const std::string complete = R"({"a":[1,-2.5e3,"x\u00e9y",true,null],"b":{"c":false}})";
    ASSERT_TRUE(parsed(complete).isObject());
    auto sentinel = makeRef<Attributes>();
    sentinel->add("kept", 1);
    for (size_t length = 0; length < complete.size(); ++length)
    {
        Variant result(sentinel);
        EXPECT_EQ(Json::parse(complete.data(), length, result), kInvalidArgument) << complete.substr(0, length);
        EXPECT_EQ(result.asObject<Attributes>(), sentinel.get());
    }
    EXPECT_EQ(sentinel->count(), 1u);
    Variant result(42);
    EXPECT_EQ(JsonParse("[1]", 3, nullptr), kInvalidArgument);
    EXPECT_EQ(Json::parse(nullptr, 3, result), kInvalidArgument);
    EXPECT_EQ(Json::parse(nullptr, 0, result), kInvalidArgument);
    EXPECT_EQ(result, Variant(42));
    // The bytes after the given length are not part of the document.
    ASSERT_EQ(Json::parse("[1][2]", 3, result), kResultOk);
    EXPECT_EQ(stringify(result), "[1]");
    EXPECT_EQ(Json::parse("[1][2]", 4, result), kInvalidArgument);
    ASSERT_EQ(Json::parse("12345", 2, result), kResultOk);
    EXPECT_EQ(result, Variant(12));
    // The length limit is checked before anything is read.
    std::string large(Text::JsonReader::kMaxLength + 1, ' ');
    large[0] = '0';
    ASSERT_EQ(Json::parse(large.data(), Text::JsonReader::kMaxLength, result), kResultOk);
    EXPECT_EQ(result, Variant(0));
    expectRejected(large);
    // An unpaired surrogate escape is found at any offset.
    for (size_t offset = 0; offset <= 24; ++offset)
    {
        const std::string before(offset, 'a');
        for (const char* escape : {"\\udc00", "\\udfff", "\\ud800", "\\ud800\\u0041"})
        {
            expectRejected("\"" + before + escape + "b\"");
            expectRejected("{\"" + before + escape + "\":1}");
        }
        // A pair, and the characters just below and above the surrogates, are text.
        EXPECT_EQ(parsed("\"" + before + "\\ud83d\\ude00\"").asString().toUtf8(), before + "\xF0\x9F\x98\x80");
        EXPECT_EQ(parsed("\"" + before + "\\ud7ff\\ue000\"").asString().toUtf8(), before + "\xED\x9F\xBF\xEE\x80\x80");
        EXPECT_EQ(parsed("\"" + before + "\xED\x9F\xBF\"").asString().toUtf8(), before + "\xED\x9F\xBF");
    }
}

TEST(JsonStringify, WritesCompactTextOrRefusesWhatJsonCannotHold)
{
    auto list = makeRef<Attributes>();
    list->add("int", int64(-7));
    list->add("double", 0.25);
    list->add("text", "t");
    list->add("nothing", Variant());
    list->add("array", holding({1, makeRef<Attributes>()}));
    EXPECT_EQ(stringify(Variant(list)), R"({"int":-7,"double":0.25,"text":"t","nothing":null,"array":[1,{}]})");
    EXPECT_EQ(stringify(Variant()), "null");
    EXPECT_EQ(stringify(Variant("x")), "\"x\"");
    // A name that is not UTF-8 is written with U+FFFD in place of the bad bytes.
    auto bad = makeRef<Attributes>();
    bad->add("\xFFx", 1);
    bad->add("\xC3\xA9", 2);
    EXPECT_EQ(stringify(Variant(bad)), "{\"\xEF\xBF\xBDx\":1,\"\xC3\xA9\":2}");
    EXPECT_EQ(CreateJsonWriter(nullptr), nullptr);
    // Values without a JSON form, at the root or deep inside; nesting deeper than a document may
    // hold; a list that contains itself.
    auto stream = makeRef<MemoryStream>();
    auto streamHolder = makeRef<Attributes>();
    streamHolder->add("stream", stream);
    auto loop = makeRef<Attributes>();
    loop->add("self", loop);
    std::vector<Variant> unwritable = {stream, streamHolder, holding({parsed(nestedArrays(kMaxDepth))}), loop};
    const double infinity = std::numeric_limits<double>::infinity();
    for (double number : {std::numeric_limits<double>::quiet_NaN(), infinity, -infinity})
        unwritable.insert(unwritable.end(), {number, holding({1, number})});
    for (size_t i = 0; i < unwritable.size(); ++i)
    {
        SCOPED_TRACE("value " + std::to_string(i));
        stringify(unwritable[i], kInvalidArgument);
    }
    loop->clear();
}

TEST(Json, LoadAcceptsOnlyAnObjectAndLeavesTheListEmptyOtherwise)
{
    Attributes attributes;
    for (std::string_view text : {"[1,2]"sv, "1"sv, "\"x\""sv, "null"sv, "true"sv, "{"sv, ""sv, "{\"a\":1} x"sv})
    {
        attributes.add("stale", 1);
        EXPECT_FALSE(Json::load(attributes, text)) << text;
        EXPECT_TRUE(attributes.isEmpty()) << text;
    }
    attributes.add("stale", 1);
    ASSERT_TRUE(Json::load(attributes, R"({"a":1,"b":{"c":"d"}})"));
    ASSERT_EQ(attributes.count(), 2u);
    EXPECT_EQ(attributes.getInt64("a"), 1);
    EXPECT_EQ(attributes.getAttributes("b")->getString("c"), "d");
    EXPECT_EQ(Json::toText(attributes), R"({"a":1,"b":{"c":"d"}})");
    auto stream = makeRef<MemoryStream>();
    stream->write("[{\"a\":1}]");
    stream->seek(0, IStream::kSeekSet);
    EXPECT_FALSE(Json::load(attributes, *stream));
    EXPECT_TRUE(attributes.isEmpty());
}

TEST(JsonParse, HandsValuesOverInOrderAndStopsWhenTheReceiverRefuses)
{
    const std::string_view text = R"({"a":[1,2.5,"x",null,true],"b":{}})";
    auto all = makeRef<CountingHandler>(1000);
    ASSERT_EQ(JsonParse(text.data(), text.size(), all), kResultOk);
    EXPECT_EQ(all->seen, (std::vector<std::string>{"{", "a:", "[", "1", "double", "x", "null", "1", "]", "b:", "{", "}", "}"}));
    auto stopping = makeRef<CountingHandler>(4);
    EXPECT_EQ(JsonParse(text.data(), text.size(), stopping), kUnexpected); // the receiver's own result
    EXPECT_EQ(stopping->seen.size(), 4u);
    // Invalid input after some values were handed over is still invalid as a whole.
    auto truncated = makeRef<CountingHandler>(1000);
    EXPECT_EQ(JsonParse(text.data(), text.size() - 1, truncated), kInvalidArgument);
    EXPECT_FALSE(truncated->seen.empty());
}

TEST(JsonWriter, RefusesCallsThatDoNotFormOneDocument)
{
    using Calls = void (*)(IJsonWriter&);
    auto write = [](Calls calls, tresult expected, const char* name = "") {
        auto out = makeRef<MemoryStream>();
        Ref<IJsonWriter> writer = Ref<IJsonWriter>::adopt(CreateJsonWriter(out));
        calls(*writer);
        EXPECT_EQ(writer->finish(), expected) << name;
        return std::string(out->view());
    };
    const Calls document = [](IJsonWriter& w) {
        w.onStartObject(); w.onKey("n", 1); w.onInteger(3); w.onKey("list", 4); w.onStartArray();
        w.onDouble(0.5); w.onString("\xC3\xA9", 2); w.onEndArray(); w.onEndObject();
    };
    EXPECT_EQ(write(document, kResultOk), "{\"n\":3,\"list\":[0.5,\"\xC3\xA9\"]}");
    const std::pair<const char*, Calls> refused[] = {
        {"no key", [](IJsonWriter& w) { w.onStartObject(); w.onInteger(1); }},
        {"key in array", [](IJsonWriter& w) { w.onStartArray(); w.onKey("k", 1); }},
        {"unfinished", [](IJsonWriter& w) { w.onStartArray(); }},
        {"two roots", [](IJsonWriter& w) { w.onInteger(1); w.onInteger(2); }},
        {"nothing", [](IJsonWriter&) {}},
        {"mismatched", [](IJsonWriter& w) { w.onStartArray(); w.onEndObject(); }},
    };
    for (const auto& [name, calls] : refused)
        write(calls, kInvalidArgument, name);
    // Calls after a refusal are ignored.
    const Calls afterRefusal = [](IJsonWriter& w) {
        w.onStartArray(); w.onDouble(std::numeric_limits<double>::infinity());
        w.onInteger(1); w.onEndArray();
    };
    EXPECT_EQ(write(afterRefusal, kInvalidArgument, "after a refusal").find('1'), std::string::npos);
}

TEST(JsonStringify, EscapesEveryByteThatNeedsItWhereverItStands)
{
    // Texts are passed over several bytes at a time: a byte to escape must be found at every
    // offset and next to any other, and bytes from 0x80 up pass unchanged.
    const std::string_view specials[] = {"\"", "\\", "\x01", "\x1f", "\b", "\f", "\n", "\r", "\t", "\0"sv, "\x7f",
                                         "\xC3\xA9", "/", " ", "!", "#", "[", "]"};
    for (size_t length = 0; length <= 40; ++length)
        for (size_t at = 0; at <= length; ++at)
            for (std::string_view special : specials)
            {
                std::string text(length, 'a');
                text.insert(at, special);
                if (at + 3 < text.size())
                    text.insert(at + 3, special);
                ASSERT_EQ(stringify(Variant(String::fromUtf8(text))), escapedJson(text))
                    << testing::PrintToString(text);
            }
    // A text longer than the writer's block (with room for the worst case, six bytes for each
    // one) and a member name of the same kind, escapes spread all through.
    std::string longText;
    for (int i = 0; longText.size() < 100000; ++i)
        longText += i % 97 == 0 ? "\"\\\x02" : i % 13 == 0 ? "\xE2\x82\xAC" : "abcdefghij";
    auto object = makeRef<Attributes>();
    object->add(longText, String::fromUtf8(longText));
    const std::string written = stringify(Variant(object));
    EXPECT_EQ(written, "{" + escapedJson(longText) + ":" + escapedJson(longText) + "}");
    Attributes back;
    ASSERT_TRUE(Json::load(back, written));
    ASSERT_EQ(back.count(), 1u);
    EXPECT_EQ(back.at(0).name, longText);
    EXPECT_EQ(back.at(0).value.asString().toUtf8(), longText);
    // Streams that take none, part or all of the text of the long one and of many short ones.
    auto array = makeRef<AttributeArray>();
    const Variant element(String("element"));
    for (int i = 0; i < 3000; ++i)
        array->append(element);
    for (const Variant& value : std::vector<Variant>{object, array})
    {
        const std::string full = stringify(value);
        for (size_t capacity : {size_t(0), full.size() / 2, full.size() - 1, full.size()})
        {
            auto out = makeRef<BoundedStream>(capacity);
            EXPECT_EQ(Json::write(value, *out), capacity == full.size() ? kResultOk : kUnexpected) << capacity;
            EXPECT_TRUE(capacity == full.size() ? out->text == full : full.starts_with(out->text)) << capacity;
        }
    }
}
