#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// What the host registers with the system shell to open addresses its own way.
class IUrlOpener : public IUnknown
{
public:
    /// Opens `url` (checked ASCII URL text, never null). Called on the thread that asked; the
    /// result is handed back to that caller: kResultOk when the address was handed over.
    virtual tresult openUrl(const char* url) = 0;

    static constexpr UID kIID = UID::fromString("{A87C745A-9D6A-470C-834B-AEAAEC0ADC8C}");
};

} // namespace KVX
