#include <utility>

#include "Commands.h"
#include "Console.h"
#include "host/AudioReader.h"
#include "host/EffectCatalogue.h"
#include "host/JsonReader.h"
#include "host/Text.h"
#include "host/Units.h"
#include "host/UserPresets.h"

namespace zuc::cli {
namespace {

using host::Json;
using host::Parameter;
using kraaudiofilterhost::AudioFilterParameterRole;

constexpr float kRateHz = 48000.0f;  // at which latency, tail and ranges are told
constexpr std::size_t kChannels = 2;
constexpr int kBlockFrames = 1024;

std::string_view GetRoleName(AudioFilterParameterRole role) {
    switch (role) {
        case AudioFilterParameterRole::kControl:
            return "control";
        case AudioFilterParameterRole::kSwitch:
            return "switch";
        case AudioFilterParameterRole::kCount:
            return "count";
        case AudioFilterParameterRole::kLink:
            return "link";
        case AudioFilterParameterRole::kDisplay:
            return "display";
        case AudioFilterParameterRole::kFollowsLayout:
            return "follows-layout";
        case AudioFilterParameterRole::kMeter:
            return "meter";
    }
    return {};
}

/// Channel counts that the effect takes, as runs of neighbours: {1, 8}, {32, 32}.
std::vector<std::pair<int, int>> FindChannelCounts(const host::Effect& effect) {
    std::vector<std::pair<int, int>> runs;
    const host::AudioFilterPtr filter = effect.create();
    filter->SetSampleRate(kRateHz);
    for (int channels = 1; channels <= host::kMaxChannels; ++channels) {
        if (!host::RequestChannels(*filter, static_cast<std::size_t>(channels))) continue;
        if (!runs.empty() && runs.back().second == channels - 1)
            runs.back().second = channels;
        else
            runs.emplace_back(channels, channels);
    }
    return runs;
}

/// An effect for the stereo format when it takes that, else for the first one that it takes.
host::AudioFilterPtr CreateForDescription(const host::Effect& effect,
                                          const std::vector<std::pair<int, int>>& counts) {
    std::size_t channels =
        counts.empty() ? kChannels : static_cast<std::size_t>(counts.front().first);
    for (const auto& [first, last] : counts)
        if (first <= static_cast<int>(kChannels) && static_cast<int>(kChannels) <= last)
            channels = kChannels;
    return host::CreateForFormat(effect, kRateHz, channels, kBlockFrames);
}

/// Bounds may be infinite, which JSON cannot say.
Json ToJson(float value) {
    if (value - value == 0.0f) return value;
    return value < 0.0f ? "-inf" : "inf";
}

Json ParameterToJson(const Parameter& parameter) {
    Json json = {{"index", parameter.index},
                 {"name", parameter.slug},
                 {"title", parameter.name},
                 {"unit", parameter.unit},
                 {"min", ToJson(parameter.lo)},
                 {"max", ToJson(parameter.hi)},
                 {"default", host::FormatValue(parameter, parameter.normalized)},
                 {"defaultNormalized", parameter.normalized},
                 {"automatable", parameter.isAutomatable},
                 {"role", GetRoleName(parameter.role)}};
    for (const host::ParameterEntry& entry : parameter.entries)
        json["choices"].push_back(
            {{"value", entry.slug}, {"title", entry.name}, {"normalized", entry.normalized}});
    return json;
}

void PrintJson(const host::Effect& effect,
               host::AudioFilter& filter,
               const std::vector<std::pair<int, int>>& counts) {
    Json json = {{"schema", "zuc.effect/1"},
                 {"effect", effect.slug},
                 {"class", effect.className},
                 {"title", effect.title},
                 {"category", host::GetCategoryName(effect.category)},
                 {"rate", kRateHz},
                 {"latencyFrames", filter.GetInitialDelay()},
                 {"tailFrames", filter.GetTail()},
                 {"sideChain", filter.GetInputBuses().size() > 1},
                 {"channels", Json::array()},
                 {"parameters", Json::array()},
                 {"presets", host::GetFactoryPresetNames(filter)},
                 {"userPresets", host::UserPresets().GetNames(effect.slug)}};
    for (const auto& [first, last] : counts) json["channels"].push_back({first, last});
    for (const Parameter& parameter : host::GetParameters(filter))
        json["parameters"].push_back(ParameterToJson(parameter));
    Print(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::string FormatFrames(int frames) {
    if (frames == 0) return "none";
    return std::to_string(frames) + " frames (" +
           host::ToText(static_cast<float>(frames) / kRateHz * 1000.0f) + " ms at 48 kHz)";
}

std::string FormatNames(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += "  " + name + "\n";
    return text;
}

void PrintText(const host::Effect& effect,
               host::AudioFilter& filter,
               const std::vector<std::pair<int, int>>& counts) {
    std::vector<std::string> runs;
    runs.reserve(counts.size());
    for (const auto& [first, last] : counts)
        runs.push_back(first == last ? std::to_string(first)
                                     : std::to_string(first) + "-" + std::to_string(last));
    std::string text = effect.title + " (" + effect.slug + ", " +
                       std::string(host::GetCategoryName(effect.category)) + ")\n\n";
    text += FormatColumns({{"channels", host::Join(runs)},
                           {"latency", FormatFrames(filter.GetInitialDelay())},
                           {"tail", FormatFrames(filter.GetTail())}},
                          "");
    if (filter.GetInputBuses().size() > 1) text += "has a side chain\n";
    std::vector<std::vector<std::string>> rows{{"Parameter", "Range", "Default", ""}};
    for (const Parameter& parameter : host::GetParameters(filter)) {
        const bool follows = parameter.role == AudioFilterParameterRole::kFollowsLayout;
        const bool isMeter = parameter.role == AudioFilterParameterRole::kMeter;
        rows.push_back(
            {parameter.slug, follows ? "" : host::FormatRange(parameter),
             follows || isMeter ? "" : host::FormatValue(parameter, parameter.normalized),
             parameter.name + (follows   ? " (set by the layout of the audio)"
                               : isMeter ? " (meter)"
                                         : "")});
    }
    text.append("\n").append(FormatColumns(rows, ""));
    const auto presets = host::GetFactoryPresetNames(filter);
    if (!presets.empty()) text.append("\nPresets\n").append(FormatNames(presets));
    const auto saved = host::UserPresets().GetNames(effect.slug);
    if (!saved.empty()) text.append("\nSaved presets\n").append(FormatNames(saved));
    Print(text);
}

}  // namespace

int RunDescribe(const DescribeOptions& options) {
    const host::EffectCatalogue catalogue;
    const host::Effect& effect = catalogue.Find(options.effect);
    const auto counts = FindChannelCounts(effect);
    const host::AudioFilterPtr filter = CreateForDescription(effect, counts);
    if (options.json)
        PrintJson(effect, *filter, counts);
    else
        PrintText(effect, *filter, counts);
    return 0;
}

}  // namespace zuc::cli
