#include <algorithm>
#include <cmath>

#include "Components/Song.h"
#include "kraaudiodsp/Resample.h"

namespace zuc::components {
namespace {

constexpr int kFilterOrder = 29;
constexpr int kBlockFrames = 4096;

}  // namespace

struct AnalysisInput::State {
    int rateHz = 0;
    int channels = 0;
    dsp::Resample resample;
    std::vector<float> mixed;
    std::vector<float> frames;
};

int GetAnalysisRate(int rateHz, int wantedHz) {
    return wantedHz > 0 && rateHz > wantedHz ? rateHz / (rateHz / wantedHz) : rateHz;
}

AnalysisInput::AnalysisInput(int rateHz, int channels) : state_(std::make_unique<State>()) {
    state_->rateHz = GetAnalysisRate(rateHz);
    state_->channels = channels;
    state_->resample.SetFilterOrder(kFilterOrder);
    state_->resample.SetSampleRates(rateHz, state_->rateHz);
}

AnalysisInput::~AnalysisInput() = default;

void AnalysisInput::Append(const float* const* in, int frames) {
    auto& [rateHz, channels, resample, mixed, out] = *state_;
    mixed.assign(static_cast<std::size_t>(frames), 0.0f);
    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < frames; ++i)
            mixed[i] += std::isfinite(in[c][i]) ? in[c][i] / static_cast<float>(channels) : 0.0f;
    for (int at = 0; at < frames;) {
        const std::size_t size = out.size();
        out.resize(size + kBlockFrames);
        int consumed = 0;
        const int given = resample.Process(mixed.data() + at, frames - at, out.data() + size,
                                           kBlockFrames, &consumed);
        at += consumed;
        out.resize(size + static_cast<std::size_t>(given));
    }
}

void AnalysisInput::Finish() {
    for (int given = 1; given > 0;) {
        const std::size_t size = state_->frames.size();
        state_->frames.resize(size + kBlockFrames);
        given = state_->resample.Flush(state_->frames.data() + size, kBlockFrames);
        state_->frames.resize(size + static_cast<std::size_t>(given));
    }
}

std::vector<double> AnalysisInput::GetFrames(std::int64_t first, std::int64_t last) {
    const std::int64_t count = GetFrameCount();
    const auto from = std::clamp<std::int64_t>(first, 0, count);
    const auto to = std::clamp<std::int64_t>(last, from, count);
    return {state_->frames.begin() + from, state_->frames.begin() + to};
}

int AnalysisInput::GetSampleRate() const { return state_->rateHz; }

std::int64_t AnalysisInput::GetFrameCount() const {
    return static_cast<std::int64_t>(state_->frames.size());
}

}  // namespace zuc::components
