#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IAsyncOperation;

/// Told when an asynchronous operation has ended. User-interface thread.
class IAsyncCompletionHandler : public IUnknown
{
public:
    virtual void onCompletion(IAsyncOperation* operation) = 0;

    static constexpr UID kIID = UID::fromString("{4E8A2C61-B93D-4F17-8C5E-A2D06F9B3E14}");
};

/// Work that a host does in the background and reports once, on the user-interface thread.
/// Made by the party that does the work; the receiver holds a reference while it waits.
class IAsyncOperation : public IUnknown
{
public:
    enum State : int32
    {
        kStarted = 0,
        kCompleted = 1,
        kFailed = 2,
        kCanceled = 3,
    };

    /// The current state. Any thread.
    virtual int32 getState() = 0;
    /// The result of a completed operation, with a reference for the caller (for a configuration:
    /// an IAttributeList). kUnexpected (and null) before completion or after failure.
    virtual tresult getResult(IUnknown** result) = 0;
    /// Sets the handler that is told once the operation has ended; the operation holds it until
    /// then. A handler set on an operation that has already ended is told at once. Null removes
    /// it. User-interface thread.
    virtual tresult setCompletionHandler(IAsyncCompletionHandler* handler) = 0;
    /// Asks the operation to stop; it ends as canceled unless it ended before. The handler is
    /// still told. User-interface thread.
    virtual void cancel() = 0;

    static constexpr UID kIID = UID::fromString("{1C5F7B39-2E64-4A8D-B0C2-7F3E9A5D6B18}");
};

} // namespace KVX
