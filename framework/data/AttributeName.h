#pragma once

#include "framework/text/CString.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace KVX {

/// The name of a member of an attribute list: 8-bit text (UTF-8 where a JSON document supplies
/// it), NUL bytes included. A name of up to 15 bytes, which JSON keys nearly always are, lives in
/// the object's own 16 bytes; a longer one in a heap block of its own. A parsed document has
/// hundreds of thousands of members: this way a member's name costs no allocation and half the
/// room of a string object, which is a quarter of the whole tree. Always NUL-terminated.
class AttributeName
{
public:
    AttributeName() noexcept { setShort(0); }
    AttributeName(std::string_view text) { assign(text); }
    AttributeName(const char* text) : AttributeName(std::string_view(text ? text : "")) {}
    AttributeName(const char* data, size_t length) : AttributeName(std::string_view(data, length)) {}
    AttributeName(const std::string& text) : AttributeName(std::string_view(text)) {}
    AttributeName(const CString& text) : AttributeName(text.view()) {}
    AttributeName(const AttributeName& other) : AttributeName(other.view()) {}
    AttributeName(AttributeName&& other) noexcept
    {
        std::memcpy(bytes_, other.bytes_, kSize);
        other.setShort(0);
    }
    ~AttributeName() { freeLong(); }

    AttributeName& operator=(const AttributeName& other)
    {
        if (this != &other)
        {
            AttributeName copy(other);
            *this = std::move(copy);
        }
        return *this;
    }
    AttributeName& operator=(AttributeName&& other) noexcept
    {
        if (this != &other)
        {
            freeLong();
            std::memcpy(bytes_, other.bytes_, kSize);
            other.setShort(0);
        }
        return *this;
    }

    const char* data() const { return isLong() ? longPointer() : bytes_; }
    const char* c_str() const { return data(); }
    size_t length() const
    {
        return isLong() ? static_cast<size_t>(longWord() & ~kLongTag) : kMaxShort - static_cast<size_t>(bytes_[kMaxShort]);
    }
    bool isEmpty() const { return length() == 0; }
    std::string_view view() const { return {data(), length()}; }
    operator std::string_view() const { return view(); }
    CString toCString() const { return CString(view()); }

    bool operator==(const AttributeName& other) const
    {
        // Short names keep zeros after their text, so equal names have equal bytes.
        if (!isLong() && !other.isLong())
            return std::memcmp(bytes_, other.bytes_, kSize) == 0;
        return view() == other.view();
    }
    bool operator==(std::string_view other) const { return view() == other; }
    bool operator==(const char* other) const { return view() == std::string_view(other ? other : ""); }
    bool operator==(const std::string& other) const { return view() == std::string_view(other); }
    bool operator==(const CString& other) const { return view() == other.view(); }

private:
    static_assert(std::endian::native == std::endian::little, "the long form's tag is the last byte");

    static constexpr size_t kSize = 16;
    static constexpr size_t kMaxShort = kSize - 1;
    /// The last byte of a short name holds 15 minus its length (0 to 15, so a name of 15 bytes
    /// ends with its terminator); a long name sets the top bit of its length word there instead.
    static constexpr uint64_t kLongTag = uint64_t(1) << 63;

    bool isLong() const { return (static_cast<unsigned char>(bytes_[kMaxShort]) & 0x80) != 0; }
    const char* longPointer() const
    {
        const char* pointer;
        std::memcpy(&pointer, bytes_, sizeof pointer);
        return pointer;
    }
    uint64_t longWord() const
    {
        uint64_t word;
        std::memcpy(&word, bytes_ + 8, sizeof word);
        return word;
    }

    void setShort(size_t length)
    {
        std::memset(bytes_, 0, kSize);
        bytes_[kMaxShort] = static_cast<char>(kMaxShort - length);
    }

    void assign(std::string_view text)
    {
        if (text.size() <= kMaxShort)
        {
            setShort(text.size());
            if (!text.empty())
                std::memcpy(bytes_, text.data(), text.size());
            return;
        }
        char* pointer = new char[text.size() + 1];
        std::memcpy(pointer, text.data(), text.size());
        pointer[text.size()] = '\0';
        const uint64_t word = static_cast<uint64_t>(text.size()) | kLongTag;
        std::memcpy(bytes_, &pointer, sizeof pointer);
        std::memcpy(bytes_ + 8, &word, sizeof word);
    }

    void freeLong()
    {
        if (isLong())
            delete[] longPointer();
    }

    alignas(8) char bytes_[kSize];
};

} // namespace KVX
