#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/EffectCatalogue.h"
#include "host/JsonReader.h"

namespace zuc::host {

/// One call at the effect's contract.
struct ReplayEvent {
    enum class Op {
        kRate,      // SetSampleRate(number)
        kChannels,  // RequestIOConfiguration of the customary layout of `index` channels, and of
                    // sideChannels for a side chain
        kParam,     // SetParameterAutomated(index, number)
        kPreset,    // SetFactoryPreset(index)
        kBegin,     // BeginEditing(index)
        kEnd,       // EndEditing(index)
        kResume,
        kSuspend,
        kProcess,  // Process over `frames` input frames in blocks of `block`
        kGet,      // logs GetParameter(index)
        kLatency,  // logs GetInitialDelay()
        kName,     // logs GetFactoryPresetName(index)
        kCurve     // logs the samples of GetCurveData(0, index)
    };
    Op op{};
    int index = 0;
    float number = 0.0f;
    int frames = 0;
    int block = 0;
};

/// Calls at one effect, in order.
struct ReplayScript {
    std::string effect;  // class name or slug
    float rateHz = 48000.0f;
    int channels = 2;
    int sideChannels = 0;  // of what feeds a side chain; not part of the text
    std::vector<ReplayEvent> events;

    int GetLargestBlock() const;
};

/// Reads a script from JSON text:
///
///     {"effect": "Amplify", "rate": 48000, "channels": 2, "events": [
///       {"op": "param", "index": 2, "n": 0.7}, {"op": "resume"},
///       {"op": "process", "frames": 4800, "block": 256}, {"op": "get", "index": 0}]}
///
/// The operations are rate and channels ("value"), param ("index", "n"), preset, begin, end, get and
/// name ("index"), process ("frames", "block"), curve ("points"), resume, suspend and latency. A block
/// defaults to all the frames; keys that are not named here are ignored. Throws Error (kUsage) that
/// begins with `source` and says where. [any]
ReplayScript ParseReplayJson(std::string_view json, std::string_view source);

/// The most channels that any block of the script yields; the effect settles how it answers each
/// layout. At least 1. Throws Error. [host]
std::size_t CountReplayChannels(const ReplayScript& script, const EffectCatalogue& catalogue);

/// Fills `audio[channels][frames]` with the next frames, silence past the end.
using ReplaySource = std::function<void(float* const* audio, std::size_t channels, int frames)>;
/// Takes the frames of one block.
using ReplaySink = std::function<void(const float* const* audio, std::size_t channels, int frames)>;

/// Plays a script on a new effect, exactly as it stands: no latency compensation, no Resume that the
/// script does not ask for. The effect knows rate, channels and the script's largest block before the
/// first event. Each block takes its main channels from `input` and those of further buses from
/// `sideChain`; what it yields goes to `output` with CountReplayChannels() channels, those that
/// the effect lacks at that time silent. Returns the answers of the asking events, in order. Throws Error. [host]
Json RunReplay(const ReplayScript& script,
               const EffectCatalogue& catalogue,
               const ReplaySource& input,
               const ReplaySource& sideChain,
               const ReplaySink& output);

}  // namespace zuc::host
