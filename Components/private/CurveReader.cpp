#include "Components/CurveReader.h"

#include <algorithm>
#include <array>
#include <limits>

#include "kraaudiodsp/vector/CurveOps.h"

namespace zuc {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
/// Between keyframes this far apart a spline differs from its 16-frame chords by less than 5e-5 of the
/// difference of their values (the second derivative of a monotone cubic is at most 6 / distance^2).
constexpr std::int64_t kSparseSplineFrames = 2048;

/// Lines are taken up anew so many frames apart, counted from their first keyframe.
constexpr std::int64_t kLineFrames = 256;

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

/// Frames from `from` to before `to` of the line between keyframes `a` and `b`.
void FillLine(
    const Keyframe& a, const Keyframe& b, std::int64_t from, std::int64_t to, float* out) {
    const double slope =
        (static_cast<double>(b.value) - a.value) / static_cast<double>(b.time - a.time);
    while (from < to) {
        const std::int64_t done = (from - a.time) % kLineFrames;
        const std::int64_t count = std::min(to - from, kLineFrames - done);
        const auto base =
            static_cast<float>(a.value + slope * static_cast<double>(from - a.time - done));
        dsp::vector::Line(out, base, static_cast<float>(slope), static_cast<int>(done),
                          static_cast<std::size_t>(count));
        out += count;
        from += count;
    }
}

/// Frames from `from` to before `to` of a spline, which has its next keyframe not before `to`.
void FillSpline(const KeyframeContainer& curve,
                const Neighbours& neighbours,
                std::int64_t from,
                std::int64_t to,
                float* out) {
    constexpr std::int64_t kStep = CurveReader::kStepFrames;
    const std::int64_t first = neighbours.hasBefore ? neighbours.before.time : kNever;
    const std::int64_t last = neighbours.hasAfter ? neighbours.after.time : kNever;
    if (first != kNever && last != kNever && last - first < kSparseSplineFrames) {
        curve.GetValues(from, to - from, out);
        return;
    }
    std::array<float, CurveReader::kMaxFrames / kStep + 2> grid{};
    std::int64_t step = from - ((from % kStep) + kStep) % kStep;
    curve.TryGetValues(step, kStep, (to - step + kStep - 1) / kStep + 1, grid.data());
    for (const float* ends = grid.data(); step < to; step += kStep, ++ends) {
        const std::int64_t begin = std::max(from, step);
        const std::int64_t count = std::min(to, step + kStep) - begin;
        if (last <= step + kStep || (first != kNever && first > step))
            curve.GetValues(begin, count, out);
        else
            dsp::vector::Line(out, ends[0], (ends[1] - ends[0]) / static_cast<float>(kStep),
                              static_cast<int>(begin - step), static_cast<std::size_t>(count));
        out += count;
    }
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
    const bool isSpline = curve.CanShowSplines();
    const std::int64_t end = start + frames;
    for (std::int64_t from = start; from < end;) {
        const Neighbours neighbours(curve, from);
        const std::int64_t to = neighbours.hasAfter ? std::min(neighbours.after.time, end) : end;
        float* out = values + (from - start);
        if (isSpline)
            FillSpline(curve, neighbours, from, to, out);
        else if (neighbours.hasBefore && neighbours.hasAfter && !neighbours.before.hold)
            FillLine(neighbours.before, neighbours.after, from, to, out);
        else
            std::fill_n(out, to - from, curve.GetValue(from));
        from = to;
    }
}

}  // namespace zuc
