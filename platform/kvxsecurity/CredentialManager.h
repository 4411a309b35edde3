#pragma once

#include "framework/core/Object.h"
#include "framework/services/ICredentialManager.h"

namespace KVX::Security {

/// ICredentialManager on the desktop's Secret Service (libsecret). Each login is one item of the
/// default collection with the attributes "target" and "user" under the schema
/// "com.belvane.sorvel.Login". Only the Secret Service's D-Bus interface is used, never
/// libsecret's file store, so a missing service means failure and nothing is written elsewhere.
class CredentialManager : public Object, public ICredentialManager
{
    KVX_DECLARE_CLASS(CredentialManager, Object)
public:
    tresult lookup(const char* target, ICredential** credential) override;
    tresult store(const char* target, const char* userName, const char* password) override;
    tresult remove(const char* target) override;
    KVX_FORWARD_UNKNOWN(Object)
};

} // namespace KVX::Security
