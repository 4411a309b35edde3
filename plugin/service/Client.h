#pragma once

#include "framework/web/XHRClient.h"
#include "framework/web/XHRClientCallback.h"
#include "framework/core/Embedded.h"
#include "plugin/service/ClientConfiguration.h"

namespace Sorvel {

/// The plug-in's one point of contact with the service's web API: signs the user in and keeps
/// what the sign-in returns, builds signed request addresses, sends the activity request, and
/// builds the address that opens the web site already signed in.
///
/// Signals: "propertyChanged" on every state change (the base also signals it when "isBusy"
/// changes), and, deferred, "authorizationSucceeded" or "authorizationFailed" after a sign-in
/// reply. User-interface thread only.
class Client : public KVX::Web::XHRClient, public KVX::Web::XHRClientCallback<Client>
{
    KVX_DECLARE_CLASS(Client, KVX::Web::XHRClient)
public:
    enum AuthorizationState : KVX::int32
    {
        Unauthorized = 0, ///< initial; set again by the controller on sign-out
        Authorizing = 1,  ///< sign-in sent, no reply yet
        Authorized = 2,   ///< sign-in succeeded; the sign-in values are valid
        Failed = 3,       ///< the last sign-in failed
    };

    Client();

    ClientConfiguration& getConfiguration() { return configuration_; }
    const ClientConfiguration& getConfiguration() const { return configuration_; }

    /// Sends the sign-in request. False, with nothing changed, while a sign-in runs or has
    /// succeeded, or while a call is in progress.
    bool authorize(const KVX::String& userName, const KVX::String& password);
    /// Requests the account's activity: by GET with the sign-in values when the account id is
    /// known, else by POST to the account "0" with the partner id and signature. `parameters` is
    /// the caller's list and is changed. The callback receives all events.
    bool requestActivity(KVX::Web::IXHRCallback* callback, KVX::Attributes& parameters);

    KVX::Url& makeRequestUrl(KVX::Url& result, std::string_view path, KVX::Attributes& parameters) const
    {
        return configuration_.makeRequestUrl(result, path, parameters);
    }
    void addAuthParameters(KVX::Attributes& parameters) const { configuration_.addAuthParameters(parameters); }
    KVX::Url& makeWebLoginUrl(KVX::Url& result, const KVX::String& userName, const KVX::String& password,
                              const KVX::String& titleId) const
    {
        return configuration_.makeWebLoginUrl(result, userName, password, titleId);
    }
    KVX::CString makeSignature() const { return configuration_.makeSignature(); }
    KVX::CString makePasswordDigest(const KVX::String& password, std::string_view timestamp) const
    {
        return configuration_.makePasswordDigest(password, timestamp);
    }
    static KVX::CString makeTimestamp() { return ClientConfiguration::makeTimestamp(); }

    AuthorizationState getState() const { return state_; }
    bool isAuthorized() const { return state_ == Authorized; }
    /// Stores the state and signals "propertyChanged".
    void setState(AuthorizationState state);

    /// "isAuthorized", then the base's ("isBusy").
    bool getProperty(KVX::Variant& value, std::string_view name) const override;

    /// The sign-in reply: acts on "onloadend" only.
    void onAuthorizationReply(KVX::Web::IXMLHttpRequest& request, KVX::IMessage& message);

private:
    KVX::Embedded<ClientConfiguration> configuration_;
    AuthorizationState state_ = Unauthorized;
};

} // namespace Sorvel
