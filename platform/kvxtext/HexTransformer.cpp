#include "platform/kvxtext/HexTransformer.h"

#include "framework/stream/IStream.h"

#include <algorithm>

namespace KVX::Text {

KVX_DEFINE_CLASS(HexTransformer, Object, "HexTransformer")

tresult HexTransformer::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, IDataTransformer)
    return Object::queryInterface(iid, object);
}

tresult HexTransformer::transform(const void* data, uint64 length, IStream* out)
{
    if (!out || (!data && length > 0))
        return kInvalidArgument;

    static constexpr char kDigits[] = "0123456789abcdef";
    const auto* bytes = static_cast<const unsigned char*>(data);
    char text[4096];
    constexpr uint64 kBytesPerBlock = sizeof text / 2;
    for (uint64 done = 0; done < length;)
    {
        uint64 count = std::min(length - done, kBytesPerBlock);
        for (uint64 i = 0; i < count; ++i)
        {
            text[2 * i] = kDigits[bytes[done + i] >> 4];
            text[2 * i + 1] = kDigits[bytes[done + i] & 0x0F];
        }
        auto size = static_cast<int64>(2 * count);
        if (out->write(text, size) != size)
            return kUnexpected;
        done += count;
    }
    return kResultOk;
}

} // namespace KVX::Text
