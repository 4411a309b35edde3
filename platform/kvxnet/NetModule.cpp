#include "framework/services/NetServices.h"
#include "framework/services/SystemServices.h"
#include "framework/core/Ref.h"
#include "platform/kvxnet/WebService.h"

#include <curl/curl.h>

#include <csignal>

using namespace KVX;

KVX::Web::IWebService* GetWebService()
{
    static Net::WebService* service = [] {
        // Transfers run with signals off; a peer that closes its end must not kill the process
        // with SIGPIPE while a body is written to it.
        std::signal(SIGPIPE, SIG_IGN);
        curl_global_init(CURL_GLOBAL_DEFAULT);
        return makeRef<Net::WebService>().detach();
    }();
    return service;
}

namespace {

IUnknown* createRequest()
{
    Web::IXMLHttpRequest* request = nullptr;
    GetWebService()->createRequest(&request);
    return request;
}

} // namespace

tresult RegisterWebServiceClasses()
{
    tresult result = GetPlugInManager()->registerClass(Web::IXMLHttpRequest::kClassId, &createRequest, "XMLHttpRequest");
    if (result == kResultOk)
        return kResultOk;
    UID known;
    return GetPlugInManager()->findClass("XMLHttpRequest", known) == kResultOk && known == Web::IXMLHttpRequest::kClassId
               ? kResultOk
               : result;
}
