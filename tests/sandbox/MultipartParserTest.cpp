// The sandbox's streaming multipart parser on its own: the same parts wherever the body is split,
// and a clear refusal for every malformed body.

#include "sandbox/MultipartParser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using SorvelSandbox::MultipartParser;

namespace
{

const std::string kBoundary = "----------------------------XXBOUNDARY0C1D";

struct Part
{
    std::vector<std::pair<std::string, std::string>> headers;
    std::string data;
    bool ended = false;

    bool operator==(const Part&) const = default;
};

struct Recorder : MultipartParser::Listener
{
    bool partBegin(const std::vector<MultipartParser::Header>& headers, std::string&) override
    {
        Part part;
        for (const MultipartParser::Header& header : headers)
            part.headers.emplace_back(header.name, header.value);
        parts.push_back(part);
        return true;
    }
    bool partData(const char* data, size_t length, std::string& error) override
    {
        if (refuseData)
        {
            error = "refused by the listener";
            return false;
        }
        parts.back().data.append(data, length);
        return true;
    }
    bool partEnd(std::string&) override
    {
        parts.back().ended = true;
        return true;
    }

    std::vector<Part> parts;
    bool refuseData = false;
};

std::string validBody()
{
    const std::string delimiter = "--" + kBoundary;
    // The file's bytes hold near-misses of the delimiter, also across any split point.
    const std::string file = "RIFF\r\n--" + kBoundary.substr(0, 20) + "\r\n\r\n--" + kBoundary.substr(1) + "X" +
                             std::string("\0\r\n-", 4) + "\r";
    return delimiter + "\r\nContent-Disposition: form-data; name=\"key\"\r\n\r\nvalue 1\r\n" + delimiter +
           "\r\nContent-Disposition: form-data; name=\"empty\"\r\n\r\n\r\n" + delimiter +
           "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a.wav\"\r\nContent-Type:\t "
           "application/octet-stream  \r\n\r\n" +
           file + "\r\n" + delimiter + "--\r\n";
}

std::vector<Part> parse(const std::vector<std::string>& pieces, bool& ok, std::string& error)
{
    Recorder recorder;
    MultipartParser parser(kBoundary, recorder);
    ok = true;
    for (const std::string& piece : pieces)
        ok = parser.feed(piece.data(), piece.size()) && ok;
    ok = parser.finish() && ok;
    error = parser.error();
    return recorder.parts;
}

} // namespace

TEST(MultipartParser, ReadsTheSamePartsWhereverTheBodyIsSplit)
{
    const std::string body = validBody();
    bool ok = false;
    std::string error;
    const std::vector<Part> whole = parse({body}, ok, error);
    ASSERT_TRUE(ok) << error;
    ASSERT_EQ(whole.size(), 3u);
    EXPECT_EQ(whole[0].headers, (std::vector<std::pair<std::string, std::string>>{
                                    {"Content-Disposition", "form-data; name=\"key\""}}));
    EXPECT_EQ(whole[0].data, "value 1");
    EXPECT_EQ(whole[1].data, "");
    EXPECT_EQ(whole[2].headers[1], (std::pair<std::string, std::string>{"Content-Type", "application/octet-stream"}));
    EXPECT_EQ(whole[2].data.size(), 4 + 2 + 2 + 20 + 4 + 2 + kBoundary.size() - 1 + 1 + 4 + 1);
    EXPECT_EQ(whole[2].data.substr(0, 6), "RIFF\r\n");
    EXPECT_TRUE(whole[2].ended);

    for (size_t split = 0; split <= body.size(); ++split)
    {
        EXPECT_EQ(parse({body.substr(0, split), body.substr(split)}, ok, error), whole) << "split at " << split;
        EXPECT_TRUE(ok) << "split at " << split << ": " << error;
    }
    std::vector<std::string> bytes;
    for (char c : body)
        bytes.emplace_back(1, c);
    EXPECT_EQ(parse(bytes, ok, error), whole);
    EXPECT_TRUE(ok) << error;
}

