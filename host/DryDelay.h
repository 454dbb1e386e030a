#pragma once

#include <cstddef>
#include <vector>

namespace zuc::host {

/// Keeps the input of an effect for as long as the effect's latency, so that both can be heard in time.
class DryDelay {
public:
    /// For delays of 0 to `mostDelayFrames` and writes of at most `pieceFrames`. [host]
    void Prepare(std::size_t channels, int mostDelayFrames, int pieceFrames);
    void Reset();  // to silence [audio]

    /// Appends `in[c][i]`. [audio]
    void Write(const float* const* in, int frames);
    /// The `frames` frames last written to a channel, as they were `delayFrames` earlier; one of the two
    /// parts of the ring may be empty. [audio]
    void Read(std::size_t channel, float* out, int delayFrames, int frames) const;

    int GetMostDelayFrames() const { return mostDelayFrames_; }

private:
    int mostDelayFrames_ = 0;
    std::size_t ringFrames_ = 0;
    std::size_t position_ = 0;               // of the next write
    std::vector<std::vector<float>> rings_;  // one per channel
};

}  // namespace zuc::host
