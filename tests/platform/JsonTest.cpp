#include "framework/core/Ref.h"
#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/services/IJsonHandler.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"
#include "platform/kvxtext/JsonReader.h"

#include "BoundedStream.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace KVX;
using KVX::Testing::BoundedStream;
using namespace std::string_view_literals;

namespace {

constexpr int kMaxDepth = Text::JsonReader::kMaxDepth;

tresult parse(std::string_view bytes, Variant& result)
{
    return Json::parse(bytes.data(), bytes.size(), result);
}

Variant parsed(std::string_view bytes)
{
    Variant result;
    EXPECT_EQ(parse(bytes, result), kResultOk) << "parsing " << bytes;
    return result;
}

std::string stringify(const Variant& value)
{
    auto out = makeRef<MemoryStream>();
    EXPECT_EQ(Json::write(value, *out), kResultOk);
    return std::string(out->view());
}

tresult stringifyResult(const Variant& value)
{
    auto out = makeRef<MemoryStream>();
    return Json::write(value, *out);
}

bool sameBits(double a, double b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
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
    const double number = value.asDouble();
    uint64 bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return "d" + std::to_string(bits) + " ";
}

bool isUtf8(const std::string& text)
{
    return String::fromUtf8(text).toUtf8() == text;
}

std::string readFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string nestedArrays(int depth)
{
    return std::string(static_cast<size_t>(depth), '[') + std::string(static_cast<size_t>(depth), ']');
}

std::string nestedObjects(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "{\"a\":";
    text += "1";
    text += std::string(static_cast<size_t>(depth), '}');
    return text;
}

} // namespace

TEST(JsonConformance, AcceptsEveryValidAndRejectsEveryInvalidSuiteDocument)
{
    namespace fs = std::filesystem;
    // The suite's cases are kept in the repository (tests/data, with their licence).
    const fs::path folder = fs::path(SORVEL_SOURCE_DIR) / "tests" / "data" / "jsontestsuite" / "test_parsing";
    ASSERT_TRUE(fs::is_directory(folder)) << "the conformance cases are missing: no folder " << folder;

    int valid = 0, invalid = 0, total = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    {
        const std::string name = entry.path().filename().string();
        const std::string bytes = readFile(entry.path());
        ++total;
        Variant result("untouched");
        tresult parsedResult = parse(bytes, result);
        if (name.starts_with("n_"))
        {
            ++invalid;
            EXPECT_EQ(parsedResult, kInvalidArgument) << name;
            EXPECT_EQ(result, Variant("untouched")) << name;
            continue;
        }
        if (name.starts_with("y_"))
        {
            ++valid;
            EXPECT_EQ(parsedResult, kResultOk) << name;
        }
        else
            EXPECT_TRUE(parsedResult == kResultOk || parsedResult == kInvalidArgument) << name;
        if (parsedResult != kResultOk)
            continue;

        // Whatever was accepted writes out as UTF-8 that reads back as the same tree.
        std::string text = stringify(result);
        EXPECT_TRUE(isUtf8(text)) << name;
        Variant again;
        ASSERT_EQ(parse(text, again), kResultOk) << name << ": " << text;
        EXPECT_EQ(dump(again), dump(result)) << name;
    }
    EXPECT_EQ(valid, 95);
    EXPECT_EQ(invalid, 188);
    EXPECT_EQ(total, 318);
}

