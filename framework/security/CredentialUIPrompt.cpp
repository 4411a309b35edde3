#include "framework/security/CredentialUIPrompt.h"

namespace KVX::Security {

KVX_DEFINE_CLASS(CredentialUIPrompt, Object, "CredentialUIPrompt")

bool CredentialUIPrompt::prompt(CredentialPromptRequest& request)
{
    auto component = makeRef<CredentialComponent>();
    if (!request.target.isEmpty())
        component->loadCredentials(request.target.view());
    if (!(request.flags & CredentialPromptRequest::kAlwaysShow))
    {
        String userName, password;
        if (component->getCredentials(userName, password))
        {
            request.userName = userName;
            request.password = password;
            return true;
        }
    }
    if (!hasDialogView())
        return false;
    if (!request.description.isEmpty())
        component->findParameter(CredentialComponent::kDescription)->setValue(request.description);
    component->findParameter(CredentialComponent::kSaveChecked)
        ->setValue((request.flags & CredentialPromptRequest::kSave) ? 1 : 0);
    request.flags &= ~uint32(CredentialPromptRequest::kSave);

    if (runDialog(*component, request.title) != IDialogButtonInterest::kOkay)
        return false;
    component->getCredentials(request.userName, request.password);
    if (component->isSaveChecked())
        request.flags |= CredentialPromptRequest::kSave;
    return true;
}

bool CredentialUIPrompt::hasDialogView() const
{
    return false;
}

int32 CredentialUIPrompt::runDialog(CredentialComponent&, const String&)
{
    return IDialogButtonInterest::kCancel;
}

} // namespace KVX::Security
