#include "framework/services/SystemServices.h"
#include "platform/kvxsystem/RunLoop.h"
#include "platform/kvxsystem/SignalHandler.h"

using namespace KVX;

// The services live as long as the process: they are created on first use and never destroyed,
// so that no static destructor runs while another module still posts to them.

IRunLoop* GetRunLoop()
{
    static System::RunLoop* loop = makeRef<System::RunLoop>().detach();
    return loop;
}

ISignalHandler* GetSignalHandler()
{
    static System::SignalHandler* handler = makeRef<System::SignalHandler>(*GetRunLoop()).detach();
    return handler;
}
