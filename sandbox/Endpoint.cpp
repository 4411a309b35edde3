#include "Endpoint.h"

namespace SorvelSandbox
{

const char* endpointName(Endpoint endpoint)
{
    switch (endpoint)
    {
    case Endpoint::SignIn:
        return "sign-in";
    case Endpoint::Activity:
        return "activity";
    case Endpoint::AnonymousActivity:
        return "anonymous activity";
    case Endpoint::Titles:
        return "titles";
    case Endpoint::CreateTitle:
        return "create title";
    case Endpoint::CreateTrack:
        return "create track";
    case Endpoint::UploadToken:
        return "upload token";
    case Endpoint::UploadStatus:
        return "upload status";
    case Endpoint::Upload:
        return "upload";
    case Endpoint::WebLogin:
        return "web login";
    case Endpoint::Unknown:
        break;
    }
    return "unknown";
}

} // namespace SorvelSandbox
