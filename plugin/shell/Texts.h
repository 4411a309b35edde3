#pragma once

#include "framework/text/TextTable.h"

namespace Sorvel {

/// The plug-in's user-visible texts: the table of the scope "Sorvel", whose English texts are
/// the keys and the fallback.
class Texts
{
public:
    static constexpr const char* kScope = "Sorvel";

    static KVX::TextTable& table() { return KVX::TextTable::forScope(kScope); }
    /// The translation of `english` (itself when there is none).
    static KVX::String translate(const KVX::String& english) { return table().translate(english); }
    /// Registers every text the plug-in shows; done once when the module loads.
    static void registerAll();
};

} // namespace Sorvel
