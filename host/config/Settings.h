#pragma once

#include "host/preflight/PreflightLimits.h"

#include <string>
#include <string_view>

namespace Host {

/// Where the Sorvel service is and who the host is to it: the four values that the host's
/// configuration provider hands to the plug-in. They come, in rising priority, from
/// $XDG_CONFIG_HOME/sorvel/config.json (~/.config/sorvel/config.json) and from the environment
/// variables SORVEL_SERVER_URL, SORVEL_LOGIN_URL, SORVEL_PARTNER_ID and SORVEL_PARTNER_KEY.
/// None of them set means no service is configured.
struct Settings
{
    std::string serverUrl;  ///< "ServerURL": the API's base address
    std::string loginUrl;   ///< "LoginURL": the web sign-in page
    std::string partnerId;  ///< "PartnerID"
    std::string partnerKey; ///< "PartnerKey": a secret, never printed
    /// "Preflight": where the pre-flight report warns; the file only, no environment variables.
    PreflightLimits preflight;

    bool hasServer() const { return !serverUrl.empty(); }
    bool isEmpty() const { return serverUrl.empty() && loginUrl.empty() && partnerId.empty() && partnerKey.empty(); }

    /// The configuration file's path (whether or not it exists).
    static std::string filePath();

    /// Reads the file (when it exists) and then the environment into `settings`, and checks the
    /// result. False with a sentence for the user in `error` when the file cannot be used (others
    /// can read it, it is no JSON object, a value is no text, a name is unknown) or the values
    /// together are incomplete or not addresses.
    static bool load(Settings& settings, std::string& error);
    /// load without the check of the service's values, for what needs only the file's other
    /// settings (the pre-flight limits): a file that cannot be read is still refused.
    static bool read(Settings& settings, std::string& error);

    /// Reads the text of a configuration file into `settings`: a JSON object whose members are
    /// some of "ServerURL", "LoginURL", "PartnerID" and "PartnerKey", each a text, and
    /// "Preflight", an object of numbers named as in PreflightLimits. Values that it holds
    /// replace those in `settings`. False with a sentence in `error` naming `origin`.
    static bool parse(std::string_view text, std::string_view origin, Settings& settings, std::string& error);

    /// Checks values put together: nothing at all, or all four with both addresses http or
    /// https. False with a sentence in `error`.
    bool check(std::string& error) const;
};

} // namespace Host