TEST(JsonNumbers, IntegralNumbersStayExactIntegersThroughARoundTrip)
{
    struct Case
    {
        const char* text;
        int64 value;
    };
    const Case cases[] = {
        {"0", 0},
        {"-1", -1},
        {"2147483648", 2147483648LL},
        {"-2147483649", -2147483649LL},
        {"4294967296", 4294967296LL},
        {"9007199254740993", 9007199254740993LL},
        {"-9007199254740993", -9007199254740993LL},
        {"9223372036854775807", std::numeric_limits<int64>::max()},
        {"-9223372036854775808", std::numeric_limits<int64>::min()},
    };
    for (const Case& c : cases)
    {
        Variant value = parsed(c.text);
        ASSERT_TRUE(value.isInt()) << c.text;
        EXPECT_EQ(value.asInt(), c.value) << c.text;
        std::string text = stringify(value);
        EXPECT_EQ(text, c.text);
    }

    // Minus zero has no integer form.
    Variant zero = parsed("-0");
    ASSERT_TRUE(zero.isInt());
    EXPECT_EQ(zero.asInt(), 0);

    // Beyond 64 bits a number becomes the nearest double.
    struct Wide
    {
        const char* text;
        double value;
    };
    const Wide wide[] = {
        {"9223372036854775808", 9223372036854775808.0},
        {"-9223372036854775809", -9223372036854775808.0},
        {"18446744073709551615", 18446744073709551616.0},
        {"18446744073709551616", 18446744073709551616.0},
        {"123456789012345678901234567890", 1.2345678901234568e29},
    };
    for (const Wide& w : wide)
    {
        Variant value = parsed(w.text);
        ASSERT_TRUE(value.isDouble()) << w.text;
        EXPECT_TRUE(sameBits(value.asDouble(), w.value)) << w.text;
    }
}

