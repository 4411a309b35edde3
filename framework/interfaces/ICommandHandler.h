#pragma once

#include "framework/core/IUnknown.h"

#include <type_traits>

namespace KVX {

/// A command as it crosses between modules: its category and name ("Edit", "Delete"), and
/// whether it is only to be checked (may it run now?) or carried out. The texts are UTF-8,
/// terminated, and valid during the call.
struct CommandRecord
{
    const char* category;
    const char* name;
    int32 checkOnly; ///< 1: answer whether the command could run, without running it
};

static_assert(std::is_trivially_copyable_v<CommandRecord> && std::is_standard_layout_v<CommandRecord>);

/// Something that carries out commands: a menu entry's target. User-interface thread.
class ICommandHandler : public IUnknown
{
public:
    /// Runs `command`, or only checks it. kResultOk when it ran (or could run); kInvalidArgument
    /// when it is not this handler's or cannot run now; nothing happens then.
    virtual tresult interpretCommand(const CommandRecord& command) = 0;

    static constexpr UID kIID = UID::fromString("{6E2A9D15-C84B-4F73-A1D6-3B8E5F0C927A}");
};

} // namespace KVX
