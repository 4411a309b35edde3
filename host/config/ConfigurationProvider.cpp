#include "host/config/ConfigurationProvider.h"

#include "framework/async/AsyncOperation.h"
#include "framework/core/Runnable.h"
#include "framework/data/AttributeList.h"
#include "framework/services/SystemServices.h"

#include <cstring>

namespace Host {

using namespace KVX;

namespace {

Attributes& installedValues()
{
    static Attributes values;
    return values;
}

bool isOurs(const char* name)
{
    return name && std::strcmp(name, ConfigurationProvider::kName) == 0;
}

} // namespace

Attributes ConfigurationProvider::valuesOf(const Settings& settings)
{
    Attributes values;
    values.set("ServerURL", String(settings.serverUrl));
    values.set("LoginURL", String(settings.loginUrl));
    values.set("PartnerID", String(settings.partnerId));
    values.set("PartnerKey", String(settings.partnerKey));
    return values;
}

bool ConfigurationProvider::install(const Settings& settings, std::string& error)
{
    installedValues() = valuesOf(settings);
    IPlugInManager* plugIns = GetPlugInManager();
    plugIns->unregisterClass(kClassId);
    if (plugIns->registerClass(kClassId, &ConfigurationProvider::create, kName) != kResultOk)
    {
        error = "the host's configuration provider could not be registered";
        return false;
    }
    return true;
}

void ConfigurationProvider::uninstall()
{
    GetPlugInManager()->unregisterClass(kClassId);
    installedValues().clear();
}

IUnknown* ConfigurationProvider::create()
{
    return static_cast<IConfigurationProvider*>(new ConfigurationProvider(installedValues()));
}

tresult ConfigurationProvider::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IConfigurationProvider)
    return Object::queryInterface(iid, object);
}

tresult ConfigurationProvider::getConfiguration(const char* name, const char*, IAttributeList** result)
{
    if (!result)
        return kInvalidArgument;
    *result = nullptr;
    if (!isOurs(name))
        return kInvalidArgument;
    *result = makeRef<AttributeList>(values_).detach();
    return kResultOk;
}

tresult ConfigurationProvider::fetchConfiguration(const char* name, IAsyncOperation** operation)
{
    if (!operation)
        return kInvalidArgument;
    *operation = nullptr;
    if (!isOurs(name))
        return kInvalidArgument;
    auto started = makeRef<AsyncOperation>();
    Ref<AttributeList> values = makeRef<AttributeList>(values_);
    // Completed from the run loop, as an answer that had to be looked up would be.
    GetRunLoop()->post(Runnable::make([started, values] { started->complete(static_cast<IAttributeList*>(values.get())); }));
    *operation = static_cast<IAsyncOperation*>(started.detach());
    return kResultOk;
}

} // namespace Host
