#include "platform/kvxnet/CurlCall.h"

#include <algorithm>
#include <cstring>

namespace KVX::Net {

KVX_DEFINE_CLASS(CurlCall, Object, "CurlCall")

CurlCall::CurlCall(Request request) : request_(std::move(request)), response_(makeRef<MemoryStream>(16384))
{
    if (request_.body)
        bodyStart_ = request_.body->tell();
}

CurlCall::~CurlCall()
{
    if (ownHandle_)
        curl_easy_cleanup(ownHandle_);
    curl_slist_free_all(headerList_);
}

CURL* CurlCall::ownHandle()
{
    if (!ownHandle_)
        ownHandle_ = curl_easy_init();
    return ownHandle_;
}

bool CurlCall::configure(CURL* handle)
{
    if (!handle)
    {
        errorText_ = "cannot create a transfer";
        return false;
    }
    curl_easy_reset(handle);
    handle_ = handle;
    const TransferSettings& s = request_.settings;

    // Every header the caller set, and none that the transfer would add on its own accord:
    // "Expect: 100-continue" would make large bodies wait for an interim reply, and a POST without
    // a declared type must not be labelled as a form.
    bool hasContentType = false;
    for (const CString& header : request_.headers)
    {
        headerList_ = curl_slist_append(headerList_, header.c_str());
        std::string lower(header.view().substr(0, 13));
        std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
        hasContentType = hasContentType || lower == "content-type:";
    }
    headerList_ = curl_slist_append(headerList_, "Expect:");
    if (!hasContentType)
        headerList_ = curl_slist_append(headerList_, "Content-Type:");

    CURLcode code = CURLE_OK;
    auto set = [&](CURLoption option, auto value) {
        if (code == CURLE_OK)
            code = curl_easy_setopt(handle, option, value);
    };
    set(CURLOPT_ERRORBUFFER, errorBuffer_);
    set(CURLOPT_URL, request_.url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTPHEADER, headerList_);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!s.certificateAuthorityFile.isEmpty())
    {
        // The host's authorities beside the system's: the bundle file is replaced, the system's
        // hashed directory stays in use.
        set(CURLOPT_CAINFO, s.certificateAuthorityFile.c_str());
        set(CURLOPT_CAPATH, "/etc/ssl/certs");
    }
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(s.connectTimeoutMs));
    set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(std::max<uint32_t>(1, (s.stallTimeoutMs + 999) / 1000)));
    set(CURLOPT_UPLOAD_BUFFERSIZE, s.uploadBufferSize);
    if (!request_.user.isEmpty())
    {
        set(CURLOPT_USERNAME, request_.user.c_str());
        set(CURLOPT_PASSWORD, request_.password.c_str());
    }
    set(CURLOPT_WRITEFUNCTION, &CurlCall::onWrite);
    set(CURLOPT_WRITEDATA, this);
    set(CURLOPT_HEADERFUNCTION, &CurlCall::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_NOPROGRESS, 0L);
    set(CURLOPT_XFERINFOFUNCTION, &CurlCall::onProgress);
    set(CURLOPT_XFERINFODATA, this);
    set(CURLOPT_PREREQFUNCTION, &CurlCall::onRequestReady);
    set(CURLOPT_PREREQDATA, this);

    const CString& method = request_.method;
    if (method == "GET")
        set(CURLOPT_HTTPGET, 1L);
    else if (method == "HEAD")
        set(CURLOPT_NOBODY, 1L);
    else if (method == "POST")
        set(CURLOPT_POST, 1L);
    else
        set(CURLOPT_CUSTOMREQUEST, method.c_str());

    if (request_.body)
    {
        set(CURLOPT_READFUNCTION, &CurlCall::onRead);
        set(CURLOPT_READDATA, this);
        set(CURLOPT_SEEKFUNCTION, &CurlCall::onSeek);
        set(CURLOPT_SEEKDATA, this);
        if (method == "POST")
            set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.bodyLength));
        else
        {
            set(CURLOPT_UPLOAD, 1L);
            set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request_.bodyLength));
        }
    }
    else if (method == "POST")
    {
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
        set(CURLOPT_POSTFIELDS, "");
    }

    if (code != CURLE_OK)
    {
        errorText_ = CString(curl_easy_strerror(code));
        return false;
    }
    return true;
}

bool CurlCall::stopRequested()
{
    if (isCancelled())
        return cancelledByUser_ = true;
    if (request_.progress && request_.progress->isCanceled())
        return cancelledByUser_ = true;
    return false;
}

size_t CurlCall::onRead(char* buffer, size_t size, size_t count, void* self)
{
    auto* call = static_cast<CurlCall*>(self);
    if (call->stopRequested())
        return CURL_READFUNC_ABORT;
    int64 got = call->request_.body->read(buffer, static_cast<int64>(size * count));
    if (got < 0)
    {
        call->bodyFailed_ = true;
        return CURL_READFUNC_ABORT;
    }
    return static_cast<size_t>(got);
}

