#pragma once

#include "framework/core/IUnknown.h"
#include "framework/services/AudioFormat.h"
#include "framework/services/FileType.h"

namespace KVX {
class IPublishedItemContainer;
}

namespace Engine {

/// A publishing target: the host asks it which file type and audio format to render, then
/// hands it the rendered files. User-interface thread.
class IPublisher : public KVX::IUnknown
{
public:
    /// Corrects `fileType` and `format` to what the target accepts. kResultOk when both were
    /// acceptable as they came; kInvalidArgument when either was changed.
    virtual KVX::tresult checkFormat(KVX::FileType& fileType, KVX::AudioFormat& format) = 0;
    /// Takes the rendered files. kResultOk when the target took them; kUnexpected when it has
    /// nowhere to put them (no gadget is open). The container is read during the call only.
    virtual KVX::tresult publish(KVX::IPublishedItemContainer* items) = 0;

    static constexpr KVX::UID kIID = KVX::UID::fromString("{5F0B8E27-C6A3-4D91-B7E4-2A9D1F6C3B85}");
};

} // namespace Engine
