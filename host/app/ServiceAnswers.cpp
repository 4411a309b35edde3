#include "host/app/ServiceAnswers.h"

#include "framework/data/AttributeArray.h"
#include "framework/data/Attributes.h"
#include "framework/data/Json.h"
#include "framework/data/Url.h"

#include <algorithm>
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

/// The segments of the address's path after "api" or the service's base, without the query.
std::vector<std::string> pathSegments(const char* url)
{
    const std::string path = Url::fromDisplayString(url ? url : "").path().toUtf8();
    std::vector<std::string> segments;
    size_t start = 0;
    while (start <= path.size())
    {
        const size_t end = std::min(path.find('/', start), path.size());
        if (end > start)
            segments.push_back(path.substr(start, end - start));
        start = end + 1;
    }
    return segments;
}

/// A value of the reply as text: ids come as numbers or as strings.
std::string textOf(const Variant* value)
{
    if (!value)
        return {};
    if (value->isString())
        return value->asString().toUtf8();
    if (value->isInt())
        return std::to_string(value->asInt());
    return {};
}

/// The value of `name` in the address's query (not a secret: only the account id is asked for).
std::string queryValue(const char* url, const std::string& name)
{
    const std::string text = url ? url : "";
    const size_t query = text.find('?');
    if (query == std::string::npos)
        return {};
    const std::string key = name + "=";
    for (size_t at = query + 1; at < text.size();)
    {
        const size_t end = std::min(text.find('&', at), text.size());
        if (text.compare(at, key.size(), key) == 0)
            return text.substr(at + key.size(), end - at - key.size());
        at = end + 1;
    }
    return {};
}

} // namespace

const ServiceAnswers::Product* ServiceAnswers::Catalogue::find(const std::string& name) const
{
    for (const Product& product : products)
        if (product.name == name)
            return &product;
    return nullptr;
}

ServiceAnswers::Catalogue ServiceAnswers::catalogue()
{
    std::lock_guard lock(mutex_);
    return catalogue_;
}

bool ServiceAnswers::figuresAnswered()
{
    std::lock_guard lock(mutex_);
    return figuresAnswered_;
}

void ServiceAnswers::watchUploads(UploadWatch watch)
{
    std::lock_guard lock(watchMutex_);
    watch_ = std::move(watch);
}

void ServiceAnswers::onCallAnswered(const Web::AnsweredCall& call)
{
    Attributes envelope;
    if (!call.body || !Json::load(envelope, std::string_view(call.body, call.bodyLength)))
        return; // not the service's envelope (the file post's target may answer otherwise)
    const Variant* status = envelope.find("status_code");
    if (status && status->isNumeric() && status->asInt() == 200 && call.status == 200)
    {
        noteAnswer(call, envelope);
        return;
    }
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

void ServiceAnswers::noteAnswer(const Web::AnsweredCall& call, const Attributes& envelope)
{
    const std::string method = call.method ? call.method : "";
    const std::vector<std::string> path = pathSegments(call.url);
    if (path.empty())
        return;
    const std::string& last = path.back();
    if (method == "GET" && last == "titles")
    {
        const AttributeArray* titles = envelope.getArray("data");
        if (!titles)
            return;
        Catalogue read;
        read.listed = true;
        read.account = queryValue(call.url, "account_id");
        std::lock_guard lock(mutex_);
        read.generation = catalogue_.generation + 1;
        if (read.account.empty())
            read.account = catalogue_.account;
        for (size_t i = 0; i < titles->count(); ++i)
            if (const Attributes* title = titles->getAttributes(i))
            {
                Product product{textOf(title->find("id")), title->getString("name").toUtf8(), {}};
                if (const AttributeArray* tracks = title->getArray("tracks"))
                    for (size_t j = 0; j < tracks->count(); ++j)
                        if (const Attributes* track = tracks->getAttributes(j))
                            product.tracks.push_back({textOf(track->find("id")), track->getString("name").toUtf8()});
                read.products.push_back(std::move(product));
            }
        catalogue_ = std::move(read);
        return;
    }
    if (method == "GET" && last == "activity")
    {
        std::lock_guard lock(mutex_);
        figuresAnswered_ = figuresAnswered_ || envelope.getAttributes("data") != nullptr;
        return;
    }
    if (method != "POST")
        return;
    const Attributes* data = envelope.getAttributes("data");
    if (last == "token" && data)
    {
        // The sign-in: the account the later requests are made for, also when no list follows.
        std::lock_guard lock(mutex_);
        catalogue_.account = textOf(data->find("account_id"));
        return;
    }
    const std::string id = data ? textOf(data->find("id")) : std::string();
    std::lock_guard lock(watchMutex_);
    if (last == "titles" && !id.empty() && watch_.productCreated)
        watch_.productCreated(id);
    else if (last == "tracks" && !id.empty() && watch_.trackCreated)
        watch_.trackCreated(id);
    else if (last == "upload_status" && path.size() >= 3 && path[path.size() - 3] == "tracks" && watch_.uploadConfirmed)
        watch_.uploadConfirmed(path[path.size() - 2]);
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
