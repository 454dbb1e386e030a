#include "Components/KeyframeContainer.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "Components/private/KeyframeEdit.h"
#include "kraaudiodsp/CBezier.h"

namespace zuc {
namespace {

using Lock = std::lock_guard<kracore::threads::RecursiveMutex>;

Keyframe At(std::int64_t time) { return {0.0f, time}; }

/// later - earlier, exact for any two times.
std::uint64_t Distance(std::int64_t earlier, std::int64_t later) {
    return static_cast<std::uint64_t>(later) - static_cast<std::uint64_t>(earlier);
}

bool CopyFound(KeyframeSet::const_iterator found, const KeyframeSet& set, Keyframe& keyframe) {
    if (found == set.end()) return false;
    keyframe = *found;
    return true;
}

bool CopyEnds(const Keyframe& keyframe, std::int64_t* time, float* value) {
    if (time) *time = keyframe.time;
    if (value) *value = keyframe.value;
    return true;
}

}  // namespace

// ---- Life ----

KeyframeContainer::KeyframeContainer(float defaultValue) : signals_(std::make_unique<Signals>()) {
    state_.defaultValue = defaultValue;
}

KeyframeContainer::KeyframeContainer(const KeyframeContainer& other)
    : RefCountedObject(other), state_(other.CopyState()), signals_(std::make_unique<Signals>()) {
    AdjustForBezier();
}

KeyframeContainer& KeyframeContainer::operator=(const KeyframeContainer& other) {
    if (this == &other) return *this;
    // Copied before the own lock is taken: two containers assigned to each other must not deadlock.
    State state = other.CopyState();
    Edit edit(*this);
    const bool modified = state.modified;
    state_ = std::move(state);
    edit.MarkChanged();
    state_.modified = modified;
    return *this;
}

KeyframeContainer::~KeyframeContainer() = default;

KeyframeContainer::State KeyframeContainer::CopyState() const {
    const Lock lock(mutex_);
    return state_;
}

// ---- Queries ----

std::unique_lock<kracore::threads::RecursiveMutex> KeyframeContainer::GetLock() const {
    return std::unique_lock(mutex_);
}

std::unique_lock<kracore::threads::RecursiveMutex> KeyframeContainer::TryGetLock() const {
    return std::unique_lock(mutex_, std::try_to_lock);
}

std::size_t KeyframeContainer::GetCount() const {
    const Lock lock(mutex_);
    return state_.keyframes.size();
}

bool KeyframeContainer::GetKeyframe(std::int64_t time, Keyframe& keyframe) const {
    const Lock lock(mutex_);
    return CopyFound(state_.keyframes.find(At(time)), state_.keyframes, keyframe);
}

Keyframe KeyframeContainer::GetKeyframe(std::int64_t time, float otherwise) const {
    Keyframe keyframe{otherwise, time};
    GetKeyframe(time, keyframe);
    return keyframe;
}

bool KeyframeContainer::HasKeyframeAt(std::int64_t time) const {
    const Lock lock(mutex_);
    return state_.keyframes.contains(At(time));
}

bool KeyframeContainer::GetFirstKeyframe(std::int64_t* time, float* value) const {
    const Lock lock(mutex_);
    return !state_.keyframes.empty() && CopyEnds(*Begin(), time, value);
}

bool KeyframeContainer::GetLastKeyframe(std::int64_t* time, float* value) const {
    const Lock lock(mutex_);
    return !state_.keyframes.empty() && CopyEnds(*RBegin(), time, value);
}

bool KeyframeContainer::GetNextKeyframe(std::int64_t time, Keyframe& keyframe) const {
    const Lock lock(mutex_);
    return CopyFound(state_.keyframes.upper_bound(At(time)), state_.keyframes, keyframe);
}

bool KeyframeContainer::GetPrevKeyframe(std::int64_t time, Keyframe& keyframe) const {
    const Lock lock(mutex_);
    const auto found = state_.keyframes.lower_bound(At(time));
    return found != Begin() && CopyFound(std::prev(found), state_.keyframes, keyframe);
}

void KeyframeContainer::GetKeyframes(KeyframeSet& keyframes) const {
    const Lock lock(mutex_);
    keyframes = state_.keyframes;
}

void KeyframeContainer::GetKeyframes(KeyframeSet& keyframes,
                                     std::int64_t from,
                                     std::int64_t to) const {
    keyframes.clear();
    if (from > to) return;
    const Lock lock(mutex_);
    keyframes.insert(state_.keyframes.lower_bound(At(from)), state_.keyframes.upper_bound(At(to)));
}

void KeyframeContainer::GetTrimmedKeyframes(std::int64_t from,
                                            std::int64_t to,
                                            KeyframeSet& keyframes) const {
    const Lock lock(mutex_);
    GetKeyframes(keyframes, from, to);
    if (state_.keyframes.empty() || from > to) return;
    for (const std::int64_t end : {from, to}) {
        Keyframe before;
        const bool isHeld = GetPrevKeyframe(end, before) && before.hold;
        keyframes.insert({Evaluate(end), end, isHeld, false});  // one that stands there stays
    }
}

bool KeyframeContainer::HasSameKeyframes(const KeyframeContainer& other) const {
    KeyframeSet others;
    other.GetKeyframes(others);
    const Lock lock(mutex_);
    return state_.keyframes == others;
}

float KeyframeContainer::GetDefaultValue() const {
    const Lock lock(mutex_);
    return state_.defaultValue;
}

bool KeyframeContainer::AreSplinesEnabled() const {
    const Lock lock(mutex_);
    return state_.splinesEnabled;
}

bool KeyframeContainer::CanShowSplines() const {
    const Lock lock(mutex_);
    return HasSpline();
}

std::int64_t KeyframeContainer::GetSampleLeft() const {
    const Lock lock(mutex_);
    return state_.sampleLeft;
}

std::int64_t KeyframeContainer::GetSampleWidth() const {
    const Lock lock(mutex_);
    return state_.sampleWidth;
}

bool KeyframeContainer::IsModified() const {
    const Lock lock(mutex_);
    return state_.modified;
}

void KeyframeContainer::SetModified(bool modified) {
    const Lock lock(mutex_);
    state_.modified = modified;
}

bool KeyframeContainer::IsReadOnly() const {
    const Lock lock(mutex_);
    return state_.readOnly;
}

void KeyframeContainer::SetReadOnly(bool readOnly) {
    const Lock lock(mutex_);
    state_.readOnly = readOnly;
}

unsigned long KeyframeContainer::GetType() const {
    const Lock lock(mutex_);
    return state_.type;
}

void KeyframeContainer::SetType(unsigned long type) {
    const Lock lock(mutex_);
    state_.type = type;
}

WStr KeyframeContainer::GetName() const {
    const Lock lock(mutex_);
    return state_.name;
}

void KeyframeContainer::SetName(const WStr& name) {
    const Lock lock(mutex_);
    state_.name = name;
}

// ---- Evaluation ----

float KeyframeContainer::GetValue(std::int64_t time) const {
    const Lock lock(mutex_);
    return Evaluate(time);
}

bool KeyframeContainer::GetValues(std::int64_t start, std::int64_t count, float* out) const {
    if (count <= 0) return false;
    const Lock lock(mutex_);
    EvaluateSteps(start, 1, count, out);
    return true;
}

bool KeyframeContainer::TryGetValues(std::int64_t start,
                                     std::int64_t step,
                                     std::int64_t count,
                                     float* out) const {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock) return false;
    EvaluateSteps(start, step, count, out);
    return true;
}

