#pragma once

#include "framework/core/IUnknown.h"

namespace KVX {

/// The language of the user interface, as a lower-case ISO 639 code of two or three letters
/// ("de", "en", "fil"). Any thread.
class ILocaleManager : public IUnknown
{
public:
    /// Writes the current language code, terminated, into `buffer`. Unless the host has set a
    /// language, it is read from the environment at each call the way message catalogues
    /// choose: the first of LC_ALL, LC_MESSAGES and LANG that is set names the locale; when
    /// none is set, or the locale is C or POSIX, the language is English; otherwise the first
    /// usable entry of LANGUAGE wins, else the locale's language ("de" from "de_DE.UTF-8").
    /// Values that name no language are skipped; "en" when nothing is left. kInvalidArgument
    /// for a null buffer or one shorter than 4 bytes.
    virtual tresult getLanguage(char* buffer, uint32 bufferSize) = 0;

    /// Overrides the environment with the host's own setting; null or "" goes back to the
    /// environment. kInvalidArgument, with the setting unchanged, unless the code is two or
    /// three ASCII letters (taken in lower case).
    virtual tresult setLanguage(const char* language) = 0;

    static constexpr UID kIID = UID::fromString("{67CD3849-48F7-4E44-8E9D-6339664EE798}");
};

} // namespace KVX
