// How long a host waits for the gadget, and what the theme costs.
//
// 1. Library load to a ready gadget: dlopen of the plug-in (its start loads the theme), the class
//    factory, a new gadget controller, its initialisation (stored sign-in found, silent sign-in
//    started against a local sandbox), then until the account's products are listed. dlclose
//    after each round, so every round loads the library afresh.
// 2. The theme alone: the theme manager loading the package (directory, every entry inflated and
//    checked against its size), against a bare loop of zlib's uncompress over the same entries
//    (the floor any reader pays); then, apart, reading "skin.xml" into styles and forms, which the
//    module asks for at its start.
//
// Run it with a private Secret Service so that a stored sign-in exists:
//   tests/security/with-keyring.sh build/default/bin/load_bench [--rounds N]
// Without one, the gadget is measured up to its initialisation only.
#include "framework/hostsupport/EventWait.h"
#include "framework/interfaces/IComponent.h"
#include "framework/interfaces/IParameter.h"
#include "framework/package/PackageReader.h"
#include "framework/plugin/IClassFactory.h"
#include "framework/plugin/IPluginInstance.h"
#include "framework/services/GuiServices.h"
#include "framework/services/NetServices.h"
#include "framework/services/SecurityServices.h"
#include "framework/services/SystemServices.h"
#include "host/config/ConfigurationProvider.h"
#include "sandbox/Sandbox.h"
#include "tests/support/BuildPaths.h"

#include <zlib.h>

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

using namespace KVX;
using Clock = std::chrono::steady_clock;

