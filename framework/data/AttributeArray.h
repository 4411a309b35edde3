#pragma once

#include "framework/data/Variant.h"

#include <vector>

namespace KVX {

class Attributes;

/// An ordered array of values: the parsed form of a JSON array. Its elements are usually
/// attribute objects (a list of products, of tracks), but any value may stand in it.
class AttributeArray : public Object
{
    KVX_DECLARE_CLASS(AttributeArray, Object)
public:
    void append(const Variant& value) { values_.push_back(value); }
    void clear() { values_.clear(); }
    /// Replaces the elements with `values`.
    void assignValues(std::vector<Variant>&& values) { values_ = std::move(values); }

    size_t count() const { return values_.size(); }
    const Variant& at(size_t index) const { return values_[index]; }
    /// The element at `index` if it is an attribute object, else nullptr (also out of range).
    Attributes* getAttributes(size_t index) const;

    std::vector<Variant>::const_iterator begin() const { return values_.begin(); }
    std::vector<Variant>::const_iterator end() const { return values_.end(); }

private:
    std::vector<Variant> values_;
};

} // namespace KVX
