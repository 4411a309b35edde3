#pragma once

#include "framework/core/Types.h"

#include <glib.h>

namespace KVX::Security {

// The only place where the module looks at the error codes of libcrypto, GLib and libsecret. Every
// failure of those libraries becomes a result code of the project here, and its message is
// reported on the standard error stream, prefixed by `action` (what was being attempted). The
// messages come from the libraries and never contain a password.

/// Reports `error` (which may be null when the failure has no GError, for example a locked item;
/// `reason` then says what went wrong), frees it and returns the result code for it. A null
/// `action` reports nothing: the caller takes the failure as an answer.
tresult secretServiceFailure(const char* action, GError* error, const char* reason = nullptr);

/// Reports the oldest error that libcrypto queued on this thread, empties the queue so that it
/// cannot be mistaken for a later failure, and returns the result code for it.
tresult cryptoFailure(const char* action);

} // namespace KVX::Security
