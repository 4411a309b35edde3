#pragma once

#include "framework/core/Object.h"
#include "framework/services/ILocaleManager.h"

#include <mutex>
#include <string>
#include <string_view>

namespace KVX::System {

/// ILocaleManager on the process environment, with the host's override under a mutex.
class LocaleManager : public Object, public ILocaleManager
{
    KVX_DECLARE_CLASS(LocaleManager, Object)
public:
    tresult getLanguage(char* buffer, uint32 bufferSize) override;
    tresult setLanguage(const char* language) override;
    KVX_FORWARD_UNKNOWN(Object)

    /// The language of a locale name such as "de_DE.UTF-8@euro" or of a bare code, in lower
    /// case; empty when it names none.
    static std::string languageOf(std::string_view locale);

private:
    std::string languageFromEnvironment() const;

    std::mutex mutex_;
    std::string override_;
};

} // namespace KVX::System
