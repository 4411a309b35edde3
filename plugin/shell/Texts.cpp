#include "plugin/shell/Texts.h"

namespace Sorvel {

void Texts::registerAll()
{
    static constexpr const char* kTexts[] = {
        "Refresh",
        "Upload failed!",
        "Session expired. Please login again.",
        "Login failed. Please note that usernames and passwords are case sensitive.",
        "-- Add a new Product --",
        "Untitled",
        "[no title]",
        "Track",
        "File",
        "State",
        "Remove",
        "Add",
        "Replace",
        "Uploaded",
        "Invalid Format",
        "The file format is not supported (WAV 44.1 Khz expected).",
        "%(1:1)%% uploaded",
        "Upload Complete",
        "Upload Failed",
        "Multiple Tracks Selected",
    };
    for (const char* text : kTexts)
        table().registerText(text);
}

} // namespace Sorvel