int CurlCall::onSeek(void* self, curl_off_t offset, int origin)
{
    auto* call = static_cast<CurlCall*>(self);
    if (origin != SEEK_SET)
        return CURL_SEEKFUNC_CANTSEEK;
    int64 target = call->bodyStart_ + static_cast<int64>(offset);
    return call->request_.body->seek(target, IStream::kSeekSet) == target ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

int CurlCall::onRequestReady(void* self, char*, char*, int, int)
{
    // libcurl sends a request again on a fresh connection when a reused one closed before any
    // answer. The first send may well have reached the service, which may have created a product
    // or a track, or taken a one-time upload: a request is sent at most once, and a connection
    // that closed without an answer fails the call.
    auto* call = static_cast<CurlCall*>(self);
    if (call->sends_++ == 0)
        return CURL_PREREQFUNC_OK;
    call->notResent_ = true;
    return CURL_PREREQFUNC_ABORT;
}

size_t CurlCall::onWrite(char* data, size_t size, size_t count, void* self)
{
    auto* call = static_cast<CurlCall*>(self);
    size_t bytes = size * count;
    if (call->stopRequested())
        return 0;
    if (static_cast<int64>(call->response_->size() + bytes) > call->request_.settings.maxResponseBytes)
    {
        call->tooLarge_ = true;
        return 0;
    }
    if (!call->loadingSignalled_)
    {
        call->loadingSignalled_ = true;
        if (call->listener_.loading)
            call->listener_.loading();
    }
    call->response_->write(data, static_cast<int64>(bytes));
    return bytes;
}

size_t CurlCall::onHeader(char* data, size_t size, size_t count, void* self)
{
    auto* call = static_cast<CurlCall*>(self);
    size_t bytes = size * count;
    std::string_view line(data, bytes);
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    if (line.starts_with("HTTP/"))
    {
        // A new status line: an interim reply (100 Continue) or a final one; keep the last.
        call->headers_.clear();
    }
    else if (line.empty())
    {
        if (!std::exchange(call->headersSignalled_, true) && call->listener_.headersReceived)
            call->listener_.headersReceived();
    }
    else if (size_t colon = line.find(':'); colon != std::string_view::npos)
    {
        std::string_view value = line.substr(colon + 1);
        while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
            value.remove_prefix(1);
        call->headers_.emplace_back(CString(line.substr(0, colon)), CString(value));
    }
    return bytes;
}

int CurlCall::onProgress(void* self, curl_off_t downloadTotal, curl_off_t downloadNow, curl_off_t uploadTotal,
                         curl_off_t uploadNow)
{
    auto* call = static_cast<CurlCall*>(self);
    if (call->stopRequested())
        return 1;
    // The stall time-out, measured from the last byte that moved. (libcurl's own low-speed check
    // averages over several seconds, so alone it ends a call late by up to that much.)
    const auto now = std::chrono::steady_clock::now();
    if (downloadNow != call->movedDown_ || uploadNow != call->movedUp_)
    {
        call->movedDown_ = downloadNow;
        call->movedUp_ = uploadNow;
        call->lastMoved_ = now;
    }
    else if (now - call->lastMoved_ > std::chrono::milliseconds(call->request_.settings.stallTimeoutMs))
    {
        call->stalled_ = true;
        return 1;
    }
    // With a body, the upload is what takes time: its progress is reported, not the short reply's.
    bool upload = call->request_.body != nullptr;
    int64 done = upload ? uploadNow : downloadNow;
    int64 total = upload ? uploadTotal : downloadTotal;
    // The caller hears of progress a hundred times a second at most, and always of the end: a
    // report per chunk would cost a message to the user-interface thread every few hundred
    // microseconds at loopback speeds.
    const bool finished = total > 0 && done >= total;
    if (call->request_.progress &&
        (finished || now - call->lastProgressNotified_ >= std::chrono::milliseconds(10) || done == 0))
    {
        call->lastProgressNotified_ = now;
        ProgressState state;
        state.value = total > 0 ? std::min(1.0, static_cast<double>(done) / static_cast<double>(total)) : 0.0;
        state.flags = total > 0 ? 0 : 1;
        call->request_.progress->updateProgress(state);
    }
    if (call->listener_.progress)
    {
        // Reports to the user-interface thread are kept to a few per second.
        if (now - call->lastProgressReport_ >= std::chrono::milliseconds(100))
        {
            call->lastProgressReport_ = now;
            call->listener_.progress(done, total);
        }
    }
    return 0;
}

void CurlCall::complete(CURLcode code)
{
    releaseLent();
    if (code == CURLE_OK)
    {
        gotResponse_ = true;
        long status = 0;
        curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status);
        status_ = static_cast<int32>(status);
        response_->seek(0, IStream::kSeekSet);
        return;
    }
    response_ = makeRef<MemoryStream>();
    headers_.clear();
    if (cancelledByUser_)
        errorText_ = "cancelled";
    else if (stalled_)
        errorText_ = CString("timed out: nothing moved for " +
                             std::to_string((request_.settings.stallTimeoutMs + 999) / 1000) + " s");
    else if (tooLarge_)
        errorText_ = "the response is larger than allowed";
    else if (notResent_)
        errorText_ = "the connection closed without an answer; the request was not sent again";
    else if (bodyFailed_)
        errorText_ = "the request body could not be read";
    else if (code == CURLE_OPERATION_TIMEDOUT)
        errorText_ = CString("timed out: ") + (errorBuffer_[0] ? errorBuffer_ : curl_easy_strerror(code));
    else
        errorText_ = CString(errorBuffer_[0] ? errorBuffer_ : curl_easy_strerror(code));
}

} // namespace KVX::Net
