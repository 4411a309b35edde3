#include "framework/security/CredentialComponent.h"

#include "framework/services/SecurityServices.h"

namespace KVX::Security {

KVX_DEFINE_CLASS(CredentialComponent, Component, "CredentialComponent")

CredentialComponent::CredentialComponent(std::string_view name) : Component(name.empty() ? "Credentials" : name)
{
    addParameter(Parameter::kString, "description", kDescription);
    addParameter(Parameter::kString, "username", kUserName);
    addParameter(Parameter::kString, "password", kPassword)->setOptions(Parameter::kPassword);
    addParameter(Parameter::kToggle, "saveChecked", kSaveChecked);
}

tresult CredentialComponent::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IDialogButtonInterest)
    return Component::queryInterface(iid, object);
}

bool CredentialComponent::loadCredentials(std::string_view target)
{
    std::string name(target);
    ICredential* found = nullptr;
    if (name.empty() || GetCredentialManager()->lookup(name.c_str(), &found) != kResultOk || !found)
        return false;
    auto credential = Ref<ICredential>::adopt(found);
    findParameter(kUserName)->setValue(String(credential->getUserName()));
    findParameter(kPassword)->setValue(String(credential->getPassword()));
    return true;
}

bool CredentialComponent::storeCredentials(std::string_view target)
{
    String userName, password;
    if (!getCredentials(userName, password) || target.empty())
        return false;
    std::string name(target);
    return GetCredentialManager()->store(name.c_str(), userName.toUtf8().c_str(), password.toUtf8().c_str()) ==
           kResultOk;
}

void CredentialComponent::clearCredentials()
{
    findParameter(kUserName)->setValue(String());
    findParameter(kPassword)->setValue(String());
    findParameter(kSaveChecked)->setValue(0);
}

bool CredentialComponent::isSaveChecked() const
{
    return findParameter(kSaveChecked)->value().asInt() != 0;
}

bool CredentialComponent::getCredentials(String& userName, String& password) const
{
    userName = findParameter(kUserName)->stringValue();
    password = findParameter(kPassword)->stringValue();
    return !userName.isEmpty() && !password.isEmpty();
}

bool CredentialComponent::onDialogButtonHit(int32 button)
{
    return button == kOkay && findParameter(kUserName)->stringValue().isEmpty();
}

} // namespace KVX::Security
