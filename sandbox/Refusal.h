#pragma once

#include <string>

namespace SorvelSandbox
{

// Thrown by the service when it refuses a request. For the JSON API `status` becomes the envelope's
// "status_code"; for the upload target and the web login page it is the HTTP status. The message
// says what was wrong and never repeats a secret (token, digest, signature).
struct Refusal
{
    int status;
    std::string message;
};

} // namespace SorvelSandbox
