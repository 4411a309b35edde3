// Reads the input as a reply of the service and hands it to every loader that reads replies: the
// envelope, the products with their tracks, and the account figures with their formatting.
#include "framework/data/AttributeArray.h"
#include "framework/data/Json.h"
#include "plugin/catalogue/Title.h"
#include "plugin/service/Response.h"
#include "plugin/views/ActivityInfoModel.h"

#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Sorvel::Response reply;
    if (!KVX::Json::load(reply, std::string_view(reinterpret_cast<const char*>(data), size)))
        return 0;
    reply.getStatusCode();
    const KVX::Attributes nothing;
    if (const KVX::AttributeArray* titles = reply.getArray("data"))
        for (size_t i = 0; i < titles->count(); ++i)
        {
            auto title = KVX::makeRef<Sorvel::Title>();
            const KVX::Attributes* element = titles->getAttributes(i);
            title->load(element ? *element : nothing);
            KVX::String shown;
            title->getDisplayTitle(shown);
            KVX::Attributes parameters;
            title->writeCreateParams(parameters);
            for (const Sorvel::Track* track : title->tracks)
                track->writeCreateParams(parameters);
        }
    auto figures = KVX::makeRef<Sorvel::ActivityInfoModel>();
    const KVX::Attributes* account = reply.getData();
    figures->load(account ? *account : nothing);
    figures->formatSales();
    return 0;
}
