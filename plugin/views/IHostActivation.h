#pragma once

#include "framework/core/IUnknown.h"

namespace Sorvel {

/// Brings the gadget to the user through the host (the gadget's controller offers it).
class IHostActivation : public KVX::IUnknown
{
public:
    virtual void activateInHost() = 0;

    static constexpr KVX::UID kIID = KVX::UID::fromString("{4C7E2A91-D3B6-4F58-A0E2-9B5D1C8F7A36}");
};

} // namespace Sorvel
