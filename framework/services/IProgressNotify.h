#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// One progress report: a fraction from 0 to 1 and flags that the reporter passes along.
struct ProgressState
{
    double value = 0.0;
    int32 flags = 0;
};

/// Receives the progress of a long operation and tells it whether to stop. Called on the thread
/// that runs the operation (a worker's synchronous request), so implementations only set and read
/// thread-safe state there.
class IProgressNotify : public IUnknown
{
public:
    virtual void updateProgress(const ProgressState& state) = 0;
    /// Polled during the operation; true ends it as soon as it can stop.
    virtual bool isCanceled() = 0;

    static constexpr UID kIID = UID::fromString("{5D9E2B7A-C3F1-4A68-9E0B-7F4C1D8A3E26}");
};

} // namespace KVX
