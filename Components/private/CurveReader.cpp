#include "Components/CurveReader.h"

#include <algorithm>
#include <array>
#include <limits>

namespace zuc {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
/// Between keyframes this far apart a spline differs from its 16-frame chords by less than 5e-5 of the
/// difference of their values (the second derivative of a monotone cubic is at most 6 / distance^2).
constexpr std::int64_t kSparseSplineFrames = 2048;

std::int64_t NextTime(const KeyframeContainer& curve, std::int64_t time) {
    Keyframe next;
    return curve.GetNextKeyframe(time, next) ? next.time : kNever;
}

/// The first frame after `start` at which a hold ends, else `end`.
std::int64_t FindStep(const KeyframeContainer& curve, std::int64_t start, std::int64_t end) {
    Keyframe before;
    bool holds = curve.GetPrevKeyframe(start + 1, before) && before.hold;
    for (Keyframe next{0.0f, start}; curve.GetNextKeyframe(next.time, next) && next.time < end;) {
        if (holds) return next.time;
        holds = next.hold;
    }
    return end;
}

/// Whether the curve has one value from `start` to before `end`, where no hold ends in between.
bool IsLevel(const KeyframeContainer& curve, std::int64_t start, std::int64_t end) {
    Keyframe before;
    Keyframe after;
    const bool isAfterOne = curve.GetPrevKeyframe(start + 1, before);
    const bool isBeforeOne = curve.GetNextKeyframe(start, after);
    if (!isAfterOne || !isBeforeOne) return !isBeforeOne || after.time >= end;
    return before.hold && after.time >= end;
}

}  // namespace

CurveReader::Piece CurveReader::Read(const KeyframeContainer& curve,
                                     std::int64_t start,
                                     int frames,
                                     float* values) {
    const auto lock = curve.TryGetLock();
    if (!lock) {
        wasBusy_ = true;
        values[0] = last_;
        return {std::min(frames, kStepFrames), true, Join::kSmooth};
    }
    const Join join = FindJoin(curve, start);
    isFirst_ = wasBusy_ = false;
    revision_ = curve.GetRevision();

    const auto count = static_cast<int>(FindStep(curve, start, start + frames) - start);
    const bool isLevel = IsLevel(curve, start, start + count);
    if (isLevel)
        curve.GetValues(start, 1, values);
    else
        Fill(curve, start, count, values);
    last_ = values[isLevel ? 0 : count - 1];
    return {count, isLevel, join};
}

CurveReader::Join CurveReader::FindJoin(const KeyframeContainer& curve, std::int64_t start) const {
    if (isFirst_) return Join::kSmooth;
    if (wasBusy_ || curve.GetRevision() != revision_) return Join::kEdited;
    Keyframe before;
    const bool ends =
        curve.HasKeyframeAt(start) && curve.GetPrevKeyframe(start, before) && before.hold;
    return ends ? Join::kStep : Join::kSmooth;
}

void CurveReader::Fill(const KeyframeContainer& curve,
                       std::int64_t start,
                       int frames,
                       float* values) const {
    if (everyFrame_) {
        curve.GetValues(start, frames, values);
        return;
    }
    constexpr std::int64_t kStep = kStepFrames;
    const std::int64_t end = start + frames;
    std::int64_t from = start - ((start % kStep) + kStep) % kStep;
    std::array<float, kMaxFrames / kStepFrames + 2> grid;
    curve.TryGetValues(from, kStep, (end - from + kStep - 1) / kStep + 1, grid.data());

    const bool isSpline = curve.CanShowSplines();
    std::int64_t nextTime = from;  // the first keyframe after `from`, once it is looked up
    bool isDense = false;
    for (const float* ends = grid.data(); from < end; from += kStep, ++ends) {
        if (nextTime <= from) {
            nextTime = NextTime(curve, from);
            Keyframe before;
            isDense = isSpline && curve.GetPrevKeyframe(from + 1, before) &&
                      nextTime - before.time < kSparseSplineFrames;
        }
        const std::int64_t first = std::max(from, start);
        const std::int64_t last = std::min(from + kStep, end);
        float* out = values + (first - start);
        if (isDense || nextTime <= from + kStep) {
            curve.GetValues(first, last - first, out);
            continue;
        }
        const float slope = (ends[1] - ends[0]) / static_cast<float>(kStep);
        for (std::int64_t i = first - from; i < last - from; ++i)
            *out++ = ends[0] + slope * static_cast<float>(i);
    }
}

}  // namespace zuc
