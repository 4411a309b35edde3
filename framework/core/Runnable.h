#pragma once

#include "framework/core/Object.h"
#include "framework/core/Ref.h"
#include "framework/services/IRunnable.h"

#include <functional>

namespace KVX {

/// A function as a run-loop task.
class Runnable : public Object, public IRunnable
{
    KVX_DECLARE_CLASS(Runnable, Object)
public:
    explicit Runnable(std::function<void()> function) : function_(std::move(function)) {}

    static Ref<IRunnable> make(std::function<void()> function)
    {
        auto runnable = makeRef<Runnable>(std::move(function));
        return Ref<IRunnable>(static_cast<IRunnable*>(runnable.get()));
    }

    void run() override
    {
        if (function_)
            function_();
    }
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::function<void()> function_;
};

} // namespace KVX
