#pragma once

#include "framework/data/AttributeName.h"
#include "framework/data/Variant.h"

#include <vector>

namespace KVX {

class AttributeArray;

/// An ordered list of named values: the parameter list of a request and the parsed form of
/// every JSON object. Values are integers, doubles, strings, nested Attributes and arrays
/// (AttributeArray). Names are 8-bit text (UTF-8 where a JSON document supplies them).
class Attributes : public Object
{
    KVX_DECLARE_CLASS(Attributes, Object)
public:
    struct Member
    {
        AttributeName name;
        Variant value;
    };

    Attributes() = default;
    Attributes(const Attributes& other) = default;
    Attributes& operator=(const Attributes& other) = default;
    /// Takes the members of `other`, which is left empty.
    Attributes(Attributes&& other) noexcept : Object(other), members_(std::move(other.members_)) {}
    Attributes& operator=(Attributes&& other) noexcept
    {
        if (this != &other)
            members_ = std::move(other.members_);
        return *this;
    }

    /// Replaces the value of the member called `name`, keeping its position; appends a member
    /// when there is none. Later members of the same name (from add()) are removed.
    void set(std::string_view name, const Variant& value);
    /// Appends a member, even when the name is already present.
    void add(std::string_view name, const Variant& value);
    bool remove(std::string_view name);
    void clear() { members_.clear(); }
    /// Appends copies of all members of `other` (shallow for objects).
    void addAll(const Attributes& other);
    /// Replaces the members with `members`, taken as they are (names as given, repeats kept).
    void assignMembers(std::vector<Member>&& members) { members_ = std::move(members); }

    size_t count() const { return members_.size(); }
    bool isEmpty() const { return members_.empty(); }
    const Member& at(size_t index) const { return members_[index]; }
    std::vector<Member>::const_iterator begin() const { return members_.begin(); }
    std::vector<Member>::const_iterator end() const { return members_.end(); }

    bool contains(std::string_view name) const { return find(name) != nullptr; }
    /// The value of the first member called `name`, or nullptr.
    const Variant* find(std::string_view name) const;

    /// An integer member as it is, a double truncated toward zero, anything else (also a
    /// missing member or a string) 0.
    int64 getInt64(std::string_view name) const;
    /// getInt64 narrowed to 32 bits (clamped).
    int32 getInt(std::string_view name) const;
    /// A double as it is, an integer converted, anything else 0.0.
    double getDouble(std::string_view name) const;
    /// The variant-to-string rule; a missing member gives "".
    String getString(std::string_view name) const;
    /// The nested attribute object called `name`, or nullptr. No reference is taken.
    Attributes* getAttributes(std::string_view name) const;
    /// The array called `name`, or nullptr. No reference is taken.
    AttributeArray* getArray(std::string_view name) const;

private:
    std::vector<Member> members_;
};

} // namespace KVX
