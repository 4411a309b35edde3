#include "framework/data/Variant.h"
#include "framework/stream/MemoryStream.h"
#include "framework/upload/MultipartForm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

using namespace KVX;

namespace {

Ref<MemoryStream> fileOf(std::string_view bytes)
{
    auto file = makeRef<MemoryStream>();
    file->write(bytes);
    file->seek(0, IStream::kSeekSet);
    return file;
}

/// The whole body as the request object would read it.
std::string read(MultipartForm& form)
{
    std::string body;
    char buffer[7]; // small reads cross every piece boundary
    for (int64 got; (got = form.body().read(buffer, sizeof buffer)) > 0;)
        body.append(buffer, static_cast<size_t>(got));
    return body;
}

const std::string B = "----------------------------XXBOUNDARY1A2B";

} // namespace

TEST(MultipartForm, WritesFieldsTheTypeFieldAndTheFileExactly)
{
    auto form = makeRef<MultipartForm>(0x1A2B);
    EXPECT_EQ(form->boundary(), B);
    EXPECT_EQ(form->getContentType(), "multipart/form-data; boundary=" + B);
    ASSERT_TRUE(form->addField("name1", "value1"));
    ASSERT_TRUE(form->addField("key", Variant(int64(42)).toString().toUtf8())); // a number goes as its text
    ASSERT_TRUE(form->addField("Content-Type", "audio/x-wav"));
    auto file = fileOf(std::string("RIFF\0\x01\x02WAVE", 11));
    ASSERT_TRUE(form->addFile("file", "song.wav", file, 11));
    EXPECT_FALSE(form->addField("late", "x")) << "the file part closes the body";
    EXPECT_FALSE(form->addFile("file", "again.wav", file, 0));

    const std::string expected = "--" + B + "\r\n" + "Content-Disposition: form-data; name=\"name1\"\r\n\r\nvalue1\r\n" +
                                 "--" + B + "\r\n" + "Content-Disposition: form-data; name=\"key\"\r\n\r\n42\r\n" + "--" +
                                 B + "\r\n" + "Content-Disposition: form-data; name=\"Content-Type\"\r\n\r\naudio/x-wav\r\n" +
                                 "--" + B + "\r\n" +
                                 "Content-Disposition: form-data; name=\"file\"; filename=\"song.wav\"\r\n" +
                                 "Content-Transfer-Encoding: binary\r\n" + "Content-Type: application/octet-stream\r\n" +
                                 "\r\n" + std::string("RIFF\0\x01\x02WAVE", 11) + "\r\n--" + B + "--\r\n";
    EXPECT_EQ(read(*form), expected);
    EXPECT_EQ(form->length(), static_cast<int64>(expected.size())) << "the length is the sum of the pieces";
    EXPECT_EQ(form->body().pieceCount(), 6u);

    // The body can be rewound and read again, as a transfer that starts over does.
    ASSERT_EQ(form->body().seek(0, IStream::kSeekSet), 0);
    EXPECT_EQ(read(*form), expected);
}

TEST(MultipartForm, EdgeCasesOfTheBody)
{
    // No service fields: only the type field and the file part; an empty file's header is
    // followed directly by CR LF and the closing delimiter.
    auto form = makeRef<MultipartForm>(0);
    EXPECT_EQ(form->boundary(), "----------------------------XXBOUNDARY0000");
    EXPECT_EQ(form->boundary().view().size(), 42u);
    form->addField("Content-Type", "audio/x-wav");
    auto empty = fileOf("");
    ASSERT_TRUE(form->addFile("file", "silence.wav", empty, 0));
    const std::string body = read(*form);
    const std::string b0 = "----------------------------XXBOUNDARY0000";
    EXPECT_TRUE(body.ends_with("Content-Type: application/octet-stream\r\n\r\n\r\n--" + b0 + "--\r\n"));
    EXPECT_EQ(body.find("name=\"Content-Type\""), body.rfind("name=\"Content-Type\"")); // one field only
    EXPECT_EQ(form->length(), static_cast<int64>(body.size()));

    // A file name with letters beyond ASCII goes as its UTF-8 bytes.
    auto named = makeRef<MultipartForm>(0x7FFF);
    EXPECT_EQ(named->boundary(), "----------------------------XXBOUNDARY7FFF");
    ASSERT_TRUE(named->addFile("file", "Grüße – take 1.wav", fileOf("x"), 1));
    EXPECT_NE(read(*named).find("filename=\"Gr\xC3\xBC\xC3\x9F" "e \xE2\x80\x93 take 1.wav\""), std::string::npos);

    // A file shorter than its stated length fails the read rather than sending a short body.
    auto shortFile = makeRef<MultipartForm>(1);
    ASSERT_TRUE(shortFile->addFile("file", "short.wav", fileOf("abc"), 10));
    std::string got;
    char buffer[64];
    int64 n = 0;
    while ((n = shortFile->body().read(buffer, sizeof buffer)) > 0)
        got.append(buffer, static_cast<size_t>(n));
    EXPECT_EQ(n, -1);

    // Refused input changes nothing.
    auto refused = makeRef<MultipartForm>(2);
    EXPECT_FALSE(refused->addFile("file", "none.wav", nullptr, 0));
    EXPECT_FALSE(refused->addFile("file", "negative.wav", fileOf("x"), -1));
    EXPECT_EQ(refused->length(), 0);
    EXPECT_TRUE(refused->addField("still", "open"));
}

TEST(MultipartForm, EveryDrawnBoundaryEndsInTheGeneratorsRange)
{
    // The generator of this C library reaches 2^31 - 1; the boundary's number must still stay in
    // 0000-7FFF, whatever it draws. Enough draws to meet the upper half of 16 bits many times over.
    const std::string prefix = "----------------------------XXBOUNDARY";
    std::srand(7);
    unsigned highest = 0;
    for (int i = 0; i < 20000; ++i)
    {
        const std::string boundary(MultipartForm::make()->boundary().view());
        ASSERT_EQ(boundary.size(), 42u) << boundary;
        ASSERT_EQ(boundary.substr(0, prefix.size()), prefix) << boundary;
        const std::string digits = boundary.substr(prefix.size());
        ASSERT_EQ(digits.find_first_not_of("0123456789ABCDEF"), std::string::npos) << boundary;
        const unsigned number = static_cast<unsigned>(std::stoul(digits, nullptr, 16));
        ASSERT_LE(number, 0x7FFFu) << boundary;
        highest = std::max(highest, number);
    }
    EXPECT_GT(highest, 0x7000u) << "the draws cover the range";
    // A value given from outside the range is taken into it the same way.
    EXPECT_EQ(makeRef<MultipartForm>(0x18001)->boundary(), prefix + "0001");
}
