#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"
#include "framework/data/Variant.h"

#include "tests/support/PrintString.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace KVX;

TEST(Variant, ConvertsToStringByTheVariantRule)
{
    EXPECT_EQ(Variant(42).toString(), "42");
    EXPECT_EQ(Variant(int64{-9007199254740993}).toString(), "-9007199254740993");
    EXPECT_EQ(Variant(2.5).toString(), "2.5");
    EXPECT_EQ(Variant("Grüße").toString(), "Grüße");
    EXPECT_EQ(Variant().toString(), "");
    EXPECT_EQ(Variant(makeRef<Attributes>()).toString(), "");

    EXPECT_EQ(Variant(42).asString(), ""); // no conversion
    EXPECT_EQ(Variant("x").asString(), "x");
    EXPECT_EQ(Variant(true).type(), Variant::kInt);
    EXPECT_EQ(Variant(true).asInt(), 1);
    EXPECT_TRUE(Variant().isEmpty());
}

TEST(Variant, NumbersConvertByTruncationTowardZero)
{
    EXPECT_EQ(Variant(3.9).asInt(), 3);
    EXPECT_EQ(Variant(-3.9).asInt(), -3);
    EXPECT_EQ(Variant(std::nan("")).asInt(), 0);
    EXPECT_EQ(Variant(1e300).asInt(), std::numeric_limits<int64>::max());
    EXPECT_EQ(Variant("12").asInt(), 0);
    EXPECT_EQ(Variant(7).asDouble(), 7.0);
    EXPECT_EQ(Variant("1.5").asDouble(), 0.0);
    EXPECT_TRUE(Variant(7).isNumeric());
    EXPECT_FALSE(Variant("7").isNumeric());
}

TEST(Variant, HoldsAReferenceToItsObject)
{
    Ref<Attributes> attributes = makeRef<Attributes>();
    Ref<AttributeArray> array = makeRef<AttributeArray>();
    ASSERT_EQ(attributes->referenceCount(), 1u);
    {
        Variant held(attributes);
        EXPECT_TRUE(held.isObject());
        EXPECT_EQ(attributes->referenceCount(), 2u);
        Variant copy = held;
        EXPECT_EQ(attributes->referenceCount(), 3u);
        EXPECT_EQ(copy.asObject<Attributes>(), attributes.get());
        EXPECT_EQ(copy.asObject<AttributeArray>(), nullptr);
        EXPECT_EQ(copy.asObject<Object>(), static_cast<Object*>(attributes.get()));
        EXPECT_EQ(attributes->referenceCount(), 3u); // looking it up takes no reference
        copy = 5;
        EXPECT_EQ(attributes->referenceCount(), 2u);
        held = Variant(array);
        EXPECT_EQ(attributes->referenceCount(), 1u);
        EXPECT_EQ(array->referenceCount(), 2u);
        EXPECT_EQ(held.asObject<AttributeArray>(), array.get());
        EXPECT_EQ(held.asObject<Attributes>(), nullptr);
    }
    EXPECT_EQ(array->referenceCount(), 1u);
    EXPECT_EQ(Variant(5).asObject<Attributes>(), nullptr);
    EXPECT_EQ(Variant(static_cast<IUnknown*>(nullptr)).asObject<Attributes>(), nullptr);
    EXPECT_TRUE(Variant(static_cast<Object*>(nullptr)).isEmpty()); // no object is nothing
}

TEST(Variant, TakesEveryIntegerType)
{
    std::vector<int> three(3);
    EXPECT_EQ(Variant(three.size()).asInt(), 3); // size_t
    EXPECT_EQ(Variant(uint32(4000000000u)).asInt(), 4000000000ll);
    EXPECT_EQ(Variant(static_cast<long long>(-7)).asInt(), -7);
    EXPECT_EQ(Variant(UINT64_MAX).asInt(), INT64_MAX); // clamped, not wrapped to -1
    EXPECT_EQ(Variant(true).asInt(), 1);
}

