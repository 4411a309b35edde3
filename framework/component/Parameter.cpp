#include "framework/component/Parameter.h"

#include "framework/component/Message.h"
#include "framework/component/Signals.h"
#include "framework/component/ThreadContract.h"

#include "framework/text/NumberFormat.h"

#include <algorithm>
#include <limits>

namespace KVX {

KVX_DEFINE_CLASS(Parameter, Object, "Parameter")

Parameter::Parameter(Kind kind, std::string_view name, int32 tag) : kind_(kind), name_(name), tag_(tag)
{
    switch (kind)
    {
    case kToggle:
        maximum_ = 1;
        value_ = int64(0);
        break;
    case kString:
        value_ = String();
        break;
    case kInteger:
        minimum_ = std::numeric_limits<int64>::min();
        maximum_ = std::numeric_limits<int64>::max();
        value_ = int64(0);
        break;
    default:
        value_ = int64(0);
        break;
    }
}

tresult Parameter::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISubject)
    KVX_QUERY_INTERFACE(iid, object, IParameter)
    return Object::queryInterface(iid, object);
}

int64 Parameter::maximum() const
{
    if (kind_ == kList)
        return entries_.empty() ? 0 : static_cast<int64>(entries_.size()) - 1;
    return maximum_;
}

void Parameter::setRange(int64 minimum, int64 maximum)
{
    if (kind_ == kList || kind_ == kToggle || minimum > maximum)
        return;
    minimum_ = minimum;
    maximum_ = maximum;
    setValue(value_);
}

Variant Parameter::normalized(const Variant& value) const
{
    switch (kind_)
    {
    case kString:
        return value.toString();
    case kCommand:
        return value.asInt();
    default:
    {
        int64 number = value.isString() ? NumberFormat::toInt64(value.asString().toUtf8()) : value.asInt();
        return std::clamp(number, kind_ == kList ? int64(0) : minimum_, maximum());
    }
    }
}

void Parameter::setValue(const Variant& value, bool notify)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    Ref<Parameter> keepAlive(this); // the owner may drop the parameter while it is notified
    Variant newValue = normalized(value);
    bool changed = !(newValue == value_);
    value_ = newValue;
    if (changed)
        signalChanged();
    if (notify && owner_ && (changed || kind_ == kCommand))
        owner_->paramChanged(*this);
}

void Parameter::enable(bool state)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (enabled_ == state)
        return;
    enabled_ = state;
    signalChanged();
}

const Variant& Parameter::entry(size_t index) const
{
    static const Variant empty;
    return index < entries_.size() ? entries_[index] : empty;
}

void Parameter::appendEntry(const Variant& entry)
{
    entries_.push_back(entry);
    signalChanged();
}

void Parameter::removeAllEntries()
{
    entries_.clear();
    value_ = int64(0);
    signalChanged();
}

void Parameter::signalChanged()
{
    signal(Signals::kChanged);
}

tresult Parameter::getInfo(ParameterInfo& info)
{
    info = ParameterInfo{};
    info.tag = tag_;
    info.kind = static_cast<int32>(kind_); // Kind follows ParameterInfo::Kind value for value
    const std::string_view name = name_.view().substr(0, sizeof info.name - 1);
    name.copy(info.name, name.size());
    info.name[name.size()] = '\0';
    info.minimum = kind_ == kList ? 0 : minimum_;
    info.maximum = maximum();
    info.options = options_;
    info.enabled = enabled_ ? 1 : 0;
    return kResultOk;
}

tresult Parameter::readValue(ValueRecord& value)
{
    value_.toRecord(value);
    return kResultOk;
}

tresult Parameter::writeValue(const ValueRecord& value, bool notify)
{
    if (value.type < ValueRecord::kEmpty || value.type > ValueRecord::kObject)
        return kInvalidArgument;
    setValue(Variant::fromRecord(value), notify);
    return kResultOk;
}

tresult Parameter::readEntry(int32 index, ValueRecord& value)
{
    if (index < 0 || static_cast<size_t>(index) >= entries_.size())
    {
        value = ValueRecord{};
        return kInvalidArgument;
    }
    entries_[static_cast<size_t>(index)].toRecord(value);
    return kResultOk;
}

} // namespace KVX

static_assert(int(KVX::Parameter::kCommand) == int(KVX::ParameterInfo::kCommand) &&
              int(KVX::Parameter::kToggle) == int(KVX::ParameterInfo::kToggle) &&
              int(KVX::Parameter::kInteger) == int(KVX::ParameterInfo::kInteger) &&
              int(KVX::Parameter::kString) == int(KVX::ParameterInfo::kString) &&
              int(KVX::Parameter::kList) == int(KVX::ParameterInfo::kList));
