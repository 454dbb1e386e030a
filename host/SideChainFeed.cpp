#include "host/SideChainFeed.h"

#include <algorithm>

namespace zuc::host {

void SideChainFeed::Prepare(std::size_t channels, int delayFrames, int maximumBlockFrames) {
    delayFrames_ = delayFrames;
    takenFrames_ = 0;
    channels_.assign(
        channels, std::vector<float>(static_cast<std::size_t>(delayFrames + maximumBlockFrames)));
}

void SideChainFeed::Take(const float* const* side, int frames, float** out) {
    for (std::size_t k = 0; k < channels_.size(); ++k) {
        float* samples = channels_[k].data();
        std::copy_n(samples + takenFrames_, delayFrames_, samples);
        std::copy_n(side[k], frames, samples + delayFrames_);
        out[k] = samples;
    }
    takenFrames_ = frames;
}

}  // namespace zuc::host
