#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/stream/StreamChain.h"
#include "framework/text/CString.h"

#include <string_view>

namespace KVX {

/// A "multipart/form-data" request body built as a chain of streams: small memory pieces for the
/// text between the parts and the file's own stream for its bytes, so the body is never
/// assembled in memory and its length is known before it is sent.
///
/// Text fields come first, in the order they are added; the file part is the last call and
/// closes the body. Lines end in CR LF; names, values and the file name are 8-bit text (UTF-8
/// where they came as Unicode). The boundary is not checked against the file's bytes.
class MultipartForm : public Object
{
    KVX_DECLARE_CLASS(MultipartForm, Object)
public:
    /// A form with a boundary "----------------------------XXBOUNDARY" and four upper-case
    /// hexadecimal digits of `number` taken in the range 0 to 32767 (the ordinary pseudo-random
    /// generator's range), so the boundary is 42 characters and ends in 0000 to 7FFF.
    explicit MultipartForm(unsigned number);
    /// A form with a boundary from the ordinary pseudo-random generator (std::rand), its value
    /// taken in 0 to 32767.
    static Ref<MultipartForm> make();

    const CString& boundary() const { return boundary_; }

    /// Appends the text field `name` with `value`. False once the file part closed the body.
    bool addField(std::string_view name, std::string_view value);
    /// Appends the file part with `length` bytes of `stream` from its current position, then the
    /// closing delimiter. False for a null stream or a negative length, or a second file.
    bool addFile(std::string_view name, std::string_view fileName, IStream* stream, int64 length);
    /// The value of the request's "Content-Type" header.
    CString getContentType() const;

    /// The body, to hand to the request object as it is (rewound, its length known).
    StreamChain& body() { return *body_; }
    int64 length() const { return body_->totalLength(); }

private:
    bool appendText(std::string_view text);

    CString boundary_;
    Ref<StreamChain> body_;
    bool closed_ = false;
};

} // namespace KVX
