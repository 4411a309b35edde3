#pragma once

#include "framework/core/IUnknown.h"

#include <type_traits>

namespace KVX::Web {

/// One call that its server answered, as the host's call observer sees it. The texts belong to
/// the web service and are valid during the report only.
struct AnsweredCall
{
    const char* method; ///< "GET", "POST", ...
    const char* url;    ///< the whole address, query included: it may carry secrets, never show it
    int32 status;       ///< the HTTP status
    const char* body;   ///< the answer's body, not terminated; at most kMaxBody bytes of it
    uint64 bodyLength;

    static constexpr uint64 kMaxBody = 64 * 1024;
};

static_assert(std::is_trivially_copyable_v<AnsweredCall> && std::is_standard_layout_v<AnsweredCall>);

/// What a host registers with the web service to learn how the service answered its plug-ins'
/// calls: the reason a service gives for a refusal lives in the body of its answer, which the
/// plug-in reads but does not show. Told on the thread that learns of the answer (the
/// user-interface thread for asynchronous calls, the caller's for synchronous ones).
class ICallObserver : public IUnknown
{
public:
    virtual void onCallAnswered(const AnsweredCall& call) = 0;

    static constexpr UID kIID = UID::fromString("{6E2C4B19-A7D3-4F58-9B06-3C8E1D5A7F24}");
};

} // namespace KVX::Web
