#include "Digest.h"

#include <stdexcept>

namespace SorvelSandbox
{

namespace
{

std::string toHex(const unsigned char* bytes, unsigned length)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned i = 0; i < length; ++i)
    {
        hex.push_back(digits[bytes[i] >> 4]);
        hex.push_back(digits[bytes[i] & 0x0f]);
    }
    return hex;
}

std::string digestHex(const EVP_MD* type, std::string_view bytes)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &length, type, nullptr) != 1)
        throw std::runtime_error("OpenSSL digest failed");
    return toHex(digest, length);
}

} // namespace

std::string md5Hex(std::string_view bytes)
{
    return digestHex(EVP_md5(), bytes);
}

std::string sha1Hex(std::string_view bytes)
{
    return digestHex(EVP_sha1(), bytes);
}

std::string sha256Hex(std::string_view bytes)
{
    return digestHex(EVP_sha256(), bytes);
}

Sha256::Sha256() : context(EVP_MD_CTX_new())
{
    if (context == nullptr || EVP_DigestInit_ex(context, EVP_sha256(), nullptr) != 1)
    {
        EVP_MD_CTX_free(context);
        throw std::runtime_error("OpenSSL SHA-256 context could not be set up");
    }
}

Sha256::~Sha256()
{
    EVP_MD_CTX_free(context);
}

void Sha256::update(const char* data, size_t length)
{
    if (EVP_DigestUpdate(context, data, length) != 1)
        throw std::runtime_error("OpenSSL SHA-256 update failed");
}

std::string Sha256::finishHex()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (EVP_DigestFinal_ex(context, digest, &length) != 1)
        throw std::runtime_error("OpenSSL SHA-256 final step failed");
    return toHex(digest, length);
}

} // namespace SorvelSandbox
