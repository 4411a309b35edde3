#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// An object that the host created through a class factory. The host tells it which class it
/// was created as and gives it the context it lives in (the place the host made for a gadget).
/// User-interface thread.
class IPluginInstance : public IUnknown
{
public:
    virtual void setClassId(const UID& classId) = 0;
    virtual UID getClassId() = 0;
    /// The host's context object; the instance keeps a reference. Null clears it.
    virtual void setHostContext(IUnknown* context) = 0;
    /// The context, without a reference for the caller; null when there is none.
    virtual IUnknown* getHostContext() = 0;

    static constexpr UID kIID = UID::fromString("{C5A1E9B7-6D24-4F3A-8E0C-2B7D5F9A1C46}");
};

} // namespace KVX
