#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/ValueRecord.h"

#include <type_traits>

namespace KVX {

/// What a control needs to know of a parameter besides its value.
struct ParameterInfo
{
    enum Kind : int32
    {
        kCommand = 0, ///< a button or link: any value activates it
        kToggle = 1,  ///< 0 or 1
        kInteger = 2, ///< between minimum and maximum
        kString = 3,
        kList = 4, ///< a select box: the value is the entry index, the maximum the last index
    };

    int32 tag;
    int32 kind;
    char name[64]; ///< UTF-8, terminated
    int64 minimum;
    int64 maximum;
    uint32 options; ///< the component's option flags (read-only, password, ...)
    int32 enabled;  ///< 1 when the control may be used
};

static_assert(std::is_trivially_copyable_v<ParameterInfo> && std::is_standard_layout_v<ParameterInfo>);

/// A parameter as the host sees it: the value a control of a form is bound to. Its ISubject
/// signals "changed" whenever value, range, entries or enabled state change.
/// User-interface thread.
class IParameter : public IUnknown
{
public:
    virtual tresult getInfo(ParameterInfo& info) = 0;
    /// The value; its text stays valid until the value changes.
    virtual tresult readValue(ValueRecord& value) = 0;
    /// Sets the value as a control does: converted to the kind and clamped to the range. With
    /// `notify` set the owning component is told (for a command, also when the value is equal).
    /// kInvalidArgument for a record of an unknown type.
    virtual tresult writeValue(const ValueRecord& value, bool notify) = 0;
    virtual int32 countEntries() = 0;
    /// The list entry at `index`; text and object stay valid until the entries change.
    /// kInvalidArgument (empty record) out of range.
    virtual tresult readEntry(int32 index, ValueRecord& value) = 0;

    static constexpr UID kIID = UID::fromString("{D4A7F2B9-3E61-4C08-A5D9-8B1E6C3F7A20}");
};

} // namespace KVX
