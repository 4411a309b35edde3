#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/ValueRecord.h"

namespace KVX {

class IParameter;

/// A component as the host sees it: the controller behind a form. Forms bind to its parameters
/// by name, read its properties by name, and address its child components by name. Observers
/// are added through its ISubject ("changed", "propertyChanged").
///
/// User-interface thread. Pointers that it hands out carry no reference: children and
/// parameters live as long as the component.
class IComponent : public IUnknown
{
public:
    /// The host puts the component to use (opens the gadget), with the context it gives it (may
    /// be null), and lets go of it again before releasing it.
    virtual tresult initialize(IUnknown* context) = 0;
    virtual tresult terminate() = 0;
    /// The component's name (UTF-8, terminated); valid as long as the component.
    virtual const char* getComponentName() = 0;
    /// The direct child called `name`, or null.
    virtual IComponent* lookupChild(const char* name) = 0;
    virtual int32 countParameters() = 0;
    /// The parameter at `index`, or null when out of range.
    virtual IParameter* getParameterAt(int32 index) = 0;
    /// The parameter called `name`, or null.
    virtual IParameter* lookupParameter(const char* name) = 0;
    /// Reads the property `name`. Text and object in `value` stay valid until the next call of
    /// readProperty on this component. kInvalidArgument (empty record) for an unknown property.
    virtual tresult readProperty(const char* name, ValueRecord& value) = 0;
    /// The object that a form's view binds to by `name` (a list model, for instance), without a
    /// reference, or null.
    virtual IUnknown* lookupObject(const char* name) = 0;

    static constexpr UID kIID = UID::fromString("{6B9E3D72-1A48-4C5F-8E27-D0B3F6A9C851}");
};

} // namespace KVX
