#pragma once

#include <cstdint>
#include <vector>

struct soxr;

namespace zuc::host {

/// Changes the sample rate of a stream (libsoxr, "high quality": pass band to 0.91 of the lower
/// Nyquist frequency, 120 dB rejection).
///
/// The output is aligned with the input in time, and exactly GetOutputFrames(all input frames) long.
/// Equal rates copy.
class Resampler {
public:
    struct Progress {
        int consumed = 0;  // frames taken from the input
        int produced = 0;  // frames put into the output
    };

    /// Rates above 0, at least one channel. Throws Error(kProcessing). [host]
    Resampler(int fromHz, int toHz, int channels);
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    /// Takes up to `inFrames` of `in[channel]` and gives up to `outFrames` into `out[channel]`, which
    /// must not overlap `in`. Call again with the rest until all is consumed. [worker]
    Progress Process(const float* const* in, int inFrames, float* const* out, int outFrames);
    /// After the last Process: gives what is left, block after block, then 0. [worker]
    int Drain(float* const* out, int outFrames);

    /// round(frames * toHz / fromHz). [any]
    static std::int64_t GetOutputFrames(std::int64_t frames, int fromHz, int toHz);

private:
    Progress Run(const float* const* in, int inFrames, float* const* out, int outFrames);

    int fromHz_ = 1;
    int toHz_ = 1;
    int channels_ = 1;
    std::int64_t framesIn_ = 0;
    std::int64_t framesOut_ = 0;
    soxr* soxr_ = nullptr;  // null when the rates are equal
    std::vector<float*> outAt_;
};

}  // namespace zuc::host
