#pragma once

#include <cstddef>
#include <cstdint>

#include "kraaudiodsp/AlignedVector.h"

namespace dsp {

/// Changes the sample rate of one channel by a windowed sinc (Smith, "Digital Audio Resampling",
/// 1984; Kaiser window of shape 8 less its pedestal, cut-off at 0.9 of the lower Nyquist frequency).
///
/// Output frame k is the input at time k x from / to: the delay of the filter is taken out, before the
/// first and behind the last frame is silence, and with Flush the output is round(in x to / from)
/// frames long. How the input is cut into blocks does not change the output. The filter of order n
/// reaches round(n / 2) samples of the lower rate to each side:
///
/// | order | -0.1 dB at (of the lower Nyquist frequency) | alias or image, from 1.2 on |
/// |---|---|---|
/// | 29 | 0.77 | -80 dB |
/// | 59 | 0.84 | -92 dB |
/// | 119 | 0.87 | -103 dB |
class Resample {
public:
    /// Equal rates, order 59.
    Resample();

    /// Rates above 0 whose ratio is 1/32 to 32, else asserted and ignored; restarts. [host]
    void SetSampleRates(double fromHz, double toHz);
    /// 4 to 512, clamped; initially 59; restarts. [host]
    void SetFilterOrder(int order);
    /// Forgets all input; the next frame is the first. [audio]
    void Reset();

    /// How many more input frames Process needs to give `frames` output frames. [audio]
    std::int64_t GetInputNeeded(std::int64_t frames) const;
    /// Takes up to `inFrames` of `in` and gives at most `outFrames` into `out`, which must not
    /// overlap; returns how many were given. All input is consumed unless `out` became full; `consumed`
    /// (may be null) tells. [audio]
    int Process(const float* in, int inFrames, float* out, int outFrames, int* consumed = nullptr);
    /// After the last Process: gives what the end of the input still yields, block by block, then 0.
    /// [audio]
    int Flush(float* out, int outFrames);

private:
    void Design();
    double Coefficient(double distance) const;
    float Interpolate(const float* at, double phase) const;
    int Produce(float* out, int outFrames);
    int Store(const float* in, std::int64_t inFrames);

    std::int64_t up_ = 1;    // so many output frames ...
    std::int64_t down_ = 1;  // ... for so many input frames
    int order_ = 59;
    int reach_ = 1;              // input frames to each side
    double halfWidth_ = 1;       // of the window, in input frames
    int phaseCount_ = 1;         // rows of the table, less the one for phase 1
    std::size_t rowFrames_ = 8;  // 2 reach_, rounded up to a multiple of 8
    AlignedVector<float> rows_;

    AlignedVector<float> history_;  // input from firstFrame_ on
    std::size_t filled_ = 0;
    std::int64_t firstFrame_ = 0;  // negative is the silence before the input
    std::int64_t framesIn_ = 0;
    std::int64_t framesOut_ = 0;
    std::int64_t position_ = 0;   // of the next output frame: whole input frames
    std::int64_t remainder_ = 0;  // ... and up_-ths
};

}  // namespace dsp
