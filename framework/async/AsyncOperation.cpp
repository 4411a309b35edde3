#include "framework/async/AsyncOperation.h"

namespace KVX {

KVX_DEFINE_CLASS(AsyncOperation, Object, "AsyncOperation")

tresult AsyncOperation::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAsyncOperation)
    return Object::queryInterface(iid, object);
}

Ref<AsyncOperation> AsyncOperation::failed()
{
    auto operation = makeRef<AsyncOperation>();
    operation->fail();
    return operation;
}

void AsyncOperation::complete(IUnknown* result)
{
    if (state_ != kStarted)
        return;
    result_ = result;
    finish(kCompleted);
}

void AsyncOperation::fail()
{
    if (state_ == kStarted)
        finish(kFailed);
}

void AsyncOperation::cancel()
{
    if (state_ == kStarted)
        finish(kCanceled);
}

tresult AsyncOperation::getResult(IUnknown** result)
{
    if (!result)
        return kInvalidArgument;
    *result = nullptr;
    if (state_ != kCompleted || !result_)
        return kUnexpected;
    *result = result_;
    result_->retain();
    return kResultOk;
}

tresult AsyncOperation::setCompletionHandler(IAsyncCompletionHandler* handler)
{
    handler_ = handler;
    if (handler_ && state_ != kStarted)
        finish(state_); // ended before anyone listened: tell the new handler now
    return kResultOk;
}

void AsyncOperation::finish(int32 state)
{
    state_ = state;
    // The handler is told once; it may release this operation from inside the call.
    Ref<AsyncOperation> keepAlive(this);
    if (Ref<IAsyncCompletionHandler> handler = std::move(handler_))
        handler->onCompletion(this);
}

} // namespace KVX
