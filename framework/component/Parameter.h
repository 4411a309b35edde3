#pragma once

#include "framework/component/Subject.h"
#include "framework/data/Variant.h"
#include "framework/interfaces/IParameter.h"

#include <vector>

namespace KVX {

class Parameter;

/// The owner of parameters: told when a parameter's value was changed with notification.
/// Called on the user-interface thread.
class IParamOwner
{
public:
    /// Returns whether the change was accepted.
    virtual bool paramChanged(Parameter& parameter) = 0;

protected:
    ~IParamOwner() = default;
};

/// One numbered parameter of a component: the value a control of a form is bound to.
///
/// Kinds: a command (a button or link: setting any value activates it), a toggle (0 or 1), an
/// integer between minimum and maximum, a string, and a list (a select box: its value is the
/// index of the chosen entry, its maximum the last index). Every change of the value signals
/// "changed" to the parameter's observers (the controls); a change with notification also calls
/// the owner's paramChanged. User-interface thread only (debug builds assert it).
class Parameter : public Object, public Subject, public IParameter
{
    KVX_DECLARE_CLASS(Parameter, Object)
public:
    enum Kind
    {
        kCommand,
        kToggle,
        kInteger,
        kString,
        kList
    };

    /// Option flags; their effect on controls is the host's.
    enum Options : uint32
    {
        kReadOnly = 1 << 0,
        kPassword = 1 << 1,
        kStoreOnChange = 1 << 2,
    };

    Parameter(Kind kind, std::string_view name, int32 tag);

    Kind kind() const { return kind_; }
    const CString& name() const { return name_; }
    int32 tag() const { return tag_; }

    const Variant& value() const { return value_; }
    int64 intValue() const { return value_.asInt(); }
    String stringValue() const { return value_.toString(); }
    /// Stores `value`, converted to the kind (numbers are clamped to the range; a list index to
    /// its entries). Signals "changed" when the value changed. With `notify`, the owner's
    /// paramChanged follows (for a command, also when the value is the same: it is an activation).
    void setValue(const Variant& value, bool notify = false);

    int64 minimum() const { return minimum_; }
    int64 maximum() const;
    void setRange(int64 minimum, int64 maximum);

    bool isEnabled() const { return enabled_; }
    /// Signals "changed" when the state changes.
    void enable(bool state);

    uint32 options() const { return options_; }
    void setOptions(uint32 options) { options_ = options; }
    bool hasOption(uint32 option) const { return (options_ & option) != 0; }

    // List entries.
    size_t entryCount() const { return entries_.size(); }
    /// The entry at `index`, or an empty Variant.
    const Variant& entry(size_t index) const;
    void appendEntry(const Variant& entry);
    /// Removes all entries; the value goes back to 0.
    void removeAllEntries();

    void setOwner(IParamOwner* owner) { owner_ = owner; }

    // IParameter: how the host's controls see the parameter.
    tresult getInfo(ParameterInfo& info) override;
    tresult readValue(ValueRecord& value) override;
    tresult writeValue(const ValueRecord& value, bool notify) override;
    int32 countEntries() override { return static_cast<int32>(entries_.size()); }
    tresult readEntry(int32 index, ValueRecord& value) override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    Variant normalized(const Variant& value) const;
    void signalChanged();

    Kind kind_;
    CString name_;
    int32 tag_;
    Variant value_;
    int64 minimum_ = 0;
    int64 maximum_ = 0;
    bool enabled_ = true;
    uint32 options_ = 0;
    std::vector<Variant> entries_;
    IParamOwner* owner_ = nullptr; // the owning component outlives its parameters' use
};

} // namespace KVX
