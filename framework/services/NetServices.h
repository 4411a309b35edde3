#pragma once

/// The accessor that the host's network module (kvxnet) exports. The service lives as long as the
/// process; the caller does not release it.

#include "framework/services/IWebService.h"
#include "framework/services/IXMLHttpRequest.h"
#include "framework/services/ModuleApi.h"

extern "C" {

KVX_MODULE_API KVX::Web::IWebService* GetWebService();

/// Registers the request class (IXMLHttpRequest::kClassId, name "XMLHttpRequest") with the host's
/// plug-in manager, through which components create their request objects; a host calls it once
/// at start. kResultOk also when it is registered already. User-interface thread.
KVX_MODULE_API KVX::tresult RegisterWebServiceClasses();
}
