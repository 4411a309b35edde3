#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <openssl/evp.h>

namespace SorvelSandbox
{

// Lower-case hexadecimal digests of whole byte strings, as the service compares them.
std::string md5Hex(std::string_view bytes);
std::string sha1Hex(std::string_view bytes);
std::string sha256Hex(std::string_view bytes);

// Incremental SHA-256 for data that arrives in pieces, such as an upload streamed to disk.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void update(const char* data, size_t length);
    // Returns the lower-case hexadecimal digest; the object must not be updated afterwards.
    std::string finishHex();

private:
    EVP_MD_CTX* context;
};

} // namespace SorvelSandbox
