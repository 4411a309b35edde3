#pragma once

#include "framework/interfaces/TextKeys.h"
#include "framework/text/TextTable.h"

namespace Sorvel {

/// The plug-in's user-visible texts: the table of the scope "Sorvel", whose English texts are
/// the keys and the fallback. A translation comes from the host's string dictionary (its
/// language file) first, then from the table's own translations.
class Texts
{
public:
    static constexpr const char* kScope = Engine::TextKeys::kScope;

    static KVX::TextTable& table() { return KVX::TextTable::forScope(kScope); }
    /// The translation of `english` (itself when there is none), looked up at each use.
    static KVX::String translate(const KVX::String& english);
    /// Registers every text the plug-in shows; done once when the module loads.
    static void registerAll();
};

} // namespace Sorvel
