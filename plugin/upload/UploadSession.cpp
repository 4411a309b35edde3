#include "plugin/upload/UploadSession.h"

#include "framework/component/Message.h"
#include "framework/component/ThreadContract.h"
#include "framework/data/Json.h"
#include "framework/services/SystemServices.h"
#include "framework/stream/IFileReadStream.h"
#include "framework/stream/MemoryStream.h"
#include "framework/upload/MultipartForm.h"
#include "plugin/service/Response.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(UploadSession, Object, "UploadSession")
KVX_DEFINE_CLASS(UploadSessionEntry, Object, "UploadSessionEntry")

namespace {

constexpr uint32 kThreadEndWaitMs = 1000;

} // namespace

UploadSession::UploadSession() : UserThread("User Thread")
{
    void* request = nullptr;
    if (GetPlugInManager()->createInstance(Web::IXMLHttpRequest::kClassId, Web::IXMLHttpRequest::kIID, &request) ==
        kResultOk)
        request_ = Ref<Web::IXMLHttpRequest>::adopt(static_cast<Web::IXMLHttpRequest*>(request));
}

UploadSession::~UploadSession()
{
    // The worker holds the session while it runs, so a session that goes away has no worker;
    // stopping is for one whose owner let go without terminate.
    stopThread(0);
}

tresult UploadSession::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ISubject)
    KVX_QUERY_INTERFACE(iid, object, IObserver)
    KVX_QUERY_INTERFACE(iid, object, IProgressNotify)
    return Object::queryInterface(iid, object);
}

void UploadSession::setConfiguration(const ClientConfiguration& configuration)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!isRunning())
        configuration_ = configuration;
}

void UploadSession::setTitle(Title* title)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!isRunning())
        title_ = title;
}

void UploadSession::addEntry(Entry* entry)
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (!isRunning() && entry)
        entries_.add(entry);
}

void UploadSession::start()
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (isRunning())
        return;
    resetProgress();
    succeeded_.store(false, std::memory_order_relaxed);
    lastStatus_.store(0, std::memory_order_relaxed);
    // The worker holds the session until its end has been handled, so nothing it uses can go.
    retain();
    if (!startThread(INativeThread::kPriorityNormal, 0))
    {
        release();
        return;
    }
    signal("sessionStarted");
}

void UploadSession::terminate()
{
    KVX_ASSERT_USER_INTERFACE_THREAD();
    if (isRunning())
    {
        cancel();
        if (stopThread(kThreadEndWaitMs))
            release(); // the worker's hold; a thread that did not end keeps it
    }
    // Signals still on their way would keep the session alive for nobody.
    GetSignalHandler()->cancelMessages(static_cast<IObserver*>(this));
}

void UploadSession::threadEntry()
{
    bool ok = !title_ || !title_->id.isEmpty() || createTitle();
    if (ok && !title_)
        ok = false; // a batch needs a product
    const size_t count = entries_.count();
    for (size_t i = 0; ok && i < count; ++i)
    {
        Entry& entry = *entries_.at(i);
        deferSignal(Message::make("trackStarted", {Variant(static_cast<Object*>(entry.track.get()))}));
        ok = runTrack(entry);
        deferSignal(Message::make("trackFinished", {Variant(static_cast<Object*>(entry.track.get())), Variant(ok ? 1 : 0)}));
    }
    succeeded_.store(ok, std::memory_order_relaxed);
    GetSignalHandler()->postMessage(this, this, Message::make("threadExit"));
}

void UploadSession::notify(ISubject*, IMessage& message)
{
    if (idOf(message) == "threadExit" && isRunning())
        finishThread();
}

void UploadSession::finishThread()
{
    const bool ended = stopThread(kThreadEndWaitMs);
    signal("sessionFinished");
    title_.reset();
    entries_.removeAll();
    if (ended)
        release(); // the hold taken by start
}

void UploadSession::deferSignal(IMessage* message)
{
    GetSignalHandler()->postSignal(this, message);
}

bool UploadSession::runTrack(Entry& entry)
{
    if (!entry.track || entry.track->incompatible)
        return false;
    if (entry.trackId.isEmpty() && !createTrack(entry))
        return false;
    Url uploadUrl;
    Attributes fields;
    if (!requestUploadTarget(entry, uploadUrl, fields))
        return false;
    if (!postFile(uploadUrl, fields, *entry.track))
        return false;
    reportComplete(entry);
    return true;
}

bool UploadSession::createTitle()
{
    Attributes parameters;
    title_->writeCreateParams(parameters);
    return create("titles", parameters, title_->id);
}

