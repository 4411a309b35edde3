#include "UploadForm.h"

#include "TextCompare.h"

#include <rapidjson/encodings.h>
#include <rapidjson/stream.h>

#include <algorithm>

namespace SorvelSandbox
{

namespace
{

// An output stream for RapidJSON's UTF-8 check, which copies what it validates.
struct Discard
{
    using Ch = char;
    void Put(char) {}
};

bool isUtf8(const std::string& text)
{
    Discard discard;
    rapidjson::StringStream in(text.c_str());
    while (in.Peek() != '\0')
        if (!rapidjson::UTF8<>::Validate(in, discard))
            return false;
    return in.Tell() == text.size();
}

std::string inQuotes(const std::string& text)
{
    return "\"" + text + "\"";
}

struct Disposition
{
    std::string name;
    std::string fileName;
    bool hasName = false;
    bool hasFileName = false;
};

// Reads "form-data; name=\"...\"" with an optional "; filename=\"...\"". Parameter values must be
// quoted; a quoted value runs to the next quote, since the client writes names unescaped.
bool parseDisposition(std::string_view text, Disposition& result, std::string& error)
{
    auto skipSpaces = [&text] {
        while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
            text.remove_prefix(1);
    };
    size_t typeEnd = std::min(text.find(';'), text.size());
    std::string_view type = text.substr(0, typeEnd);
    while (!type.empty() && (type.back() == ' ' || type.back() == '\t'))
        type.remove_suffix(1);
    if (!equalsIgnoringCase(type, "form-data"))
    {
        error = "the Content-Disposition is \"" + std::string(type) + "\", expected \"form-data\"";
        return false;
    }
    text.remove_prefix(typeEnd);
    for (;;)
    {
        skipSpaces();
        if (text.empty())
            break;
        if (text.front() != ';')
        {
            error = "the Content-Disposition header is malformed after \"form-data\"";
            return false;
        }
        text.remove_prefix(1);
        skipSpaces();
        size_t equals = text.find('=');
        if (equals == std::string_view::npos || equals + 1 >= text.size() || text[equals + 1] != '"')
        {
            error = "a Content-Disposition parameter is not of the form name=\"value\"";
            return false;
        }
        std::string parameter(text.substr(0, equals));
        text.remove_prefix(equals + 2);
        size_t close = text.find('"');
        if (close == std::string_view::npos)
        {
            error = "a Content-Disposition parameter value lacks its closing quote";
            return false;
        }
        std::string value(text.substr(0, close));
        text.remove_prefix(close + 1);
        const bool isName = equalsIgnoringCase(parameter, "name");
        if (!isName && !equalsIgnoringCase(parameter, "filename"))
        {
            error = "the Content-Disposition parameter \"" + parameter + "\" is not expected";
            return false;
        }
        bool& seen = isName ? result.hasName : result.hasFileName;
        if (seen)
        {
            error = "the Content-Disposition parameter \"" + parameter + "\" appears twice";
            return false;
        }
        seen = true;
        (isName ? result.name : result.fileName) = std::move(value);
    }
    if (!result.hasName)
    {
        error = "the Content-Disposition header has no name";
        return false;
    }
    return true;
}

} // namespace

UploadForm::UploadForm(std::vector<Field> expectedFields, FileSink& sink) : fields(std::move(expectedFields)), sink(sink)
{
    fields.push_back(Field{"Content-Type", "audio/x-wav"});
}

UploadForm::Expect UploadForm::expectation() const
{
    if (partIndex + 1 < fields.size())
        return Expect::Field;
    if (partIndex + 1 == fields.size())
        return Expect::FileContentTypeField;
    return partIndex == fields.size() ? Expect::File : Expect::Nothing;
}

std::string UploadForm::describePart() const
{
    return "part " + std::to_string(partIndex + 1);
}

bool UploadForm::partBegin(const std::vector<MultipartParser::Header>& headers, std::string& error)
{
    const MultipartParser::Header* disposition = nullptr;
    const MultipartParser::Header* transferEncoding = nullptr;
    const MultipartParser::Header* contentType = nullptr;
    for (const MultipartParser::Header& header : headers)
    {
        const MultipartParser::Header** slot = nullptr;
        if (equalsIgnoringCase(header.name, "Content-Disposition"))
            slot = &disposition;
        else if (equalsIgnoringCase(header.name, "Content-Transfer-Encoding"))
            slot = &transferEncoding;
        else if (equalsIgnoringCase(header.name, "Content-Type"))
            slot = &contentType;
        else
        {
            error = describePart() + " carries the unexpected header \"" + header.name + "\"";
            return false;
        }
        if (*slot != nullptr)
        {
            error = describePart() + " repeats the header \"" + header.name + "\"";
            return false;
        }
        *slot = &header;
    }
    if (disposition == nullptr)
    {
        error = describePart() + " has no Content-Disposition header";
        return false;
    }
    Disposition parsed;
    if (!parseDisposition(disposition->value, parsed, error))
    {
        error = describePart() + ": " + error;
        return false;
    }

    const Expect expect = expectation();
    if (expect == Expect::Nothing)
    {
        error = describePart() + " follows the file part; the closing delimiter was expected";
        return false;
    }
    if (expect == Expect::Field || expect == Expect::FileContentTypeField)
    {
        const Field& wanted = fields[partIndex];
        if (parsed.hasFileName)
        {
            error = describePart() + " is a file part named " + inQuotes(parsed.name) + ", but the form field " +
                    inQuotes(wanted.name) + " was expected";
            return false;
        }
        if (parsed.name != wanted.name)
        {
            error = describePart() + " is the form field " + inQuotes(parsed.name) + ", but the form field " +
                    inQuotes(wanted.name) + " was expected";
            return false;
        }
        if (transferEncoding != nullptr || contentType != nullptr)
        {
            error = "the form field " + inQuotes(wanted.name) + " carries a header besides Content-Disposition";
            return false;
        }
        value.clear();
        inFile = false;
        return true;
    }

    if (!parsed.hasFileName)
    {
        error = describePart() + " is the form field " + inQuotes(parsed.name) +
                ", but the file part was expected after the form field \"Content-Type\"";
        return false;
    }
    if (parsed.name != "file")
    {
        error = "the file part is named " + inQuotes(parsed.name) + ", expected \"file\"";
        return false;
    }
    if (parsed.fileName.empty() || parsed.fileName.find('/') != std::string::npos || !isUtf8(parsed.fileName))
    {
        error = "the file part's filename " + inQuotes(parsed.fileName) +
                " is not a file name in UTF-8 (it must be non-empty and hold no \"/\")";
        return false;
    }
    if (transferEncoding == nullptr || !equalsIgnoringCase(transferEncoding->value, "binary"))
    {
        error = "the file part needs the header \"Content-Transfer-Encoding: binary\"";
        return false;
    }
    if (contentType == nullptr || !equalsIgnoringCase(contentType->value, "application/octet-stream"))
    {
        error = "the file part needs the header \"Content-Type: application/octet-stream\"";
        return false;
    }
    receivedFileName = parsed.fileName;
    inFile = true;
    return true;
}

bool UploadForm::partData(const char* data, size_t length, std::string& error)
{
    if (inFile)
    {
        receivedFileSize += length;
        return sink.write(data, length, error);
    }
    if (value.size() + length > kMaxFieldValue)
    {
        error = "the form field " + inQuotes(fields[partIndex].name) + " is longer than " +
                std::to_string(kMaxFieldValue) + " bytes";
        return false;
    }
    value.append(data, length);
    return true;
}

bool UploadForm::partEnd(std::string& error)
{
    if (inFile)
        fileDone = true;
    else if (value != fields[partIndex].value)
    {
        error = "the form field " + inQuotes(fields[partIndex].name) + " has the value " + inQuotes(value) +
                ", expected " + inQuotes(fields[partIndex].value);
        return false;
    }
    inFile = false;
    ++partIndex;
    return true;
}

bool UploadForm::complete(std::string& error) const
{
    if (fileDone)
        return true;
    if (partIndex < fields.size())
        error = "the form field " + inQuotes(fields[partIndex].name) + " is missing";
    else
        error = "the file part is missing";
    return false;
}

} // namespace SorvelSandbox
