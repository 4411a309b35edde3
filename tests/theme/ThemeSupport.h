#pragma once

// Loading themes in tests: the built DEFAULT.SKIN, and small themes made from a skin text.

#include "PackageBytes.h"

#include "framework/interfaces/IThemeManager.h"
#include "framework/services/GuiServices.h"
#include "tests/support/BuildPaths.h"

#include <zlib.h>

#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace ThemeTests {

inline Bytes readFileBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

/// The start of a PNG file, as far as a theme reads it: the signature and the header chunk.
inline Bytes pngHeader(std::uint32_t width, std::uint32_t height)
{
    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (std::uint32_t value : {width, height})
        for (int shift = 24; shift >= 0; shift -= 8)
            png.push_back(static_cast<std::uint8_t>(value >> shift));
    png.insert(png.end(), {8, 6, 0, 0, 0});
    const uLong crc = crc32(0L, png.data() + 12, 17);
    for (int shift = 24; shift >= 0; shift -= 8)
        png.push_back(static_cast<std::uint8_t>(crc >> shift));
    return png;
}

/// A package with "skin.xml" and the given further files.
inline Bytes themePackage(std::string_view skin, std::vector<std::pair<std::string, Bytes>> files = {})
{
    files.emplace_back("skin.xml", textBytes(skin));
    return packageOf(files);
}

inline KVX::tresult loadTheme(const char* name, const Bytes& package)
{
    return GetThemeManager()->loadTheme(name, package.data(), package.size());
}

/// Loads `package` under `name` and has its skin read: the package's refusal, else the skin's
/// verdict.
inline KVX::tresult skinOf(const char* name, const Bytes& package)
{
    if (const KVX::tresult loaded = loadTheme(name, package); loaded != KVX::kResultOk)
        return loaded;
    return GetThemeManager()->getTheme(name)->checkSkin();
}

/// The plug-in's theme as the build packed it, loaded under "sorvel" once.
inline KVX::ITheme* builtTheme()
{
    static const bool loaded = [] {
        const Bytes package = readFileBytes(BuildPaths::themePackage());
        return loadTheme("sorvel", package) == KVX::kResultOk;
    }();
    return loaded ? GetThemeManager()->getTheme("sorvel") : nullptr;
}

} // namespace ThemeTests
