#include "framework/services/SystemServices.h"
#include "platform/kvxsystem/ByteHash.h"
#include "platform/kvxsystem/FileSystem.h"
#include "platform/kvxsystem/FileTypeRegistry.h"
#include "platform/kvxsystem/HostSystem.h"
#include "platform/kvxsystem/LocaleManager.h"
#include "platform/kvxsystem/NativeThread.h"
#include "platform/kvxsystem/ObjectTable.h"
#include "platform/kvxsystem/PlugInManager.h"
#include "platform/kvxsystem/RandomUid.h"
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

ISystem* GetSystem()
{
    static System::HostSystem* system = makeRef<System::HostSystem>().detach();
    return system;
}

IPlugInManager* GetPlugInManager()
{
    static System::PlugInManager* manager = makeRef<System::PlugInManager>().detach();
    return manager;
}

IFileSystem* GetFileSystem()
{
    static System::FileSystem* fileSystem = makeRef<System::FileSystem>().detach();
    return fileSystem;
}

IFileTypeRegistry* GetFileTypeRegistry()
{
    static System::FileTypeRegistry* registry = makeRef<System::FileTypeRegistry>().detach();
    return registry;
}

IObjectTable* GetObjectTable()
{
    static System::ObjectTable* table = makeRef<System::ObjectTable>().detach();
    return table;
}

ILocaleManager* GetLocaleManager()
{
    static System::LocaleManager* manager = makeRef<System::LocaleManager>().detach();
    return manager;
}

INativeThread* CreateNativeThread(const char* name)
{
    if (!name || !*name)
        return nullptr;
    return makeRef<System::NativeThread>(name).detach();
}

tresult Hash(const void* data, uint64 length, uint32* hash)
{
    if (!hash || (!data && length > 0))
        return kInvalidArgument;
    *hash = System::fnv1a32(data, length);
    return kResultOk;
}

tresult CreateUID(UID* uid)
{
    if (!uid)
        return kInvalidArgument;
    return System::makeRandomUid(*uid) ? kResultOk : kUnexpected;
}
