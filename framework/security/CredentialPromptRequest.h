#pragma once

#include "framework/text/CString.h"
#include "framework/text/String.h"

namespace KVX::Security {

/// What a caller asks of the login prompt, and what it gets back.
struct CredentialPromptRequest
{
    enum Flags : uint32
    {
        kAlwaysShow = 1 << 0, ///< show the prompt even when a complete login is stored
        kSave = 1 << 1,       ///< in: "saveChecked" starts ticked; out: the user left it ticked
    };

    String title;       ///< dialog title; unchanged when empty
    String description; ///< text for "description"; unchanged when empty
    String userName;    ///< in and out
    String password;    ///< in and out
    CString target;     ///< credential store target; nothing is loaded when empty
    uint32 flags = 0;
};

} // namespace KVX::Security
