#include "framework/component/ThreadContract.h"

#include "framework/services/SystemServices.h"

namespace KVX {

bool isUserInterfaceThread()
{
    IRunLoop* loop = GetRunLoop();
    return !loop->hasLoopThread() || loop->isLoopThread();
}

} // namespace KVX
