#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "kracore/Export.h"
#include "kracore/PropList.h"
#include "kracore/RefCounted.h"
#include "kracore/Threads.h"
#include "kracore/WStr.h"

namespace dsp {
class CBezier;
}

namespace zuc {

using kracore::WStr;

/// One point of a curve. Its time, in frames of the source, is its identity: it orders the keyframes
/// of a curve, which holds at most one for each time.
template <class Value>
struct KeyframeBase {
    Value value{};  // normalized in the curves of this library
    std::int64_t time = 0;
    bool hold = false;  // the value stays until the next keyframe instead of moving towards it
    bool flag = false;  // carried along for the owner of the curve

    bool operator<(const KeyframeBase& other) const { return time < other.time; }
    bool operator==(const KeyframeBase&) const = default;
};

using Keyframe = KeyframeBase<float>;
using KeyframeSet = std::set<Keyframe>;

/// A keyframe as effects hand it to the host, with what the effect has to say about it beside; the
/// effect's header names the keys of `details`.
struct LogicalKeyframe {
    Keyframe keyframe;
    kracore::proplist::PropList details;

    bool operator==(const LogicalKeyframe&) const = default;
};

class KeyframeContainer;  // NOLINT(cppcoreguidelines-virtual-class-destructor): as below
using KeyframeContainerPtr = boost::intrusive_ptr<KeyframeContainer>;

/// An automation curve: keyframes in the order of time, a default value for when there are none, and
/// splines on demand. Held by KeyframeContainerPtr, never on the stack.
///
/// Between two keyframes the curve is straight (InterpolateValue), from a hold keyframe it is level,
/// and outside the keyframes it is flat. With splines on and two keyframes or more it is the monotone
/// cubic spline through the keyframes, which never leaves the interval between two neighbours; a hold
/// keyframe counts as two points, the second one frame before the next keyframe.
///
/// Every operation holds the container's recursive lock from start to end and may so be called from
/// any thread. The audio thread goes through CurveReader, or calls queries and evaluation while it has
/// the lock by TryGetLock. Signals are sent by the thread that
/// made the change, after the change is complete and its own hold on the lock is released.
///
/// The modified flag is set by every operation that changed something, and by every insertion and
/// every RemoveKeyframes. The read-only flag is a note for editors and bars nothing here.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): only Release deletes
class ZUC_API KeyframeContainer : public virtual kracore::utility::RefCountedObject {
public:
    using ConstIterator = KeyframeSet::const_iterator;
    using ConstReverseIterator = KeyframeSet::const_reverse_iterator;

    explicit KeyframeContainer(float defaultValue = 0.0f);
    /// Everything but the listeners. [any, may block]
    KeyframeContainer(const KeyframeContainer& other);
    KeyframeContainer& operator=(const KeyframeContainer& other);

    // ---- Queries. [any, may block] ----
    std::size_t GetCount() const;
    bool IsEmpty() const { return GetCount() == 0; }
    /// Hold GetLock() from Begin to the last use of an iterator.
    ConstIterator Begin() const { return state_.keyframes.begin(); }
    ConstIterator End() const { return state_.keyframes.end(); }
    ConstReverseIterator RBegin() const { return state_.keyframes.rbegin(); }
    ConstReverseIterator REnd() const { return state_.keyframes.rend(); }
    /// Keeps every other thread out while it lives: for iterating, and to make several edits one.
    [[nodiscard]] std::unique_lock<kracore::threads::RecursiveMutex> GetLock() const;

    /// The same without waiting: owns nothing while another thread has the lock. [audio]
    [[nodiscard]] std::unique_lock<kracore::threads::RecursiveMutex> TryGetLock() const;
    /// Another number after every change. [audio] under the lock
    std::uint64_t GetRevision() const { return revision_; }

