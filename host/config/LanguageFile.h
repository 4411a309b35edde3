#pragma once

#include <string>

namespace Host {

/// The host's language file: translations of the plug-in's texts, put into the host's string
/// dictionary where the plug-in looks each text up as it shows it. The file is named by
/// SORVEL_LANGUAGE_FILE, else it is $XDG_CONFIG_HOME/sorvel/language/<language>.json for the
/// user-interface language (none for English). It is a JSON object whose members are scopes
/// ("Sorvel"), each an object that maps English texts to their translations.
class LanguageFile
{
public:
    /// Loads the file when there is one. False with a sentence in `error` when a file named by
    /// the environment is missing, or a file cannot be read or is not such an object.
    static bool load(std::string& error);
    /// Loads the file at `path`; false with a sentence in `error`.
    static bool loadFrom(const std::string& path, std::string& error);

    /// The text the plug-in shows for `key` of its scope: the translation, else the key itself.
    static std::string text(const char* key);
};

} // namespace Host
