#include "host/app/Gadget.h"

#include "framework/command/Menu.h"
#include "framework/component/Message.h"
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IParameter.h"
#include "framework/interfaces/ISubject.h"

#include <algorithm>
#include <chrono>

namespace Host {

using namespace KVX;

namespace {

/// An interface of `object`, or null; the object keeps it alive.
template <class T> T* interfaceOf(IUnknown* object)
{
    void* result = nullptr;
    if (!object || object->queryInterface(T::kIID, &result) != kResultOk)
        return nullptr;
    static_cast<T*>(result)->release();
    return static_cast<T*>(result);
}

/// Splits "Child.name" into its child component and name; the gadget itself without a dot.
IComponent* ownerOf(IComponent* root, const std::string& path, std::string& name)
{
    const size_t dot = path.find('.');
    if (dot == std::string::npos)
    {
        name = path;
        return root;
    }
    name = path.substr(dot + 1);
    return root ? root->lookupChild(path.substr(0, dot).c_str()) : nullptr;
}

std::string textOf(const ValueRecord& value)
{
    if (value.type == ValueRecord::kString && value.text)
        return std::string(value.text, value.textLength);
    if (value.type == ValueRecord::kInt)
        return std::to_string(value.intValue);
    if (value.type == ValueRecord::kDouble)
        return std::to_string(value.doubleValue);
    return {};
}

} // namespace

void Gadget::open(IComponent* component, IUnknown* context)
{
    component_ = component;
    if (ISubject* subject = interfaceOf<ISubject>(component_))
        subject->addObserver(this);
    component_->initialize(context);
}

void Gadget::close()
{
    if (!component_)
        return;
    if (ISubject* subject = interfaceOf<ISubject>(component_))
        subject->removeObserver(this);
    component_->terminate();
    component_.reset();
}

IParameter* Gadget::find(const std::string& path, IComponent** owner) const
{
    std::string name;
    IComponent* component = ownerOf(component_, path, name);
    if (owner)
        *owner = component;
    return component ? component->lookupParameter(name.c_str()) : nullptr;
}

std::string Gadget::text(const std::string& path) const
{
    ValueRecord value;
    IParameter* parameter = find(path);
    return parameter && parameter->readValue(value) == kResultOk ? textOf(value) : std::string();
}

int64 Gadget::number(const std::string& path) const
{
    ValueRecord value;
    IParameter* parameter = find(path);
    if (!parameter || parameter->readValue(value) != kResultOk)
        return 0;
    return value.type == ValueRecord::kInt ? value.intValue : static_cast<int64>(value.doubleValue);
}

bool Gadget::isEnabled(const std::string& path) const
{
    ParameterInfo info{};
    IParameter* parameter = find(path);
    return parameter && parameter->getInfo(info) == kResultOk && info.enabled;
}

void Gadget::setText(const std::string& path, const std::string& value, bool notify)
{
    if (IParameter* parameter = find(path))
    {
        ValueRecord record;
        record.type = ValueRecord::kString;
        record.text = value.data();
        record.textLength = value.size();
        parameter->writeValue(record, notify);
    }
}

void Gadget::setNumber(const std::string& path, int64 value, bool notify)
{
    if (IParameter* parameter = find(path))
    {
        ValueRecord record;
        record.type = ValueRecord::kInt;
        record.intValue = value;
        parameter->writeValue(record, notify);
    }
}

std::vector<std::string> Gadget::entries(const std::string& path) const
{
    std::vector<std::string> result;
    IParameter* parameter = find(path);
    for (int32 i = 0; parameter && i < parameter->countEntries(); ++i)
    {
        ValueRecord value;
        if (parameter->readEntry(i, value) == kResultOk)
            result.push_back(textOf(value));
    }
    return result;
}

bool Gadget::chooseMenuCommand(const std::string& path, const std::string& category, const std::string& name)
{
    IComponent* owner = nullptr;
    IParameter* parameter = find(path, &owner);
    auto* controller = interfaceOf<IObserver>(owner);
    if (!parameter || !controller)
        return false;
    // The menu a form shows for the list: its entries, then what the controller adds to them.
    auto menu = makeRef<Menu>();
    for (int32 i = 0; i < parameter->countEntries(); ++i)
    {
        ValueRecord entry;
        parameter->readEntry(i, entry);
        menu->addEntry(String(textOf(entry).c_str()), "", "", "", nullptr);
    }
    std::string parameterName;
    ownerOf(component_, path, parameterName);
    controller->notify(nullptr, *Message::make("extendMenu", {Variant(static_cast<Object*>(menu.get())),
                                                              Variant(parameterName.c_str())}));
    for (int32 i = parameter->countEntries(); i < menu->countEntries(); ++i)
    {
        MenuEntryRecord entry{};
        if (menu->getEntry(i, entry) == kResultOk && category == entry.category && name == entry.name)
            return entry.enabled && menu->chooseEntry(i) == kResultOk;
    }
    return false;
}

int64 Gadget::property(const std::string& path) const
{
    std::string name;
    IComponent* owner = ownerOf(component_, path, name);
    ValueRecord value;
    if (!owner || owner->readProperty(name.c_str(), value) != kResultOk)
        return 0;
    return value.type == ValueRecord::kInt ? value.intValue : static_cast<int64>(value.doubleValue);
}

IItemModel* Gadget::trackList() const
{
    return interfaceOf<IItemModel>(component_ ? component_->lookupObject("trackList") : nullptr);
}

bool Gadget::settle(uint32 timeoutMs, const std::atomic<bool>* interrupted)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    auto left = [&] {
        const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        return static_cast<uint32>(std::max<long long>(remaining, 0));
    };
    auto stopped = [&] { return interrupted && interrupted->load(std::memory_order_relaxed); };
    auto quiet = [&] { return stopped() || (!isBusy() && phase() != kSigningIn); };
    // Quiet twice in a row, each time after what the last reply posted has been delivered: a
    // delivery may start the next call (the products after the sign-in), which is waited for too.
    for (int confirmed = 0; confirmed < 2;)
    {
        if (!EventWait::until(quiet, left()) || stopped())
            return false;
        EventWait::runFor(30);
        confirmed = quiet() ? confirmed + 1 : 0;
        if (confirmed < 2 && left() == 0)
            return false;
    }
    return !stopped();
}

void Gadget::notify(ISubject*, IMessage& message)
{
    if (idOf(message) == "propertyChanged")
        ++propertyChanges_;
}

tresult Gadget::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    return Object::queryInterface(iid, object);
}

} // namespace Host