    /// The keyframe at exactly `time`; false, and `keyframe` untouched, without one.
    bool GetKeyframe(std::int64_t time, Keyframe& keyframe) const;
    /// The keyframe at exactly `time`, or one made of `time` and `otherwise`.
    Keyframe GetKeyframe(std::int64_t time, float otherwise) const;
    bool HasKeyframeAt(std::int64_t time) const;
    /// Either pointer may be null. False, and nothing written, when the curve is empty.
    bool GetFirstKeyframe(std::int64_t* time, float* value) const;
    bool GetLastKeyframe(std::int64_t* time, float* value) const;
    /// The nearest keyframe strictly after or before `time`; false without one.
    bool GetNextKeyframe(std::int64_t time, Keyframe& keyframe) const;
    bool GetPrevKeyframe(std::int64_t time, Keyframe& keyframe) const;
    /// Replaces `keyframes` with all of them, or with those of from <= time <= to.
    void GetKeyframes(KeyframeSet& keyframes) const;
    void GetKeyframes(KeyframeSet& keyframes, std::int64_t from, std::int64_t to) const;
    /// The part of the curve in from..to: its keyframes there and, where there is none at an end, one
    /// with the curve's value. None of an empty curve.
    void GetTrimmedKeyframes(std::int64_t from, std::int64_t to, KeyframeSet& keyframes) const;
    /// The same times, values, holds and flags.
    bool HasSameKeyframes(const KeyframeContainer& other) const;
    float GetDefaultValue() const;
    bool AreSplinesEnabled() const;
    /// Whether there is a spline to show: splines are on and two keyframes or more stand.
    bool CanShowSplines() const;
    std::int64_t GetSampleLeft() const;
    std::int64_t GetSampleWidth() const;
    bool IsModified() const;
    void SetModified(bool modified);
    bool IsReadOnly() const;
    void SetReadOnly(bool readOnly);
    /// An identifier that the owning effect assigns.
    unsigned long GetType() const;
    void SetType(unsigned long type);
    WStr GetName() const;
    void SetName(const WStr& name);

    // ---- Evaluation ----
    /// The curve at `time`. [any, may block]
    float GetValue(std::int64_t time) const;
    /// out[i] = GetValue(start + i). False, and nothing written, unless `count` is positive.
    /// [any, may block]
    bool GetValues(std::int64_t start, std::int64_t count, float* out) const;
    /// out[i] = GetValue(start + i * step), step > 0. Never waits and never allocates: false, and
    /// nothing written, while another thread has the lock. [audio]
    bool TryGetValues(std::int64_t start, std::int64_t step, std::int64_t count, float* out) const;
    /// The curve's shape between neighbours a and b where a.time < time < b.time and a does not hold:
    /// the straight line, with (time - a.time) / (b.time - a.time) in double. An owner may bend it, in
    /// a function of nothing but its arguments that neither locks nor allocates. [audio]
    virtual float InterpolateValue(const Keyframe& a,
                                   const Keyframe& b,
                                   const std::int64_t& time) const;

