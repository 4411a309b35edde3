#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// A location as a counted object: what a host's view hands a list model for a file dropped on
/// it, and what a module hands back. Any thread that holds a reference may read it.
class IUrl : public IUnknown
{
public:
    /// The full URL text ("file:///home/me/take.wav"; UTF-8, terminated), valid as long as the
    /// object lives; never null.
    virtual const char* getUrlText() = 0;

    static constexpr UID kIID = UID::fromString("{C81F4D36-9A2B-4E75-B3D0-6E5A9C2F8B17}");
};

} // namespace KVX
