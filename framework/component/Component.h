#pragma once

#include "framework/component/Message.h"
#include "framework/component/Parameter.h"
#include "framework/component/Subject.h"
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/IObserver.h"
#include "framework/core/ObjectArray.h"

namespace KVX {

/// A named part of a module's component tree: child components found by name, numbered
/// parameters that forms bind to, properties read by name, and the subject and observer roles.
///
/// A parameter changed with notification arrives at paramChanged, which dispatches on the tag.
/// A component writing its own parameters sets them without notification. After a property
/// changes, the component signals "propertyChanged"; after its content changes, "changed".
/// All of it belongs to the user-interface thread (debug builds assert it).
///
/// Life cycle: initialize when the host puts the component to use, terminate before it lets go
/// of it. terminate cancels the deferred signals and messages still on their way to the
/// component and its children, so that a closed component is freed instead of being kept alive
/// by deliveries that nobody wants any more.
class Component : public Object, public Subject, public IObserver, public IComponent, public IParamOwner
{
    KVX_DECLARE_CLASS(Component, Object)
public:
    explicit Component(std::string_view name = {});
    ~Component() override;

    const CString& name() const { return name_; }
    void setName(std::string_view name) { name_ = CString(name); }

    // Tree
    Component* parent() const { return parent_; }
    /// Adds `child` (taking a reference) and becomes its parent.
    void addChild(Component* child);
    bool removeChild(Component* child);
    /// The first direct child called `name`, or nullptr.
    Component* findChild(std::string_view name) const;
    size_t childCount() const { return children_.count(); }
    Component* child(size_t index) const { return children_.at(index); }

    // Parameters
    /// Adds a parameter owned by this component; returns it for further settings.
    Parameter* addParameter(Parameter::Kind kind, std::string_view name, int32 tag);
    Parameter* findParameter(int32 tag) const;
    Parameter* findParameter(std::string_view name) const;
    size_t parameterCount() const { return parameters_.count(); }
    Parameter* parameter(size_t index) const { return parameters_.at(index); }
    /// The owner's parameter-changed operation. The base accepts and does nothing.
    bool paramChanged(Parameter& parameter) override;

    // Properties
    /// Reads the property `name` into `value`; false when the component has none of that name.
    /// The base answers "name".
    virtual bool getProperty(Variant& value, std::string_view name) const;

    // Life cycle
    /// Called when the host puts the component to use, with the host's context object (may be
    /// null). The base initialises the children.
    tresult initialize(IUnknown* context) override;
    /// Called before the component is released for good. The base terminates the children and
    /// cancels the deferred deliveries to this component.
    tresult terminate() override;
    IUnknown* context() const { return context_; }

    // Signals: signal(message) and signal(id) come from Subject and send at once.
    /// Sends `message` to the observers later, on the user-interface thread. Any thread.
    void deferSignal(IMessage* message);
    /// Posts `message` to this component's own notify, later, on the user-interface thread.
    /// Any thread.
    void postMessage(IMessage* message);

    // IObserver: the base ignores what it is told.
    void notify(ISubject* subject, IMessage& message) override;

    // IComponent: how the host sees the component.
    const char* getComponentName() override { return name_.c_str(); }
    IComponent* lookupChild(const char* name) override;
    int32 countParameters() override { return static_cast<int32>(parameters_.count()); }
    IParameter* getParameterAt(int32 index) override;
    IParameter* lookupParameter(const char* name) override;
    tresult readProperty(const char* name, ValueRecord& value) override;
    /// The base publishes no objects.
    IUnknown* lookupObject(const char*) override { return nullptr; }
    KVX_FORWARD_UNKNOWN(Object)

private:
    CString name_;
    Component* parent_ = nullptr; // the parent holds the reference to its children, not back
    TypedObjectArray<Component> children_{true};
    TypedObjectArray<Parameter> parameters_{true};
    Ref<IUnknown> context_;
    Variant propertyValue_; // what readProperty handed out last
};

} // namespace KVX
