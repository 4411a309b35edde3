#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/interfaces/IAsyncOperation.h"

namespace KVX {

/// An asynchronous operation that its maker ends by hand: complete with a result, fail, or be
/// cancelled. The completion handler is told once, on the thread that ends the operation (for
/// a host: its user-interface thread). A receiver that got no operation from a provider makes
/// an already failed one with failed(), so its completion path runs in every case.
class AsyncOperation : public Object, public IAsyncOperation
{
    KVX_DECLARE_CLASS(AsyncOperation, Object)
public:
    /// An operation that has failed before anyone waited for it.
    static Ref<AsyncOperation> failed();

    /// Ends the operation with `result` (retained) unless it has ended already.
    void complete(IUnknown* result);
    /// Ends the operation as failed unless it has ended already.
    void fail();

    int32 getState() override { return state_; }
    tresult getResult(IUnknown** result) override;
    tresult setCompletionHandler(IAsyncCompletionHandler* handler) override;
    void cancel() override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    void finish(int32 state);

    int32 state_ = kStarted;
    Ref<IUnknown> result_;
    Ref<IAsyncCompletionHandler> handler_;
};

} // namespace KVX
