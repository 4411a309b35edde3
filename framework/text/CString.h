#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>

namespace KVX {

/// An 8-bit byte string: protocol text, identifiers, keys, digests, file bodies' text pieces.
/// It says nothing about the encoding of its bytes; Unicode text is String.
class CString
{
public:
    CString() = default;
    CString(const char* text) : bytes_(text ? text : "") {}
    CString(std::string_view bytes) : bytes_(bytes) {}
    CString(std::string bytes) : bytes_(std::move(bytes)) {}
    CString(const char* data, size_t length) : bytes_(data, length) {}

    /// printf-style formatting.
    static CString format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

    bool isEmpty() const { return bytes_.empty(); }
    size_t length() const { return bytes_.size(); }
    const char* data() const { return bytes_.data(); }
    const char* c_str() const { return bytes_.c_str(); }
    std::string_view view() const { return bytes_; }
    const std::string& str() const { return bytes_; }
    operator std::string_view() const { return bytes_; }

    CString& append(std::string_view bytes)
    {
        bytes_.append(bytes);
        return *this;
    }
    CString& operator+=(std::string_view bytes) { return append(bytes); }
    friend CString operator+(CString a, std::string_view b) { return a.append(b); }

    bool contains(std::string_view part) const { return bytes_.find(part) != std::string::npos; }
    bool startsWith(std::string_view part) const { return view().starts_with(part); }
    bool endsWith(std::string_view part) const { return view().ends_with(part); }

    bool operator==(const CString& other) const = default;
    bool operator==(const char* other) const { return bytes_ == (other ? other : ""); }
    bool operator==(std::string_view other) const { return bytes_ == other; }
    bool operator==(const std::string& other) const { return bytes_ == other; }
    std::strong_ordering operator<=>(const CString& other) const { return bytes_ <=> other.bytes_; }

private:
    std::string bytes_;
};

} // namespace KVX
