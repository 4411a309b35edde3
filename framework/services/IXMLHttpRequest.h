#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {
class IStream;
class IProgressNotify;
} // namespace KVX

namespace KVX::Web {

/// An HTTP request object in the manner of XMLHttpRequest: open, set headers, send, then read
/// the status and the response body. One call at a time per object.
///
/// Asynchronous calls (open with async = true) belong to the user-interface thread: send returns
/// at once, the transfer runs elsewhere, and the object (an ISubject) signals its events there,
/// in order: "onloadstart", "onreadystatechange" and "onprogress" as the call goes on, then
/// "onload" (a response arrived, whatever its HTTP status) or "onerror" (no response: refused,
/// unreachable, timed out, a TLS failure) or "onabort" (abort was called), and "onloadend" last.
/// Every call that was sent ends with exactly one "onloadend". "onprogress" carries two integer
/// arguments, bytes done and bytes expected (0 when unknown).
///
/// Synchronous calls (async = false) block the calling thread in send, signal no events, report
/// progress to the given IProgressNotify and stop promptly when its isCanceled() turns true; they
/// may run on any one thread at a time (the upload worker).
///
/// Request bodies are read from the stream as they are sent, never loaded whole: from the
/// stream's position at send time to its end, and the length goes out as Content-Length when the
/// stream can seek. Redirects are not followed: a 3xx reply is the response.
class IXMLHttpRequest : public IUnknown
{
public:
    enum ReadyState : int32
    {
        kUnsent = 0,
        kOpened = 1,
        kHeadersReceived = 2,
        kLoading = 3,
        kDone = 4
    };

    /// Starts a new call: method ("GET", "POST", ...), absolute http or https URL, mode, and
    /// optional basic-authentication user and password (empty or null for none). Drops the
    /// previous call's response. kInvalidArgument for a bad method or URL; kUnexpected while a
    /// call is in progress.
    virtual tresult open(const char* method, const char* url, bool async, const char* user,
                         const char* password) = 0;
    /// Adds a request header; an empty value removes a header that the transport would add.
    /// kInvalidArgument for a name or value with line breaks, kUnexpected when not opened.
    virtual tresult setRequestHeader(const char* name, const char* value) = 0;
    /// Sends the call with `body` (null for none). The object keeps a reference to the body and
    /// to `progress` until the call ends. Asynchronous: kResultOk when the call started.
    /// Synchronous: kResultOk when a response arrived (any HTTP status), kUnexpected when none did
    /// (transport failure or cancellation); see getErrorText.
    virtual tresult send(IStream* body, IProgressNotify* progress) = 0;
    /// Ends an asynchronous call at once: "onreadystatechange", "onabort" and "onloadend" are
    /// signalled before abort returns. Nothing happens when no call is in progress.
    virtual void abort() = 0;

    virtual bool isBusy() = 0;
    virtual int32 getReadyState() = 0;
    /// The HTTP status of the response, 0 when there is none.
    virtual int32 getStatus() = 0;
    /// The response body, rewound, once the call is done; null before. No reference is passed:
    /// it is valid until the next open or the object's release.
    virtual IStream* getResponseStream() = 0;
    /// A response header of the finished call (the last one of that name, case-insensitive), or
    /// null. Valid like the response stream.
    virtual const char* getResponseHeader(const char* name) = 0;
    /// Why the last call got no response ("" when it did). For diagnostics, never shown as is.
    virtual const char* getErrorText() = 0;

    static constexpr UID kIID = UID::fromString("{7B3E8C15-2D9A-4F06-A1C7-E5B8D4F29A63}");
    /// The web service's request class, which the network module registers with the host's
    /// plug-in manager when it is loaded.
    static constexpr UID kClassId = UID::fromString("{0D4F8A2C-93B1-4E67-A5C8-1B7E3F9D2C50}");
};

} // namespace KVX::Web
