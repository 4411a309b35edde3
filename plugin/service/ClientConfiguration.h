#pragma once

#include "framework/core/Object.h"
#include "framework/data/Attributes.h"
#include "framework/data/Url.h"

namespace Sorvel {

/// Everything the service client needs to address and sign requests: the two endpoints, the
/// partner identity with its secret, and what a successful sign-in returned. The endpoint and
/// partner values come from the host's configuration provider at run time; none are built in.
///
/// The request-building operations read nothing but these fields, so the upload session can
/// sign its requests with a copy of its own.
class ClientConfiguration : public KVX::Object
{
    KVX_DECLARE_CLASS(ClientConfiguration, KVX::Object)
public:
    ClientConfiguration() = default;
    ClientConfiguration(const ClientConfiguration&) = default;
    ClientConfiguration& operator=(const ClientConfiguration&) = default;

    KVX::Url serverUrl;       ///< "ServerURL": base of every API path
    KVX::Url loginUrl;        ///< "LoginURL": web page opened with a signed login query
    KVX::CString partnerId;   ///< "PartnerID", sent as "partner_id"
    KVX::CString partnerKey;  ///< "PartnerKey": never sent, only hashed
    KVX::CString accountId;   ///< "account_id" of the sign-in reply
    KVX::CString token;       ///< "token" of the sign-in reply
    KVX::CString tokenTimestamp; ///< "timestamp" of the sign-in reply, echoed back unchanged

    /// Stores "ServerURL", "LoginURL", "PartnerID" and "PartnerKey" from the host's provider
    /// (an absent key stores an empty value). True only when all four are non-empty and both
    /// addresses are usable (http or https with a host); what was given is stored all the same.
    bool fill(const KVX::Attributes& provider);
    /// Whether the provider's values have been fetched: the partner id is known.
    bool isConfigured() const { return !partnerId.isEmpty(); }

    /// Sets "token", "timestamp", "account_id" and "partner_id" on `parameters`, in this order,
    /// each replacing a member of the same name.
    void addAuthParameters(KVX::Attributes& parameters) const;
    /// The signed address of an API path: the sign-in members are added to `parameters` (the
    /// caller's list changes), then every member becomes a query parameter in list order.
    KVX::Url& makeRequestUrl(KVX::Url& result, std::string_view path, KVX::Attributes& parameters) const;
    /// The login page, signed for `userName` and `password`, opening the product `titleId` when
    /// it is not empty.
    KVX::Url& makeWebLoginUrl(KVX::Url& result, const KVX::String& userName, const KVX::String& password,
                              const KVX::String& titleId) const;

    /// Hexadecimal MD5 of the partner id followed by the partner key: the same for every request.
    KVX::CString makeSignature() const;
    /// Hexadecimal SHA-1 of the UTF-8 password, the timestamp and the partner key.
    KVX::CString makePasswordDigest(const KVX::String& password, std::string_view timestamp) const;
    /// The current time in UTC as "YYYY-MM-DDTHH:MM:SS".
    static KVX::CString makeTimestamp();
};

} // namespace Sorvel
