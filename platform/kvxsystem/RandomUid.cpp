#include "platform/kvxsystem/RandomUid.h"

#include <sys/random.h>

#include <cerrno>

namespace KVX::System {

bool makeRandomUid(UID& uid)
{
    uint8 bytes[16];
    size_t filled = 0;
    while (filled < sizeof(bytes))
    {
        const ssize_t got = getrandom(bytes + filled, sizeof(bytes) - filled, 0);
        if (got < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        filled += static_cast<size_t>(got);
    }
    bytes[6] = static_cast<uint8>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<uint8>((bytes[8] & 0x3F) | 0x80); // variant 1 (RFC 4122)

    // UID offers no constructor from bytes, only its text form; its bytes keep the text's order.
    static constexpr char kDigits[] = "0123456789ABCDEF";
    char text[37];
    size_t at = 0;
    for (size_t i = 0; i < sizeof(bytes); ++i)
    {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text[at++] = '-';
        text[at++] = kDigits[bytes[i] >> 4];
        text[at++] = kDigits[bytes[i] & 15];
    }
    return UID::parse(std::string_view(text, at), uid);
}

} // namespace KVX::System