namespace {

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

int64 intProperty(IComponent& component, const char* name)
{
    ValueRecord value;
    return component.readProperty(name, value) == kResultOk ? value.intValue : -1;
}

struct GadgetTimes
{
    double loaded = 0;      // dlopen returned: the module started, the theme is loaded
    double initialised = 0; // the controller exists and is initialised
    double listed = -1;     // the account's products are listed (-1: no stored sign-in)
};

/// One round: load, create, initialise, wait for the products, tear down, unload.
bool loadGadget(bool signedIn, GadgetTimes& times)
{
    const Clock::time_point start = Clock::now();
    void* library = dlopen(BuildPaths::pluginFile(), RTLD_NOW | RTLD_LOCAL);
    if (!library)
    {
        std::fprintf(stderr, "load_bench: %s\n", dlerror());
        return false;
    }
    times.loaded = millisecondsSince(start);
    auto entry = reinterpret_cast<IClassFactory* (*)()>(dlsym(library, "KVXGetClassFactory"));
    IClassFactory* factory = entry ? entry() : nullptr;
    if (!factory)
    {
        std::fprintf(stderr, "load_bench: the plug-in did not start\n");
        dlclose(library);
        return false;
    }
    ClassDescription gadgetClass{};
    for (int32 i = 0; i < factory->countClasses(); ++i)
        if (factory->getClassDescription(i, gadgetClass) == kResultOk && std::strcmp(gadgetClass.category, "Gadget") == 0)
            break;
    void* created = nullptr;
    if (factory->createInstance(gadgetClass.classId, IComponent::kIID, &created) != kResultOk)
    {
        dlclose(library);
        return false;
    }
    auto* gadget = static_cast<IComponent*>(created);
    void* instance = nullptr;
    if (gadget->queryInterface(IPluginInstance::kIID, &instance) == kResultOk)
    {
        static_cast<IPluginInstance*>(instance)->setClassId(gadgetClass.classId);
        static_cast<IPluginInstance*>(instance)->release();
    }
    gadget->initialize(nullptr);
    times.initialised = millisecondsSince(start);

    if (signedIn)
    {
        IParameter* titles = gadget->lookupParameter("titlesList");
        const bool listed = EventWait::until(
            [&] { return intProperty(*gadget, "loginPhase") == 2 && titles && titles->countEntries() > 1; }, 10000);
        times.listed = listed ? millisecondsSince(start) : -1;
    }
    gadget->terminate();
    gadget->release();
    // Let replies and messages still on their way to the controller arrive before its code goes.
    EventWait::runFor(20);
    return dlclose(library) == 0;
}

std::string readFile(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace

int main(int argc, char** argv)
{
    int rounds = 20;
    for (int i = 1; i < argc; ++i)
    {
        if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc)
            rounds = std::max(1, std::atoi(argv[++i]));
        else
        {
            std::printf("usage: load_bench [--rounds N]\n");
            return std::strcmp(argv[i], "--help") == 0 ? 0 : 2;
        }
    }
    if (GetRunLoop()->attachToCurrentThread() != kResultOk || RegisterWebServiceClasses() != kResultOk)
        return 1;

    SorvelSandbox::Sandbox sandbox;
    std::string error;
    if (sandbox.start({}, error) < 0)
    {
        std::fprintf(stderr, "load_bench: the sandbox did not start: %s\n", error.c_str());
        return 1;
    }
    // The host's own configuration provider, answering with the sandbox's addresses.
    const Host::Settings settings{sandbox.baseUrl(), sandbox.loginUrl(), sandbox.partnerId(), sandbox.partnerKey(), {}};
    if (!Host::ConfigurationProvider::install(settings, error))
    {
        std::fprintf(stderr, "load_bench: %s\n", error.c_str());
        return 1;
    }
    const auto login = sandbox.demoLogin();
    const bool signedIn =
        GetCredentialManager()->store("sorvel.com", login.username.c_str(), login.password.c_str()) == kResultOk;

    std::vector<double> loaded, initialised, listed;
    for (int round = 0; round < rounds; ++round)
    {
        GadgetTimes times;
        if (!loadGadget(signedIn, times))
            return 1;
        loaded.push_back(times.loaded);
        initialised.push_back(times.initialised);
        if (times.listed >= 0)
            listed.push_back(times.listed);
    }
    if (signedIn)
        GetCredentialManager()->remove("sorvel.com");

    std::printf("library load to a ready gadget, median of %d rounds:\n", rounds);
    std::printf("  dlopen (module started, theme loaded)      %8.2f ms\n", median(loaded));
    std::printf("  + factory, controller, initialise          %8.2f ms   (target < 50 ms)\n", median(initialised));
    if (signedIn)
        std::printf("  + silent sign-in, activity, products listed %7.2f ms   (%zu of %d rounds)\n", median(listed),
                    listed.size(), rounds);
    else
        std::printf("  (no Secret Service: the silent sign-in was not measured)\n");

    // The theme alone.
    const std::string package = readFile(BuildPaths::themePackage());
    PackageReader reader;
    if (!reader.open({reinterpret_cast<const uint8*>(package.data()), package.size()}))
        return 1;
    std::vector<const PackageEntry*> files;
    uint64 inflatedBytes = 0;
    for (const PackageEntry& entry : reader.entries())
        if (!entry.folder)
        {
            files.push_back(&entry);
            inflatedBytes += entry.originalSize;
        }

    const int themeRounds = rounds * 50;
    std::vector<double> themeTimes, skinTimes, bareTimes;
    std::vector<Bytef> buffer;
    for (int round = 0; round < themeRounds; ++round)
    {
        // The theme manager's load: directory, every entry inflated and checked, kept. The
        // previous round's theme is released after the measurement, not inside it.
        Ref<ITheme> previous(GetThemeManager()->getTheme("load-bench"));
        Clock::time_point start = Clock::now();
        if (GetThemeManager()->loadTheme("load-bench", package.data(), package.size()) != kResultOk)
            return 1;
        ITheme* theme = GetThemeManager()->getTheme("load-bench");
        for (const PackageEntry* file : files)
        {
            const void* data = nullptr;
            uint64 size = 0;
            if (theme->getFile(file->path.c_str(), data, size) != kResultOk)
                return 1;
        }
        themeTimes.push_back(millisecondsSince(start));
        // Reading the skin into styles and forms, which the module has done at its start.
        start = Clock::now();
        if (theme->checkSkin() != kResultOk)
            return 1;
        skinTimes.push_back(millisecondsSince(start));
        previous.reset();

        // The same entries through zlib's uncompress, each into a buffer of its size.
        start = Clock::now();
        for (const PackageEntry* file : files)
        {
            buffer.resize(file->originalSize);
            uLongf length = static_cast<uLongf>(buffer.size());
            const auto* stored = reinterpret_cast<const Bytef*>(package.data() + file->dataOffset);
            if (file->compressed)
            {
                if (uncompress(buffer.data(), &length, stored, static_cast<uLong>(file->storedSize)) != Z_OK)
                    return 1;
            }
            else
                std::memcpy(buffer.data(), stored, file->storedSize);
        }
        bareTimes.push_back(millisecondsSince(start));
    }
    const double theme = median(themeTimes);
    const double bare = median(bareTimes);
    std::printf("theme package: %zu bytes, %zu files, %llu bytes inflated; median of %d rounds:\n", package.size(),
                files.size(), static_cast<unsigned long long>(inflatedBytes), themeRounds);
    std::printf("  theme manager's load: every entry inflated     %8.3f ms\n", theme);
    std::printf("  bare uncompress of the same entries            %8.3f ms\n", bare);
    std::printf("  ratio                                          %8.2f x   (target <= 1.25 x)\n", theme / bare);
    std::printf("  reading skin.xml into styles and forms         %8.3f ms   (done once, at the module's start)\n",
                median(skinTimes));
    sandbox.stop();
    return 0;
}
