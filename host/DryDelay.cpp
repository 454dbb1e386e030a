#include "host/DryDelay.h"

#include <algorithm>

namespace zuc::host {

void DryDelay::Prepare(std::size_t channels, int mostDelayFrames, int pieceFrames) {
    mostDelayFrames_ = mostDelayFrames;
    ringFrames_ = static_cast<std::size_t>(mostDelayFrames + pieceFrames);
    position_ = 0;
    rings_.assign(channels, std::vector<float>(ringFrames_, 0.0f));
}

void DryDelay::Reset() {
    for (std::vector<float>& ring : rings_) std::fill(ring.begin(), ring.end(), 0.0f);
}

void DryDelay::Write(const float* const* in, int frames) {
    const auto count = static_cast<std::size_t>(frames);
    const std::size_t first = std::min(count, ringFrames_ - position_);
    for (std::size_t c = 0; c < rings_.size(); ++c) {
        std::copy_n(in[c], first, rings_[c].data() + position_);
        std::copy_n(in[c] + first, count - first, rings_[c].data());
    }
    position_ = (position_ + count) % ringFrames_;
}

void DryDelay::Read(std::size_t channel, float* out, int delayFrames, int frames) const {
    const auto count = static_cast<std::size_t>(frames);
    const auto delay = static_cast<std::size_t>(std::clamp(delayFrames, 0, mostDelayFrames_));
    const std::size_t begin = (position_ + ringFrames_ - count - delay) % ringFrames_;
    const std::size_t first = std::min(count, ringFrames_ - begin);
    std::copy_n(rings_[channel].data() + begin, first, out);
    std::copy_n(rings_[channel].data(), count - first, out + first);
}

}  // namespace zuc::host
