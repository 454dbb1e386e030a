#pragma once

#include <algorithm>
#include <random>
#include <vector>

#include "kraaudiofilterhost/AudioFilter.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::components {

using Signal = std::vector<std::vector<float>>;  // channels x frames

inline Signal MakeNoise(std::size_t channels, std::size_t frames, float level = 0.5f) {
    std::mt19937 random(11);
    Signal noise(channels, std::vector<float>(frames));
    for (auto& channel : noise)
        for (float& x : channel) x = level * (static_cast<float>(random()) / 2147483648.0f - 1.0f);
    return noise;
}

inline Signal MakeImpulse(std::size_t channels, std::size_t frames) {
    Signal impulse(channels, std::vector<float>(frames));
    for (auto& channel : impulse) channel[0] = 1.0f;
    return impulse;
}

/// An effect in the hands of a host that speaks the parameters' own units.
template <class Effect>
class EffectPlayer {
public:
    explicit EffectPlayer(std::size_t channels = 2, float rateHz = 48000.0f) : effect_(new Effect) {
        effect_->SetSampleRate(rateHz);
        SetChannels(channels);
        effect_->Resume();
    }

    Effect& operator*() { return *effect_; }
    Effect* operator->() { return effect_.get(); }

    void SetChannels(std::size_t channels) {
        const auto layout = kramediatypes::LayoutForChannelCount(channels);
        effect_->RequestIOConfiguration({layout}, {layout});
    }
    void Set(int index, float value) {
        effect_->SetParameterAutomated(index,
                                       effect_->GetParameterInfo(index)->ToNormalized(value));
    }
    /// The value that the effect has now, in the parameter's own unit.
    float Get(int index) {
        return effect_->GetParameterInfo(index)->FromNormalized(effect_->GetParameter(index));
    }
    /// Frames [first, last) of `input`, in place, in blocks.
    Signal Play(const Signal& input, std::size_t first, std::size_t last, std::size_t blockFrames) {
        Signal out;
        for (const auto& channel : input)
            out.emplace_back(channel.begin() + static_cast<std::ptrdiff_t>(first),
                             channel.begin() + static_cast<std::ptrdiff_t>(last));
        kraaudiofilterhost::Flags flags;
        std::vector<float*> io(out.size());
        for (std::size_t done = 0; done < last - first; done += blockFrames) {
            for (std::size_t c = 0; c < out.size(); ++c) io[c] = out[c].data() + done;
            effect_->Process(io.data(), io.data(),
                             static_cast<int>(std::min(blockFrames, last - first - done)), {},
                             flags);
        }
        return out;
    }
    Signal Play(const Signal& input, std::size_t blockFrames = 512) {
        return Play(input, 0, input[0].size(), blockFrames);
    }

private:
    boost::intrusive_ptr<Effect> effect_;
};

inline void Append(Signal& to, const Signal& from) {
    to.resize(from.size());
    for (std::size_t c = 0; c < from.size(); ++c)
        to[c].insert(to[c].end(), from[c].begin(), from[c].end());
}

}  // namespace zuc::components
