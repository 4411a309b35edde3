#pragma once

#include "framework/core/Unknown.h"
#include "framework/interfaces/IPublisher.h"
#include "framework/plugin/PluginInstance.h"
#include "plugin/catalogue/LocalTrack.h"

namespace KVX {
class IPublishedItem;
}

namespace Sorvel {

/// The publishing target "Upload to Sorvel": tells the host which format to render (WAV, 44.1 kHz,
/// stereo, 16 bits or more) and takes the rendered files, each with its metadata, into the gadget's
/// track list for the user to review and upload. It sends nothing itself and keeps no state: the
/// files go to the module's current Manager.
///
/// Threads: checkFormat may be called on any thread. publish reads the items on the calling
/// thread; the hand-over to the Manager happens on the user-interface thread, at once when publish
/// is called there, else posted to it (publish then returns before the tracks are listed).
class Publisher : public KVX::Unknown, public KVX::PluginInstance, public Engine::IPublisher
{
public:
    Publisher() = default;

    KVX::tresult checkFormat(KVX::FileType& fileType, KVX::AudioFormat& format) override;
    KVX::tresult publish(KVX::IPublishedItemContainer* items) override;

    /// A local track for `item`'s file with the item's metadata; `album` receives the item's
    /// album. Null when the item has no usable file address.
    static KVX::Ref<LocalTrack> makeTrack(KVX::IPublishedItem& item, KVX::String& album);

    KVX::tresult queryInterface(const KVX::UID& iid, void** object) override;
    KVX::uint32 retain() override { return Unknown::retain(); }
    KVX::uint32 release() override { return Unknown::release(); }
};

} // namespace Sorvel