    // ---- Edits. [any, may block] ----
    /// Inserts the keyframe, or overwrites value and flags of the one at its time. The value is stored
    /// as given; one that is not finite is refused. Sends no signal.
    virtual void InsertKeyframe(const Keyframe& keyframe);
    virtual void InsertKeyframe(std::int64_t time, float value, bool hold, bool flag);
    /// Inserts one with the curve's present value at `time`.
    virtual void InsertKeyframeAt(std::int64_t time, bool hold, bool flag);
    /// Removes the one at the keyframe's time, whatever its value.
    virtual void RemoveKeyframe(const Keyframe& keyframe);
    virtual void RemoveKeyframeAt(std::int64_t time);
    /// Removes from <= time <= to. With `shiftLater` those after `to` move earlier by `to - from`.
    /// Deliberate: not by one more, so that the frame at `to` takes the place of the one at `from`.
    virtual void RemoveKeyframes(std::int64_t from, std::int64_t to, bool shiftLater);
    /// Inserts all of them; they win over those at the same times.
    virtual void MergeKeyframes(const KeyframeSet& keyframes);
    /// Removes those of from <= time <= to that the curve does not need: all that is left out lies
    /// within 1e-6 of the straight line between the neighbours that stay, or repeats a hold. The first
    /// and the last keyframe of the curve stay.
    virtual void CleanupKeyframes(std::int64_t from, std::int64_t to);
    /// Adds `delta` where from <= time <= to, clamped to [0, 1]; 0 does nothing.
    virtual void OffsetKeyframes(float delta, std::int64_t from, std::int64_t to);
    /// Multiplies every value but 0 by 10^(db / 20), to 1 at most.
    virtual void BoostKeyframes(float db);
    /// Removes all keyframes and makes `value` the default.
    virtual void Flatten(float value);
    /// Removes all keyframes.
    virtual void Clear();
    /// Replaces all keyframes; with `notify` sends the keyframes signal (true).
    virtual void SetKeyframes(const KeyframeSet& keyframes, bool notify);
    /// Ignored while a bulk update runs. Sends the default signal.
    virtual void SetDefaultValue(float value);
    /// Sends the keyframes signal (true) when the setting changed.
    virtual void EnableSplines(bool on);
    /// The selection that the curve spans, in frames. With splines on sends the keyframes signal (true).
    virtual void SetSampleRange(std::int64_t left, std::int64_t width);
    /// Lets go of all listeners and keyframes; what an owner calls when it dies before its curve.
    virtual void Dispose();
    /// While on, SetDefaultValue is ignored.
    void SetBulkUpdate(bool on);

    // ---- Signals ----
    /// Keeps its listener in place while it lives; may outlive the container.
    using Connection = std::shared_ptr<void>;
    using DefaultListener = std::function<void(const KeyframeContainerPtr&)>;
    using KeyframesListener = std::function<void(const KeyframeContainerPtr&, bool)>;
    /// Listeners are called in the order in which they came. [any, may block]
    [[nodiscard]] Connection OnDefaultChanged(const DefaultListener& listener);
    [[nodiscard]] Connection OnKeyframesChanged(const KeyframesListener& listener);
    void SendKeyframesChangedSignal(bool wholeCurve);

    // ---- Property lists. [any, may block] ----
    /// Writes "DefaultValue" (float), "Splines" (bool) and "LogicalKeyframes": a list of "Times" (bytes,
    /// eight for each keyframe, lowest first), "Values" (floats) and "Flags" (bytes, 1 hold + 2 flag).
    void Save(kracore::proplist::PropList& list) const;
    /// The reverse, bit for bit, without a signal. A list that lacks a key, or whose times do not rise,
    /// whose counts differ or whose values are not finite, is refused whole: false, nothing changed.
    bool Load(const kracore::proplist::PropList& list);

protected:
    ~KeyframeContainer() override;

private:
    class Edit;
    struct Signals;

    /// What a copy takes along.
    struct State {
        KeyframeSet keyframes;
        unsigned long type = 0;
        bool splinesEnabled = false;
        bool modified = false;
        bool readOnly = false;
        float defaultValue = 0.0f;
        std::int64_t sampleLeft = 0;
        std::int64_t sampleWidth = 0;
        WStr name;
    };

    State CopyState() const;
    bool HasSpline() const { return state_.splinesEnabled && state_.keyframes.size() >= 2; }
    void AdjustForBezier();
    float Evaluate(std::int64_t time) const;
    float EvaluateBefore(ConstIterator next, std::int64_t time) const;
    void EvaluateSteps(std::int64_t start, std::int64_t step, std::int64_t count, float* out) const;
    void Put(Edit& edit, const Keyframe& keyframe);
    template <class Change>
    void ChangeValues(ConstIterator first, ConstIterator last, Change&& change);

    mutable kracore::threads::RecursiveMutex mutex_;
    State state_;
    std::unique_ptr<dsp::CBezier> spline_;  // fits the keyframes whenever no edit is under way
    int editDepth_ = 0;
    bool needsFit_ = false;
    std::uint64_t revision_ = 0;
    bool bulkUpdate_ = false;
    std::unique_ptr<Signals> signals_;
};

}  // namespace zuc
