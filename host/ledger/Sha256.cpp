#include "host/ledger/Sha256.h"

#include <openssl/evp.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace Host {

namespace {

struct ContextDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Context = std::unique_ptr<EVP_MD_CTX, ContextDeleter>;

Context startSha256()
{
    Context context(EVP_MD_CTX_new());
    if (context && EVP_DigestInit_ex2(context.get(), EVP_sha256(), nullptr) != 1)
        context.reset();
    return context;
}

std::string finishHex(EVP_MD_CTX* context)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(context, digest, &length) != 1)
        return {};
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(length * 2);
    for (unsigned int i = 0; i < length; ++i)
    {
        hex.push_back(kDigits[digest[i] >> 4]);
        hex.push_back(kDigits[digest[i] & 0x0f]);
    }
    return hex;
}

/// `text` with the characters that would make the canonical form ambiguous escaped.
void appendEscaped(std::string& out, const std::string& text, bool isKey)
{
    for (char letter : text)
        if (letter == '\\')
            out += "\\\\";
        else if (letter == '\n')
            out += "\\n";
        else if (letter == '=' && isKey)
            out += "\\=";
        else
            out += letter;
}

} // namespace

bool sha256OfFile(const std::filesystem::path& file, std::string& digest, std::string& error)
{
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
    {
        error = "cannot open " + file.string() + ": " + std::strerror(errno);
        return false;
    }
    struct Closer
    {
        int descriptor;
        ~Closer() { ::close(descriptor); }
    } closer{descriptor};

    const Context context = startSha256();
    if (!context)
    {
        error = "cannot start a SHA-256 digest (libcrypto)";
        return false;
    }
    std::vector<unsigned char> piece(64 * 1024);
    for (;;)
    {
        const ssize_t got = ::read(descriptor, piece.data(), piece.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
        {
            error = "cannot read " + file.string() + ": " + std::strerror(errno);
            return false;
        }
        if (got == 0)
            break;
        if (EVP_DigestUpdate(context.get(), piece.data(), static_cast<size_t>(got)) != 1)
        {
            error = "cannot compute the SHA-256 digest of " + file.string() + " (libcrypto)";
            return false;
        }
    }
    digest = finishHex(context.get());
    if (digest.empty())
    {
        error = "cannot finish the SHA-256 digest of " + file.string() + " (libcrypto)";
        return false;
    }
    return true;
}

std::string sha256OfMetadata(const std::map<std::string, std::string>& fields)
{
    std::string canonical;
    for (const auto& [key, value] : fields)
    {
        appendEscaped(canonical, key, true);
        canonical += '=';
        appendEscaped(canonical, value, false);
        canonical += '\n';
    }
    const Context context = startSha256();
    if (!context || EVP_DigestUpdate(context.get(), canonical.data(), canonical.size()) != 1)
        return {};
    return finishHex(context.get());
}

} // namespace Host
