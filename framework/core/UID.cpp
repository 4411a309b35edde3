#include "framework/core/UID.h"

namespace KVX {

std::string UID::toString() const
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = "{";
    for (int i = 0; i < 16; ++i)
    {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += kDigits[bytes_[i] >> 4];
        text += kDigits[bytes_[i] & 15];
    }
    text += '}';
    return text;
}

} // namespace KVX
