#pragma once

#include "framework/data/Attributes.h"

#include <rapidjson/document.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace Host {

/// The JSON document a command prints with --json: one object, built with RapidJSON so that
/// numbers are numbers and yes or no is true or false. Keys are snake_case. Written on one line
/// to standard output.
class JsonOutput
{
public:
    using Value = rapidjson::Value;

    JsonOutput() { document_.SetObject(); }

    Value& root() { return document_; }

    Value object() { return Value(rapidjson::kObjectType); }
    Value array() { return Value(rapidjson::kArrayType); }
    /// A JSON string of `value`; bytes that are no UTF-8 (a Latin-1 file name) become U+FFFD, so
    /// that the document stays valid JSON.
    Value text(std::string_view value);

    /// Sets member `key` of `object` (replacing one of that name).
    void set(Value& object, std::string_view key, Value value);
    void set(Value& object, std::string_view key, std::string_view value) { set(object, key, text(value)); }
    void set(Value& object, std::string_view key, const char* value) { set(object, key, text(value)); }
    void set(Value& object, std::string_view key, const std::string& value) { set(object, key, text(value)); }
    void set(Value& object, std::string_view key, bool value) { set(object, key, Value(value)); }
    void set(Value& object, std::string_view key, int value) { set(object, key, Value(static_cast<int64_t>(value))); }
    void set(Value& object, std::string_view key, int64_t value) { set(object, key, Value(value)); }
    void set(Value& object, std::string_view key, size_t value) { set(object, key, Value(static_cast<uint64_t>(value))); }
    void set(Value& object, std::string_view key, double value) { set(object, key, Value(value)); }
    template <class T>
    void set(std::string_view key, T&& value)
    {
        set(document_, key, std::forward<T>(value));
    }
    void append(Value& array, Value value) { array.PushBack(value, allocator()); }

    /// An attribute list as JSON: integers, doubles, texts, nested lists and arrays.
    Value from(const KVX::Attributes& attributes);

    std::string toText() const;
    /// Prints the document and a line break on `out` (standard output by default) and flushes it.
    void print(FILE* out = stdout) const;

    rapidjson::Document::AllocatorType& allocator() { return document_.GetAllocator(); }

    /// How many documents this process printed (a command prints one for every outcome; the hot
    /// folder one for every batch).
    static unsigned printedCount();

private:
    Value fromVariant(const KVX::Variant& value);

    rapidjson::Document document_;
};

} // namespace Host
