// Loads the host's shared modules the way a host does, with dlopen and nothing linked in
// advance, and reaches every service through its exported accessor. Each module resolves at
// load time (RTLD_NOW), so a module that does not link what it calls fails here, whatever the
// order the modules are loaded in; and the classes one module registers are found through the
// plug-in manager of another, so all of them share one system module.
#include "framework/services/AudioServices.h"
#include "framework/services/GuiServices.h"
#include "framework/services/NetServices.h"
#include "framework/services/SecurityServices.h"
#include "framework/services/SystemServices.h"
#include "framework/services/TextServices.h"
#include "tests/support/BuildPaths.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <string>
#include <vector>

using namespace KVX;

namespace {

class Module
{
public:
    explicit Module(const std::string& name)
        : path_(std::string(BuildPaths::moduleDir()) + "/lib" + name + ".so"),
          handle_(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL))
    {
    }
    ~Module()
    {
        // Modules stay loaded: their services live as long as the process, as in a host.
    }

    bool loaded() const { return handle_ != nullptr; }
    std::string error() const { return path_ + ": " + (handle_ ? "" : dlerror()); }

    template <class Function>
    Function* find(const char* name) const
    {
        return reinterpret_cast<Function*>(dlsym(handle_, name));
    }

private:
    std::string path_;
    void* handle_;
};

template <class Interface>
void release(Interface* object)
{
    if (object)
        object->release();
}

} // namespace

TEST(ModuleLoad, EveryModuleLoadsOnItsOwnAndEveryServiceIsReachable)
{
    // Loaded in the reverse of their dependency order on purpose: each must pull in what it
    // needs by itself.
    const std::vector<std::string> names{"kvxgui", "kvxaudio", "kvxsecurity", "kvxnet", "kvxtext", "kvxsystem"};
    std::vector<Module> modules;
    modules.reserve(names.size());
    for (const std::string& name : names)
    {
        modules.emplace_back(name);
        ASSERT_TRUE(modules.back().loaded()) << modules.back().error();
    }
    const Module& gui = modules[0];
    const Module& audio = modules[1];
    const Module& security = modules[2];
    const Module& net = modules[3];
    const Module& text = modules[4];
    const Module& system = modules[5];

    // The system module: every accessor answers.
    auto* getPlugInManager = system.find<decltype(GetPlugInManager)>("GetPlugInManager");
    ASSERT_NE(getPlugInManager, nullptr);
    IPlugInManager* plugInManager = getPlugInManager();
    ASSERT_NE(plugInManager, nullptr);
    for (const char* accessor : {"GetRunLoop", "GetSignalHandler", "GetSystem", "GetFileSystem", "GetFileTypeRegistry",
                                 "GetObjectTable", "GetLocaleManager"})
    {
        auto* get = system.find<IUnknown*()>(accessor);
        ASSERT_NE(get, nullptr) << accessor;
        EXPECT_NE(get(), nullptr) << accessor;
    }
    auto* createThread = system.find<decltype(CreateNativeThread)>("CreateNativeThread");
    ASSERT_NE(createThread, nullptr);
    INativeThread* thread = createThread("probe");
    EXPECT_NE(thread, nullptr);
    release(thread);
    auto* hash = system.find<decltype(Hash)>("Hash");
    ASSERT_NE(hash, nullptr);
    uint32 value = 0;
    EXPECT_EQ(hash("a", 1, &value), kResultOk);
    EXPECT_EQ(value, 0xE40C292Cu); // FNV-1a of "a"
    auto* createUid = system.find<decltype(CreateUID)>("CreateUID");
    ASSERT_NE(createUid, nullptr);
    UID uid;
    EXPECT_EQ(createUid(&uid), kResultOk);

    // The text module.
    auto* createTransformer = text.find<decltype(CreateDataTransformer)>("CreateDataTransformer");
    ASSERT_NE(createTransformer, nullptr);
    IDataTransformer* hex = createTransformer(IDataTransformer::kHexEncode);
    EXPECT_NE(hex, nullptr);
    release(hex);
    EXPECT_NE(text.find<void()>("JsonParse"), nullptr);

    // The network module registers its request class by an explicit call, and the class is then
    // created through the system module's plug-in manager.
    auto* getWebService = net.find<decltype(GetWebService)>("GetWebService");
    ASSERT_NE(getWebService, nullptr);
    Web::IXMLHttpRequest* direct = nullptr;
    ASSERT_EQ(getWebService()->createRequest(&direct), kResultOk);
    release(direct);
    void* request = nullptr;
    EXPECT_NE(plugInManager->createInstance(Web::IXMLHttpRequest::kClassId, Web::IXMLHttpRequest::kIID, &request),
              kResultOk); // loading registered nothing
    auto* registerWeb = net.find<decltype(RegisterWebServiceClasses)>("RegisterWebServiceClasses");
    ASSERT_NE(registerWeb, nullptr);
    ASSERT_EQ(registerWeb(), kResultOk);
    EXPECT_EQ(registerWeb(), kResultOk); // again: still fine
    ASSERT_EQ(plugInManager->createInstance(Web::IXMLHttpRequest::kClassId, Web::IXMLHttpRequest::kIID, &request),
              kResultOk);
    release(static_cast<Web::IXMLHttpRequest*>(request));

    // The security module.
    auto* getCrypto = security.find<decltype(GetCryptoService)>("GetCryptoService");
    auto* getCredentials = security.find<decltype(GetCredentialManager)>("GetCredentialManager");
    ASSERT_NE(getCrypto, nullptr);
    ASSERT_NE(getCredentials, nullptr);
    EXPECT_NE(getCrypto(), nullptr);
    EXPECT_NE(getCredentials(), nullptr);

    // The audio module's class, through the same plug-in manager.
    auto* registerAudio = audio.find<decltype(RegisterAudioFileClass)>("RegisterAudioFileClass");
    ASSERT_NE(registerAudio, nullptr);
    ASSERT_EQ(registerAudio(), kResultOk);
    void* audioFile = nullptr;
    ASSERT_EQ(plugInManager->createInstance(IAudioFile::kClassId, IAudioFile::kIID, &audioFile), kResultOk);
    release(static_cast<IAudioFile*>(audioFile));

    // The graphics module.
    auto* getAlerts = gui.find<decltype(GetAlertService)>("GetAlertService");
    auto* getShell = gui.find<decltype(GetSystemShell)>("GetSystemShell");
    ASSERT_NE(getAlerts, nullptr);
    ASSERT_NE(getShell, nullptr);
    EXPECT_NE(getAlerts(), nullptr);
    EXPECT_NE(getShell(), nullptr);
}
