#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/ValueRecord.h"

namespace KVX {

/// An ordered list of named values as it crosses between modules: class attributes of a class
/// factory, the configuration a host provides, the metadata of a published item. Values are
/// plain records; a nested list is an object that answers IAttributeList.
///
/// Threads: one thread at a time (the one that holds the list). Names and texts that the list
/// hands out stay valid until the list is changed or released.
class IAttributeList : public IUnknown
{
public:
    virtual int32 countAttributes() = 0;
    /// The name of the attribute at `index` (UTF-8, terminated), or null when out of range.
    virtual const char* getAttributeName(int32 index) = 0;
    /// The value at `index`. kInvalidArgument (and an empty record) when out of range.
    virtual tresult getAttributeValue(int32 index, ValueRecord& value) = 0;
    /// The value of the first attribute called `name`. kInvalidArgument (and an empty record)
    /// when there is none.
    virtual tresult findAttribute(const char* name, ValueRecord& value) = 0;
    /// Replaces the value of the attribute called `name`, or appends one. The list copies the
    /// text and retains the object. kInvalidArgument for a null or empty name.
    virtual tresult setAttribute(const char* name, const ValueRecord& value) = 0;

    static constexpr UID kIID = UID::fromString("{B7D1E4A2-5C39-4F86-A0E3-6D8B2F1C9E57}");
};

} // namespace KVX
