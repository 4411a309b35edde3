#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace KVX;

namespace {

uint32 hashOf(std::string_view bytes)
{
    uint32 hash = 0;
    EXPECT_EQ(Hash(bytes.data(), bytes.size(), &hash), kResultOk);
    return hash;
}

} // namespace

TEST(Hash, IsThe32BitFowlerNollVoOneAHash)
{
    // Published test values of the algorithm.
    EXPECT_EQ(hashOf("a"), 0xE40C292Cu);
    EXPECT_EQ(hashOf("foobar"), 0xBF9CF968u);
    EXPECT_NE(hashOf(std::string_view("a\0b", 3)), hashOf("a")) << "every byte counts, zero included";
    EXPECT_NE(hashOf(std::string_view("a\0b", 3)), hashOf("ab"));

    // The empty input gives the offset basis.
    uint32 hash = 7;
    EXPECT_EQ(Hash(nullptr, 0, &hash), kResultOk);
    EXPECT_EQ(hash, 0x811C9DC5u);
    hash = 7;
    EXPECT_EQ(Hash(nullptr, 5, &hash), kInvalidArgument);
    EXPECT_EQ(hash, 7u);
    EXPECT_EQ(Hash("a", 1, nullptr), kInvalidArgument);
}

TEST(CreateUID, MakesDistinctRandomVersionFourIdentifiers)
{
    constexpr int kCount = 2000;
    std::set<std::string> seen;
    std::array<uint8, 16> anySet{}, allSet;
    allSet.fill(0xFF);
    for (int i = 0; i < kCount; ++i)
    {
        UID uid;
        ASSERT_EQ(CreateUID(&uid), kResultOk);
        const auto& bytes = uid.bytes();
        seen.insert(uid.toString());
        for (size_t b = 0; b < 16; ++b)
        {
            anySet[b] |= bytes[b];
            allSet[b] &= bytes[b];
        }
    }
    EXPECT_EQ(seen.size(), size_t(kCount));
    // The version (4) and variant (10) bits were the same every time; every other bit took both values.
    for (size_t b = 0; b < 16; ++b)
    {
        const uint8 fixedOnes = b == 6 ? 0x40 : b == 8 ? 0x80 : 0;
        const uint8 fixedZeros = b == 6 ? 0xB0 : b == 8 ? 0x40 : 0;
        EXPECT_EQ(anySet[b], uint8(0xFF & ~fixedZeros)) << "byte " << b;
        EXPECT_EQ(allSet[b], fixedOnes) << "byte " << b;
    }
    EXPECT_EQ(CreateUID(nullptr), kInvalidArgument);
}
