#include "Commands.h"
#include "Console.h"
#include "host/ChainProcessor.h"
#include "host/Error.h"
#include "host/JsonReader.h"
#include "host/Text.h"
#include "host/Units.h"
#include "host/UserPresets.h"

namespace zuc::cli {
namespace {

using host::Effect;
using host::Error;
using host::ExitCode;

constexpr float kRateHz = 48000.0f;  // for which settings are checked
constexpr std::size_t kChannels = 2;
constexpr int kBlockFrames = 1024;

host::AudioFilterPtr Create(const Effect& effect) {
    return host::CreateForFormat(effect, kRateHz, kChannels, kBlockFrames);
}

/// The effect's presets in the order factory, saved; each with where it is from.
std::vector<std::pair<std::string, std::string>> GetPresets(const Effect& effect) {
    std::vector<std::pair<std::string, std::string>> presets;
    for (const std::string& name : host::GetFactoryPresetNames(*effect.create()))
        presets.emplace_back(name, "factory");
    for (const std::string& name : host::UserPresets().GetNames(effect.slug))
        presets.emplace_back(name, "user");
    return presets;
}

/// What the preset makes of every parameter that can be set.
host::ChainStep GetPresetValues(const Effect& effect, const std::string& name) {
    const host::AudioFilterPtr filter = Create(effect);
    host::ApplyStep({effect.slug, name, {}}, effect.slug, host::UserPresets(), *filter);
    host::ChainStep values{effect.slug, {}, {}};
    for (const host::Parameter& parameter : host::GetParameters(*filter))
        if (parameter.role != kraaudiofilterhost::AudioFilterParameterRole::kFollowsLayout &&
            parameter.role != kraaudiofilterhost::AudioFilterParameterRole::kMeter)
            values.settings.push_back(
                {parameter.slug, host::FormatValue(parameter, parameter.normalized)});
    return values;
}

}  // namespace

int RunPresetList(const PresetListOptions& options) {
    const host::EffectCatalogue catalogue;
    std::vector<const Effect*> effects;
    if (options.effect.empty())
        for (const Effect& effect : catalogue.GetEffects()) effects.push_back(&effect);
    else
        effects.push_back(&catalogue.Find(options.effect));
    host::Json json = {{"schema", "zuc.presets/1"}, {"presets", host::Json::array()}};
    std::vector<std::vector<std::string>> rows;
    for (const Effect* effect : effects)
        for (const auto& [name, origin] : GetPresets(*effect)) {
            json["presets"].push_back(
                {{"effect", effect->slug}, {"name", name}, {"origin", origin}});
            rows.push_back({effect->slug, origin, name});
        }
    Print(options.json ? json.dump(2, ' ', false, host::Json::error_handler_t::replace) + "\n"
                       : FormatColumns(rows, ""));
    return 0;
}

int RunPresetShow(const PresetShowOptions& options) {
    const host::EffectCatalogue catalogue;
    const host::ChainStep values = GetPresetValues(catalogue.Find(options.effect), options.name);
    if (options.json) {
        Print(host::FormatChainJson({values}));
        return 0;
    }
    std::vector<std::vector<std::string>> rows;
    for (const host::Setting& setting : values.settings)
        rows.push_back({setting.name, setting.text});
    Print(FormatColumns(rows, ""));
    return 0;
}

int RunPresetSave(const PresetSaveOptions& options) {
    const host::EffectCatalogue catalogue;
    const Effect& effect = catalogue.Find(options.effect);
    host::ChainStep step{effect.slug, {}, {}};
    if (!options.step.empty()) {
        step = host::ParseStepText(options.step);
        if (&catalogue.Find(step.effect) != &effect)
            throw Error(ExitCode::kUsage, "the preset is for " + effect.slug +
                                              ", the settings are for " + step.effect);
    }
    if (!options.settings.empty()) {
        const auto more =
            host::ParseStepText(effect.slug + ":" + host::Join(options.settings, ","));
        if (!more.preset.empty()) step.preset = more.preset;
        step.settings.insert(step.settings.end(), more.settings.begin(), more.settings.end());
    }
    const host::UserPresets presets;
    const host::AudioFilterPtr filter = Create(effect);
    if (host::FindFactoryPreset(*filter, options.name) >= 0)
        throw Error(ExitCode::kUsage,
                    effect.slug + " has a preset '" + options.name + "' of its own");
    if (!options.overwrite && presets.Load(effect.slug, options.name))
        throw Error(ExitCode::kOutput, "there is a preset '" + options.name + "' already", "",
                    "-y replaces it");
    // What builds on a saved preset takes its settings over, so that presets stay independent.
    if (host::FindFactoryPreset(*filter, step.preset) < 0)
        if (const auto base = presets.Load(effect.slug, step.preset)) {
            step.preset = base->preset;
            step.settings.insert(step.settings.begin(), base->settings.begin(),
                                 base->settings.end());
        }
    const auto resolved = host::ApplyStep(step, effect.slug, presets, *filter);
    Say("saved " + presets.Save(effect.slug, options.name, resolved));
    return 0;
}

}  // namespace zuc::cli
