#pragma once

namespace SorvelSandbox
{

// The requests the sandbox answers. Faults are injected and requests are logged per endpoint.
enum class Endpoint
{
    SignIn,            // POST users/auth/token
    Activity,          // GET users/<account>/activity
    AnonymousActivity, // POST users/0/activity
    Titles,            // GET titles
    CreateTitle,       // POST titles
    CreateTrack,       // POST tracks
    UploadToken,       // GET tracks/<id>/upload_token
    UploadStatus,      // POST tracks/<id>/upload_status
    Upload,            // POST to a one-time upload URL
    WebLogin,          // GET of the signed web login page
    Unknown            // anything else; answered 404
};

constexpr int kEndpointCount = static_cast<int>(Endpoint::Unknown) + 1;

const char* endpointName(Endpoint endpoint);

} // namespace SorvelSandbox
