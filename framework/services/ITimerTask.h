#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Called by the run loop at the interval it was registered with, on the loop's thread.
class ITimerTask : public IUnknown
{
public:
    virtual void onTimer() = 0;

    static constexpr UID kIID = UID::fromString("{B8D3E6F1-47A2-4C9B-8D15-2E6F0A9C3B74}");
};

} // namespace KVX
