#include "Components/private/KeyframeEdit.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zuc {
namespace {

constexpr double kStraightTolerance = 1e-6;

Keyframe At(std::int64_t time) { return {0.0f, time}; }

/// Which slopes from a keyframe that stays pass every keyframe left out so far within the tolerance.
struct SlopeRange {
    double lowest = -std::numeric_limits<double>::infinity();
    double highest = std::numeric_limits<double>::infinity();

    static double Slope(const Keyframe& from, const Keyframe& to, double offset) {
        return (static_cast<double>(to.value) + offset - from.value) /
               (static_cast<double>(to.time) - static_cast<double>(from.time));
    }
    SlopeRange WithLeftOut(const Keyframe& anchor, const Keyframe& out) const {
        return {std::max(lowest, Slope(anchor, out, -kStraightTolerance)),
                std::min(highest, Slope(anchor, out, kStraightTolerance))};
    }
    bool Allows(const Keyframe& anchor, const Keyframe& next) const {
        const double slope = Slope(anchor, next, 0.0);
        return slope >= lowest && slope <= highest;
    }
};

}  // namespace

/// Inserts or overwrites; the place in the set stays the keyframe's time.
void KeyframeContainer::Put(Edit& edit, const Keyframe& keyframe) {
    if (!std::isfinite(keyframe.value)) return;
    edit.MarkChanged();
    const auto [found, isNew] = state_.keyframes.insert(keyframe);
    if (isNew) return;
    auto node = state_.keyframes.extract(found);
    node.value() = keyframe;
    state_.keyframes.insert(std::move(node));
}

/// Replaces the values of first..last, in place, by what `change` makes of them.
template <class Change>
void KeyframeContainer::ChangeValues(ConstIterator first, ConstIterator last, Change&& change) {
    Edit edit(*this);
    while (first != last) {
        const auto next = std::next(first);
        const float value = change(first->value);
        if (value != first->value) {
            auto node = state_.keyframes.extract(first);
            node.value().value = value;
            state_.keyframes.insert(next, std::move(node));
            edit.MarkChanged();
        }
        first = next;
    }
}

void KeyframeContainer::InsertKeyframe(const Keyframe& keyframe) {
    Edit edit(*this);
    Put(edit, keyframe);
}

void KeyframeContainer::InsertKeyframe(std::int64_t time, float value, bool hold, bool flag) {
    InsertKeyframe(Keyframe{value, time, hold, flag});
}

void KeyframeContainer::InsertKeyframeAt(std::int64_t time, bool hold, bool flag) {
    const Edit edit(*this);
    InsertKeyframe(time, Evaluate(time), hold, flag);
}

void KeyframeContainer::RemoveKeyframe(const Keyframe& keyframe) {
    RemoveKeyframeAt(keyframe.time);
}

void KeyframeContainer::RemoveKeyframeAt(std::int64_t time) {
    Edit edit(*this);
    if (state_.keyframes.erase(At(time)) != 0) edit.MarkChanged();
}

void KeyframeContainer::RemoveKeyframes(std::int64_t from, std::int64_t to, bool shiftLater) {
    Edit edit(*this);
    edit.MarkChanged();
    if (from > to) return;
    auto& keyframes = state_.keyframes;
    const auto later =
        keyframes.erase(keyframes.lower_bound(At(from)), keyframes.upper_bound(At(to)));
    if (!shiftLater) return;
    // The gap may exceed what a signed number holds; the moved time never does.
    const std::uint64_t gap = static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from);
    for (auto keyframe = later; keyframe != keyframes.end();) {
        auto node = keyframes.extract(keyframe++);
        node.value().time =
            static_cast<std::int64_t>(static_cast<std::uint64_t>(node.value().time) - gap);
        keyframes.insert(keyframe, std::move(node));
    }
}

void KeyframeContainer::MergeKeyframes(const KeyframeSet& keyframes) {
    Edit edit(*this);
    for (const Keyframe& keyframe : keyframes) Put(edit, keyframe);
}

