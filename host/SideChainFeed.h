#pragma once

#include <cstddef>
#include <vector>

namespace zuc::host {

/// What one effect of a chain hears on its side chain: as late as the audio reaches it behind the
/// effects before.
class SideChainFeed {
public:
    void Prepare(std::size_t channels, int delayFrames, int maximumBlockFrames);  // [host]
    /// Takes the next `frames` frames of every channel and sets `out[k]` to what is due. [audio]
    void Take(const float* const* side, int frames, float** out);

private:
    int delayFrames_ = 0;
    int takenFrames_ = 0;                       // of the block before, which still has to make room
    std::vector<std::vector<float>> channels_;  // the delay, then one block
};

}  // namespace zuc::host
