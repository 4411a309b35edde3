#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// One stored login: user name and password as UTF-8 text, valid as long as the object lives.
class ICredential : public IUnknown
{
public:
    virtual const char* getUserName() = 0;
    virtual const char* getPassword() = 0;

    static constexpr UID kIID = UID::fromString("{6E1C9A3F-B857-4D2E-8F04-A9D5C3B7E612}");
};

} // namespace KVX
