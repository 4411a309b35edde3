#include "platform/kvxsecurity/ErrorTranslation.h"

#include <openssl/err.h>

#include <cstdio>

namespace KVX::Security {

tresult secretServiceFailure(const char* action, GError* error, const char* reason)
{
    // No error of the bus, the service or libsecret is the caller's fault: arguments are checked
    // before any call. An unreachable bus, a missing service, a refused or dismissed request all
    // mean that the store cannot be used now.
    const char* message = error ? error->message : reason ? reason : "unknown failure";
    if (action)
        std::fprintf(stderr, "kvxsecurity: %s: %s\n", action, message);
    if (error)
        g_error_free(error);
    return kUnexpected;
}

tresult cryptoFailure(const char* action)
{
    unsigned long code = ERR_get_error();
    char message[256] = "unknown failure";
    if (code != 0)
        ERR_error_string_n(code, message, sizeof message);
    ERR_clear_error();
    std::fprintf(stderr, "kvxsecurity: %s: %s\n", action, message);
    return kUnexpected;
}

} // namespace KVX::Security
