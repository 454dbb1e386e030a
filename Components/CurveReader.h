#pragma once

#include <cstdint>

#include "Components/KeyframeContainer.h"
#include "kracore/Export.h"

namespace zuc {

/// Reads a curve on the audio thread, frame by frame and without waiting.
///
/// Lines are taken every 256 frames from their keyframe on and filled in linearly. Splines are taken so
/// every 16 frames, at frames that are multiples of 16; where there is a keyframe within the 16, or
/// keyframes are less than 2048 frames apart, frame by frame. What is read for a frame does not depend on where a read
/// began. While an editor has the curve, the last value goes on for 16 frames at a time.
class ZUC_API CurveReader {
public:
    static constexpr int kStepFrames = 16;
    static constexpr int kMaxFrames = 1024;  // of one read

    /// How a piece follows the one before.
    enum class Join {
        kSmooth,  // as the curve runs, or the first piece after Reset
        kStep,    // a hold ends here
        kEdited   // the curve is another one now
    };
    struct Piece {
        int frames;    // read: at least 1, at most as many as asked for
        bool isLevel;  // all are values[0], the rest is not written
        Join join;
    };

    /// `initial` stands in for a curve that is busy at the first read; `everyFrame` is for curves whose
    /// InterpolateValue is no straight line.
    explicit CurveReader(float initial, bool everyFrame = false)
        : everyFrame_(everyFrame), last_(initial) {}

    /// Values from frame `start` on, up to the end of a hold; at most `frames`, which is at least 1 and
    /// at most kMaxFrames. [audio]
    Piece Read(const KeyframeContainer& curve, std::int64_t start, int frames, float* values);
    /// The next piece follows none. [audio]
    void Reset() { isFirst_ = true; }

private:
    void Fill(const KeyframeContainer& curve, std::int64_t start, int frames, float* values) const;

    bool everyFrame_;
    bool isFirst_ = true;
    bool wasBusy_ = false;
    std::uint64_t revision_ = 0;
    float last_;
};

}  // namespace zuc
