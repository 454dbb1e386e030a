#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "Components/private/amplitude/GainTable.h"
#include "Components/private/amplitude/TransferCurve.h"
#include "kraaudiodsp/FIRFilter.h"
#include "kraaudiodsp/SlidingBuffer.h"

namespace zuc::components {

/// The signal path of the dynamics processor for all its channels.
///
/// Each detector channel - a channel of the side chain when there is one, else a main channel - goes
/// through a band filter, a level detector (power or amplitude, smoothed by a one-pole filter), a
/// first envelope on the level in dB, the gain table, and a second envelope on the linear gain. Main
/// channel c, delayed by the latency, is multiplied by the gain of detector min(c, detectors - 1), or
/// of detector 0 when the channels are linked, and by the output gain.
class DynamicsDSP {
public:
    static constexpr std::size_t kMaxDetectors = 34;
    static constexpr int kMaxPieceFrames = 1024;
    static constexpr int kMaxTaps = 513;

    struct Settings {
        // Weight of the new value in each frame of an envelope, 1 at 0 ms.
        double levelAttack = 1.0;
        double levelRelease = 1.0;
        double gainAttack = 1.0;
        double gainRelease = 1.0;
        float inputGain = 1.0f;   // linear
        float outputGain = 1.0f;  // linear, make-up gain included
        int latencyFrames = 0;    // look-ahead and detector together
        int taps = 1;             // of the band filters
        double bandLow = 0.0;     // edges as fractions of the sample rate
        double bandHigh = 0.5;
        bool isBandLimited = false;
        bool usesRms = true;
        bool isLinked = false;
        bool envelopeOnly = false;  // the gains themselves come out
        TransferCurve::Shape curve;
    };

    /// Makes room for up to `maxLatencyFrames`; `sideChannels` 0 lets the main channels detect, at
    /// most kMaxDetectors of either. [host]
    void Prepare(std::size_t mainChannels,
                 std::size_t sideChannels,
                 int maxLatencyFrames,
                 int rampFrames);
    /// Starts from silence with these settings. [audio]
    void Reset(const Settings& settings);
    /// Takes up new settings. Gains and linking ramp, the curve acts through the envelopes; another
    /// latency starts from silence. [audio]
    void SetSettings(const Settings& settings);
    /// `in` holds the main channels, then the side chain; up to kMaxPieceFrames. `out[c]` may be
    /// `in[c]`. [audio]
    void Process(const float* const* in, float* const* out, int frames);

private:
    /// One detector channel.
    struct Detector {
        dsp::FIRFilter filter;
        double detected = 0.0;    // smoothed power or amplitude
        double levelDb = 0.0;     // first envelope
        double gain = 0.0;        // second envelope, linear
        std::vector<float> work;  // one piece: signal, then level, then gain
    };
    /// What moves linearly to new settings.
    enum Ramp { kInputGain, kOutputGain, kLinkWeight, kRampCount };
    struct RampPlace {
        float start;
        float step;
        std::size_t first;
    };

    void TakeFilters(const Settings& settings);
    void StartRamps();
    float RampValue(Ramp ramp) const;
    RampPlace PlaceOf(Ramp ramp) const;
    void ProcessRun(const float* const* in, float* const* out, std::size_t frames);
    void TakeInput(const float* const* in, std::size_t frames);
    void FollowLevels(std::size_t frames);
    void FollowGains(std::size_t frames);
    void ApplyGains(float* const* out, std::size_t frames);
    const float* GainsOf(std::size_t channel, std::size_t frames);
    template <class Run>
    void ForEachGroup(double Detector::*state, const Run& run);

    Settings settings_;
    TransferCurve curve_;
    GainTable table_;
    std::vector<Detector> detectors_;
    std::vector<dsp::SlidingBuffer> delays_;  // one per main channel
    std::vector<const float*> newest_;        // this run's input, gained, per main channel
    std::vector<float> blended_;              // one piece of gains
    bool hasSideChain_ = false;
    int rampFrames_ = 1;
    int rampLeft_ = 0;
    std::array<float, kRampCount> rampTarget_{};
    std::array<float, kRampCount> rampStart_{};
    std::array<float, kRampCount> rampStep_{};  // per frame
};

}  // namespace zuc::components
