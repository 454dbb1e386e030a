#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zuc::cli {

/// One setting that effects look up in the library's debug database.
struct DeveloperSetting {
    std::string_view name;  // as effects look it up
    enum class Kind { kSwitch, kWhole } kind;
    std::string_view what;
};
const std::vector<DeveloperSetting>& GetDeveloperSettings();

/// Stores a value for effects that run from now on; returns the name in its usual form. Throws host::Error
/// (kUsage) for what no effect looks up and for values that it could not read.
std::string SetDeveloperSetting(std::string_view name, std::string_view value);
/// The same for texts "NAME=VALUE".
void ApplyDeveloperSettings(const std::vector<std::string>& settings);

}  // namespace zuc::cli
