#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IComponent;

/// Offered by the host context in which a gadget lives (the place the host made for it): asks
/// the host to bring that gadget to the user, say after a publish step handed it files.
/// User-interface thread.
class IHostContextActivation : public IUnknown
{
public:
    /// Brings the gadget whose controller is `component` forward. What that means is the host's
    /// (raise the window, open the panel, focus the page). kInvalidArgument for null.
    virtual tresult activate(IComponent* component) = 0;

    static constexpr UID kIID = UID::fromString("{39C9750B-28C4-459E-A94B-D3F347B0D6C2}");
};

} // namespace KVX
