#pragma once

#include "framework/component/Component.h"
#include "framework/interfaces/IDialogButtonInterest.h"

namespace KVX::Security {

/// Holds a login while it is edited, binds it to a form, and moves it to and from the host's
/// credential store. Parameters: "description" (100), "username" (101), "password" (102) and
/// "saveChecked" (103, 0 or 1). Nothing is written to the store except by storeCredentials, and
/// clearing the parameters does not delete a stored entry. User-interface thread.
class CredentialComponent : public Component, public IDialogButtonInterest
{
    KVX_DECLARE_CLASS(CredentialComponent, Component)
public:
    enum Tags : int32
    {
        kDescription = 100,
        kUserName = 101,
        kPassword = 102,
        kSaveChecked = 103,
    };

    /// Named `name`, or "Credentials" when it is empty.
    explicit CredentialComponent(std::string_view name = {});

    /// Sets "username" and "password" from the entry stored for `target`; true when one was
    /// found. Without an entry (or a store) the parameters stay as they are.
    bool loadCredentials(std::string_view target);
    /// Stores "username" and "password" under `target` when both are non-empty; true when stored.
    bool storeCredentials(std::string_view target);
    /// Empties "username" and "password" and sets "saveChecked" to 0.
    void clearCredentials();
    bool isSaveChecked() const;
    /// Copies the two parameters out; true when both are non-empty.
    bool getCredentials(String& userName, String& password) const;

    /// OK (1) is refused while "username" is empty; other buttons are let through.
    bool onDialogButtonHit(int32 button) override;
    KVX_FORWARD_UNKNOWN(Component)
};

} // namespace KVX::Security
