#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "Components/Echo.h"

namespace zuc::components {

/// Echo, one frame after the other: rings with one index, every sum and every fade counted by hand.
class EchoReference {
public:
    struct Side {
        int delay;
        float feedback;
        float level;
        bool operator==(const Side&) const = default;
    };
    struct Settings {
        std::array<Side, 2> sides;
        bool bounce;
        bool operator==(const Settings&) const = default;
    };

    EchoReference(std::size_t channels, int rateHz)
        : channels_(channels),
          rateHz_(rateHz),
          ring_(channels, std::vector<float>(static_cast<std::size_t>(2 * rateHz + 200))),
          stages_(channels) {}

    /// `value(index)` is a parameter in its own unit.
    template <class Value>
    void TakeSettings(const Value& value) {
        Settings settings{};
        for (int s = 0; s < 2; ++s)
            settings.sides[static_cast<std::size_t>(s)] = {
                static_cast<int>(static_cast<double>(value(Echo::kDelayLeft + s)) / 1000.0 *
                                 rateHz_),
                value(Echo::kFeedbackLeft + s) / 100.0f, value(Echo::kLevelLeft + s) / 100.0f};
        settings.bounce = value(Echo::kBounce) >= 0.5f;
        if (!current_)
            current_ = target_ = settings;
        else if (fadePosition_ >= 0)
            waiting_ = settings;
        else
            StartFade(settings);
        enabled_ = false;
        for (int b = 0; b < 8; ++b) {
            const float db = value(Echo::kFirstBand + b);
            gains_[static_cast<std::size_t>(b)] = std::pow(10.0f, db / 20.0f);
            enabled_ = enabled_ || std::fabs(db) > 0.001f;
        }
    }

    void ProcessFrame(const std::vector<float>& in, std::vector<float>& out) {
        std::vector<float> written(channels_);
        for (std::size_t c = 0; c < channels_; ++c) {
            const float echo = Equalize(c, ReadTaps(c));
            const float level = Mix(Of(*current_, c).level, Of(*target_, c).level);
            const float sum = in[c] * level + echo;
            written[c] = std::isfinite(sum) ? std::clamp(sum, -1.0f, 1.0f) : 0.0f;
            out[c] = in[c] + echo;
        }
        if (channels_ > 1 && (current_->bounce || target_->bounce)) {
            const float cross = Mix(current_->bounce ? 1.0f : 0.0f, target_->bounce ? 1.0f : 0.0f);
            const float first = written[0];
            const float second = written[1];
            const bool fades = current_->bounce != target_->bounce;
            written[0] = fades ? first + (second - first) * cross : second;
            written[1] = fades ? second + (first - second) * cross : first;
        }
        for (std::size_t c = 0; c < channels_; ++c) ring_[c][write_] = written[c];
        write_ = (write_ + 1) % ring_[0].size();
        if (fadePosition_ < 0 || ++fadePosition_ < fadeFrames_) return;
        fadePosition_ = -1;
        current_ = target_;
        if (waiting_) StartFade(*waiting_);
        waiting_.reset();
    }

private:
    void StartFade(const Settings& settings) {
        if (settings == *current_) return;
        target_ = settings;
        fadePosition_ = 0;
    }
    float Mix(float from, float to) const {
        if (fadePosition_ < 0) return from;
        return from +
               (to - from) / static_cast<float>(fadeFrames_) * static_cast<float>(fadePosition_);
    }
    /// The settings of a channel; wider layouts take the left ones, but for the level of channel 1.
    Side Of(const Settings& settings, std::size_t channel) const {
        Side side = settings.sides[channels_ == 2 ? channel : 0];
        if (channels_ > 2 && channel == 1 && settings.bounce) side.level = settings.sides[1].level;
        return side;
    }
    float At(std::size_t channel, int delay) const {
        const auto size = ring_[0].size();
        return ring_[channel][(write_ + size - static_cast<std::size_t>(delay)) % size];
    }
    float ReadTaps(std::size_t channel) const {
        const Side from = Of(*current_, channel);
        const Side to = Of(*target_, channel);
        if (fadePosition_ < 0) return At(channel, from.delay) * from.feedback;
        return At(channel, from.delay) * Mix(from.feedback, 0.0f) +
               At(channel, to.delay) * Mix(0.0f, to.feedback);
    }
    float Equalize(std::size_t channel, float x) {
        if (!enabled_) return x;
        double out = static_cast<double>(x) * static_cast<double>(gains_[7]);
        double input = x;
        for (std::size_t k = 0; k < 7; ++k) {
            Stage& stage = stages_[channel][k];
            const std::size_t length = std::size_t{2} << k;
            stage.sum = stage.sum - stage.past[stage.index] + input;
            stage.past[stage.index] = input;
            stage.index = (stage.index + 1) % length;
            const double mean = stage.sum / static_cast<double>(length);
            out += mean * (static_cast<double>(gains_[6 - k]) - static_cast<double>(gains_[7 - k]));
            input = mean;
        }
        return static_cast<float>(out);
    }

    struct Stage {
        std::array<double, 128> past{};
        std::size_t index = 0;
        double sum = 0.0;
    };
    std::size_t channels_;
    int rateHz_;
    int fadeFrames_ = rateHz_ / 10;
    std::vector<std::vector<float>> ring_;
    std::vector<std::array<Stage, 7>> stages_;
    std::size_t write_ = 0;
    std::optional<Settings> current_;
    std::optional<Settings> target_;
    std::optional<Settings> waiting_;
    int fadePosition_ = -1;
    std::array<float, 8> gains_{};
    bool enabled_ = false;
};

}  // namespace zuc::components
