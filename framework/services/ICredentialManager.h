#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

class ICredential;

/// The platform's credential store: logins kept by target name (a web domain). It never falls
/// back to storing anything in plain text. User-interface thread (calls may block briefly on the
/// desktop's secret service).
class ICredentialManager : public IUnknown
{
public:
    /// Looks up the entry of `target`. kResultOk with `*credential` set (a reference the caller
    /// owns) when found, kResultOk with nullptr when there is none; kInvalidArgument for an empty
    /// target; kUnexpected when the store cannot be reached.
    virtual tresult lookup(const char* target, ICredential** credential) = 0;
    /// Stores a login under `target`, replacing an earlier entry of the same target.
    /// kInvalidArgument for an empty target or user name; kUnexpected when the store cannot be
    /// reached or refuses (nothing is written anywhere else).
    virtual tresult store(const char* target, const char* userName, const char* password) = 0;
    /// Removes every login stored under `target`. kResultOk also when there was none;
    /// kInvalidArgument for an empty target; kUnexpected when the store cannot be reached.
    virtual tresult remove(const char* target) = 0;

    static constexpr UID kIID = UID::fromString("{A83F5D1B-7C26-4E9A-B0E4-3D8F6A2C9B57}");
};

} // namespace KVX
