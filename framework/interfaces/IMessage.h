#pragma once

#include "framework/core/IUnknown.h"
#include "framework/interfaces/ValueRecord.h"

namespace KVX {

/// A signal or message: a name plus arguments, as subjects send it to their observers and as
/// the signal handler delivers it later. Messages are immutable once sent; any thread may read
/// one that it holds a reference to.
class IMessage : public IUnknown
{
public:
    /// The message's name (UTF-8, terminated). Valid as long as the message lives; never null.
    virtual const char* getID() = 0;
    /// How many arguments the message carries.
    virtual int32 getArgumentCount() = 0;
    /// Fills `value` with the argument at `index`; its text and object stay valid as long as the
    /// message lives. kInvalidArgument (and an empty record) for an index out of range.
    virtual tresult getArgument(int32 index, ValueRecord& value) = 0;

    static constexpr UID kIID = UID::fromString("{9E3B6F14-7A2D-4C58-B1E6-0D4F8A2C7B93}");
};

} // namespace KVX
