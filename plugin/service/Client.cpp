#include "plugin/service/Client.h"

#include "framework/component/Signals.h"
#include "plugin/service/Response.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(Client, Web::XHRClient, "Client")

Client::Client() : XHRClient("Client") {}

bool Client::authorize(const String& userName, const String& password)
{
    if (state_ == Authorizing || state_ == Authorized || isBusy())
        return false;
    CString timestamp = makeTimestamp();
    Attributes parameters;
    parameters.set("partner_id", String(configuration_.partnerId.view()));
    parameters.set("username", userName);
    parameters.set("timestamp", String(timestamp.view()));
    parameters.set("password", String(makePasswordDigest(password, timestamp).view()));
    parameters.set("signature", String(makeSignature().view()));
    Url url = configuration_.serverUrl;
    url.appendPath("users/auth/token");
    // The state says Authorizing before the request leaves, so observers see it while the call
    // runs; a request that could not even be sent changes nothing, or no later sign-in could
    // ever start.
    const AuthorizationState before = state_;
    setState(Authorizing);
    if (!sendAttributes(callback(&Client::onAuthorizationReply), "POST", url, parameters))
    {
        setState(before);
        return false;
    }
    return true;
}

void Client::onAuthorizationReply(Web::IXMLHttpRequest& request, IMessage& message)
{
    if (!(idOf(message) == "onloadend"))
        return;
    Response response(request);
    Attributes* data = response.isSuccess() ? response.getData() : nullptr;
    if (data)
    {
        configuration_.token = data->getString("token").toCString();
        configuration_.tokenTimestamp = data->getString("timestamp").toCString();
        configuration_.accountId = data->getString("account_id").toCString();
        deferSignal(makeRef<Message>("authorizationSucceeded"));
        setState(Authorized);
    }
    else
    {
        deferSignal(makeRef<Message>("authorizationFailed"));
        setState(Failed);
    }
}

bool Client::requestActivity(Web::IXHRCallback* callback, Attributes& parameters)
{
    const bool byAccount = !configuration_.accountId.isEmpty();
    Url url = configuration_.serverUrl;
    url.appendPath("users");
    url.appendPath(byAccount ? String(configuration_.accountId.view()) : String("0"));
    url.appendPath("activity");
    if (byAccount)
    {
        addAuthParameters(parameters);
        for (const Attributes::Member& member : parameters)
            url.addParameter(String(member.name.view()), member.value.toString());
        return send(callback, "GET", url, nullptr, "");
    }
    parameters.set("partner_id", String(configuration_.partnerId.view()));
    parameters.set("signature", String(makeSignature().view()));
    return sendAttributes(callback, "POST", url, parameters);
}

void Client::setState(AuthorizationState state)
{
    state_ = state;
    signal(Signals::kPropertyChanged);
}

bool Client::getProperty(Variant& value, std::string_view name) const
{
    if (name == "isAuthorized")
    {
        value = isAuthorized();
        return true;
    }
    return XHRClient::getProperty(value, name);
}

} // namespace Sorvel
