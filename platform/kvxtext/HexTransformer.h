#pragma once

#include "framework/core/Object.h"
#include "framework/services/IDataTransformer.h"

namespace KVX::Text {

/// IDataTransformer::kHexEncode: two lower-case hexadecimal digits per byte, in byte order.
class HexTransformer : public Object, public IDataTransformer
{
    KVX_DECLARE_CLASS(HexTransformer, Object)
public:
    tresult transform(const void* data, uint64 length, IStream* out) override;
    KVX_FORWARD_UNKNOWN(Object)
};

} // namespace KVX::Text
