#include "host/OutputStage.h"

#include <algorithm>

#include "Components/HardLimiter.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host {

using components::HardLimiter;
using components::LoudnessMeter;

OutputStage::OutputStage(int rateHz, std::size_t channels, int maximumBlockFrames)
    : rateHz_(rateHz), channels_(channels), maximumBlockFrames_(maximumBlockFrames) {}

void OutputStage::UseLimiter(float ceilingDb, bool truePeak) {
    limiter_ = new HardLimiter;
    limiter_->SetSampleRate(static_cast<float>(rateHz_));
    limiter_->SetBlockSize(maximumBlockFrames_);
    const auto layout = kramediatypes::LayoutForChannelCount(channels_);
    limiter_->RequestIOConfiguration({layout}, {layout});
    const auto set = [this](int index, float value) {
        limiter_->SetParameter(index, limiter_->GetParameterInfo(index)->ToNormalized(value));
    };
    set(HardLimiter::kCeilingDb, ceilingDb);
    set(HardLimiter::kTruePeak, truePeak ? 1.0f : 0.0f);
}

void OutputStage::Measure(bool isMeasured) {
    meter_ = isMeasured
                 ? std::make_unique<LoudnessMeter>(static_cast<float>(rateHz_),
                                                   kramediatypes::LayoutForChannelCount(channels_))
                 : nullptr;
}

void OutputStage::Start() {
    lowestGainDb_ = 0.0f;
    if (limiter_) limiter_->Resume();
}

void OutputStage::Process(float** audio, int frames) {
    if (gain_ != 1.0f)
        for (std::size_t c = 0; c < channels_; ++c)
            for (int i = 0; i < frames; ++i) audio[c][i] *= gain_;
    if (!limiter_) return;
    kraaudiofilterhost::Flags flags;
    limiter_->Process(audio, audio, frames, {}, flags);
    const auto meter = limiter_->GetParameterInfo(HardLimiter::kGainReductionDb);
    lowestGainDb_ =
        std::min(lowestGainDb_,
                 meter->FromNormalized(limiter_->GetParameter(HardLimiter::kGainReductionDb)));
}

void OutputStage::Take(const float* const* audio, int frames) {
    if (meter_) meter_->Process(audio, frames);
}

int OutputStage::GetLatencyFrames() const { return limiter_ ? limiter_->GetInitialDelay() : 0; }

MeasuredLoudness OutputStage::GetLoudness() {
    meter_->Finish();
    return {meter_->GetIntegratedLufs(), meter_->GetTruePeak()};
}

}  // namespace zuc::host
