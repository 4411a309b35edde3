#include "plugin/service/ClientConfiguration.h"

#include "framework/services/SecurityServices.h"
#include "framework/services/SystemServices.h"
#include "framework/services/TextServices.h"
#include "framework/stream/MemoryStream.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(ClientConfiguration, Object, "ClientConfiguration")

namespace {

/// The hexadecimal digest of `bytes`, or "" when the platform cannot compute it.
CString hexDigest(uint32 algorithm, std::string_view bytes)
{
    auto digest = makeRef<MemoryStream>();
    if (GetCryptoService()->computeDigest(algorithm, bytes.data(), bytes.size(), digest) != kResultOk)
        return {};
    auto hex = makeRef<MemoryStream>();
    auto transformer = Ref<IDataTransformer>::adopt(CreateDataTransformer(IDataTransformer::kHexEncode));
    if (!transformer || transformer->transform(digest->data(), digest->size(), hex) != kResultOk)
        return {};
    return CString(hex->view());
}

} // namespace

namespace {

/// Parses a provider's address into `url`; true only for an http or https address with a host,
/// the only kind a request or a browser can be sent to.
bool parseAddress(const String& text, Url& url)
{
    url = Url();
    if (!url.setFromDisplayString(text.toUtf8()))
        return false;
    return (url.protocol() == "http" || url.protocol() == "https") && !url.host().isEmpty();
}

} // namespace

bool ClientConfiguration::fill(const Attributes& provider)
{
    const bool serverUsable = parseAddress(provider.getString("ServerURL"), serverUrl);
    const bool loginUsable = parseAddress(provider.getString("LoginURL"), loginUrl);
    partnerId = provider.getString("PartnerID").toCString();
    partnerKey = provider.getString("PartnerKey").toCString();
    return serverUsable && loginUsable && !partnerId.isEmpty() && !partnerKey.isEmpty();
}

void ClientConfiguration::addAuthParameters(Attributes& parameters) const
{
    parameters.set("token", String(token.view()));
    parameters.set("timestamp", String(tokenTimestamp.view()));
    parameters.set("account_id", String(accountId.view()));
    parameters.set("partner_id", String(partnerId.view()));
}

Url& ClientConfiguration::makeRequestUrl(Url& result, std::string_view path, Attributes& parameters) const
{
    addAuthParameters(parameters);
    result = serverUrl;
    result.appendPath(String(path));
    for (const Attributes::Member& member : parameters)
        result.addParameter(String(member.name.view()), member.value.toString());
    return result;
}

Url& ClientConfiguration::makeWebLoginUrl(Url& result, const String& userName, const String& password,
                                          const String& titleId) const
{
    result = loginUrl;
    CString timestamp = makeTimestamp();
    result.addParameter("partner_id", String(partnerId.view()));
    result.addParameter("signature", String(makeSignature().view()));
    result.addParameter("username", userName);
    result.addParameter("password", String(makePasswordDigest(password, timestamp).view()));
    result.addParameter("timestamp", String(timestamp.view()));
    if (!titleId.isEmpty())
        result.addParameter("open_title", titleId);
    return result;
}

CString ClientConfiguration::makeSignature() const
{
    return hexDigest(ICryptoService::kMD5, partnerId.str() + partnerKey.str());
}

CString ClientConfiguration::makePasswordDigest(const String& password, std::string_view timestamp) const
{
    std::string bytes = password.toUtf8();
    bytes.append(timestamp);
    bytes.append(partnerKey.view());
    return hexDigest(ICryptoService::kSHA1, bytes);
}

CString ClientConfiguration::makeTimestamp()
{
    DateTime utc{1900, 1, 1, 0, 0, 0, 0};
    DateTime local{};
    ISystem* system = GetSystem();
    system->getLocalTime(local);
    system->convertLocalTimeToUTC(utc, local);
    return CString::format("%4d-%02d-%02dT%02d:%02d:%02d", utc.year, utc.month, utc.day, utc.hour, utc.minute,
                           utc.second);
}

} // namespace Sorvel