bool UploadSession::createTrack(Entry& entry)
{
    Attributes parameters;
    entry.track->writeCreateParams(parameters);
    parameters.set("title_id", title_->id);
    return create("tracks", parameters, entry.trackId);
}

bool UploadSession::create(std::string_view path, Attributes& parameters, String& id)
{
    Response reply;
    if (!sendJson(path, parameters, reply))
        return false;
    Attributes* data = reply.getData();
    String created = data ? data->getString("id") : String();
    if (created.isEmpty())
        return false;
    id = created;
    return true;
}

bool UploadSession::requestUploadTarget(const Entry& entry, Url& uploadUrl, Attributes& fields)
{
    Response reply;
    if (!sendQuery("tracks/" + entry.trackId.toUtf8() + "/upload_token", reply))
        return false;
    Attributes* data = reply.getData();
    if (!data)
        return false;
    uploadUrl = Url();
    uploadUrl.setFromDisplayString(data->getString("url").toUtf8());
    if (Attributes* postData = data->getAttributes("post_data"))
        fields.addAll(*postData);
    return true;
}

bool UploadSession::postFile(const Url& uploadUrl, const Attributes& fields, const LocalTrack& track)
{
    const bool wasSending = sendingFile_.exchange(true);
    struct Restore
    {
        std::atomic<bool>& flag;
        bool value;
        ~Restore() { flag.store(value); }
    } restore{sendingFile_, wasSending};

    IFileReadStream* opened = nullptr;
    const std::string fileUrl = track.url.toDisplayString().toUtf8();
    if (!request_ || GetFileSystem()->openReadStream(fileUrl.c_str(), &opened) != kResultOk || !opened)
        return false;
    Ref<IFileReadStream> file = Ref<IFileReadStream>::adopt(opened);
    const int64 size = file->seek(0, IStream::kSeekEnd);
    if (size < 0 || file->seek(0, IStream::kSeekSet) != 0)
        return false;

    Ref<MultipartForm> form = MultipartForm::make();
    for (const Attributes::Member& field : fields)
        form->addField(field.name.view(), field.value.toString().toUtf8());
    form->addField("Content-Type", "audio/x-wav");
    if (!form->addFile("file", track.url.fileName().toUtf8(), file, size))
        return false;

    const std::string address = uploadUrl.toDisplayString().toUtf8();
    if (request_->open("POST", address.c_str(), false, "", "") != kResultOk)
        return false;
    request_->setRequestHeader("Content-Type", form->getContentType().c_str());
    beginTransfer();
    if (request_->send(&form->body(), this) != kResultOk)
        return false;
    const int32 status = request_->getStatus();
    return status >= 200 && status < 400;
}

void UploadSession::reportComplete(const Entry& entry)
{
    Attributes parameters;
    parameters.set("upload_status", 100);
    Response reply;
    sendJson("tracks/" + entry.trackId.toUtf8() + "/upload_status", parameters, reply);
}

bool UploadSession::sendJson(std::string_view path, Attributes& parameters, Response& reply)
{
    configuration_.addAuthParameters(parameters);
    auto body = makeRef<MemoryStream>(1024);
    if (!request_ || !Json::save(*body, parameters) || body->seek(0, IStream::kSeekSet) != 0)
        return false;
    Url url = configuration_.serverUrl;
    url.appendPath(String::fromUtf8(path));
    const std::string address = url.toDisplayString().toUtf8();
    if (request_->open("POST", address.c_str(), false, "", "") != kResultOk)
        return false;
    request_->setRequestHeader("Content-Type", "application/json");
    if (request_->send(body, this) != kResultOk)
        return false;
    return takeReply(reply);
}

bool UploadSession::sendQuery(std::string_view path, Response& reply)
{
    Attributes parameters;
    Url url;
    configuration_.makeRequestUrl(url, path, parameters);
    const std::string address = url.toDisplayString().toUtf8();
    if (!request_ || request_->open("GET", address.c_str(), false, "", "") != kResultOk)
        return false;
    if (request_->send(nullptr, this) != kResultOk)
        return false;
    return takeReply(reply);
}

bool UploadSession::takeReply(Response& reply)
{
    reply = Response(*request_);
    const int32 status = reply.getStatusCode();
    lastStatus_.store(status, std::memory_order_relaxed);
    return status == 200;
}

void UploadSession::progressChanged(const ProgressState& state)
{
    // Only the file itself moves the row's progress; the small requests around it do not.
    if (sendingFile_.load())
        deferSignal(Message::make("trackProgressChanged", {Variant(state.value), Variant(int64(state.flags))}));
}

} // namespace Sorvel