TEST(MultipartParser, RefusesMalformedBodiesWithTheReasonAndTheOffset)
{
    const std::string body = validBody();
    const std::string delimiter = "--" + kBoundary;
    auto replaced = [&](const std::string& from, const std::string& to) {
        std::string text = body;
        return text.replace(text.find(from), from.size(), to);
    };
    struct Case
    {
        const char* what;
        std::string body;
        const char* error;
    };
    const std::vector<Case> cases = {
        {"empty", "", "the body is empty"},
        {"preamble", "\r\n" + body, "must begin with the delimiter line"},
        {"short first delimiter", delimiter.substr(0, 10), "ends inside its first delimiter"},
        {"padding after a delimiter", replaced(delimiter + "\r\n", delimiter + " \r\n"), "followed by CR LF"},
        {"bare LF", replaced("\"key\"\r\n", "\"key\"\n"), "bare LF"},
        {"bare CR", replaced("\"key\"\r\n", "\"key\"\rx\r\n"), "bare CR"},
        {"no colon", replaced("Content-Type:\t", "Content-Type\t"), "\"Name: value\""},
        {"space in a name", replaced("Content-Type:", "Content Type:"), "\"Name: value\""},
        {"folded header", replaced("\"key\"\r\n", "\"key\"\r\n continued\r\n"), "folded"},
        {"control character", replaced("\"key\"", "\"k\x01y\""), "control character"},
        {"part without headers", replaced("Content-Disposition: form-data; name=\"key\"\r\n", ""), "has no headers"},
        {"headers cut off", body.substr(0, body.find("name=\"key\"")), "ends inside the headers of part 1"},
        {"no closing delimiter", body.substr(0, body.size() - delimiter.size() - 4), "closing delimiter"},
        {"closing without CR LF", body.substr(0, body.size() - 2), "without the CR LF"},
        {"closing followed by LF only", body.substr(0, body.size() - 2) + "\n", "followed by exactly CR LF"},
        {"data after the closing delimiter", body + "--", "data follows the closing delimiter"},
        {"header line too long", replaced("name=\"key\"", "name=\"" + std::string(9000, 'k') + "\""), "longer than 8192"},
    };
    for (const Case& test : cases)
    {
        bool ok = true;
        std::string error;
        parse({test.body}, ok, error);
        EXPECT_FALSE(ok) << test.what;
        EXPECT_NE(error.find(test.error), std::string::npos) << test.what << ": " << error;
        EXPECT_NE(error.find("(at byte "), std::string::npos) << test.what << ": " << error;
    }

    std::string manyHeaders = delimiter + "\r\n";
    for (int i = 0; i < 17; ++i)
        manyHeaders += "X-" + std::to_string(i) + ": v\r\n";
    bool ok = true;
    std::string error;
    parse({manyHeaders + "\r\n"}, ok, error);
    EXPECT_NE(error.find("more than 16 headers"), std::string::npos) << error;
}

TEST(MultipartParser, StopsWhenTheListenerRefuses)
{
    Recorder recorder;
    recorder.refuseData = true;
    MultipartParser parser(kBoundary, recorder);
    const std::string body = validBody();
    EXPECT_FALSE(parser.feed(body.data(), body.size()));
    EXPECT_TRUE(parser.failed());
    EXPECT_NE(parser.error().find("refused by the listener"), std::string::npos);
    EXPECT_EQ(recorder.parts.size(), 1u);
    EXPECT_FALSE(parser.feed(body.data(), body.size()));
    EXPECT_FALSE(parser.finish());
    EXPECT_EQ(recorder.parts.size(), 1u);
}

TEST(MultipartParser, TakesTheBoundaryFromTheContentType)
{
    struct Case
    {
        std::string contentType;
        std::string boundary; // empty: refused
    };
    const std::vector<Case> cases = {
        {"multipart/form-data; boundary=" + kBoundary, kBoundary},
        {"Multipart/Form-Data;boundary=\"quoted boundary\"", "quoted boundary"},
        {"multipart/form-data; charset=utf-8; BOUNDARY=abc", "abc"},
        {"multipart/form-data; boundary=" + std::string(70, 'b'), std::string(70, 'b')},
        {"multipart/form-data; boundary=" + std::string(71, 'b'), ""},
        {"multipart/form-data; boundary=\"trailing \"", ""},
        {"multipart/form-data; boundary=a;b", ""},
        {"multipart/form-data; boundary=a\"b", ""},
        {"multipart/form-data; boundary=", ""},
        {"multipart/form-data; boundary=a; boundary=b", ""},
        {"multipart/form-data", ""},
        {"multipart/mixed; boundary=abc", ""},
        {"", ""},
    };
    for (const Case& test : cases)
    {
        std::string boundary, error;
        const bool ok = MultipartParser::boundaryFromContentType(test.contentType, boundary, error);
        EXPECT_EQ(ok, !test.boundary.empty()) << test.contentType << ": " << error;
        if (ok)
            EXPECT_EQ(boundary, test.boundary);
        else
            EXPECT_FALSE(error.empty());
    }
}
