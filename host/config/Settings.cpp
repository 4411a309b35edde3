#include "host/config/Settings.h"

#include "framework/data/Json.h"
#include "framework/data/Url.h"
#include "host/config/JsonSyntax.h"
#include "host/config/UserFile.h"
#include "host/config/UserFolder.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace Host {

using namespace KVX;

namespace {

struct Key
{
    const char* name;        // in the file and for the plug-in
    const char* environment; // the variable that overrides it
    std::string Settings::*field;
};

constexpr Key kKeys[] = {
    {"ServerURL", "SORVEL_SERVER_URL", &Settings::serverUrl},
    {"LoginURL", "SORVEL_LOGIN_URL", &Settings::loginUrl},
    {"PartnerID", "SORVEL_PARTNER_ID", &Settings::partnerId},
    {"PartnerKey", "SORVEL_PARTNER_KEY", &Settings::partnerKey},
};

struct Limit
{
    const char* name;
    double PreflightLimits::*field;
};

constexpr Limit kLimits[] = {
    {"TruePeakMax", &PreflightLimits::truePeakMax},
    {"LoudnessMax", &PreflightLimits::loudnessMax},
    {"LoudnessMin", &PreflightLimits::loudnessMin},
    {"LeadingSilenceMax", &PreflightLimits::leadingSilenceMax},
};

/// The "Preflight" object of the file into `limits`.
bool parseLimits(const Variant& value, const std::string& where, PreflightLimits& limits, std::string& error)
{
    const Attributes* object = value.asObject<Attributes>();
    if (!object)
    {
        error = where + ": \"Preflight\" must be an object of limits";
        return false;
    }
    for (const Attributes::Member& member : *object)
    {
        const std::string name(member.name.view());
        if (!member.value.isNumeric())
        {
            error = where + ": the pre-flight limit \"" + name + "\" must be a number";
            return false;
        }
        const double number = member.value.asDouble();
        if (name == "ClippedSamplesMax")
        {
            if (number < 0 || number != static_cast<double>(static_cast<std::int64_t>(number)))
            {
                error = where + ": the pre-flight limit \"ClippedSamplesMax\" must be a whole number of samples";
                return false;
            }
            limits.clippedSamplesMax = static_cast<std::int64_t>(number);
            continue;
        }
        const Limit* limit = nullptr;
        for (const Limit& candidate : kLimits)
            if (name == candidate.name)
                limit = &candidate;
        if (!limit)
        {
            error = where + ": unknown pre-flight limit \"" + name +
                    "\" (known: TruePeakMax, ClippedSamplesMax, LoudnessMax, LoudnessMin, LeadingSilenceMax)";
            return false;
        }
        limits.*limit->field = number;
    }
    if (limits.loudnessMin > limits.loudnessMax)
    {
        error = where + ": the pre-flight limit LoudnessMin lies above LoudnessMax";
        return false;
    }
    return true;
}

bool isWebAddress(const std::string& text)
{
    const Url url = Url::fromDisplayString(text);
    return (url.protocol() == "http" || url.protocol() == "https") && !url.host().isEmpty();
}

std::string modeText(mode_t mode)
{
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

} // namespace

std::string Settings::filePath()
{
    return (userFolder("XDG_CONFIG_HOME", ".config") / "sorvel" / "config.json").string();
}

bool Settings::parse(std::string_view text, std::string_view origin, Settings& settings, std::string& error)
{
    const std::string where(origin);
    Attributes values;
    if (!Json::load(values, text))
    {
        const std::string syntax = jsonSyntaxError(text);
        error = where + (syntax.empty() ? " is not a JSON object" : " is not valid JSON: " + syntax);
        return false;
    }
    for (const Attributes::Member& member : values)
    {
        if (member.name.view() == "Preflight")
        {
            if (!parseLimits(member.value, where, settings.preflight, error))
                return false;
            continue;
        }
        const Key* key = nullptr;
        for (const Key& candidate : kKeys)
            if (member.name.view() == candidate.name)
                key = &candidate;
        if (!key)
        {
            error = where + ": unknown setting \"" + std::string(member.name.view()) +
                    "\" (known: ServerURL, LoginURL, PartnerID, PartnerKey, Preflight)";
            return false;
        }
        if (member.value.type() != Variant::kString)
        {
            error = where + ": the value of \"" + key->name + "\" must be a text";
            return false;
        }
        settings.*key->field = member.value.toString().toUtf8();
    }
    return true;
}

bool Settings::check(std::string& error) const
{
    if (isEmpty())
        return true;
    std::string missing;
    for (const Key& key : kKeys)
        if ((this->*key.field).empty())
            missing += std::string(missing.empty() ? "" : ", ") + key.name;
    if (!missing.empty())
    {
        error = "the service is configured only in part: " + missing + " missing (set them in " + filePath() +
                " or through SORVEL_SERVER_URL, SORVEL_LOGIN_URL, SORVEL_PARTNER_ID and SORVEL_PARTNER_KEY)";
        return false;
    }
    if (!isWebAddress(serverUrl))
    {
        error = "ServerURL is not an http or https address: " + serverUrl;
        return false;
    }
    if (!isWebAddress(loginUrl))
    {
        error = "LoginURL is not an http or https address: " + loginUrl;
        return false;
    }
    return true;
}

bool Settings::load(Settings& settings, std::string& error)
{
    return read(settings, error) && settings.check(error);
}

bool Settings::read(Settings& settings, std::string& error)
{
    settings = {};
    const std::string path = filePath();
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0)
    {
        if (!S_ISREG(status.st_mode))
        {
            error = path + " is not a file";
            return false;
        }
        if (status.st_mode & (S_IRWXG | S_IRWXO))
        {
            error = path + " can be read or changed by other users (mode " + modeText(status.st_mode) +
                    "), and it holds the partner key; make it yours alone with: chmod 600 " + path;
            return false;
        }
        std::string text;
        if (!readUserFile(path, text, error) || !parse(text, path, settings, error))
            return false;
    }
    else if (errno != ENOENT)
    {
        error = "cannot read " + path + ": " + std::strerror(errno);
        return false;
    }

    for (const Key& key : kKeys)
        if (const char* value = std::getenv(key.environment); value && *value)
            settings.*key.field = value;
    return true;
}

} // namespace Host
