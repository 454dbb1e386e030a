#pragma once

#include <map>
#include <string>
#include <string_view>

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kracore::config {

/// Turns text keys of the form "$$$/Effects/Echo/DelayLeft=Delay Time (Left Channel)" into texts.
///
/// The path between "$$$/" and "=" is looked up in the installed dictionary; without an entry the
/// text after "=" holds. A text that does not start with "$$$/" is returned as it is; a key without
/// "=" gives its path. All operations are [any, may block].
class ZUC_API Localizer {
public:
    /// path ("Effects/Echo/DelayLeft") -> UTF-8 text
    using Dictionary = std::map<std::string, std::string, std::less<>>;

    static WStr Localize(std::string_view key);
    static WStr Localize(std::u16string_view key);

    /// Replaces the dictionary; an empty one restores the default texts.
    static void SetDictionary(Dictionary dictionary);
    /// Reads a dictionary from JSON text: one object of path -> text. Throws std::invalid_argument
    /// with the place of the fault; the dictionary in force stays.
    static Dictionary ParseDictionary(std::string_view json);
};

/// "Effects/Echo/DelayLeft" of the key above; empty when `key` is no text key. [any]
ZUC_API std::string_view GetKeyPath(std::string_view key);
/// "DelayLeft" of the key above: its name in files and scripts, whatever the language. [any]
ZUC_API std::string_view GetKeyName(std::string_view key);

}  // namespace kracore::config
