#include "framework/upload/MultipartForm.h"

#include "framework/stream/MemoryStream.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace KVX {

KVX_DEFINE_CLASS(MultipartForm, Object, "MultipartForm")

MultipartForm::MultipartForm(unsigned number) : body_(makeRef<StreamChain>())
{
    char text[64];
    // The number is the generator's value in 0..32767, so the boundary always ends in 0000 to 7FFF.
    std::snprintf(text, sizeof text, "----------------------------XXBOUNDARY%04X", number % 32768u);
    boundary_ = CString(text);
}

Ref<MultipartForm> MultipartForm::make()
{
    // std::rand() here may reach 2^31 - 1; its value is taken in the range 0..32767 that the
    // boundary format is made for.
    return makeRef<MultipartForm>(static_cast<unsigned>(std::rand()) % 32768u);
}

bool MultipartForm::appendText(std::string_view text)
{
    // Each text piece is a memory stream of its own, growing in the usual 1024-byte steps.
    auto piece = makeRef<MemoryStream>(1024);
    if (piece->write(text) != static_cast<int64>(text.size()) || piece->seek(0, IStream::kSeekSet) != 0)
        return false;
    return body_->append(piece, static_cast<int64>(text.size()));
}

bool MultipartForm::addField(std::string_view name, std::string_view value)
{
    if (closed_)
        return false;
    std::string text;
    text.reserve(boundary_.view().size() + name.size() + value.size() + 64);
    text.append("--").append(boundary_.view()).append("\r\n");
    text.append("Content-Disposition: form-data; name=\"").append(name).append("\"\r\n");
    text.append("\r\n");
    text.append(value).append("\r\n");
    return appendText(text);
}

bool MultipartForm::addFile(std::string_view name, std::string_view fileName, IStream* stream, int64 length)
{
    if (closed_ || !stream || length < 0)
        return false;
    std::string head;
    head.append("--").append(boundary_.view()).append("\r\n");
    head.append("Content-Disposition: form-data; name=\"")
        .append(name)
        .append("\"; filename=\"")
        .append(fileName)
        .append("\"\r\n");
    head.append("Content-Transfer-Encoding: binary\r\n");
    head.append("Content-Type: application/octet-stream\r\n");
    head.append("\r\n");
    std::string tail;
    tail.append("\r\n--").append(boundary_.view()).append("--\r\n");
    if (!appendText(head) || !body_->append(stream, length) || !appendText(tail))
        return false;
    closed_ = true;
    return true;
}

CString MultipartForm::getContentType() const
{
    return CString(std::string("multipart/form-data; boundary=") + std::string(boundary_.view()));
}

} // namespace KVX
