#pragma once

#include "framework/core/Object.h"
#include "framework/services/ICredential.h"

#include <libsecret/secret.h>

#include <string>

namespace KVX::Security {

/// A login read from the Secret Service. The password stays in the secret value that libsecret
/// handed out: libsecret keeps it in memory that is not swapped out and wipes it on release, so
/// no copy of it lands on the ordinary heap.
class StoredCredential : public Object, public ICredential
{
    KVX_DECLARE_CLASS(StoredCredential, Object)
public:
    /// Takes over the caller's reference to `password`, whose content must be text.
    StoredCredential(std::string userName, SecretValue* password);
    ~StoredCredential() override;
    StoredCredential(const StoredCredential&) = delete;
    StoredCredential& operator=(const StoredCredential&) = delete;

    const char* getUserName() override { return userName_.c_str(); }
    const char* getPassword() override;
    KVX_FORWARD_UNKNOWN(Object)

private:
    std::string userName_;
    SecretValue* password_;
};

} // namespace KVX::Security
