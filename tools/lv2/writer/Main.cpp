// Writes the bundles' texts: zuc_lv2_writer FOLDER VERSION. Runs while zuc is built.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "Components/Library.h"
#include "Turtle.h"

namespace zuc::lv2 {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kBinary = "../zuc.lv2/zuc.so";

void WriteFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    if (!(file << text).flush()) throw std::runtime_error(path.string() + " cannot be written");
}

std::vector<Described> Describe(const host::Effect& effect) {
    std::vector<Described> plugins;
    for (const host::PluginFormat& format : host::GetPluginFormats())
        if (auto info = host::DescribePlugin(effect, format))
            plugins.push_back({*info, host::DescribePluginPresets(*info)});
    return plugins;
}

void WriteBundles(const fs::path& folder, std::string_view version) {
    std::map<std::string, std::vector<Described>> families;
    const host::EffectCatalogue catalogue;
    for (const host::Effect& effect : catalogue.GetEffects()) {
        const std::vector<Described> plugins = Describe(effect);
        if (plugins.empty()) continue;
        const std::string family =
            "zuc-" + std::string(host::GetCategoryName(effect.category)) + ".lv2";
        WriteFile(folder / family / (effect.slug + ".ttl"), WritePlugins(plugins, version));
        WriteFile(folder / family / (effect.slug + "-presets.ttl"), WritePresets(plugins));
        auto& all = families[family];
        all.insert(all.end(), plugins.begin(), plugins.end());
    }
    for (const auto& [family, plugins] : families)
        WriteFile(folder / family / "manifest.ttl", WriteManifest(plugins, kBinary));
    WriteFile(folder / "zuc.lv2" / "manifest.ttl", WriteProjectManifest());
}

}  // namespace
}  // namespace zuc::lv2

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: zuc_lv2_writer FOLDER VERSION\n", stderr);
        return 2;
    }
    zuc::Initialize();
    int status = 0;
    try {
        zuc::lv2::WriteBundles(arguments[1], arguments[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zuc_lv2_writer: %s\n", error.what());
        status = 1;
    }
    zuc::Terminate();
    return status;
}
