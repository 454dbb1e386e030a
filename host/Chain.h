#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zuc::host {

class EffectCatalogue;

/// A parameter and what it is set to, as a person wrote them ("gain.1", "-6 dB").
struct Setting {
    std::string name;
    std::string text;
    bool operator==(const Setting&) const = default;
};

/// One point of an automation curve: a time of the file and a value as a person wrote it. With `hold`
/// the value stays until the next point.
struct CurvePoint {
    double seconds = 0.0;
    std::string value;
    bool hold = false;
    bool operator==(const CurvePoint&) const = default;
};
/// What one parameter does over time; an envelope effect's own curve goes by the name "curve".
struct CurveText {
    std::string parameter;
    std::vector<CurvePoint> points;
    bool operator==(const CurveText&) const = default;
};

/// One effect of a chain: the preset is applied first (empty: none), then the settings in order.
/// Automated parameters follow their curves from the first frame on.
struct ChainStep {
    std::string effect;
    std::string preset;
    std::vector<Setting> settings;
    std::vector<CurveText> automation = {};
    /// Of a step in a chain file whose effect is not known here: the step as it stands there, byte for byte.
    /// It passes the audio and is saved like that again.
    std::string placeholder = {};
    bool operator==(const ChainStep&) const = default;
};

/// Effects in the order in which the audio runs through them. Plain data: whether names and values
/// exist shows when a ChainProcessor is made of it.
using Chain = std::vector<ChainStep>;

/// Reads `amplify:preset=+3dB Boost,gain.1=-6dB`. The first ':' ends the effect; a comma begins a new
/// setting only when what follows looks like `name=` or `name.1=`, so texts may hold commas. Throws
/// Error (kUsage). [any]
ChainStep ParseStepText(std::string_view text);
/// The reverse of ParseStepText. [any]
std::string FormatStepText(const ChainStep& step);

/// Reads a chain from JSON text:
///
///     {
///       "schema": "zuc.chain/1",
///       "effects": [
///         {"effect": "amplify", "preset": "+3dB Boost", "settings": {"gain.1": "-6 dB"},
///          "automation": {"gain.2": [{"time": "0 s", "value": "-6 dB", "hold": true},
///                                    {"time": "1:30", "value": "0 dB"}]}}
///       ]
///     }
///
/// Values may also be plain numbers, in the parameter's own unit, and booleans. Anything else is
/// refused with its place: Error (kUsage) that begins with `source`. With a catalogue, a step whose effect
/// that does not know may hold anything and becomes a placeholder. [any]
Chain ParseChainJson(std::string_view json,
                     std::string_view source,
                     const EffectCatalogue* catalogue = nullptr);
/// The reverse of ParseChainJson, with one line per setting; placeholders as they were. [any]
std::string FormatChainJson(const Chain& chain);

/// A text file of at most 4 MB. Throws Error (kInput). [any]
std::string ReadTextFile(const std::string& path);
/// Reads and writes such a file. Throws Error (kInput, kOutput, or as ParseChainJson). [any]
Chain ReadChainFile(const std::string& path, const EffectCatalogue* catalogue = nullptr);
void WriteChainFile(const std::string& path, const Chain& chain);

}  // namespace zuc::host
