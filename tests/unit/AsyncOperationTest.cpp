#include "framework/async/AsyncOperation.h"
#include "framework/data/AttributeList.h"

#include <gtest/gtest.h>

#include <vector>

using namespace KVX;

namespace {

class Waiter : public Object, public IAsyncCompletionHandler
{
public:
    void onCompletion(IAsyncOperation* operation) override
    {
        states.push_back(operation->getState());
        if (dropOperation)
            dropOperation->reset();
    }
    KVX_FORWARD_UNKNOWN(Object)

    std::vector<int32> states;
    Ref<AsyncOperation>* dropOperation = nullptr;
};

tresult Waiter::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IAsyncCompletionHandler)
    return Object::queryInterface(iid, object);
}

} // namespace

TEST(AsyncOperation, TellsItsHandlerOnceWithTheResultOrTheFailure)
{
    auto waiter = makeRef<Waiter>();
    auto operation = makeRef<AsyncOperation>();
    ASSERT_EQ(operation->setCompletionHandler(waiter), kResultOk);
    IUnknown* result = reinterpret_cast<IUnknown*>(1);
    EXPECT_EQ(operation->getResult(&result), kUnexpected); // not ended yet
    EXPECT_EQ(result, nullptr);

    auto configuration = makeRef<AttributeList>();
    configuration->attributes().set("PartnerID", String("P1"));
    operation->complete(static_cast<IAttributeList*>(configuration.get()));
    operation->fail();     // ended already: no second report
    operation->complete(nullptr);
    EXPECT_EQ(waiter->states, std::vector<int32>{IAsyncOperation::kCompleted});
    ASSERT_EQ(operation->getResult(&result), kResultOk);
    Ref<IUnknown> held = Ref<IUnknown>::adopt(result);
    void* list = nullptr;
    ASSERT_EQ(held->queryInterface(IAttributeList::kIID, &list), kResultOk);
    EXPECT_EQ(AttributeList::copyFrom(*Ref<IAttributeList>::adopt(static_cast<IAttributeList*>(list))).getString("PartnerID"), "P1");

    // An operation that failed before anyone waited tells a handler as soon as one is set, so a
    // receiver's completion path runs in every case.
    auto late = makeRef<Waiter>();
    auto failed = AsyncOperation::failed();
    EXPECT_EQ(failed->getState(), IAsyncOperation::kFailed);
    failed->setCompletionHandler(late);
    EXPECT_EQ(late->states, std::vector<int32>{IAsyncOperation::kFailed});
    EXPECT_EQ(failed->getResult(&result), kUnexpected);

    // Cancelling reports once, and the handler may let go of the operation from inside the call.
    auto canceller = makeRef<Waiter>();
    auto pending = makeRef<AsyncOperation>();
    pending->setCompletionHandler(canceller);
    canceller->dropOperation = &pending;
    pending->cancel();
    EXPECT_EQ(canceller->states, std::vector<int32>{IAsyncOperation::kCanceled});
    EXPECT_EQ(pending.get(), nullptr);
    EXPECT_EQ(canceller->referenceCount(), 1u); // the ended operation let go of its handler
}
