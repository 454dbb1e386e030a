#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/PluginInfo.h"

namespace zuc::lv2 {

/// A plugin and its presets.
struct Described {
    host::PluginInfo info;
    std::vector<host::PluginPreset> presets;
};

/// The texts of a bundle. Each begins with its prefixes; lines end with '\n'.
///
/// The bundle that holds the shared object and describes the project.
std::string WriteProjectManifest();
/// The manifest of the bundle of some plugins; `binary` is relative to the bundle.
std::string WriteManifest(const std::vector<Described>& plugins, std::string_view binary);
/// The plugins of one effect: `version` is "major.minor.patch".
std::string WritePlugins(const std::vector<Described>& plugins, std::string_view version);
std::string WritePresets(const std::vector<Described>& plugins);

}  // namespace zuc::lv2
