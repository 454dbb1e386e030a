#include "Components/LoudnessMeter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/Loudness.h"
#include "kraaudiodsp/TruePeak.h"
#include "kraaudiodsp/vector/PeakOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace zuc::components {
namespace {

constexpr std::size_t kPieceFrames = 1024;
constexpr double kSurroundWeight = 1.41;

double GetWeight(kramediatypes::AudioChannelLabel label) {
    using Label = kramediatypes::AudioChannelLabel;
    switch (label) {
        case Label::kLowFrequency:
            return 0.0;
        case Label::kLeftSurround:
        case Label::kRightSurround:
        case Label::kLeftRearSurround:
        case Label::kRightRearSurround:
        case Label::kCenterSurround:
            return kSurroundWeight;
        case Label::kNone:
        case Label::kMono:
        case Label::kLeft:
        case Label::kRight:
        case Label::kCenter:
            break;
    }
    return 1.0;
}

}  // namespace

struct LoudnessMeter::State {
    explicit State(std::size_t channels)
        : truePeaks(channels), samples(channels * kPieceFrames), finite(channels) {}

    void TakePeaks(std::size_t channel, const float* in, std::size_t frames) {
        truePeaks[channel].Process(in, peaks.data(), frames, truePeak);
        truePeak = std::max(truePeak, dsp::vector::PeakOf(peaks.data(), frames));
    }

    dsp::Loudness loudness;
    std::vector<dsp::TruePeak> truePeaks;  // one per channel
    std::vector<float> samples;  // one piece, for channels with samples that are not finite
    std::vector<const float*> finite;
    std::array<float, kPieceFrames> peaks{};
    float truePeak = 0.0f;
};

LoudnessMeter::LoudnessMeter(float rateHz, const kramediatypes::AudioChannelLayout& layout)
    : state_(std::make_unique<State>(layout.size())) {
    std::vector<double> weights;
    for (const auto& channel : layout) weights.push_back(GetWeight(channel.label));
    state_->loudness.Prepare(static_cast<double>(rateHz), weights);
}

LoudnessMeter::~LoudnessMeter() = default;

void LoudnessMeter::Process(const float* const* in, int frames) {
    State& s = *state_;
    const auto total = static_cast<std::size_t>(std::max(frames, 0));
    for (std::size_t done = 0; done < total;) {
        const std::size_t count = std::min(total - done, kPieceFrames);
        for (std::size_t c = 0; c < s.finite.size(); ++c) {
            s.finite[c] = in[c] + done;
            if (dsp::vector::CountNonFinite(s.finite[c], count) > 0) {
                float* clean = s.samples.data() + c * kPieceFrames;
                dsp::vector::CopyFinite(clean, s.finite[c], count);
                s.finite[c] = clean;
            }
            s.TakePeaks(c, s.finite[c], count);
        }
        s.loudness.Process(s.finite.data(), count);
        done += count;
    }
}

void LoudnessMeter::Finish() {
    constexpr std::array<float, dsp::TruePeak::kLatencyFrames> kSilence{};
    for (std::size_t c = 0; c < state_->truePeaks.size(); ++c)
        state_->TakePeaks(c, kSilence.data(), kSilence.size());
}

double LoudnessMeter::GetIntegratedLufs() const { return state_->loudness.GetIntegratedLufs(); }

float LoudnessMeter::GetTruePeak() const { return state_->truePeak; }

}  // namespace zuc::components
