#pragma once

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"
#include "framework/interfaces/IConfigurationProvider.h"
#include "host/config/Settings.h"

namespace Host {

/// The host's configuration provider, the class the plug-in creates through the plug-in manager
/// to learn the service's addresses and the partner identity. It answers for the name "sorvel"
/// only, in both ways: at once, and through an operation that completes on the run loop.
class ConfigurationProvider : public KVX::Object, public KVX::IConfigurationProvider
{
public:
    static constexpr const char* kName = "sorvel";

    /// Registers the provider class with the plug-in manager, answering with `settings` from now
    /// on (a provider made before keeps what it had). False with a sentence in `error`.
    static bool install(const Settings& settings, std::string& error);
    /// Removes the class again.
    static void uninstall();

    /// The values it answers with: "ServerURL", "LoginURL", "PartnerID", "PartnerKey".
    static KVX::Attributes valuesOf(const Settings& settings);

    KVX::tresult getConfiguration(const char* name, const char* description, KVX::IAttributeList** result) override;
    KVX::tresult fetchConfiguration(const char* name, KVX::IAsyncOperation** operation) override;

    KVX_FORWARD_UNKNOWN(Object)

private:
    explicit ConfigurationProvider(KVX::Attributes values) : values_(std::move(values)) {}
    static KVX::IUnknown* create();

    KVX::Attributes values_;
};

} // namespace Host
