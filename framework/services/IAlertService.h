#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class IAlertPresenter;

/// Alert boxes: a short message for the user, shown modally by the host's presenter. Without a
/// presenter an alert is written to standard error as "Sorvel: <text>" and a line break (with
/// "warning" or "error" after the name for those kinds); control characters other than line
/// breaks and tabs are written as "?" there, so that a text cannot drive the terminal. Any
/// thread.
class IAlertService : public IUnknown
{
public:
    enum Kind : int32
    {
        kInformation = 0,
        kWarning = 1,
        kError = 2,
    };

    /// Shows `text` (UTF-8) and returns when it has been shown: with a presenter, when the user
    /// has dismissed it, and then with the presenter's result. kInvalidArgument for a null text
    /// or an unknown kind; kUnexpected when standard error cannot be written.
    virtual tresult showAlert(const char* text, int32 kind) = 0;

    /// Registers the host's presenter, held by reference until it is replaced; null goes back
    /// to standard error. An alert already being shown finishes with the presenter it started
    /// with.
    virtual void setPresenter(IAlertPresenter* presenter) = 0;

    static constexpr UID kIID = UID::fromString("{473F479D-2AF3-4A89-AB35-E310B8ECE38C}");
};

} // namespace KVX
