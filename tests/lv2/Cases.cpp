// Prints, as JSON, settings for every LV2 plugin: `cases` of them each, the first as the plugin comes,
// the others drawn. Usage: zuc_lv2_cases CASES. What checks with foreign hosts compare against.

#include <cstdio>
#include <cstdlib>
#include <random>

#include "Components/Library.h"
#include "host/JsonReader.h"
#include "host/PluginInfo.h"

namespace zuc {
namespace {

using host::Json;
using host::PluginControl;

float DrawValue(const PluginControl& control, std::mt19937& random) {
    std::uniform_real_distribution<float> share(0.0f, 1.0f);
    const float value = control.lo + share(random) * (control.hi - control.lo);
    return control.kind == PluginControl::Kind::kNumber ? value : std::round(value);
}

/// The value of each control by its symbol, and what a replay sets for it.
Json MakeCase(const host::PluginInfo& info, unsigned seed) {
    std::mt19937 random(seed);
    Json values = Json::object();
    Json events = Json::array();
    for (const PluginControl& control : info.controls) {
        const float value = seed == 0 ? control.initial : DrawValue(control, random);
        const float normalized = control.parameter.info->ToNormalized(value);
        values[control.symbol] = value;
        events.push_back({{"op", "param"},
                          {"index", control.parameter.index},
                          {"n", std::clamp(normalized, 0.0f, 1.0f)}});
    }
    return {{"values", values}, {"events", events}};
}

Json MakePlugin(const host::PluginInfo& info, unsigned cases) {
    Json plugin{
        {"uri", "urn:zuc:" + info.effect.slug + '#' + std::string(info.format.name)},
        {"effect", info.effect.slug},
        {"channels", info.format.channels},
        {"sideChannels", info.sideChannels},
        {"hasHiddenSettings", info.hasHiddenSettings},
        {"cases", Json::array()},
        {"presets", Json::array()},
    };
    for (unsigned seed = 0; seed < cases; ++seed) plugin["cases"].push_back(MakeCase(info, seed));
    for (const host::PluginPreset& preset : host::DescribePluginPresets(info))
        plugin["presets"].push_back(preset.name);
    return plugin;
}

}  // namespace
}  // namespace zuc

int main(int count, char** arguments) {
    zuc::Initialize();
    {
        zuc::host::Json plugins = zuc::host::Json::array();
        const zuc::host::EffectCatalogue catalogue;
        const unsigned cases =
            count > 1 ? static_cast<unsigned>(std::strtoul(arguments[1], nullptr, 10)) : 1;
        for (const auto& effect : catalogue.GetEffects())
            for (const auto& format : zuc::host::GetPluginFormats())
                if (const auto info = zuc::host::DescribePlugin(effect, format))
                    plugins.push_back(zuc::MakePlugin(*info, cases));
        std::puts(plugins.dump(1).c_str());
    }
    zuc::Terminate();
    return 0;
}
