#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace dsp {

/// The last samples of some channels: one ring of floats each, all written at the same place.
///
/// A delay counts back from the place that is written next: the newest sample has delay 1, the oldest
/// delay GetFrames(). Work goes in runs of consecutive frames in which neither the place written nor
/// any tap passes the end of its ring, so that all of them are plain arrays. A reader that comes
/// before the writer (one that feeds back what it reads) must also keep a run no longer than its
/// shortest delay; a writer that comes first must leave the run's length of room, that is keep
/// delays at GetFrames() less the run or below.
class DelayLine {
public:
    /// Makes room for `frames` frames, at least 1, of silence. [host]
    void Prepare(std::size_t channels, int frames) {
        frames_ = std::max(frames, 1);
        samples_.assign(channels * static_cast<std::size_t>(frames_), 0.0f);
        writeFrame_ = 0;
    }
    /// All silence again. [audio]
    void Reset() {
        std::fill(samples_.begin(), samples_.end(), 0.0f);
        writeFrame_ = 0;
    }
    int GetFrames() const { return frames_; }

    /// `frames`, or less when the tap with that delay, from 1 to GetFrames(), or the place written
    /// reaches the end of its ring before. [audio]
    int LimitRun(int frames, int delayFrames) const {
        return std::min({frames, frames_ - TapFrame(delayFrames), frames_ - writeFrame_});
    }
    /// The samples written `delayFrames` ago and after, for one run. [audio]
    const float* Tap(std::size_t channel, int delayFrames) const {
        return samples_.data() + Offset(channel, TapFrame(delayFrames));
    }
    /// Where the next run's samples go. [audio]
    float* WritePlace(std::size_t channel) {
        return samples_.data() + Offset(channel, writeFrame_);
    }
    /// Ends a run: moves the place that is written. [audio]
    void Advance(int frames) {
        writeFrame_ += frames;
        if (writeFrame_ == frames_) writeFrame_ = 0;
    }

private:
    int TapFrame(int delayFrames) const {
        const int frame = writeFrame_ - delayFrames;
        return frame < 0 ? frame + frames_ : frame;
    }
    std::size_t Offset(std::size_t channel, int frame) const {
        return channel * static_cast<std::size_t>(frames_) + static_cast<std::size_t>(frame);
    }

    int frames_ = 1;
    int writeFrame_ = 0;
    std::vector<float> samples_;  // channels x frames
};

}  // namespace dsp
