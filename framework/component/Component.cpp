#include "framework/component/Component.h"

#include "framework/component/ThreadContract.h"
#include "framework/services/SystemServices.h"

namespace KVX {

KVX_DEFINE_CLASS(Component, Object, "Component")

Component::Component(std::string_view name) : name_(name) {}

Component::~Component()
{
    for (Component* child : children_)
        child->parent_ = nullptr;
    for (Parameter* parameter : parameters_)
        parameter->setOwner(nullptr);
}

tresult Component::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISubject)
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    KVX_QUERY_INTERFACE(iid, object, IComponent)
    return Object::queryInterface(iid, object);
}

void Component::addChild(Component* child)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!child || child->parent_ || children_.contains(child))
        return;
    children_.add(child);
    child->parent_ = this;
}

bool Component::removeChild(Component* child)
{
    if (!child || child->parent_ != this)
        return false;
    child->parent_ = nullptr;
    return children_.remove(child);
}

Component* Component::findChild(std::string_view name) const
{
    for (Component* child : children_)
        if (child->name() == name)
            return child;
    return nullptr;
}

Parameter* Component::addParameter(Parameter::Kind kind, std::string_view name, int32 tag)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    auto parameter = makeRef<Parameter>(kind, name, tag);
    parameter->setOwner(this);
    parameters_.add(parameter);
    return parameter;
}

Parameter* Component::findParameter(int32 tag) const
{
    for (Parameter* parameter : parameters_)
        if (parameter->tag() == tag)
            return parameter;
    return nullptr;
}

Parameter* Component::findParameter(std::string_view name) const
{
    for (Parameter* parameter : parameters_)
        if (parameter->name() == name)
            return parameter;
    return nullptr;
}

bool Component::paramChanged(Parameter&)
{
    return true;
}

bool Component::getProperty(Variant& value, std::string_view name) const
{
    if (name == "name")
    {
        value = String(name_.view());
        return true;
    }
    return false;
}

tresult Component::initialize(IUnknown* context)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    context_ = context;
    for (Component* child : children_)
        child->initialize(context);
    return kResultOk;
}

tresult Component::terminate()
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    for (Component* child : children_)
        child->terminate();
    GetSignalHandler()->cancelMessages(static_cast<IObserver*>(this));
    context_.reset();
    return kResultOk;
}

void Component::deferSignal(IMessage* message)
{
    GetSignalHandler()->postSignal(this, message);
}

void Component::postMessage(IMessage* message)
{
    GetSignalHandler()->postMessage(this, this, message);
}

void Component::notify(ISubject*, IMessage&) {}

IComponent* Component::lookupChild(const char* name)
{
    return name ? findChild(std::string_view(name)) : nullptr;
}

IParameter* Component::getParameterAt(int32 index)
{
    return index >= 0 && static_cast<size_t>(index) < parameters_.count() ? parameters_.at(static_cast<size_t>(index))
                                                                            : nullptr;
}

IParameter* Component::lookupParameter(const char* name)
{
    return name ? findParameter(std::string_view(name)) : nullptr;
}

tresult Component::readProperty(const char* name, ValueRecord& value)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    propertyValue_ = Variant();
    if (!name || !getProperty(propertyValue_, name))
    {
        value = ValueRecord{};
        return kInvalidArgument;
    }
    propertyValue_.toRecord(value);
    return kResultOk;
}

} // namespace KVX
