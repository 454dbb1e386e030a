#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <random>
#include <vector>

#include "Components/KeyframeContainer.h"

namespace zuc {
namespace {

/// What a curve without splines should do, in the plainest terms: a list without order.
struct Model {
    std::vector<Keyframe> keyframes;
    float defaultValue = 0.5f;

    template <class Keep>
    void RemoveUnless(Keep keep) {
        std::erase_if(keyframes, [&](const Keyframe& keyframe) { return !keep(keyframe); });
    }
    void Insert(const Keyframe& keyframe) {
        RemoveUnless([&](const Keyframe& other) { return other.time != keyframe.time; });
        keyframes.push_back(keyframe);
    }
    void RemoveRange(std::int64_t from, std::int64_t to, bool shift) {
        RemoveUnless([&](const Keyframe& other) { return other.time < from || other.time > to; });
        for (Keyframe& keyframe : keyframes)
            if (shift && from <= to && keyframe.time > to) keyframe.time -= to - from;
    }
    void Offset(float delta, std::int64_t from, std::int64_t to) {
        for (Keyframe& keyframe : keyframes)
            if (delta != 0.0f && keyframe.time >= from && keyframe.time <= to)
                keyframe.value = std::min(1.0f, std::max(0.0f, keyframe.value + delta));
    }
    void Boost(float db) {
        for (Keyframe& keyframe : keyframes)
            if (keyframe.value != 0.0f)
                keyframe.value = static_cast<float>(std::min(
                    1.0,
                    std::pow(10.0, std::log10(static_cast<double>(keyframe.value)) + db / 20.0)));
    }
    /// The nearest keyframe before (or, from above, after) the time; null without one.
    const Keyframe* Nearest(std::int64_t time, bool after) const {
        const Keyframe* best = nullptr;
        for (const Keyframe& keyframe : keyframes) {
            if (after ? keyframe.time <= time : keyframe.time >= time) continue;
            if (!best || (after ? keyframe.time < best->time : keyframe.time > best->time))
                best = &keyframe;
        }
        return best;
    }
    float Value(std::int64_t time) const {
        for (const Keyframe& keyframe : keyframes)
            if (keyframe.time == time) return keyframe.value;
        const Keyframe* a = Nearest(time, false);
        const Keyframe* b = Nearest(time, true);
        if (!a && !b) return defaultValue;
        if (!a || !b) return a ? a->value : b->value;
        if (a->hold) return a->value;
        const double way =
            static_cast<double>(time - a->time) / static_cast<double>(b->time - a->time);
        return static_cast<float>(a->value + (static_cast<double>(b->value) - a->value) * way);
    }
};

class Player {
public:
    explicit Player(unsigned seed) : random_(seed), curve_(new KeyframeContainer(0.5f)) {}

    void Step() {
        const std::int64_t from = Time();
        const std::int64_t to = Time();
        switch (Draw(0, 11)) {
            case 0:
            case 1:
            case 2:
            case 3:
                return Insert({Value(), from, Flip(), Flip()});
            case 4:
                return Insert({model_.Value(from), from, false, true}, true);
            case 5:
                model_.RemoveRange(from, from, false);
                return curve_->RemoveKeyframeAt(from);
            case 6: {
                const bool shift = Flip();
                const std::int64_t end = from + Draw(-2, 40);
                model_.RemoveRange(from, end, shift);
                return curve_->RemoveKeyframes(from, end, shift);
            }
            case 7: {
                const float delta = Value() - 0.5f;
                model_.Offset(delta, from, to);
                return curve_->OffsetKeyframes(delta, from, to);
            }
            case 8: {
                const auto db = static_cast<float>(Draw(-6, 6));
                model_.Boost(db);
                return curve_->BoostKeyframes(db);
            }
            case 9:
                return Merge();
            case 10:
                return Replace(from, to);
            default:
                return Flatten();
        }
    }

    void Compare() {
        KeyframeSet got;
        curve_->GetKeyframes(got);
        ASSERT_EQ(got.size(), model_.keyframes.size());
        ASSERT_EQ(curve_->GetCount(), got.size());
        for (const Keyframe& expected : model_.keyframes) {
            const auto found = got.find(expected);
            ASSERT_TRUE(found != got.end()) << "at " << expected.time;
            ASSERT_FLOAT_EQ(found->value, expected.value) << "at " << expected.time;
            ASSERT_EQ(found->hold, expected.hold);
            ASSERT_EQ(found->flag, expected.flag);
        }
        for (int i = 0; i < 4; ++i) {
            const std::int64_t time = Time();
            ASSERT_NEAR(curve_->GetValue(time), model_.Value(time), 1e-6) << "at " << time;
            for (const bool after : {false, true}) {
                Keyframe near;
                const Keyframe* expected = model_.Nearest(time, after);
                ASSERT_EQ(after ? curve_->GetNextKeyframe(time, near)
                                : curve_->GetPrevKeyframe(time, near),
                          expected != nullptr);
                ASSERT_TRUE(!expected || near.time == expected->time) << "from " << time;
            }
        }
        // The model follows the curve's last bits, so that rounding does not add up over the steps.
        for (Keyframe& keyframe : model_.keyframes) keyframe.value = got.find(keyframe)->value;
    }

private:
    void Insert(const Keyframe& keyframe, bool onCurve = false) {
        model_.Insert(keyframe);
        if (onCurve)
            curve_->InsertKeyframeAt(keyframe.time, keyframe.hold, keyframe.flag);
        else
            curve_->InsertKeyframe(keyframe);
    }
    void Merge() {
        KeyframeSet merged;
        for (int i = Draw(0, 5); i > 0; --i) merged.insert({Value(), Time(), Flip(), Flip()});
        for (const Keyframe& keyframe : merged) model_.Insert(keyframe);
        curve_->MergeKeyframes(merged);
    }
    /// Keeps a part only, as read back from the curve itself.
    void Replace(std::int64_t from, std::int64_t to) {
        if (Draw(0, 4) != 0) return;
        KeyframeSet part;
        curve_->GetKeyframes(part, from, to);
        model_.RemoveUnless(
            [&](const Keyframe& keyframe) { return keyframe.time >= from && keyframe.time <= to; });
        curve_->SetKeyframes(part, false);
    }
    void Flatten() {
        if (Draw(0, 19) != 0) return;
        model_.keyframes.clear();
        model_.defaultValue = Value();
        curve_->Flatten(model_.defaultValue);
    }

    int Draw(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random_); }
    std::int64_t Time() { return Draw(-300, 300); }  // close, so that keyframes meet
    float Value() { return static_cast<float>(Draw(0, 1000)) / 1000.0f; }
    bool Flip() { return Draw(0, 1) == 1; }

    std::mt19937 random_;
    Model model_;
    KeyframeContainerPtr curve_;
};

TEST(KeyframeContainer, FollowsASimpleModelThroughRandomEdits) {
    const unsigned seed = std::random_device{}();
    std::cout << "seed " << seed << std::endl;
    Player player(seed);
    for (int step = 0; step < 10'000; ++step) {
        player.Step();
        player.Compare();
        ASSERT_FALSE(testing::Test::HasFatalFailure()) << "seed " << seed << ", step " << step;
    }
}

}  // namespace
}  // namespace zuc