TEST(JsonNumbers, DoublesReadCorrectlyRoundedAndWriteBackExactly)
{
    struct Case
    {
        const char* text;
        double value;
    };
    const Case cases[] = {
        {"0.1", 0.1},
        {"1.0", 1.0},
        {"-2.5E+3", -2500.0},
        {"0.30000000000000004", 0.30000000000000004},
        {"1e-300", 1e-300},
        {"2.2250738585072014e-308", 2.2250738585072014e-308},
        {"2.2250738585072011e-308", 2.2250738585072011e-308},
        {"1.7976931348623157e308", 1.7976931348623157e308},
        {"1.7976931348623158e308", 1.7976931348623157e308},
        {"5e-324", 4.9406564584124654e-324},
        {"2.4703282292062328e-324", 4.9406564584124654e-324},
        {"9007199254740993.0", 9007199254740992.0},
        {"1.00000000000000011102230246251565404236316680908203125", 1.0},
        {"1.00000000000000011102230246251565404236316680908203126", 1.0000000000000002},
        // Underflow keeps the sign.
        {"2.4703282292062327e-324", 0.0},
        {"1e-400", 0.0},
        {"-1e-400", -0.0},
        {"-0.0", -0.0},
        {"-123456789012345678901234567890e-360", -0.0},
        // A long run of fraction zeros before a large negative exponent.
        {"0.00000000000000000000000000000000000000000000000000000000001e-300", 0.0},
        {"0.00000000000000000000000000000000000000000000000000000000001e-260", 1e-319},
        {"100000000000000000000000000000000000000000000000000000000000e-359", 1e-300},
    };
    for (const Case& c : cases)
    {
        Variant value = parsed(c.text);
        ASSERT_TRUE(value.isDouble()) << c.text;
        EXPECT_TRUE(sameBits(value.asDouble(), c.value)) << c.text << " read as " << value.asDouble();
        EXPECT_EQ(dump(parsed(stringify(value))), dump(value)) << c.text << " written as " << stringify(value);
    }

    // An integral double keeps a fraction, so it reads back as a double.
    EXPECT_EQ(stringify(Variant(1.0)), "1.0");
    EXPECT_EQ(stringify(Variant(-0.0)), "-0.0");
    EXPECT_EQ(stringify(Variant(0.1)), "0.1");
    EXPECT_EQ(stringify(Variant(5e-324)), "5e-324");

    // Numbers beyond the range of a double cannot be read.
    for (const char* text : {"1e309", "-1e309", "1.8e308", "-1.8e308", "17976931348623159e292", "[1,2e400]"})
    {
        Variant result(7);
        EXPECT_EQ(parse(text, result), kInvalidArgument) << text;
        EXPECT_EQ(result, Variant(7)) << text;
    }

    // Doubles of every magnitude survive a write and a read bit for bit.
    std::mt19937_64 bits(20240611);
    int checked = 0;
    while (checked < 20000)
    {
        uint64 pattern = bits();
        double number;
        std::memcpy(&number, &pattern, sizeof number);
        if (!std::isfinite(number))
            continue;
        ++checked;
        Variant value(number);
        ASSERT_EQ(dump(parsed(stringify(value))), dump(value)) << stringify(value);
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
        {"null", "null"},
        {" \"s\" ", "\"s\""},
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
        {R"("a\u0000b")", R"("a\u0000b")"},
        {R"("\u00e9\u20AC\ud83d\ude00")", unicode},
        {unicode, unicode},
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
    // or leave to the reader (a byte order mark, bytes that are not UTF-8).
    const std::string_view documents[] = {
        "}", "{\"a\":}", "1 2", "nulll", "\xEF\xBB\xBF[1]",
        // NUL bytes anywhere are not white space and never end the input early.
        "[1]\0"sv, "\0[1]"sv, "[1\0]"sv, "[1,\0 2]"sv, "1\0"sv, "\0"sv, "[\"a\0b\"]"sv, "{\"a\0\":1}"sv, "[1]\n\0"sv,
        // Bytes that are not UTF-8, in values and in names (unpaired surrogate escapes: below).
        "\"\xFF\"", "\"\xC0\xAF\"", "\"\xC1\xBF\"", "\"\xE0\x80\xAF\"", "\"\xED\xA0\x80\"", "\"\xED\xBF\xBF\"",
        "\"\xF4\x90\x80\x80\"", "\"\xF8\x88\x80\x80\x80\"", "\"\xE2\x82\"", "\"\x80\"", "\"a\xC3\"", "{\"\xFE\":1}",
    };
    for (std::string_view document : documents)
    {
        Variant result(42);
        EXPECT_EQ(parse(document, result), kInvalidArgument) << testing::PrintToString(std::string(document));
        EXPECT_EQ(result, Variant(42)) << testing::PrintToString(std::string(document));
    }

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

    // Missing pointers.
    Variant result(42);
    EXPECT_EQ(JsonParse("[1]", 3, nullptr), kInvalidArgument);
    EXPECT_EQ(Json::parse(nullptr, 3, result), kInvalidArgument);
    EXPECT_EQ(Json::parse(nullptr, 0, result), kInvalidArgument);
    EXPECT_EQ(result, Variant(42));
}

TEST(JsonParse, ReadsExactlyTheGivenLength)
{
    // The bytes after `length` are not part of the document.
    const char buffer[] = "[1][2]";
    Variant result;
    ASSERT_EQ(Json::parse(buffer, 3, result), kResultOk);
    ASSERT_NE(result.asObject<AttributeArray>(), nullptr);
    EXPECT_EQ(result.asObject<AttributeArray>()->count(), 1u);
    EXPECT_EQ(Json::parse(buffer, 4, result), kInvalidArgument);
    const char number[] = "12345";
    ASSERT_EQ(Json::parse(number, 2, result), kResultOk);
    EXPECT_EQ(result, Variant(12));

    // The length limit is checked before anything is read.
    std::string large(Text::JsonReader::kMaxLength + 1, ' ');
    large[0] = '0';
    ASSERT_EQ(Json::parse(large.data(), Text::JsonReader::kMaxLength, result), kResultOk);
    EXPECT_EQ(result, Variant(0));
    result = Variant(42);
    EXPECT_EQ(Json::parse(large.data(), large.size(), result), kInvalidArgument);
    EXPECT_EQ(result, Variant(42));
}

TEST(JsonParse, NestingIsLimitedWithoutExhaustingTheStack)
{
    EXPECT_EQ(stringify(parsed(nestedArrays(kMaxDepth))), nestedArrays(kMaxDepth));
    EXPECT_TRUE(parsed(nestedObjects(kMaxDepth)).isObject());

    for (const std::string& document :
         {nestedArrays(kMaxDepth + 1), nestedObjects(kMaxDepth + 1), std::string(100000, '['), nestedArrays(100000),
          std::string(100000, '{'), "[" + nestedObjects(kMaxDepth) + "]"})
    {
        Variant result(42);
        EXPECT_EQ(parse(document, result), kInvalidArgument) << document.substr(0, 20);
        EXPECT_EQ(result, Variant(42));
    }
}

TEST(JsonStringify, WritesCompactTextOrRefusesWhatJsonCannotHold)
{
    auto list = makeRef<Attributes>();
    list->add("int", int64(-7));
    list->add("double", 0.25);
    list->add("text", "t");
    list->add("nothing", Variant());
    auto array = makeRef<AttributeArray>();
    array->append(1);
    array->append(makeRef<Attributes>());
    list->add("array", array);
    EXPECT_EQ(stringify(Variant(list)), R"({"int":-7,"double":0.25,"text":"t","nothing":null,"array":[1,{}]})");

    // Scalars at the root.
    EXPECT_EQ(stringify(Variant()), "null");
    EXPECT_EQ(stringify(Variant("x")), "\"x\"");

    // A name that is not UTF-8 is written with U+FFFD in place of the bad bytes.
    auto bad = makeRef<Attributes>();
    bad->add("\xFFx", 1);
    bad->add("\xC3\xA9", 2);
    EXPECT_EQ(stringify(Variant(bad)), "{\"\xEF\xBF\xBDx\":1,\"\xC3\xA9\":2}");

    // Values without a JSON form, at the root or deep inside.
    const double notFinite[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity()};
    for (double number : notFinite)
    {
        EXPECT_EQ(stringifyResult(Variant(number)), kInvalidArgument);
        auto holder = makeRef<AttributeArray>();
        holder->append(1);
        holder->append(number);
        EXPECT_EQ(stringifyResult(Variant(holder)), kInvalidArgument);
    }
    auto stream = makeRef<MemoryStream>();
    EXPECT_EQ(stringifyResult(Variant(stream)), kInvalidArgument);
    auto holder = makeRef<Attributes>();
    holder->add("stream", stream);
    EXPECT_EQ(stringifyResult(Variant(holder)), kInvalidArgument);

    // Missing pointers.
    EXPECT_EQ(CreateJsonWriter(nullptr), nullptr);

    // Nesting deeper than a document may hold, and a list that contains itself.
    Variant tooDeep = parsed(nestedArrays(kMaxDepth));
    auto outer = makeRef<AttributeArray>();
    outer->append(tooDeep);
    EXPECT_EQ(stringifyResult(Variant(outer)), kInvalidArgument);
    auto loop = makeRef<Attributes>();
    loop->add("self", loop);
    EXPECT_EQ(stringifyResult(Variant(loop)), kInvalidArgument);
    loop->clear();
}

TEST(JsonStringify, ReportsAStreamThatRefusesTheText)
{
    auto array = makeRef<AttributeArray>();
    for (int i = 0; i < 3000; ++i)
        array->append(String("element"));
    const Variant value(array);
    const std::string full = stringify(value);

    auto refusing = makeRef<BoundedStream>(0);
    EXPECT_EQ(Json::write(value, *refusing), kUnexpected);

    auto partial = makeRef<BoundedStream>(full.size() - 1);
    EXPECT_EQ(Json::write(value, *partial), kUnexpected);
    EXPECT_TRUE(full.starts_with(partial->text));

    auto enough = makeRef<BoundedStream>(full.size());
    EXPECT_EQ(Json::write(value, *enough), kResultOk);
    EXPECT_EQ(enough->text, full);
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

namespace {

/// Takes values until it has seen `limit` of them, then refuses with kUnexpected.
class CountingHandler : public Object, public IJsonHandler
{
public:
    explicit CountingHandler(int limit) : limit_(limit) {}
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

    std::vector<std::string> seen;

private:
    tresult take(std::string what)
    {
        if (static_cast<int>(seen.size()) >= limit_)
            return kUnexpected;
        seen.push_back(std::move(what));
        return kResultOk;
    }
    int limit_;
};

tresult CountingHandler::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IJsonHandler)
    return Object::queryInterface(iid, object);
}

} // namespace

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
    auto write = [](const std::function<void(IJsonWriter&)>& calls) {
        auto out = makeRef<MemoryStream>();
        Ref<IJsonWriter> writer = Ref<IJsonWriter>::adopt(CreateJsonWriter(out));
        calls(*writer);
        return std::make_pair(writer->finish(), std::string(out->view()));
    };
    auto [ok, text] = write([](IJsonWriter& w) {
        w.onStartObject();
        w.onKey("n", 1);
        w.onInteger(3);
        w.onKey("list", 4);
        w.onStartArray();
        w.onDouble(0.5);
        w.onString("\xC3\xA9", 2);
        w.onEndArray();
        w.onEndObject();
    });
    EXPECT_EQ(ok, kResultOk);
    EXPECT_EQ(text, "{\"n\":3,\"list\":[0.5,\"\xC3\xA9\"]}");

    EXPECT_EQ(write([](IJsonWriter& w) { w.onStartObject(); w.onInteger(1); }).first, kInvalidArgument); // no key
    EXPECT_EQ(write([](IJsonWriter& w) { w.onStartArray(); w.onKey("k", 1); }).first, kInvalidArgument); // key in array
    EXPECT_EQ(write([](IJsonWriter& w) { w.onStartArray(); }).first, kInvalidArgument);                  // unfinished
    EXPECT_EQ(write([](IJsonWriter& w) { w.onInteger(1); w.onInteger(2); }).first, kInvalidArgument);     // two roots
    EXPECT_EQ(write([](IJsonWriter&) {}).first, kInvalidArgument);                                         // nothing
    EXPECT_EQ(write([](IJsonWriter& w) { w.onStartArray(); w.onEndObject(); }).first, kInvalidArgument);  // mismatched
    auto [refused, partial] = write([](IJsonWriter& w) {
        w.onStartArray();
        w.onDouble(std::numeric_limits<double>::infinity());
        w.onInteger(1); // ignored after the refusal
        w.onEndArray();
    });
    EXPECT_EQ(refused, kInvalidArgument);
    EXPECT_EQ(partial.find('1'), std::string::npos);
}

