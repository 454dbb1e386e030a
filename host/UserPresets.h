#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/Chain.h"

namespace zuc::host {

/// Presets that a person saved: one chain file of one effect each, <folder>/<slug>/<name>.json. What a
/// file name cannot hold is percent-encoded. The folder is made when the first preset is saved. [host]
class UserPresets {
public:
    explicit UserPresets(std::string folder = GetDefaultFolder()) : folder_(std::move(folder)) {}

    /// $XDG_CONFIG_HOME/zuc/presets, or below ~/.config.
    static std::string GetDefaultFolder();

    /// Names of the presets of the effect `slug`, ascending.
    std::vector<std::string> GetNames(const std::string& slug) const;
    /// The settings under `name`, whatever its case; nothing when there are none. Throws Error when the
    /// file cannot be read or is no chain of this one effect.
    std::optional<ChainStep> Load(const std::string& slug, std::string_view name) const;
    /// Saves and returns the path. Throws Error (kOutput), or (kUsage) when the name cannot be used.
    std::string Save(const std::string& slug, std::string_view name, const ChainStep& step) const;

private:
    std::string GetPath(const std::string& slug, std::string_view name) const;

    std::string folder_;
};

}  // namespace zuc::host
