#include "host/AudioSource.h"

#include <algorithm>

namespace zuc::host {

SilentSource::SilentSource(int rateHz, int channels, std::int64_t frames) {
    info_.rateHz = rateHz;
    info_.channels = channels;
    info_.frames = frames;
    info_.format = "none";
    info_.encoding = "silence";
    info_.bits = 32;
    info_.isFloat = true;
}

int SilentSource::Read(float* const* out, int frames) {
    const auto count = static_cast<int>(std::min<std::int64_t>(frames, info_.frames - position_));
    for (int c = 0; c < info_.channels; ++c) std::fill_n(out[c], count, 0.0f);
    position_ += count;
    return count;
}

}  // namespace zuc::host
