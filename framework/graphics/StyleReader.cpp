#include "framework/graphics/StyleReader.h"

#include "framework/graphics/Color.h"
#include "framework/graphics/ViewStyle.h"

#include <cstdio>
#include <mutex>
#include <set>
#include <string>

namespace KVX {

namespace {

struct MissingEntries
{
    std::mutex mutex;
    std::set<std::string> reported;
};

MissingEntries& missingEntries()
{
    static MissingEntries* entries = new MissingEntries; // lives as long as the module
    return *entries;
}

} // namespace

uint32 StyleReader::color(std::string_view name) const
{
    uint32 rgba = Color::kBlack;
    if (!style_ || style_->getColor(std::string(name).c_str(), rgba) != kResultOk)
    {
        reportMissing("colour", name);
        return Color::kBlack;
    }
    return rgba;
}

FontRecord StyleReader::font(std::string_view name) const
{
    FontRecord font = defaultFont();
    if (!style_ || style_->getFont(std::string(name).c_str(), font) != kResultOk)
    {
        reportMissing("font", name);
        return defaultFont();
    }
    return font;
}

double StyleReader::metric(std::string_view name, double fallback) const
{
    double value = fallback;
    if (!style_ || style_->getMetric(std::string(name).c_str(), value) != kResultOk)
    {
        reportMissing("metric", name);
        return fallback;
    }
    return value;
}

FontRecord StyleReader::defaultFont()
{
    return ViewStyle::makeFont("Sans", 12);
}

int StyleReader::reportedCount()
{
    MissingEntries& entries = missingEntries();
    std::lock_guard lock(entries.mutex);
    return static_cast<int>(entries.reported.size());
}

void StyleReader::reportMissing([[maybe_unused]] std::string_view kind, [[maybe_unused]] std::string_view name) const
{
#ifndef NDEBUG
    const char* styleName = style_ ? style_->getStyleName() : "(no style)";
    std::string key = std::string(styleName) + "/" + std::string(kind) + "/" + std::string(name);
    MissingEntries& entries = missingEntries();
    std::lock_guard lock(entries.mutex);
    if (entries.reported.insert(key).second)
        std::fprintf(stderr, "KVX: style \"%s\" has no %.*s \"%.*s\"\n", styleName, static_cast<int>(kind.size()),
                     kind.data(), static_cast<int>(name.size()), name.data());
#endif
}

} // namespace KVX
