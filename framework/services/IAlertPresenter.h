#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// What the host registers with the alert service to show alerts its own way (a message box).
class IAlertPresenter : public IUnknown
{
public:
    /// Shows `text` (UTF-8, never null) of an IAlertService::Kind and returns once the user has
    /// dismissed it. Called on the thread that asked for the alert, normally the user-interface
    /// thread. The result is handed back to that caller.
    virtual tresult presentAlert(const char* text, int32 kind) = 0;

    static constexpr UID kIID = UID::fromString("{A3352B7F-C969-44D0-B8DB-E0986723C6BB}");
};

} // namespace KVX
