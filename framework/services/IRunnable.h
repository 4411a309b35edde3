#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// A piece of work handed to the run loop.
class IRunnable : public IUnknown
{
public:
    virtual void run() = 0;

    static constexpr UID kIID = UID::fromString("{4F2A9C7E-1D35-4B6F-9E08-A3C5B7D91E26}");
};

} // namespace KVX
