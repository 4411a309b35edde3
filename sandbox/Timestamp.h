#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace SorvelSandbox
{

// Reads a client timestamp of the exact form "YYYY-MM-DDTHH:MM:SS" (UTC, no fraction, no zone) and
// returns it as seconds since the epoch. Anything else, including impossible dates such as
// February 30, gives nothing.
std::optional<std::time_t> parseClientTimestamp(std::string_view text);

// The service's own timestamp that pairs with a token, "YYYYMMDDTHHMMSSZ-" plus a nonce. It is
// deliberately unlike the client's form, so that a client which sends a fresh timestamp of its own
// instead of echoing this one is caught.
std::string makeServerTimestamp(std::time_t now, std::string_view nonce);

} // namespace SorvelSandbox