namespace {

/// The escaped form the writer gives a text, spelled out byte by byte.
std::string escapedJson(std::string_view text)
{
    static const char hex[] = "0123456789ABCDEF";
    std::string out = "\"";
    for (char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        switch (c)
        {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (byte < 0x20)
                out += std::string("\\u00") + hex[byte >> 4] + hex[byte & 15];
            else
                out += c;
        }
    }
    return out + "\"";
}

} // namespace

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

    // The same text into a stream that refuses part of it.
    auto partial = makeRef<BoundedStream>(written.size() / 2);
    EXPECT_EQ(Json::write(Variant(object), *partial), kUnexpected);
    EXPECT_TRUE(written.starts_with(partial->text));
}

TEST(JsonParse, AnUnpairedSurrogateIsFoundAtAnyOffset)
{
    for (size_t offset = 0; offset <= 24; ++offset)
    {
        const std::string before(offset, 'a');
        for (const char* escape : {"\\udc00", "\\udfff", "\\ud800", "\\ud800\\u0041"})
        {
            Variant result(42);
            EXPECT_EQ(parse("\"" + before + escape + "b\"", result), kInvalidArgument) << offset << escape;
            EXPECT_EQ(parse("{\"" + before + escape + "\":1}", result), kInvalidArgument) << offset << escape;
            EXPECT_EQ(result, Variant(42));
        }
        // A pair, and the characters just below and above the surrogates, are text.
        EXPECT_EQ(parsed("\"" + before + "\\ud83d\\ude00\"").asString().toUtf8(), before + "\xF0\x9F\x98\x80");
        EXPECT_EQ(parsed("\"" + before + "\\ud7ff\\ue000\"").asString().toUtf8(), before + "\xED\x9F\xBF\xEE\x80\x80");
        EXPECT_EQ(parsed("\"" + before + "\xED\x9F\xBF\"").asString().toUtf8(), before + "\xED\x9F\xBF");
    }
}
