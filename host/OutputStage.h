#pragma once

#include <cstddef>
#include <memory>

#include "Components/LoudnessMeter.h"
#include "host/Render.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host {

/// What the output of a chain goes through before it is written: one gain, a limiter, a measurement.
class OutputStage {
public:
    OutputStage(int rateHz, std::size_t channels, int maximumBlockFrames);  // [host]

    void SetGain(float gain) { gain_ = gain; }  // linear [host]
    /// Puts a limiter behind the gain, for sample peaks or for true peaks. [host]
    void UseLimiter(float ceilingDb, bool truePeak);
    /// Whether the next pass is measured. [host]
    void Measure(bool isMeasured);

    /// Begins a pass. [worker]
    void Start();
    /// Gain and limiter over the next frames, in place. [worker]
    void Process(float** audio, int frames);
    /// Measures what comes out, without what was dropped for latency. [worker]
    void Take(const float* const* audio, int frames);

    int GetLatencyFrames() const;  // of the limiter [any]
    /// The lowest gain of the limiter in this pass, 0 without one; no less than -40. [worker]
    float GetLowestGainDb() const { return lowestGainDb_; }
    MeasuredLoudness GetLoudness();  // at the end of a pass that was measured [worker]

private:
    int rateHz_;
    std::size_t channels_;
    int maximumBlockFrames_;
    float gain_ = 1.0f;
    float lowestGainDb_ = 0.0f;
    kraaudiofilterhost::AudioFilterPtr limiter_;
    std::unique_ptr<components::LoudnessMeter> meter_;
};

}  // namespace zuc::host
