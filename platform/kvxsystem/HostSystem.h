#pragma once

#include "framework/core/Object.h"
#include "framework/services/ISystem.h"

namespace KVX::System {

/// ISystem on the C library's clock and time-zone database. It keeps no state, so the one
/// instance of the process serves every thread.
class HostSystem : public Object, public ISystem
{
    KVX_DECLARE_CLASS(HostSystem, Object)
public:
    void getLocalTime(DateTime& local) override;
    tresult convertLocalTimeToUTC(DateTime& utc, const DateTime& local) override;
    tresult convertUTCToLocalTime(DateTime& local, const DateTime& utc) override;
    KVX_FORWARD_UNKNOWN(Object)
};

} // namespace KVX::System
