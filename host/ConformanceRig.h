#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Components/Catalogue.h"
#include "host/Conformance.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host::conformance {

/// channels x frames
using Signal = std::vector<std::vector<float>>;

/// White noise at a quarter of full scale, the same for the same seed.
Signal MakeNoise(std::size_t channels, std::size_t frames, std::uint64_t seed);
/// A sine at a quarter of full scale in every channel.
Signal MakeSine(std::size_t channels, std::size_t frames, double frequencyHz, double rateHz);
Signal MakeSilence(std::size_t channels, std::size_t frames);
/// 1 in frame 0 of every channel, else silence.
Signal MakeImpulse(std::size_t channels, std::size_t frames);

bool IsFinite(const Signal& signal);
float GetPeak(const Signal& signal, std::size_t firstFrame = 0);
/// "channel 1, frame 37: 0.5 instead of 0.25", "channel 0 has 5 frames instead of 6", or empty when both are
/// the same bit for bit.
std::string DescribeDifference(const Signal& got, const Signal& expected);

/// One effect as a host holds it: created, prepared, resumed, and fed from signals. The selection is
/// about as long as the checks' short signals, so that what depends on it shows in them.
class Rig {
public:
    static constexpr double kSelectionFrames = 10'000.0;

    struct Setup {
        float rateHz = 48000.0f;
        std::size_t channels = 2;
        int blockFrames = 2048;  // announced; renders may use any other length
    };

    /// With a probe, Resume and Process are watched. `allowedCall` is one that Process may make, as the
    /// probe describes it, at most once a block.
    Rig(const components::CatalogueEntry& effect,
        const Setup& setup,
        const RealTimeProbe& probe = {},
        std::string_view allowedCall = {});

    kraaudiofilterhost::AudioFilter& Filter() { return *filter_; }
    /// Channels that Process reads: the main bus, and side chains, fed like the main channels in turn.
    std::size_t GetInputChannels() const { return filter_->GetNumberOfInputChannels(); }
    std::size_t GetOutputChannels() const { return filter_->GetNumberOfOutputChannels(); }

    void Resume();
    /// Processes the signal in blocks; the last one may be shorter. `in place` hands over the same
    /// buffers for input and output where both have them.
    Signal Render(const Signal& input, int blockFrames, bool inPlace = false);
    /// The same, with block lengths that `nextBlockFrames` tells.
    Signal Render(const Signal& input,
                  const std::function<int()>& nextBlockFrames,
                  bool inPlace = false);

    /// Buffers for Process: all inputs filled from a signal, and all outputs.
    Signal MakeInput(const Signal& input) const;
    Signal MakeOutput(std::size_t frames) const;
    /// What Render does, without memory of its own for the sound.
    void Process(Signal& source,
                 Signal& target,
                 const std::function<int()>& nextBlockFrames,
                 bool inPlace = false);

    /// Parameters that shape the sound: their indices.
    std::vector<int> GetSoundParameters() const;
    /// What the last call that the probe objected to did; empty while there is none.
    const std::string& GetResumeFinding() const { return resumeFinding_; }
    const std::string& GetProcessFinding() const { return processFinding_; }
    /// Runs `call` under the probe; what it objected to, or empty.
    std::string Watch(const std::function<void()>& call) const;

    /// Moves every parameter that shapes the sound to a value drawn from `seed`.
    void Randomize(std::uint64_t seed);

private:
    kraaudiofilterhost::AudioFilterPtr filter_;
    RealTimeProbe probe_;
    std::string_view allowedCall_;
    std::string resumeFinding_;
    std::string processFinding_;
};

}  // namespace zuc::host::conformance
