#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kraaudiodsp/FractionalDelay.h"
#include "kraaudiodsp/Lfo.h"
#include "kraaudiodsp/SlidingBuffer.h"

namespace zuc::components {

/// The random part of the voices' delays, worked out ahead by another thread. It is a function of time
/// alone, so a part that does not come in time is worked out by the reader and has the same values.
///
/// Two halves take turns: one is read while the other may be filled. Each half belongs to one side at a
/// time, as its state says.
class ChorusDrift {
public:
    static constexpr std::size_t kVoiceCount = 8;

    ChorusDrift();
    /// Nothing may run meanwhile. [host]
    void Prepare(double pointsPerSecond);
    /// The curve of a voice, in [-1, 1], at a point counted from Reset; from -1 on. [audio]
    float Read(std::size_t voice, std::int64_t point) const;
    /// Asks for the half after the one that holds `point`. True when Fill should be called. [audio]
    bool RequestAfter(std::int64_t point);
    /// Whether something that was asked for is not filled yet. [audio]
    bool IsRequested() const;
    /// Fills what was asked for. [worker]
    void Fill();

private:
    enum State { kFree, kRequested, kReady };
    struct Half {
        std::atomic<int> state{kFree};
        std::int64_t part = -1;     // which run of partPoints_ points
        std::vector<float> values;  // points x voices
    };
    float Make(std::size_t voice, std::int64_t point) const;
    std::int64_t PartOf(std::int64_t point) const;

    std::array<dsp::Drift, kVoiceCount> drifts_;
    std::array<Half, 2> halves_;
    std::int64_t partPoints_ = 1;
    double secondsPerPoint_ = 1.0;
};

/// Voices that read each channel at moving delays, besides the channel itself.
class ChorusDSP {
public:
    static constexpr std::size_t kVoiceCount = ChorusDrift::kVoiceCount;
    /// Delays and all other settings move from one control point to the next, this far apart.
    static constexpr int kControlFrames = 64;
    static constexpr int kLatencyFrames = dsp::FractionalDelay::kLeastFrames;

    struct Voice {
        float delayFrames = 0.0f;
        float swingFrames = 0.0f;     // peak of the sine
        float driftFrames = 0.0f;     // peak of the random part
        std::array<float, 2> gain{};  // of even channels, and of odd ones
    };
    /// Settings that glide.
    struct Settings {
        std::array<Voice, kVoiceCount> voices;
        float dry = 0.0f;
        float wet = 0.0f;
        float feedback = 0.0f;           // of the voices' weighted mean
        float lowCutCoefficient = 0.0f;  // of one-pole filters, per frame
        float highCutCoefficient = 0.0f;
    };
    /// Cycles of each voice's sine per control point; changes without a glide.
    using Rates = std::array<double, kVoiceCount>;

    /// [host]
    void Prepare(std::size_t channels, double rateHz, int maxDelayFrames, int maxRunFrames);
    /// Silence, the sines at their start, settings in force at once. [audio]
    void Reset(const Settings& settings, const Rates& rates);
    void GlideTo(const Settings& settings, const Rates& rates);  // [audio]
    /// `in[c]` and `out[c]` may be the same buffer. [audio]
    void Process(const float* const* in, float* const* out, int frames);
    /// True when FillDrift should be called by another thread. [audio]
    bool TakeDriftRequest();
    void FillDrift() { drift_.Fill(); }  // [worker]

private:
    /// What moves linearly between control points.
    struct Mix {
        float dry, wet, lowCut, highCut;
        std::array<float, 2> feedback;
        bool operator==(const Mix&) const = default;
    };
    struct Filter {
        double low = 0.0;
        double high = 0.0;
    };
    using Gains = std::array<std::array<float, 2>, kVoiceCount>;

    void StartSegment();
    void AddControlPoint();
    Settings GetGliding() const;
    Mix GetMix(const Settings& settings) const;
    int LimitRun(int frames) const;
    template <std::size_t kChannels>
    void ProcessTogether(std::size_t first, float* const* out, int done, int run);

    std::size_t channelCount_ = 0;
    dsp::FractionalDelay line_;
    std::vector<dsp::SlidingBuffer> dryLines_;
    std::vector<float*> dryPlaces_;
    std::vector<Filter> filters_;
    std::array<std::vector<float>, 2> wet_;  // frames of one run

    Settings from_;
    Settings target_;
    Rates rates_{};
    int glidePoints_ = 1;
    int glideLeft_ = 0;  // control points

    std::array<dsp::Lfo, kVoiceCount> lfos_;
    ChorusDrift drift_;
    std::array<std::array<double, 4>, kVoiceCount>
        delays_{};            // frames at the points around the segment
    std::int64_t point_ = 0;  // the newest of them
    Settings newest_;         // at the newest point
    Gains gains_{};           // at the end of the segment
    std::array<dsp::vector::MovingTap, kVoiceCount> taps_;
    std::size_t tapCount_ = 0;
    Mix mix_{};
    Mix mixEnd_{};   // at the end of the segment
    Mix mixStep_{};  // per frame
    int segmentLeft_ = 0;
    int longestRun_ = 1;  // with feedback
    bool hasFeedback_ = false;
    bool isSteady_ = false;  // no feedback, and the mix does not move
    bool driftRequested_ = false;
};

}  // namespace zuc::components
