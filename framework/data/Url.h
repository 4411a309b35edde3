#pragma once

#include "framework/text/String.h"

#include <vector>

namespace KVX {

/// A URL in parts: protocol, host, port, path, query parameters and fragment.
///
/// A URL parsed from text keeps that text and formats back to exactly it until one of its parts
/// is changed: an upload address may be presigned, with a signature over its exact bytes, and a
/// link from the service is shown as it came. Once a part changes, the URL is formatted from its
/// parts: the path (kept decoded) encoded, query parameters ((name, text) pairs in the order they
/// were added) encoded by RFC 3986 from UTF-8 (unreserved characters stay, everything else,
/// space included, becomes %XX), and the fragment as it was given.
class Url
{
public:
    struct Parameter
    {
        String name;
        String value;
        bool operator==(const Parameter&) const = default;
    };

    Url() = default;

    /// Parses "protocol://host[:port]/path?query#fragment", or "protocol:path" for a URL without
    /// an authority ("mailto:someone@example.org"). Returns false and leaves the URL unchanged
    /// when the text has no protocol or a bad port.
    bool setFromDisplayString(std::string_view text);
    static Url fromDisplayString(std::string_view text)
    {
        Url url;
        url.setFromDisplayString(text);
        return url;
    }
    /// A file URL for an absolute native path.
    static Url fromNativePath(const String& path);

    String toDisplayString() const;
    /// The path of a file URL as the operating system writes it.
    String nativePath() const { return path_; }

    const CString& protocol() const { return protocol_; }
    const CString& host() const { return host_; }
    /// 0 when the URL names no port.
    int port() const { return port_; }
    const String& path() const { return path_; }
    const String& fragment() const { return fragment_; }
    void setProtocol(std::string_view protocol) { changed().protocol_ = CString(protocol); }
    void setHost(std::string_view host) { changed().host_ = CString(host); }
    void setPort(int port) { changed().port_ = port; }
    void setPath(const String& path) { changed().path_ = path; }
    void setFragment(const String& fragment) { changed().fragment_ = fragment; }

    /// Appends a path segment, inserting one "/" unless the path is empty, already ends with
    /// "/", or the segment starts with "/". A segment may itself contain "/".
    Url& appendPath(const String& segment);

    /// The last path segment ("take.1.wav"), its name before the last "." ("take.1") and the
    /// extension after it ("wav"; empty when there is none).
    String fileName() const;
    String fileNameWithoutExtension() const;
    String extension() const;

    /// Appends a query parameter.
    void addParameter(const String& name, const String& value) { changed().parameters_.push_back({name, value}); }
    /// Replaces the first parameter called `name`, or appends one.
    void setParameter(const String& name, const String& value);
    const String* findParameter(const String& name) const;
    const std::vector<Parameter>& parameters() const { return parameters_; }
    void clearParameters() { changed().parameters_.clear(); }
    /// The parameters as "name=value&..." with the encoding described above.
    CString queryString() const;

    bool isEmpty() const { return protocol_.isEmpty() && host_.isEmpty() && path_.isEmpty() && parameters_.empty(); }
    /// Two URLs are equal when they read the same.
    bool operator==(const Url& other) const { return toDisplayString() == other.toDisplayString(); }

    /// RFC 3986 percent-encoding of UTF-8 text; `keep` lists characters besides the unreserved
    /// ones that stay as they are.
    static CString encode(std::string_view utf8, std::string_view keep = {});
    /// Undoes %XX escapes; a malformed escape stays as it is.
    static std::string decode(std::string_view text);

private:
    /// Forgets the text the URL was parsed from, since a part is about to change.
    Url& changed()
    {
        text_.clear();
        return *this;
    }

    std::string text_; // the text it was parsed from, while no part has changed
    bool hasAuthority_ = true;
    CString protocol_;
    CString host_;
    int port_ = 0;
    String path_;
    std::vector<Parameter> parameters_;
    String fragment_;
};

} // namespace KVX
