#include "host/Resampler.h"

#include <soxr.h>

#include <algorithm>
#include <limits>

#include "host/Error.h"

namespace zuc::host {

Resampler::Resampler(int fromHz, int toHz, int channels)
    : fromHz_(fromHz),
      toHz_(toHz),
      channels_(channels),
      outAt_(static_cast<std::size_t>(std::max(channels, 1))) {
    if (fromHz < 1 || toHz < 1 || channels < 1)
        throw Error(ExitCode::kProcessing, "cannot change the sample rate", "rates from 1 Hz on");
    if (fromHz == toHz) return;
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    const soxr_runtime_spec_t oneThread = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    soxr_ = soxr_create(fromHz, toHz, static_cast<unsigned>(channels), &error, &samples, &quality,
                        &oneThread);
    if (error != nullptr)
        throw Error(ExitCode::kProcessing, std::string("cannot change the sample rate: ") + error);
}

Resampler::~Resampler() { soxr_delete(soxr_); }

Resampler::Progress Resampler::Run(const float* const* in,
                                   int inFrames,
                                   float* const* out,
                                   int outFrames) {
    std::size_t consumed = 0;
    std::size_t produced = 0;
    // The library takes the array of buffers as it takes a single buffer: as an untyped pointer.
    void* const buffers = const_cast<float**>(out);
    const soxr_error_t error =
        soxr_process(soxr_, in, static_cast<std::size_t>(inFrames), &consumed, buffers,
                     static_cast<std::size_t>(outFrames), &produced);
    if (error != nullptr)
        throw Error(ExitCode::kProcessing, std::string("cannot change the sample rate: ") + error);
    return {static_cast<int>(consumed), static_cast<int>(produced)};
}

Resampler::Progress Resampler::Process(const float* const* in,
                                       int inFrames,
                                       float* const* out,
                                       int outFrames) {
    Progress progress{std::min(inFrames, outFrames), std::min(inFrames, outFrames)};
    if (soxr_ != nullptr)
        progress = Run(in, inFrames, out, outFrames);
    else
        for (int c = 0; c < channels_; ++c) std::copy_n(in[c], progress.consumed, out[c]);
    framesIn_ += progress.consumed;
    framesOut_ += progress.produced;
    return progress;
}

int Resampler::Drain(float* const* out, int outFrames) {
    const std::int64_t left = GetOutputFrames(framesIn_, fromHz_, toHz_) - framesOut_;
    const int wanted = static_cast<int>(std::clamp<std::int64_t>(left, 0, outFrames));
    int produced = 0;
    std::copy_n(out, channels_, outAt_.begin());
    while (soxr_ != nullptr && produced < wanted) {
        const int more = Run(nullptr, 0, outAt_.data(), wanted - produced).produced;
        if (more == 0) break;
        produced += more;
        for (float*& at : outAt_) at += more;
    }
    // The library may end a frame early.
    for (float* at : outAt_) std::fill_n(at, wanted - produced, 0.0f);
    framesOut_ += wanted;
    return wanted;
}

std::int64_t Resampler::GetOutputFrames(std::int64_t frames, int fromHz, int toHz) {
    // Whole seconds apart, so that the product stays in range for every length that audio has.
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    const std::int64_t seconds = frames / fromHz;
    if (seconds >= kMost / toHz) return kMost;
    if (seconds <= -kMost / toHz) return -kMost;
    return seconds * toHz + (frames % fromHz * toHz * 2 + fromHz) / (2 * std::int64_t{fromHz});
}

}  // namespace zuc::host