TEST(Attributes, SetReplacesInPlaceAndAddAppends)
{
    auto listed = [](const Attributes& attributes) {
        std::string text;
        for (const Attributes::Member& m : attributes)
            text += std::string(m.name.view()) + "=" + m.value.toString().toUtf8() + " ";
        return text;
    };
    Attributes a;
    a.set("a", 1);
    a.set("b", 2);
    a.set("a", 3);
    EXPECT_EQ(listed(a), "a=3 b=2 ");
    a.add("b", 4);
    a.add("c", 5);
    a.add("b", 6);
    EXPECT_EQ(listed(a), "a=3 b=2 b=4 c=5 b=6 ");
    EXPECT_EQ(a.getInt("b"), 2); // the first member of the name
    a.set("b", 7);
    EXPECT_EQ(listed(a), "a=3 b=7 c=5 ");
    EXPECT_TRUE(a.remove("a"));
    EXPECT_FALSE(a.remove("a"));
    EXPECT_EQ(a.find("a"), nullptr);
    a.addAll(a);
    EXPECT_EQ(listed(a), "b=7 c=5 b=7 c=5 ");
}

TEST(Attributes, TypedGettersConvertByTheirRules)
{
    Attributes a;
    a.set("up", 3.9);
    a.set("down", -3.9);
    a.set("year", "2014");
    a.set("count", 215);
    a.set("huge", int64{5000000000});
    a.set("tiny", -1e12);
    a.set("child", makeRef<Attributes>());

    EXPECT_EQ(a.getInt64("up"), 3);
    EXPECT_EQ(a.getInt64("down"), -3);
    EXPECT_EQ(a.getInt("year"), 0);
    EXPECT_EQ(a.getDouble("year"), 0.0);
    EXPECT_EQ(a.getDouble("count"), 215.0);
    EXPECT_EQ(a.getString("count"), "215");
    EXPECT_EQ(a.getString("up"), "3.9");
    EXPECT_EQ(a.getString("child"), "");
    EXPECT_EQ(a.getInt64("huge"), 5000000000);
    EXPECT_EQ(a.getInt("huge"), std::numeric_limits<int32>::max());
    EXPECT_EQ(a.getInt("tiny"), std::numeric_limits<int32>::min());

    EXPECT_EQ(a.getInt64("missing"), 0);
    EXPECT_EQ(a.getDouble("missing"), 0.0);
    EXPECT_TRUE(a.getString("missing").isEmpty());
    EXPECT_EQ(a.getAttributes("missing"), nullptr);
    EXPECT_EQ(a.getAttributes("count"), nullptr);
}

TEST(Attributes, NestedObjectsAndArraysAreFoundByClass)
{
    Ref<Attributes> track = makeRef<Attributes>();
    track->set("title", "Intro");
    Ref<AttributeArray> tracks = makeRef<AttributeArray>();
    tracks->append(track);
    tracks->append(7);

    Attributes album;
    album.set("first", track);
    album.set("tracks", tracks);
    EXPECT_EQ(album.getAttributes("first"), track.get());
    EXPECT_EQ(album.getArray("first"), nullptr);
    EXPECT_EQ(album.getAttributes("tracks"), nullptr);
    AttributeArray* found = album.getArray("tracks");
    ASSERT_EQ(found, tracks.get());
    ASSERT_EQ(found->count(), 2u);
    EXPECT_EQ(found->getAttributes(0)->getString("title"), "Intro");
    EXPECT_EQ(found->getAttributes(1), nullptr);
    EXPECT_EQ(found->getAttributes(2), nullptr);
    EXPECT_EQ(track->referenceCount(), 3u); // ours, the array's and the album's
}

TEST(Attributes, CopiesAreIndependentButShareNestedObjects)
{
    Ref<Attributes> child = makeRef<Attributes>();
    Attributes original;
    original.set("x", 1);
    original.set("name", "a");
    original.set("child", child);

    Attributes copy(original);
    EXPECT_EQ(copy.referenceCount(), 1u);
    EXPECT_EQ(child->referenceCount(), 3u);
    copy.set("x", 2);
    copy.set("name", "b");
    copy.add("y", 3);
    EXPECT_EQ(original.getInt("x"), 1);
    EXPECT_EQ(original.getString("name"), "a");
    EXPECT_EQ(original.count(), 3u);
    EXPECT_EQ(copy.getAttributes("child"), original.getAttributes("child"));

    Attributes assigned;
    assigned.set("z", 0);
    assigned = copy;
    EXPECT_EQ(assigned.getInt("x"), 2);
    EXPECT_FALSE(assigned.contains("z"));
    EXPECT_EQ(child->referenceCount(), 4u);
    copy.clear();
    EXPECT_EQ(child->referenceCount(), 3u);
}
