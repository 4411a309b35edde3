// Reads the input as the host's configuration file and checks the result. Whatever it holds, the
// reader either refuses it with a sentence or gives values that the check accepts or explains.
#include "host/config/Settings.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Host::Settings settings;
    std::string error;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (!Host::Settings::parse(text, "config.json", settings, error))
    {
        if (error.empty())
            std::abort();
        return 0;
    }
    if (!settings.check(error) && error.empty())
        std::abort();
    return 0;
}
