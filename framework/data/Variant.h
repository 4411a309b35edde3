#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/ValueRecord.h"
#include "framework/text/String.h"

#include <cstdint>
#include <type_traits>
#include <variant>

namespace KVX {

/// One value: nothing, a 64-bit integer, a double, a string or a counted object reference.
class Variant
{
public:
    enum Type
    {
        kEmpty,
        kInt,
        kDouble,
        kString,
        kObject
    };

    Variant() = default;
    /// Any integer type; unsigned values above the 64-bit signed range are clamped to it.
    template <class T>
        requires(std::is_integral_v<T> && !std::is_same_v<T, bool>)
    Variant(T value)
        : value_(std::is_unsigned_v<T> && static_cast<uint64>(value) > static_cast<uint64>(INT64_MAX)
                     ? INT64_MAX
                     : static_cast<int64>(value))
    {
    }
    Variant(bool value) : value_(static_cast<int64>(value ? 1 : 0)) {}
    Variant(double value) : value_(value) {}
    Variant(const String& value) : value_(value) {}
    Variant(String&& value) : value_(std::move(value)) {}
    Variant(const char* utf8) : value_(String(utf8)) {}
    /// A null object gives an empty Variant.
    Variant(IUnknown* object)
    {
        if (object)
            value_ = Ref<IUnknown>(object);
    }
    /// Objects that add interfaces inherit IUnknown more than once; this picks the Object's.
    Variant(Object* object) : Variant(static_cast<IUnknown*>(object)) {}
    template <class T>
    Variant(const Ref<T>& object) : Variant(object.get())
    {
    }

    Type type() const { return static_cast<Type>(value_.index()); }
    bool isEmpty() const { return type() == kEmpty; }
    bool isInt() const { return type() == kInt; }
    bool isDouble() const { return type() == kDouble; }
    bool isNumeric() const { return isInt() || isDouble(); }
    bool isString() const { return type() == kString; }
    bool isObject() const { return type() == kObject; }

    /// An integer as it is, a double truncated toward zero, anything else 0.
    int64 asInt() const;
    /// A double as it is, an integer converted, anything else 0.0.
    double asDouble() const;
    /// The variant-to-string rule: a string as it is, an integer in decimal (42 gives "42"), a
    /// double in its shortest exact text (2.5 gives "2.5"), nothing and objects give "".
    String toString() const;
    /// The string if this holds one, else an empty string (no conversion).
    const String& asString() const;
    IUnknown* asUnknown() const;
    /// The object of class T held here, or nullptr.
    template <class T>
    T* asObject() const
    {
        return unknown_cast<T>(asUnknown());
    }

    /// The value as a record for another module. Its text and object point into this Variant
    /// and stay valid while it is neither changed nor destroyed.
    void toRecord(ValueRecord& record) const;
    /// A copy of what a record holds (the text is copied, the object retained).
    static Variant fromRecord(const ValueRecord& record);

    bool operator==(const Variant& other) const = default;

private:
    std::variant<std::monostate, int64, double, String, Ref<IUnknown>> value_;
};

} // namespace KVX
