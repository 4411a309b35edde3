#include "host/app/ServiceAnswers.h"

#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/data/Url.h"

#include <utility>

namespace Host {

using namespace KVX;

namespace {

/// The last two segments of the address's path, which name what was asked ("tracks",
/// "tracks/12/upload_token"), without the query.
std::string requestPath(const char* url)
{
    std::string path = Url::fromDisplayString(url ? url : "").path().toUtf8();
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    size_t cut = path.rfind('/');
    if (cut != std::string::npos && cut > 0)
        cut = path.rfind('/', cut - 1);
    return cut == std::string::npos ? path : path.substr(cut + 1);
}

} // namespace

void ServiceAnswers::onCallAnswered(const Web::AnsweredCall& call)
{
    Attributes envelope;
    if (!call.body || !Json::load(envelope, std::string_view(call.body, call.bodyLength)))
        return; // not the service's envelope (the file post's target may answer otherwise)
    const Variant* status = envelope.find("status_code");
    if (!status || !status->isNumeric() || status->asInt() == 200)
        return;
    Refusal refusal{std::string(call.method ? call.method : "") + " " + requestPath(call.url),
                    static_cast<int>(status->asInt()), {}};
    if (const Attributes* data = envelope.getAttributes("data"))
        for (const char* key : {"error", "message"})
            if (const Variant* text = data->find(key); text && text->isString() && refusal.message.empty())
                refusal.message = text->asString().toUtf8();
    std::lock_guard lock(mutex_);
    if (refusals_.size() < 64) // a bounded record: a host reads it after each step
        refusals_.push_back(std::move(refusal));
}

std::vector<ServiceAnswers::Refusal> ServiceAnswers::takeRefusals()
{
    std::lock_guard lock(mutex_);
    return std::exchange(refusals_, {});
}

std::string ServiceAnswers::describe(const Refusal& refusal)
{
    return "the service refused " + refusal.request + " (status " + std::to_string(refusal.statusCode) + ")" +
           (refusal.message.empty() ? std::string() : ": " + refusal.message);
}

tresult ServiceAnswers::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, Web::ICallObserver)
    return Object::queryInterface(iid, object);
}

} // namespace Host
