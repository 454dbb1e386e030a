#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <vector>

#include "Components/private/KeyframeEdit.h"

namespace zuc {
namespace {

using kracore::proplist::Bytes;
using kracore::proplist::PropList;

constexpr std::string_view kDefaultValueKey = "DefaultValue";
constexpr std::string_view kSplinesKey = "Splines";
constexpr std::string_view kKeyframesKey = "LogicalKeyframes";
constexpr std::string_view kTimesKey = "Times";
constexpr std::string_view kValuesKey = "Values";
constexpr std::string_view kFlagsKey = "Flags";

constexpr std::uint8_t kHoldBit = 1;
constexpr std::uint8_t kFlagBit = 2;
constexpr std::size_t kTimeBytes = 8;

void AppendTime(Bytes& bytes, std::int64_t time) {
    for (std::size_t i = 0; i < kTimeBytes; ++i)
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(time) >> (8 * i)));
}

std::int64_t ReadTime(const Bytes& bytes, std::size_t index) {
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < kTimeBytes; ++i)
        time |= static_cast<std::uint64_t>(bytes[index * kTimeBytes + i]) << (8 * i);
    return static_cast<std::int64_t>(time);
}

/// False when the list is damaged.
bool ReadKeyframes(const PropList& list, KeyframeSet& keyframes) {
    const auto* times = list.Find<Bytes>(kTimesKey);
    const auto* values = list.Find<std::vector<float>>(kValuesKey);
    const auto* flags = list.Find<Bytes>(kFlagsKey);
    if (!times || !values || !flags) return false;
    const std::size_t count = values->size();
    if (flags->size() != count || times->size() != kTimeBytes * count) return false;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint8_t bits = (*flags)[i];
        const Keyframe keyframe{(*values)[i], ReadTime(*times, i), (bits & kHoldBit) != 0,
                                (bits & kFlagBit) != 0};
        const bool rises = keyframes.empty() || *keyframes.rbegin() < keyframe;
        if (!rises || !std::isfinite(keyframe.value) || bits > (kHoldBit | kFlagBit)) return false;
        keyframes.insert(keyframes.end(), keyframe);
    }
    return true;
}

}  // namespace

void KeyframeContainer::Save(PropList& list) const {
    const State state = CopyState();
    Bytes times;
    std::vector<float> values;
    Bytes flags;
    for (const Keyframe& keyframe : state.keyframes) {
        AppendTime(times, keyframe.time);
        values.push_back(keyframe.value);
        flags.push_back(static_cast<std::uint8_t>((keyframe.hold ? kHoldBit : 0) |
                                                  (keyframe.flag ? kFlagBit : 0)));
    }
    PropList keyframes;
    keyframes.Set(kTimesKey, std::move(times));
    keyframes.Set(kValuesKey, std::move(values));
    keyframes.Set(kFlagsKey, std::move(flags));
    list.Set(kDefaultValueKey, state.defaultValue);
    list.Set(kSplinesKey, state.splinesEnabled);
    list.Set(kKeyframesKey, std::move(keyframes));
}

bool KeyframeContainer::Load(const PropList& list) {
    const float* defaultValue = list.Find<float>(kDefaultValueKey);
    const bool* splines = list.Find<bool>(kSplinesKey);
    const PropList* keyframeList = list.FindList(kKeyframesKey);
    KeyframeSet keyframes;
    if (!defaultValue || !std::isfinite(*defaultValue) || !splines || !keyframeList ||
        !ReadKeyframes(*keyframeList, keyframes))
        return false;
    Edit edit(*this);
    state_.defaultValue = *defaultValue;
    state_.splinesEnabled = *splines;
    state_.keyframes = std::move(keyframes);
    edit.MarkChanged();
    return true;
}

}  // namespace zuc