float KeyframeContainer::InterpolateValue(const Keyframe& a,
                                          const Keyframe& b,
                                          const std::int64_t& time) const {
    const double way =
        static_cast<double>(Distance(a.time, time)) / static_cast<double>(Distance(a.time, b.time));
    const double from = a.value;
    return static_cast<float>(from + (static_cast<double>(b.value) - from) * way);
}

float KeyframeContainer::Evaluate(std::int64_t time) const {
    float value = 0.0f;
    EvaluateSteps(time, 1, 1, &value);
    return value;
}

/// The value at `time`, where `next` is the first keyframe not before it.
float KeyframeContainer::EvaluateBefore(ConstIterator next, std::int64_t time) const {
    if (next == End()) return RBegin()->value;
    if (next == Begin() || next->time == time) return next->value;
    const Keyframe& before = *std::prev(next);
    return before.hold ? before.value : InterpolateValue(before, *next, time);
}

void KeyframeContainer::EvaluateSteps(std::int64_t start,
                                      std::int64_t step,
                                      std::int64_t count,
                                      float* out) const {
    if (HasSpline()) {
        spline_->GetBeziers(static_cast<double>(start), static_cast<double>(step),
                            static_cast<int>(count), out);
        return;
    }
    if (state_.keyframes.size() < 2) {
        std::fill_n(out, count, IsEmpty() ? state_.defaultValue : Begin()->value);
        return;
    }
    auto next = state_.keyframes.lower_bound(At(start));
    for (std::int64_t i = 0; i < count; ++i) {
        const std::int64_t time = start + i * step;
        while (next != End() && next->time < time) ++next;
        out[i] = EvaluateBefore(next, time);
    }
}

void KeyframeContainer::AdjustForBezier() {
    needsFit_ = false;
    if (!HasSpline()) {
        spline_.reset();
        return;
    }
    std::vector<double> points;  // time and value in turn
    points.reserve(4 * state_.keyframes.size());
    const auto add = [&points](std::int64_t time, float value) {
        points.push_back(static_cast<double>(time));
        points.push_back(static_cast<double>(value));
    };
    for (auto keyframe = Begin(); keyframe != End(); ++keyframe) {
        add(keyframe->time, keyframe->value);
        const auto next = std::next(keyframe);
        if (keyframe->hold && next != End()) add(next->time - 1, keyframe->value);
    }
    if (!spline_) spline_ = std::make_unique<dsp::CBezier>();
    spline_->SetPoints(static_cast<int>(points.size() / 2), points.data());
}

// ---- Signals ----

KeyframeContainer::Connection KeyframeContainer::OnDefaultChanged(const DefaultListener& listener) {
    return signals_->Connect(signals_->defaultChanged, listener);
}

KeyframeContainer::Connection KeyframeContainer::OnKeyframesChanged(
    const KeyframesListener& listener) {
    return signals_->Connect(signals_->keyframesChanged, listener);
}

void KeyframeContainer::SendKeyframesChangedSignal(bool wholeCurve) {
    if (signals_->isWatched) signals_->keyframesChanged(this, wholeCurve);
}

}  // namespace zuc
