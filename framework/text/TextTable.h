#pragma once

#include "framework/text/String.h"

#include <map>
#include <mutex>
#include <vector>

namespace KVX {

class Attributes;

/// The user-visible texts of one scope (the plug-in's is "Sorvel"). The English text is the key
/// and the fallback: a text without a translation reads as itself. A host language file can load
/// translations. Lookups may come from any thread.
class TextTable
{
public:
    /// The table of `scope`, made on first use; it lives as long as the module.
    static TextTable& forScope(std::string_view scope);

    const CString& scope() const { return scope_; }

    /// Records an English text as one of the scope's texts (so that a translator can list them).
    void registerText(const String& english);
    std::vector<String> registeredTexts() const;

    /// The translation of `english`, or `english` itself.
    String translate(const String& english) const;

    /// Adds translations: every string member of `translations` maps its name (the English text)
    /// to its value. Members that are not strings, and empty translations, are ignored. Returns
    /// the number taken.
    int loadTranslations(const Attributes& translations);
    void clearTranslations();

private:
    explicit TextTable(std::string_view scope) : scope_(scope) {}

    CString scope_;
    mutable std::mutex mutex_;
    std::vector<String> registered_;
    std::map<String, String> translations_;
};

} // namespace KVX
