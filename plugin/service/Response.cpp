#include "plugin/service/Response.h"

#include "framework/data/Json.h"
#include "framework/stream/IStream.h"

using namespace KVX;

namespace Sorvel {

KVX_DEFINE_CLASS(Response, Attributes, "Response")

Response::Response(Web::IXMLHttpRequest& request)
{
    IStream* stream = request.getResponseStream();
    if (!stream || stream->seek(0, IStream::kSeekSet) != 0)
        return;
    Json::load(*this, *stream);
}

} // namespace Sorvel