void KeyframeContainer::CleanupKeyframes(std::int64_t from, std::int64_t to) {
    Edit edit(*this);
    auto& keyframes = state_.keyframes;
    auto keyframe = keyframes.lower_bound(At(from));
    if (keyframe == keyframes.begin() && keyframe != keyframes.end()) ++keyframe;
    if (keyframe == keyframes.end()) return;
    auto anchor = std::prev(keyframe);
    SlopeRange slopes;
    while (std::next(keyframe) != keyframes.end() && keyframe->time <= to) {
        const auto next = std::next(keyframe);
        const auto narrowed = slopes.WithLeftOut(*anchor, *keyframe);
        const bool isLine = !keyframe->hold && narrowed.Allows(*anchor, *next);
        const bool isHold = keyframe->hold && std::fabs(static_cast<double>(keyframe->value) -
                                                        anchor->value) <= kStraightTolerance;
        if (anchor->hold ? isHold : isLine) {
            slopes = narrowed;
            keyframes.erase(keyframe);
            edit.MarkChanged();
        } else {
            anchor = keyframe;
            slopes = {};
        }
        keyframe = next;
    }
}

void KeyframeContainer::OffsetKeyframes(float delta, std::int64_t from, std::int64_t to) {
    if (delta == 0.0f || std::isnan(delta) || from > to) return;
    const Edit edit(*this);
    ChangeValues(state_.keyframes.lower_bound(At(from)), state_.keyframes.upper_bound(At(to)),
                 [delta](float value) { return std::clamp(value + delta, 0.0f, 1.0f); });
}

void KeyframeContainer::BoostKeyframes(float db) {
    if (std::isnan(db)) return;
    const Edit edit(*this);
    const double gain = std::pow(10.0, db / 20.0);
    ChangeValues(Begin(), End(), [gain](float value) {
        return value == 0.0f ? value : static_cast<float>(std::min(1.0, value * gain));
    });
}

void KeyframeContainer::Flatten(float value) {
    if (!std::isfinite(value)) return;
    Edit edit(*this);
    if (state_.keyframes.empty() && state_.defaultValue == value) return;
    state_.keyframes.clear();
    state_.defaultValue = value;
    edit.MarkChanged();
}

void KeyframeContainer::Clear() {
    Edit edit(*this);
    if (state_.keyframes.empty()) return;
    state_.keyframes.clear();
    edit.MarkChanged();
}

void KeyframeContainer::SetKeyframes(const KeyframeSet& keyframes, bool notify) {
    {
        Edit edit(*this);
        Clear();
        MergeKeyframes(keyframes);
    }
    if (notify) SendKeyframesChangedSignal(true);
}

void KeyframeContainer::SetDefaultValue(float value) {
    {
        Edit edit(*this);
        if (bulkUpdate_ || !std::isfinite(value) || value == state_.defaultValue) return;
        state_.defaultValue = value;
        edit.MarkChanged();
    }
    if (signals_->isWatched) signals_->defaultChanged(this);
}

void KeyframeContainer::EnableSplines(bool on) {
    {
        Edit edit(*this);
        if (on == state_.splinesEnabled) return;
        state_.splinesEnabled = on;
        edit.MarkChanged();
    }
    SendKeyframesChangedSignal(true);
}

void KeyframeContainer::SetSampleRange(std::int64_t left, std::int64_t width) {
    {
        Edit edit(*this);
        if (left == state_.sampleLeft && width == state_.sampleWidth) return;
        state_.sampleLeft = left;
        state_.sampleWidth = width;
        edit.MarkChanged();
        if (!state_.splinesEnabled) return;
    }
    SendKeyframesChangedSignal(true);
}

void KeyframeContainer::Dispose() {
    signals_->defaultChanged.disconnect_all_slots();
    signals_->keyframesChanged.disconnect_all_slots();
    Clear();
}

void KeyframeContainer::SetBulkUpdate(bool on) {
    const Edit edit(*this);
    bulkUpdate_ = on;
}

}  // namespace zuc
