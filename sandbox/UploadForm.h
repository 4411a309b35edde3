#pragma once

#include "MultipartParser.h"

#include <cstdint>
#include <string>
#include <vector>

namespace SorvelSandbox
{

// Checks the parts of an upload body against what the service handed out with the upload URL,
// while the body streams through a MultipartParser. The body must hold, in this order and nothing
// else: each handed-out form field with exactly its value, the form field "Content-Type" with the
// value "audio/x-wav", and the file part named "file" with a file name and exactly the headers
// "Content-Transfer-Encoding: binary" and "Content-Type: application/octet-stream". Header names
// and those two header values are compared without regard to case, as MIME defines them.
class UploadForm : public MultipartParser::Listener
{
public:
    struct Field
    {
        std::string name;
        std::string value;
    };

    // Receives the file's bytes as they arrive.
    class FileSink
    {
    public:
        virtual ~FileSink() = default;
        virtual bool write(const char* data, size_t length, std::string& error) = 0;
    };

    UploadForm(std::vector<Field> expectedFields, FileSink& sink);

    bool partBegin(const std::vector<MultipartParser::Header>& headers, std::string& error) override;
    bool partData(const char* data, size_t length, std::string& error) override;
    bool partEnd(std::string& error) override;

    // After the parser has finished: true when every expected part, the file included, was read.
    bool complete(std::string& error) const;

    const std::string& fileName() const { return receivedFileName; }
    uint64_t fileSize() const { return receivedFileSize; }

    static constexpr size_t kMaxFieldValue = 4096;

private:
    enum class Expect
    {
        Field,
        FileContentTypeField,
        File,
        Nothing
    };

    Expect expectation() const;
    std::string describePart() const;

    std::vector<Field> fields;
    FileSink& sink;
    size_t partIndex = 0; // index of the part being read, counted from 0
    bool inFile = false;
    bool fileDone = false;
    std::string value; // the value of the field part being read
    std::string receivedFileName;
    uint64_t receivedFileSize = 0;
};

} // namespace SorvelSandbox
