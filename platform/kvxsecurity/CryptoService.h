#pragma once

#include "framework/core/Object.h"
#include "framework/services/ICryptoService.h"

namespace KVX::Security {

/// ICryptoService on libcrypto's EVP interface. It keeps no state between calls, so the one
/// instance of the process serves every thread.
class CryptoService : public Object, public ICryptoService
{
    KVX_DECLARE_CLASS(CryptoService, Object)
public:
    tresult computeDigest(uint32 algorithm, const void* data, uint64 length, IStream* out) override;
    KVX_FORWARD_UNKNOWN(Object)
};

} // namespace KVX::Security
