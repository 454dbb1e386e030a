#include "host/PluginInfo.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "Components/ParameterInfos.h"
#include "kraaudiofilterhost/PresetData.h"

namespace zuc::host {
namespace {

using kraaudiofilterhost::AudioFilterParameterRole;
using kraaudiofilterhost::PresetData;

constexpr float kDescribedRateHz = 48000.0f;
constexpr int kDescribedBlockFrames = 1024;

// clang-format off
constexpr std::array kFormats{
    //           name          title     channels side
    PluginFormat{"mono",       "Mono",   1,       1},
    PluginFormat{"stereo",     "Stereo", 2,       2},
    PluginFormat{"surround51", "5.1",    6,       1},
};
// clang-format on

bool IsControl(const Parameter& parameter) {
    switch (parameter.role) {
        case AudioFilterParameterRole::kControl:
        case AudioFilterParameterRole::kSwitch:
        case AudioFilterParameterRole::kCount:
            return true;
        case AudioFilterParameterRole::kLink:
        case AudioFilterParameterRole::kDisplay:
        case AudioFilterParameterRole::kFollowsLayout:
        case AudioFilterParameterRole::kMeter:
            return false;
    }
    return false;
}

bool IsHidden(const Parameter& parameter) {
    return !IsControl(parameter) && parameter.role != AudioFilterParameterRole::kFollowsLayout &&
           parameter.role != AudioFilterParameterRole::kMeter;
}

std::string MakeSymbol(const std::string& slug) {
    std::string symbol = slug;
    for (char& c : symbol)
        if (c == '-' || c == '.') c = '_';
    return symbol.empty() || (symbol[0] >= '0' && symbol[0] <= '9') ? "_" + symbol : symbol;
}

/// The roundest number that means the same: 60 for 60.000004.
float RoundValue(const Parameter& parameter, float value) {
    std::array<char, 32> text{};
    const float normalized = parameter.info->ToNormalized(value);
    for (int digits = 1; digits <= std::numeric_limits<float>::max_digits10; ++digits) {
        const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                       std::chars_format::general, digits);
        float round = value;
        std::from_chars(text.data(), end.ptr, round);
        if (parameter.info->ToNormalized(round) == normalized) return round;
    }
    return value;
}

float GetControlValue(const PluginControl& control, float normalized) {
    if (control.kind == PluginControl::Kind::kToggle) return normalized >= 0.5f ? 1.0f : 0.0f;
    const float value = control.parameter.info->FromNormalized(normalized);
    const bool isWhole = control.kind == PluginControl::Kind::kInteger;
    return std::clamp(isWhole ? std::round(value) : RoundValue(control.parameter, value),
                      control.lo, control.hi);
}

PluginControl MakeControl(Parameter parameter) {
    using Kind = PluginControl::Kind;
    PluginControl control;
    control.symbol = MakeSymbol(parameter.slug);
    control.parameter = std::move(parameter);
    const Parameter& source = control.parameter;
    if (source.role == AudioFilterParameterRole::kSwitch) {
        control.kind = Kind::kToggle;
    } else {
        control.lo = source.lo;
        control.hi = source.hi;
        if (!source.entries.empty()) control.kind = Kind::kChoice;
        if (source.role == AudioFilterParameterRole::kCount) control.kind = Kind::kInteger;
        for (const ParameterEntry& entry : source.entries)
            control.choices.push_back({entry.name, source.info->FromNormalized(entry.normalized)});
    }
    const auto* number =
        dynamic_cast<const components::GenericParameterInfo*>(control.parameter.info.get());
    control.isLogarithmic = number && number->IsLogarithmic();
    control.initial = GetControlValue(control, source.normalized);
    return control;
}

AudioFilterPtr Create(const Effect& effect, const PluginFormat& format) {
    AudioFilterPtr filter = effect.create();
    if (!filter || filter->IsOfflineProcess() || filter->CanChangeDuration()) return nullptr;
    filter->SetSampleRate(kDescribedRateHz);
    filter->SetBlockSize(kDescribedBlockFrames);
    return RequestChannels(*filter, format.channels) ? filter : nullptr;
}

bool HasCustomData(const AudioFilter& filter) {
    kracore::proplist::PropList list;
    PresetData preset(list);
    filter.SaveSettings(preset);
    kracore::proplist::Bytes chunk;
    return preset.GetCustomData() != nullptr || preset.GetChunk(chunk);
}

}  // namespace

std::span<const PluginFormat> GetPluginFormats() { return kFormats; }

std::string SaveFilterSettings(const AudioFilter& filter) {
    kracore::proplist::PropList list;
    PresetData preset(list);
    filter.SaveSettings(preset);
    return ToJson(list);
}

std::optional<PluginInfo> DescribePlugin(const Effect& effect, const PluginFormat& format) {
    const AudioFilterPtr filter = Create(effect, format);
    if (!filter) return std::nullopt;
    PluginInfo info;
    info.effect = effect;
    info.format = format;
    info.layout = kramediatypes::LayoutForChannelCount(format.channels);
    info.sideChannels = filter->CanUseSideChaining() ? format.sideChannels : 0;
    info.hasHiddenSettings = HasCustomData(*filter);
    for (Parameter& parameter : GetParameters(*filter)) {
        info.hasHiddenSettings |= IsHidden(parameter);
        if (IsControl(parameter)) info.controls.push_back(MakeControl(std::move(parameter)));
    }
    return info;
}

std::vector<PluginPreset> DescribePluginPresets(const PluginInfo& info) {
    const AudioFilterPtr filter = Create(info.effect, info.format);
    std::vector<PluginPreset> presets;
    for (int index = 0; filter && index < filter->GetNumFactoryPresets(); ++index) {
        filter->SetFactoryPreset(index);
        PluginPreset preset;
        preset.identifier = filter->GetFactoryPresetIdentifier(index);
        preset.name = kracore::utility::ToUtf8(filter->GetFactoryPresetName(index));
        for (const PluginControl& control : info.controls)
            preset.values.push_back(
                GetControlValue(control, filter->GetParameter(control.parameter.index)));
        if (info.hasHiddenSettings) preset.settings = SaveFilterSettings(*filter);
        presets.push_back(std::move(preset));
    }
    return presets;
}

}  // namespace zuc::host
