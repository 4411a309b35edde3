#pragma once

#include "framework/core/Object.h"
#include "framework/security/CredentialComponent.h"
#include "framework/security/CredentialPromptRequest.h"

namespace KVX::Security {

/// A modal login prompt built on a CredentialComponent, shown with the form
/// "CredentialsUIPrompt" of the module's theme. Has no state of its own.
class CredentialUIPrompt : public Object
{
    KVX_DECLARE_CLASS(CredentialUIPrompt, Object)
public:
    /// Fills `request` from the store or from the user. True when the dialog ended with OK, or
    /// when a complete stored login made showing it unnecessary.
    bool prompt(CredentialPromptRequest& request);

protected:
    /// Whether the theme has the prompt's view. The framework's version has no theme to draw on
    /// yet and answers false, so a prompt that must be shown fails.
    virtual bool hasDialogView() const;
    /// Runs the prompt's view modally over `component` (titled `title` when not empty) and
    /// returns the button that ended it.
    virtual int32 runDialog(CredentialComponent& component, const String& title);
};

} // namespace KVX::Security
