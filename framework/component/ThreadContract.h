#pragma once

#include <cassert>

namespace KVX {

/// Whether the caller runs on the thread that the host named as its user-interface thread. True
/// while the host has named none (a program that has no user interface yet checks nothing).
bool isUserInterfaceThread();

} // namespace KVX

/// Debug builds stop at a call from the wrong thread: component, parameter and request code
/// belongs to the user-interface thread, and a worker that touches it races with the user.
#define KVX_ASSERT_USER_INTERFACE_THREAD()                                                         \
    assert(::KVX::isUserInterfaceThread() && "user-interface code called from another thread")
