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

constexpr auto kWay = [] {
    std::array<float, CurveReader::kStepFrames> way{};
    for (std::size_t i = 0; i < way.size(); ++i) way[i] = static_cast<float>(i);
    return way;
}();

std::int64_t NextTime(const KeyframeContainer& curve, std::int64_t time) {
    Keyframe next;
    return curve.GetNextKeyframe(time, next) ? next.time : kNever;
}

/// The keyframes around a frame: the last one not after it and the first one after it.
struct Neighbours {
    Neighbours(const KeyframeContainer& curve, std::int64_t frame)
        : hasBefore(curve.GetPrevKeyframe(frame + 1, before)),
          hasAfter(curve.GetNextKeyframe(frame, after)) {}

    Keyframe before;
    Keyframe after;
    bool hasBefore;
    bool hasAfter;
};

/// The first frame behind these neighbours at which a hold ends, else `end`.
std::int64_t FindStep(const KeyframeContainer& curve,
                      const Neighbours& neighbours,
                      std::int64_t end) {
    bool holds = neighbours.hasBefore && neighbours.before.hold;
    Keyframe next = neighbours.after;
    for (bool has = neighbours.hasAfter; has && next.time < end;
         has = curve.GetNextKeyframe(next.time, next)) {
        if (holds) return next.time;
        holds = next.hold;
    }
    return end;
}

/// Whether a hold ends at `frame`.
bool EndsHold(const KeyframeContainer& curve, const Neighbours& neighbours, std::int64_t frame) {
    Keyframe before;
    return neighbours.hasBefore && neighbours.before.time == frame &&
           curve.GetPrevKeyframe(frame, before) && before.hold;
}

/// Whether the curve has one value up to before `end`, where no hold ends in between.
bool IsLevel(const Neighbours& neighbours, std::int64_t end) {
    if (!neighbours.hasAfter) return true;
    const bool isFlat = !neighbours.hasBefore || neighbours.before.hold;
    return isFlat && neighbours.after.time >= end;
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
    const Neighbours neighbours(curve, start);
    Join join = Join::kSmooth;
    if (!isFirst_ && (wasBusy_ || curve.GetRevision() != revision_))
        join = Join::kEdited;
    else if (!isFirst_ && EndsHold(curve, neighbours, start))
        join = Join::kStep;
    isFirst_ = wasBusy_ = false;
    revision_ = curve.GetRevision();

    const auto count = static_cast<int>(FindStep(curve, neighbours, start + frames) - start);
    const bool isLevel = IsLevel(neighbours, start + count);
    if (isLevel)
        curve.GetValues(start, 1, values);
    else
        Fill(curve, start, count, values);
    last_ = values[isLevel ? 0 : count - 1];
    return {count, isLevel, join};
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
    std::array<float, kMaxFrames / kStepFrames + 2> grid{};
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
        const float* way = kWay.data() + (first - from);
        const auto count = static_cast<std::size_t>(last - first);
        for (std::size_t i = 0; i < count; ++i) out[i] = ends[0] + slope * way[i];
    }
}

}  // namespace zuc
