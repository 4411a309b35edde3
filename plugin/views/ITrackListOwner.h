#pragma once

#include "framework/core/IUnknown.h"

namespace Sorvel {

class TrackList;

/// The owner of the track table, as its child components find it: the inspector asks its
/// parent for the table whose selection it shows. User-interface thread.
class ITrackListOwner : public KVX::IUnknown
{
public:
    /// The table, without a reference (it lives as long as its owner), or null.
    virtual TrackList* getTrackList() = 0;

    static constexpr KVX::UID kIID = KVX::UID::fromString("{2E9C6A13-D7B4-4F85-9E1A-C5F3B08D6742}");
};

} // namespace Sorvel
