#pragma once

#include "framework/core/IUnknown.h"

namespace Sorvel {

/// Answers whether an upload is running, for the track table, which refuses removals and drops
/// meanwhile. The gadget's controller offers it. User-interface thread.
class IUploadState : public KVX::IUnknown
{
public:
    /// True from the start of an upload batch until its end has been handled.
    virtual bool isUploading() = 0;

    static constexpr KVX::UID kIID = KVX::UID::fromString("{8D41B7E2-5F93-4C6A-A2E8-0B7C3D9F1E56}");
};

} // namespace Sorvel
