#include "platform/kvxsecurity/CryptoService.h"

#include "framework/stream/IStream.h"
#include "platform/kvxsecurity/ErrorTranslation.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>

namespace KVX::Security {

KVX_DEFINE_CLASS(CryptoService, Object, "CryptoService")

namespace {

struct ContextDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

const EVP_MD* digestOf(uint32 algorithm)
{
    switch (algorithm)
    {
    case ICryptoService::kMD5:
        return EVP_md5();
    case ICryptoService::kSHA1:
        return EVP_sha1();
    default:
        return nullptr;
    }
}

} // namespace

tresult CryptoService::queryInterface(const UID& iid, void** object)
{
    KVX_QUERY_INTERFACE(iid, object, ICryptoService)
    return Object::queryInterface(iid, object);
}

tresult CryptoService::computeDigest(uint32 algorithm, const void* data, uint64 length, IStream* out)
{
    const EVP_MD* digest = digestOf(algorithm);
    if (!digest || !out || (!data && length > 0))
        return kInvalidArgument;

    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    if (!context)
        return cryptoFailure("cannot create a digest context");
    // A system whose policy forbids an algorithm (MD5 under FIPS rules) refuses it here.
    if (EVP_DigestInit_ex2(context.get(), digest, nullptr) != 1)
        return cryptoFailure("cannot start the digest");

    // The input is fed in blocks so that a length beyond what size_t holds cannot be truncated.
    constexpr uint64 kBlock = uint64{1} << 30;
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (uint64 done = 0; done < length;)
    {
        uint64 count = std::min(length - done, kBlock);
        if (EVP_DigestUpdate(context.get(), bytes + done, static_cast<size_t>(count)) != 1)
            return cryptoFailure("cannot compute the digest");
        done += count;
    }

    unsigned char result[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context.get(), result, &size) != 1)
        return cryptoFailure("cannot finish the digest");
    if (out->write(result, static_cast<int64>(size)) != static_cast<int64>(size))
        return kUnexpected;
    return kResultOk;
}

} // namespace KVX::Security
