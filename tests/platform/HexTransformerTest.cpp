#include "framework/core/Ref.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"

#include "BoundedStream.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace KVX;
using KVX::Testing::BoundedStream;

namespace {

Ref<IDataTransformer> hexEncoder()
{
    return Ref<IDataTransformer>::adopt(CreateDataTransformer(IDataTransformer::kHexEncode));
}

std::string encode(IDataTransformer& transformer, std::string_view bytes)
{
    auto out = makeRef<MemoryStream>();
    EXPECT_EQ(transformer.transform(bytes.data(), bytes.size(), out), kResultOk);
    return std::string(out->view());
}

} // namespace

TEST(HexTransformer, WritesTwoLowerCaseDigitsPerByteInByteOrder)
{
    auto hex = hexEncoder();
    ASSERT_NE(hex, nullptr);

    EXPECT_EQ(encode(*hex, std::string_view("\x00\x7f\x80\xff", 4)), "007f80ff");
    EXPECT_EQ(encode(*hex, "\x01\x23\x45\x67\x89\xAB\xCD\xEF"), "0123456789abcdef");
    EXPECT_EQ(encode(*hex, "Az"), "417a");

    // Nothing to encode writes nothing, with or without a pointer.
    EXPECT_EQ(encode(*hex, std::string_view()), "");
    EXPECT_EQ(encode(*hex, std::string_view("x", 0)), "");

    // Every byte value, in an input long enough to be written in several blocks.
    std::string input;
    std::string expected;
    for (int round = 0; round < 40; ++round)
        for (int byte = 0; byte < 256; ++byte)
        {
            input += static_cast<char>(byte);
            char digits[3];
            std::snprintf(digits, sizeof digits, "%02x", byte);
            expected += digits;
        }
    EXPECT_EQ(encode(*hex, input), expected);

    // The digits go to the stream's current position, after what it already holds.
    auto out = makeRef<MemoryStream>();
    out->write("digest=");
    ASSERT_EQ(hex->transform("\x0f\xf0", 2, out), kResultOk);
    ASSERT_EQ(hex->transform("\x10", 1, out), kResultOk);
    EXPECT_EQ(out->view(), "digest=0ff010");
}

TEST(HexTransformer, RefusesMissingArgumentsAndReportsARefusedWrite)
{
    auto hex = hexEncoder();
    ASSERT_NE(hex, nullptr);

    EXPECT_EQ(hex->transform("ab", 2, nullptr), kInvalidArgument);
    auto out = makeRef<MemoryStream>();
    EXPECT_EQ(hex->transform(nullptr, 3, out), kInvalidArgument);
    EXPECT_EQ(out->size(), 0u);

    auto refusing = makeRef<BoundedStream>(0);
    EXPECT_EQ(hex->transform("ab", 2, refusing), kUnexpected);

    // A stream that fills up part way holds the start of the text, up to the refused write.
    std::string input(5000, '\x5a');
    std::string full;
    for (size_t i = 0; i < input.size(); ++i)
        full += "5a";
    auto small = makeRef<BoundedStream>(6000);
    EXPECT_EQ(hex->transform(input.data(), input.size(), small), kUnexpected);
    EXPECT_LT(small->text.size(), full.size());
    EXPECT_TRUE(full.starts_with(small->text));
}

TEST(HexTransformer, OnlyTheHexKindIsCreatedAndTheCallerOwnsIt)
{
    EXPECT_EQ(CreateDataTransformer(0), nullptr);
    EXPECT_EQ(CreateDataTransformer(2), nullptr);
    EXPECT_EQ(CreateDataTransformer(0xFFFFFFFFu), nullptr);

    IDataTransformer* raw = CreateDataTransformer(IDataTransformer::kHexEncode);
    ASSERT_NE(raw, nullptr);
    // A fresh object carries exactly the caller's reference.
    EXPECT_EQ(raw->retain(), 2u);
    EXPECT_EQ(raw->release(), 1u);

    void* found = nullptr;
    ASSERT_EQ(raw->queryInterface(IDataTransformer::kIID, &found), kResultOk);
    EXPECT_EQ(found, raw);
    EXPECT_EQ(static_cast<IDataTransformer*>(found)->release(), 1u);
    EXPECT_EQ(raw->queryInterface(IStream::kIID, &found), kInvalidArgument);
    EXPECT_EQ(found, nullptr);
    EXPECT_NE(unknown_cast<Object>(raw), nullptr);

    EXPECT_EQ(raw->release(), 0u);
}
