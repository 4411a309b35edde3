#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// Asked by a modal dialog before a button closes it. User-interface thread.
class IDialogButtonInterest : public IUnknown
{
public:
    enum Button : int32
    {
        kOkay = 1,
        kCancel = 2,
    };

    /// True keeps the dialog open (the button is refused for now).
    virtual bool onDialogButtonHit(int32 button) = 0;

    static constexpr UID kIID = UID::fromString("{0F8B4D2E-6A35-4C91-B7E8-5D2C9A1F3E47}");
};

} // namespace KVX
