#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace dsp {

/// The last samples of one channel as one plain array, however far back they reach: for filters and
/// for delays that read before what they just wrote.
///
/// New samples go behind the old ones; when the array is full, the history moves to its front, which
/// costs at most four copied samples for each new one.
class SlidingBuffer {
public:
    /// Room for a history of `historyFrames` and pieces of up to `pieceFrames`, all silence. [host]
    void Prepare(std::size_t historyFrames, std::size_t pieceFrames) {
        history_ = historyFrames;
        const std::size_t room = std::max({pieceFrames, historyFrames / 4, kLeastRoom});
        samples_.assign(historyFrames + room, 0.0f);
        end_ = historyFrames;
    }
    /// Silence. [audio]
    void Reset() {
        std::fill_n(samples_.begin(), history_, 0.0f);
        end_ = history_;
    }
    /// The place of the next `frames` samples, which the caller fills; at least the whole history
    /// stands before it. [audio]
    float* Append(std::size_t frames) {
        if (end_ + frames > samples_.size()) {
            std::copy(samples_.data() + end_ - history_, samples_.data() + end_, samples_.data());
            end_ = history_;
        }
        float* place = samples_.data() + end_;
        end_ += frames;
        return place;
    }

private:
    static constexpr std::size_t kLeastRoom = 4096;  // frames

    std::vector<float> samples_;
    std::size_t history_ = 0;
    std::size_t end_ = 0;  // behind the newest sample
};

}  // namespace dsp
