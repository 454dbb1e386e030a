#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/EffectCatalogue.h"
#include "host/Parameters.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host {

/// A channel format in which an effect becomes a plugin.
struct PluginFormat {
    std::string_view name;   // "surround51"
    std::string_view title;  // "5.1"
    std::size_t channels = 0;
    std::size_t sideChannels = 0;  // of effects that have a side chain
};

/// Mono, stereo and 5.1. [any]
std::span<const PluginFormat> GetPluginFormats();

/// A parameter that hosts show and automate, in its own unit.
struct PluginControl {
    enum class Kind { kNumber, kInteger, kToggle, kChoice };
    /// One named value.
    struct Choice {
        std::string name;
        float value = 0.0f;
    };

    Parameter parameter;
    std::string symbol;  // its slug as an identifier: "gain_1"
    Kind kind = Kind::kNumber;
    bool isLogarithmic = false;
    float lo = 0.0f;  // a toggle's values are 0 and 1, a choice's those of `choices`
    float hi = 1.0f;
    float initial = 0.0f;
    std::vector<Choice> choices;
};

/// What plugin formats tell their hosts of one effect in one channel format. Ranges that follow the
/// sample rate are those at 48 kHz; a value beyond the range at another rate counts as its end.
struct PluginInfo {
    Effect effect;
    PluginFormat format;
    kramediatypes::AudioChannelLayout layout;  // of input and output
    std::size_t sideChannels = 0;
    std::vector<PluginControl> controls;
    /// Whether there are settings besides the controls, which the host keeps as text.
    bool hasHiddenSettings = false;
};

/// One factory preset.
struct PluginPreset {
    std::string identifier;     // "10dBBoost"
    std::string name;           // localized
    std::vector<float> values;  // of the controls
    std::string settings;       // for PluginProcessor::LoadSettings; empty without hidden settings
};

/// Nothing for an effect that works offline only or does not take the format. [host]
std::optional<PluginInfo> DescribePlugin(const Effect& effect, const PluginFormat& format);
std::vector<PluginPreset> DescribePluginPresets(const PluginInfo& info);

/// All settings of an effect as JSON text, its own data besides parameters included. [host]
std::string SaveFilterSettings(const AudioFilter& filter);

}  // namespace zuc::host
