#include "framework/data/Url.h"

#include "framework/text/HexDigit.h"
#include "framework/text/NumberFormat.h"

namespace KVX {
namespace {

// Characters that may stand unencoded in a path besides the unreserved ones (RFC 3986 pchar).
constexpr std::string_view kPathKeep = "/:@!$&'()*+,;=";

bool isUnreserved(unsigned char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

} // namespace

CString Url::encode(std::string_view utf8, std::string_view keep)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(utf8.size());
    for (unsigned char c : utf8)
    {
        if (isUnreserved(c) || (c < 0x80 && keep.find(static_cast<char>(c)) != std::string_view::npos))
            out += static_cast<char>(c);
        else
        {
            out += '%';
            out += kDigits[c >> 4];
            out += kDigits[c & 15];
        }
    }
    return CString(std::move(out));
}

std::string Url::decode(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] == '%' && i + 2 < text.size())
        {
            int high = hexDigitValue(text[i + 1]), low = hexDigitValue(text[i + 2]);
            if (high >= 0 && low >= 0)
            {
                out += static_cast<char>(high * 16 + low);
                i += 2;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

bool Url::setFromDisplayString(std::string_view text)
{
    const std::string_view original = text;
    size_t schemeEnd = text.find(':');
    if (schemeEnd == std::string_view::npos || schemeEnd == 0)
        return false;
    std::string_view scheme = text.substr(0, schemeEnd);
    for (char c : scheme)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' || c == '-' ||
              c == '.'))
            return false;
    const bool hasAuthority = text.substr(schemeEnd).starts_with("://");
    std::string_view rest = text.substr(schemeEnd + (hasAuthority ? 3 : 1));
    // Without an authority only an opaque part may follow ("mailto:someone@example.org"): a
    // path that starts with "/" is a mistyped "://" ("http:/example.com"), not a URL.
    if (!hasAuthority && (rest.empty() || rest.front() == '/'))
        return false;
    std::string_view fragment;
    if (size_t hash = rest.find('#'); hash != std::string_view::npos)
    {
        fragment = rest.substr(hash + 1);
        rest = rest.substr(0, hash);
    }
    std::string_view query;
    if (size_t mark = rest.find('?'); mark != std::string_view::npos)
    {
        query = rest.substr(mark + 1);
        rest = rest.substr(0, mark);
    }
    size_t slash = hasAuthority ? rest.find('/') : 0;
    std::string_view authority = hasAuthority ? rest.substr(0, slash) : std::string_view();
    std::string_view path = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);

    std::string_view host = authority;
    int port = 0;
    size_t portColon = std::string_view::npos;
    if (!authority.empty() && authority.front() == '[') // IPv6 literal
    {
        size_t close = authority.find(']');
        if (close == std::string_view::npos)
            return false;
        if (close + 1 < authority.size())
        {
            if (authority[close + 1] != ':')
                return false;
            portColon = close + 1;
        }
    }
    else
    {
        portColon = authority.find(':');
        if (portColon != std::string_view::npos && authority.find(':', portColon + 1) != std::string_view::npos)
            return false; // "host:80:90"
        if (authority.find('@') != std::string_view::npos)
            return false; // user information is not supported
    }
    if (portColon != std::string_view::npos)
    {
        host = authority.substr(0, portColon);
        std::string_view digits = authority.substr(portColon + 1);
        int64 value = 0;
        if (!digits.empty())
        {
            for (char c : digits)
                if (c < '0' || c > '9')
                    return false;
            if (!NumberFormat::parseInt64(digits, value) || value < 1 || value > 65535)
                return false;
        }
        port = static_cast<int>(value);
    }

    std::vector<Parameter> parameters;
    while (!query.empty())
    {
        size_t amp = query.find('&');
        std::string_view pair = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
        if (pair.empty())
            continue;
        size_t equals = pair.find('=');
        std::string_view name = pair.substr(0, equals);
        std::string_view value = equals == std::string_view::npos ? std::string_view() : pair.substr(equals + 1);
        parameters.push_back({String::fromUtf8(decode(name)), String::fromUtf8(decode(value))});
    }

    protocol_ = CString(scheme);
    host_ = CString(host);
    port_ = port;
    path_ = String::fromUtf8(decode(path));
    parameters_ = std::move(parameters);
    fragment_ = String::fromUtf8(fragment);
    hasAuthority_ = hasAuthority;
    text_.assign(original);
    return true;
}

Url Url::fromNativePath(const String& path)
{
    Url url;
    url.protocol_ = "file";
    url.hasAuthority_ = true;
    url.path_ = path;
    return url;
}

String Url::toDisplayString() const
{
    if (!text_.empty())
        return String::fromUtf8(text_);
    std::string text;
    if (!protocol_.isEmpty())
        text.append(protocol_.view()).append(hasAuthority_ ? "://" : ":");
    text.append(host_.view());
    if (port_ > 0)
        text.append(":").append(NumberFormat::formatInt64(port_).view());
    if (!host_.isEmpty() && !path_.isEmpty() && !path_.startsWith("/"))
        text.append("/");
    text.append(encode(path_.toUtf8(), kPathKeep).view());
    if (!parameters_.empty())
        text.append("?").append(queryString().view());
    if (!fragment_.isEmpty())
        text.append("#").append(fragment_.toUtf8());
    return String::fromUtf8(text);
}

Url& Url::appendPath(const String& segment)
{
    changed();
    if (!path_.isEmpty() && !path_.endsWith("/") && !segment.startsWith("/"))
        path_ += "/";
    path_ += segment;
    return *this;
}

String Url::fileName() const
{
    const std::string& p = path_.toUtf8();
    size_t slash = p.rfind('/');
    return String::fromUtf8(slash == std::string::npos ? p : p.substr(slash + 1));
}

String Url::fileNameWithoutExtension() const
{
    const std::string name = fileName().toUtf8();
    size_t dot = name.rfind('.');
    return String::fromUtf8(dot == std::string::npos ? name : name.substr(0, dot));
}

String Url::extension() const
{
    const std::string name = fileName().toUtf8();
    size_t dot = name.rfind('.');
    return dot == std::string::npos ? String() : String::fromUtf8(name.substr(dot + 1));
}

void Url::setParameter(const String& name, const String& value)
{
    changed();
    for (Parameter& p : parameters_)
        if (p.name == name)
        {
            p.value = value;
            return;
        }
    addParameter(name, value);
}

const String* Url::findParameter(const String& name) const
{
    for (const Parameter& p : parameters_)
        if (p.name == name)
            return &p.value;
    return nullptr;
}

CString Url::queryString() const
{
    CString query;
    for (const Parameter& p : parameters_)
    {
        if (!query.isEmpty())
            query += "&";
        query += encode(p.name.toUtf8()).view();
        query += "=";
        query += encode(p.value.toUtf8()).view();
    }
    return query;
}

} // namespace KVX
