#include "framework/core/Ref.h"
#include "framework/services/SecurityServices.h"
#include "platform/kvxsecurity/CredentialManager.h"
#include "platform/kvxsecurity/CryptoService.h"

using namespace KVX;

// The services live as long as the process: they are created on first use and never destroyed,
// so that no static destructor runs while another module still calls them.

ICryptoService* GetCryptoService()
{
    static Security::CryptoService* service = makeRef<Security::CryptoService>().detach();
    return service;
}

ICredentialManager* GetCredentialManager()
{
    static Security::CredentialManager* manager = makeRef<Security::CredentialManager>().detach();
    return manager;
}
