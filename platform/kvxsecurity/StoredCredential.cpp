#include "platform/kvxsecurity/StoredCredential.h"

#include <utility>

namespace KVX::Security {

KVX_DEFINE_CLASS(StoredCredential, Object, "StoredCredential")

StoredCredential::StoredCredential(std::string userName, SecretValue* password)
    : userName_(std::move(userName)), password_(password)
{
}

StoredCredential::~StoredCredential()
{
    secret_value_unref(password_);
}

tresult StoredCredential::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ICredential)
    return Object::queryInterface(iid, object);
}

const char* StoredCredential::getPassword()
{
    return secret_value_get_text(password_);
}

} // namespace KVX::Security
