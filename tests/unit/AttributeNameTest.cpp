#include "framework/data/AttributeName.h"
#include "framework/data/Attributes.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

using namespace KVX;
using namespace std::string_view_literals;

TEST(AttributeName, KeepsEveryByteOfNamesOfAnyLength)
{
    // Around the length where a name stops fitting in the object itself, and with NUL bytes.
    std::vector<std::string> texts = {"", "a", "id", std::string(14, 'x'), std::string(15, 'y'), std::string(16, 'z'),
                                      std::string(17, 'w'), std::string(1000, 'v'), std::string("a\0b", 3),
                                      std::string("fifteen\0bytes!!", 15), std::string("sixteen\0bytes!!!", 16)};
    for (const std::string& text : texts)
    {
        const AttributeName name(text);
        EXPECT_EQ(name.length(), text.size()) << text;
        EXPECT_EQ(name.view(), text);
        EXPECT_EQ(name.isEmpty(), text.empty());
        EXPECT_EQ(name.c_str()[text.size()], '\0') << "terminated at length " << text.size();
        EXPECT_EQ(std::string_view(name), text);
        EXPECT_EQ(name.toCString(), CString(text));

        AttributeName copy(name);
        EXPECT_EQ(copy, name);
        EXPECT_EQ(copy.view(), text);
        AttributeName moved(std::move(copy));
        EXPECT_EQ(moved.view(), text);
        EXPECT_TRUE(copy.isEmpty()); // a name moved from is empty

        AttributeName assigned("previous, and long enough to live on the heap");
        assigned = name;
        EXPECT_EQ(assigned.view(), text);
        assigned = AttributeName("short");
        EXPECT_EQ(assigned, "short");
        assigned = std::move(moved);
        EXPECT_EQ(assigned.view(), text);
    }

    // Equal only with the same bytes, whichever form each side has.
    EXPECT_EQ(AttributeName(std::string(15, 'y')), std::string(15, 'y'));
    EXPECT_NE(AttributeName(std::string(15, 'y')), AttributeName(std::string(16, 'y')));
    EXPECT_NE(AttributeName(std::string(16, 'y')), AttributeName(std::string(15, 'y')));
    EXPECT_NE(AttributeName("a\0"sv), AttributeName("a"));
    EXPECT_NE(AttributeName("a"), AttributeName("b"));
    EXPECT_NE(AttributeName(std::string(20, 'a') + "b"), AttributeName(std::string(20, 'a') + "c"));
    EXPECT_EQ(AttributeName("id"), "id");
    EXPECT_EQ(AttributeName("id"), CString("id"));
    EXPECT_EQ(AttributeName("id"), "id"sv);
    EXPECT_EQ(AttributeName(nullptr), "");

    // Self-assignment keeps the name.
    AttributeName self(std::string(40, 's'));
    AttributeName& alias = self;
    self = alias;
    EXPECT_EQ(self.view(), std::string(40, 's'));
}

TEST(AttributeName, MembersOfAnyNameLengthAreFoundReplacedAndRemoved)
{
    const std::string longName(30, 'n');
    Attributes attributes;
    attributes.add("short", 1);
    attributes.add(longName, 2);
    attributes.add(std::string(15, 'f'), 3);
    EXPECT_EQ(attributes.getInt64(longName), 2);
    EXPECT_EQ(attributes.getInt64(std::string(15, 'f')), 3);
    EXPECT_EQ(attributes.find(std::string(31, 'n')), nullptr);

    attributes.set(longName, 4);
    EXPECT_EQ(attributes.at(1).name, longName);
    EXPECT_EQ(attributes.getInt64(longName), 4);

    Attributes copy = attributes;
    EXPECT_TRUE(copy.remove(longName));
    EXPECT_FALSE(copy.contains(longName));
    EXPECT_TRUE(attributes.contains(longName));
    EXPECT_EQ(copy.count(), 2u);
    EXPECT_EQ(copy.at(1).name, std::string(15, 'f'));
}
