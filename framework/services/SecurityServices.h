#pragma once

/// The accessors that the host's security module (kvxsecurity) exports. Each returns a service
/// that lives as long as the process; the caller does not release it.

#include "framework/services/ICredential.h"
#include "framework/services/ICredentialManager.h"
#include "framework/services/ICryptoService.h"
#include "framework/services/ModuleApi.h"

extern "C" {

KVX_MODULE_API KVX::ICryptoService* GetCryptoService();
KVX_MODULE_API KVX::ICredentialManager* GetCredentialManager();
}
