#include "Components/KeyframeContainer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "kracore/PropList.h"

namespace zuc {
namespace {

constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using Keyframes = std::vector<Keyframe>;

KeyframeContainerPtr Make(const Keyframes& keyframes, float defaultValue = 0.5f) {
    KeyframeContainerPtr curve(new KeyframeContainer(defaultValue));
    for (const Keyframe& keyframe : keyframes) curve->InsertKeyframe(keyframe);
    curve->SetModified(false);
    return curve;
}

Keyframes Read(const KeyframeContainer& curve) {
    KeyframeSet set;
    curve.GetKeyframes(set);
    return {set.begin(), set.end()};
}

TEST(KeyframeContainer, TellsItsEnds) {
    std::int64_t time = 7;
    float value = 0.25f;
    const auto empty = Make({});
    EXPECT_FALSE(empty->GetFirstKeyframe(&time, &value) || empty->GetLastKeyframe(&time, &value));
    EXPECT_EQ(time, 7);
    EXPECT_EQ(value, 0.25f) << "untouched";
    const auto curve = Make({{0.6f, 100}, {0.2f, -5}, {0.5f, 50}});
    EXPECT_TRUE(curve->GetFirstKeyframe(&time, &value));
    EXPECT_EQ(time, -5);
    EXPECT_EQ(value, 0.2f);
    EXPECT_TRUE(curve->GetLastKeyframe(&time, nullptr) && curve->GetLastKeyframe(nullptr, &value));
    EXPECT_EQ(time, 100);
    EXPECT_EQ(value, 0.6f);
}

TEST(KeyframeContainer, EvaluatesBetweenAndOutsideKeyframes) {
    struct Row {
        const char* name;
        Keyframes keyframes;
        std::int64_t time;
        double value;
    };
    const Keyframes line{{0.2f, 0}, {0.6f, 100}};
    const Keyframes held{{0.2f, 0, true}, {0.6f, 100}};
    const Row rows[] = {
        {"no keyframes", {}, 17, 0.5},
        {"one keyframe, before", {{0.3f, 50}}, -9, 0.3},
        {"one keyframe, after", {{0.3f, 50}}, 900, 0.3},
        {"between", line, 50, 0.4},
        {"before the first", line, -10, 0.2},
        {"after the last", line, 500, 0.6},
        {"on a keyframe", line, 100, 0.6},
        {"held", held, 99, 0.2},
        {"the end of a hold", held, 100, 0.6},
        {"times at the ends of their range", {{0.0f, kEarliest}, {1.0f, kLatest}}, 0, 0.5},
        {"a value as given", {{7.5f, 0}}, 0, 7.5},
    };
    for (const Row& row : rows) {
        const auto curve = Make(row.keyframes);
        EXPECT_NEAR(curve->GetValue(row.time), row.value, 1e-7) << row.name;
    }
    const auto curve = Make({{0.2f, 0}, {0.9f, 7, true}, {0.1f, 30}});
    std::vector<float> block(60);
    EXPECT_TRUE(curve->GetValues(-10, 60, block.data()));
    for (int i = 0; i < 60; ++i) EXPECT_EQ(block[i], curve->GetValue(i - 10)) << i;
    EXPECT_TRUE(curve->TryGetValues(-10, 3, 20, block.data()));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(block[i], curve->GetValue(3 * i - 10)) << i;
    EXPECT_FALSE(curve->GetValues(0, 0, nullptr));
}

TEST(KeyframeContainer, SplinesPassThroughKeyframesAndStayBetweenThem) {
    const auto curve = Make({{0.2f, 0}, {0.3f, 100}, {0.9f, 150, true}, {0.4f, 300}, {0.0f, 900}});
    const auto straight = Make(Read(*curve));
    EXPECT_FALSE(curve->CanShowSplines());
    curve->EnableSplines(true);
    EXPECT_TRUE(curve->CanShowSplines());
    Keyframe a;
    for (std::int64_t time = -50; time < 1000; ++time) {
        const float value = curve->GetValue(time);
        Keyframe b;
        if (curve->GetKeyframe(time, b) || !curve->GetPrevKeyframe(time, a) ||
            !curve->GetNextKeyframe(time, b)) {
            EXPECT_EQ(value, straight->GetValue(time)) << time;
            continue;
        }
        EXPECT_GE(value, std::min(a.value, b.value)) << time;
        EXPECT_LE(value, std::max(a.value, b.value)) << time;
        EXPECT_TRUE(!a.hold || value == a.value) << time;
    }
    EXPECT_GT(std::fabs(curve->GetValue(50) - straight->GetValue(50)), 0.01f);
    // An edit, by itself or among others, moves the spline; fewer than two keyframes are plain.
    curve->OffsetKeyframes(0.1f, 0, 0);
    EXPECT_EQ(curve->GetValue(0), 0.2f + 0.1f);
    curve->RemoveKeyframes(1, kLatest, false);
    EXPECT_FALSE(curve->CanShowSplines());
    EXPECT_EQ(curve->GetValue(50), 0.2f + 0.1f);
}

struct EditRow {
    const char* name;
    Keyframes before;
    void (*edit)(KeyframeContainer&);
    Keyframes after;
    bool modified;
};

// clang-format off
const EditRow kEdits[] = {
    {"insertion overwrites", {{0.1f, 100, true}}, [](auto& c) { c.InsertKeyframe(100, 0.9f, false, true); }, {{0.9f, 100, false, true}}, true},
    {"not-a-number is refused", {{0.1f, 100}}, [](auto& c) { c.InsertKeyframe(100, kNaN, false, false); }, {{0.1f, 100}}, false},
    {"insertion on the curve", {{0.0f, 0}, {1.0f, 4}}, [](auto& c) { c.InsertKeyframeAt(1, true, false); }, {{0.0f, 0}, {0.25f, 1, true}, {1.0f, 4}}, true},
    {"removal goes by time", {{0.1f, 1}, {0.2f, 2}}, [](auto& c) { c.RemoveKeyframe({0.7f, 2}); }, {{0.1f, 1}}, true},
    {"removal of none", {{0.1f, 1}}, [](auto& c) { c.RemoveKeyframeAt(3); }, {{0.1f, 1}}, false},
    {"range removal takes both ends", {{0.f, 9}, {0.1f, 10}, {0.2f, 20}, {0.3f, 21}}, [](auto& c) { c.RemoveKeyframes(10, 20, false); }, {{0.f, 9}, {0.3f, 21}}, true},
    {"the gap closes by to - from", {{0.f, 9}, {0.1f, 10}, {0.2f, 20}, {0.3f, 21, true}}, [](auto& c) { c.RemoveKeyframes(10, 20, true); }, {{0.f, 9}, {0.3f, 11, true}}, true},
    {"the widest gap", {{0.f, 3}, {0.1f, 5}}, [](auto& c) { c.RemoveKeyframes(kEarliest, 3, true); }, {{0.1f, kEarliest + 2}}, true},
    {"range removal of none", {{0.1f, 1}}, [](auto& c) { c.RemoveKeyframes(5, 4, true); }, {{0.1f, 1}}, true},
    {"merged keyframes win", {{0.1f, 1}, {0.2f, 2}}, [](auto& c) { c.MergeKeyframes({{0.7f, 2}, {0.8f, 3}}); }, {{0.1f, 1}, {0.7f, 2}, {0.8f, 3}}, true},
    {"boost", {{0.0f, 0}, {0.25f, 1}, {0.8f, 2}}, [](auto& c) { c.BoostKeyframes(6); }, {{0.0f, 0}, {0.49881557f, 1}, {1.0f, 2}}, true},
    {"boost of silence", {{0.0f, 0}}, [](auto& c) { c.BoostKeyframes(6); }, {{0.0f, 0}}, false},
    {"offset of both ends, clamped", {{0.9f, 50}, {0.1f, 51}}, [](auto& c) { c.OffsetKeyframes(0.3f, 0, 50); }, {{1.0f, 50}, {0.1f, 51}}, true},
    {"offset of 0", {{3.0f, 50}}, [](auto& c) { c.OffsetKeyframes(0.0f, 0, 50); }, {{3.0f, 50}}, false},
    {"offset downwards", {{0.2f, 50}}, [](auto& c) { c.OffsetKeyframes(-0.3f, 50, 50); }, {{0.0f, 50}}, true},
    {"flatten", {{0.2f, 50}}, [](auto& c) { c.Flatten(0.5f); }, {}, true},
    {"flatten what is flat", {}, [](auto& c) { c.Flatten(0.5f); }, {}, false},
    {"clear", {{0.2f, 50}}, [](auto& c) { c.Clear(); }, {}, true},
    {"replacement", {{0.2f, 50}}, [](auto& c) { c.SetKeyframes({{0.3f, 1}}, false); }, {{0.3f, 1}}, true},
    {"cleanup of a line", {{0.0f, 0}, {0.25f, 1}, {0.5f, 2}, {0.75f, 3}, {1.0f, 4}}, [](auto& c) { c.CleanupKeyframes(1, 2); }, {{0.0f, 0}, {0.75f, 3}, {1.0f, 4}}, true},
    {"cleanup keeps a bend", {{0.0f, 0}, {0.25001f, 1}, {0.5f, 2}}, [](auto& c) { c.CleanupKeyframes(0, 9); }, {{0.0f, 0}, {0.25001f, 1}, {0.5f, 2}}, false},
    {"cleanup keeps the ends", {{0.5f, 0}, {0.5f, 9}}, [](auto& c) { c.CleanupKeyframes(kEarliest, kLatest); }, {{0.5f, 0}, {0.5f, 9}}, false},
    {"cleanup of a repeated hold", {{0.5f, 0, true}, {0.5f, 5, true}, {1.0f, 9}, {0.0f, 10}}, [](auto& c) { c.CleanupKeyframes(0, 9); }, {{0.5f, 0, true}, {1.0f, 9}, {0.0f, 10}}, true},
    {"cleanup keeps the end of a hold", {{0.5f, 0, true}, {0.5f, 5}, {0.5f, 9}}, [](auto& c) { c.CleanupKeyframes(0, 9); }, {{0.5f, 0, true}, {0.5f, 5}, {0.5f, 9}}, false},
    {"splines", {{0.5f, 0}}, [](auto& c) { c.EnableSplines(true); }, {{0.5f, 0}}, true},
    {"the same range", {{0.5f, 0}}, [](auto& c) { c.SetSampleRange(0, 0); }, {{0.5f, 0}}, false},
};
// clang-format on

TEST(KeyframeContainer, Edits) {
    for (const EditRow& row : kEdits) {
        const auto curve = Make(row.before);
        row.edit(*curve);
        EXPECT_EQ(Read(*curve).size(), row.after.size()) << row.name;
        for (const Keyframe& expected : row.after) {
            Keyframe got;
            ASSERT_TRUE(curve->GetKeyframe(expected.time, got)) << row.name;
            EXPECT_FLOAT_EQ(got.value, expected.value) << row.name;
            EXPECT_EQ(got.hold, expected.hold) << row.name;
            EXPECT_EQ(got.flag, expected.flag) << row.name;
        }
        EXPECT_EQ(curve->IsModified(), row.modified) << row.name;
    }
    EXPECT_EQ(Make({})->GetKeyframe(5, 0.75f), (Keyframe{0.75f, 5}));
}

TEST(KeyframeContainer, LeftOutKeyframesLieOnTheLineThatStays) {
    // Each lies within 1e-6 of the line between its neighbours, yet together they make a bow.
    const auto bow = [](std::int64_t time) {
        const double way = static_cast<double>(time) / 2000.0;
        return static_cast<float>(way * (1.0 - way));
    };
    const auto curve = Make({});
    for (std::int64_t time = 0; time <= 2000; ++time)
        curve->InsertKeyframe(time, bow(time), false, false);
    curve->CleanupKeyframes(kEarliest, kLatest);
    EXPECT_LT(curve->GetCount(), 1000u);
    for (std::int64_t time = 0; time <= 2000; ++time)
        EXPECT_NEAR(curve->GetValue(time), bow(time), 1.2e-6) << time;  // and float rounding
}

TEST(KeyframeContainer, TrimmedPartsHaveKeyframesAtBothEnds) {
    const auto curve = Make({{0.0f, 0}, {1.0f, 100, true}, {0.5f, 200}});
    KeyframeSet part{{0.9f, 1}};
    curve->GetTrimmedKeyframes(50, 150, part);
    EXPECT_THAT(part, testing::ElementsAre(Keyframe{0.5f, 50}, Keyframe{1.0f, 100, true},
                                           Keyframe{1.0f, 150, true}));
    curve->GetTrimmedKeyframes(-5, 0, part);
    EXPECT_THAT(part, testing::ElementsAre(Keyframe{0.0f, -5}, Keyframe{0.0f, 0}));
    curve->GetTrimmedKeyframes(5, 4, part);
    EXPECT_TRUE(part.empty());
    Make({})->GetTrimmedKeyframes(0, 10, part);
    EXPECT_TRUE(part.empty());
}

TEST(KeyframeContainer, SignalsComeInOrderAfterTheChange) {
    const auto curve = Make({{0.1f, 0}, {0.9f, 100}});
    std::vector<std::string> log;
    const auto note = [&log](const char* who) {
        return [&log, who](const KeyframeContainerPtr& sender, bool whole) {
            // A listener on another thread must find the lock open and the change done.
            std::thread([&] {
                const bool isOpen = sender->GetLock().owns_lock();
                log.push_back(std::string(who) + (whole ? " whole" : " part") +
                              (isOpen && sender->AreSplinesEnabled() ? " splines" : ""));
            }).join();
        };
    };
    auto first = curve->OnKeyframesChanged(note("a"));
    const auto second = curve->OnKeyframesChanged(note("b"));
    const auto third = curve->OnDefaultChanged([&](const KeyframeContainerPtr& sender) {
        log.push_back("default " + std::to_string(static_cast<int>(sender->GetDefaultValue())));
    });
    curve->SetSampleRange(0, 50);
    curve->InsertKeyframe(50, 0.2f, false, false);
    curve->EnableSplines(true);
    curve->EnableSplines(true);
    first.reset();
    curve->SetSampleRange(0, 100);
    curve->SetDefaultValue(2.0f);
    curve->SetDefaultValue(2.0f);
    curve->SetBulkUpdate(true);
    curve->SetDefaultValue(3.0f);
    curve->SetBulkUpdate(false);
    curve->SendKeyframesChangedSignal(false);
    curve->SetKeyframes({}, true);
    curve->EnableSplines(false);
    curve->Dispose();
    curve->SetDefaultValue(4.0f);
    EXPECT_THAT(log,
                testing::ElementsAre("a whole splines", "b whole splines", "b whole splines",
                                     "default 2", "b part splines", "b whole splines", "b whole"));
}

TEST(KeyframeContainer, CopiesTakeEverythingButListeners) {
    const auto curve = Make({{0.1f, 0}, {0.9f, 100}}, 0.25f);
    curve->EnableSplines(true);
    curve->SetName(u"Pitch");
    curve->SetType(3);
    curve->SetReadOnly(true);
    int calls = 0;
    const auto connection =
        curve->OnKeyframesChanged([&](const KeyframeContainerPtr&, bool) { ++calls; });
    const KeyframeContainerPtr copy(new KeyframeContainer(*curve));
    const auto assigned = Make({{0.3f, 5}});
    *assigned = *curve;
    for (const auto& other : {copy, assigned}) {
        EXPECT_TRUE(other->HasSameKeyframes(*curve));
        EXPECT_EQ(other->GetValue(25), curve->GetValue(25));
        EXPECT_EQ(other->GetDefaultValue(), 0.25f);
        EXPECT_EQ(other->GetName(), u"Pitch");
        EXPECT_EQ(other->GetType(), 3u);
        EXPECT_TRUE(other->IsReadOnly());
        other->SendKeyframesChangedSignal(true);
        other->InsertKeyframe(1, 0.0f, false, false);
        EXPECT_FALSE(other->HasSameKeyframes(*curve));
    }
    EXPECT_EQ(calls, 0);
}

TEST(KeyframeContainer, PropertyListsKeepEveryBit) {
    const auto curve = Make({{0.1f, kEarliest, true}, {-0.0f, 0, false, true}, {1.5f, kLatest}});
    curve->EnableSplines(true);
    curve->SetDefaultValue(0.3f);
    kracore::proplist::PropList list;
    curve->Save(list);
    const auto read = kracore::proplist::FromJson(kracore::proplist::ToJson(list));
    const auto loaded = Make({{0.5f, 3}});
    ASSERT_TRUE(loaded->Load(read));
    kracore::proplist::PropList again;
    loaded->Save(again);
    EXPECT_EQ(again, list);
    EXPECT_EQ(Read(*loaded), Read(*curve));
    EXPECT_TRUE(loaded->AreSplinesEnabled());

    using Damage = void (*)(kracore::proplist::PropList&, kracore::proplist::PropList&);
    const Damage damages[] = {
        [](auto& whole, auto&) { whole.Remove("DefaultValue"); },
        [](auto& whole, auto&) { whole.Set("DefaultValue", kNaN); },
        [](auto& whole, auto&) { whole.Set("Splines", 1.0f); },
        [](auto& whole, auto&) { whole.Remove("LogicalKeyframes"); },
        [](auto&, auto& keys) { keys.Remove("Times"); },
        [](auto&, auto& keys) { keys.Set("Times", kracore::proplist::Bytes(23)); },
        [](auto&, auto& keys) { keys.Set("Times", kracore::proplist::Bytes(24)); },  // all at 0
        [](auto&, auto& keys) {
            keys.Set("Values", std::vector<float>{0.0f, kNaN, 0.0f});
        },
        [](auto&, auto& keys) { keys.Set("Values", std::vector<float>{0.0f}); },
        [](auto&, auto& keys) {
            keys.Set("Flags", kracore::proplist::Bytes{0, 4, 0});
        },
    };
    int number = 0;
    for (const Damage damage : damages) {
        auto damaged = list;
        auto keyframes = *list.FindList("LogicalKeyframes");
        damage(damaged, keyframes);
        if (damaged.Has("LogicalKeyframes")) damaged.Set("LogicalKeyframes", keyframes);
        const auto untouched = Make({{0.5f, 3}});
        EXPECT_FALSE(untouched->Load(damaged)) << "damage " << number;
        EXPECT_EQ(Read(*untouched), (Keyframes{{0.5f, 3}})) << "damage " << number++;
        EXPECT_FALSE(untouched->IsModified());
    }
}

/// Every edit changes all values together, so that a reader who sees two different ones has seen an
/// edit half done. Meant for the thread sanitizer.
TEST(KeyframeContainer, ReadersNeverSeeAnEditHalfDone) {
    const auto curve = Make({});
    constexpr int kCount = 200;
    KeyframeSet low;
    KeyframeSet high;
    for (std::int64_t i = 0; i < kCount; ++i) {
        low.insert({0.25f, 10 * i});
        high.insert({0.75f, 10 * i + 5});
    }
    curve->SetKeyframes(low, false);
    std::atomic<bool> stop{false};
    std::atomic<int> mixed{0};
    std::atomic<int> reads{0};
    const auto read = [&](bool waits) {
        std::vector<float> block(300);
        while (!stop) {
            const bool got = waits ? curve->GetValues(-5, 300, block.data())
                                   : curve->TryGetValues(-5, 16, 150, block.data());
            const auto count = waits ? 300 : 150;
            for (int i = 1; got && i < count; ++i)
                if (block[static_cast<std::size_t>(i)] != block[0]) ++mixed;
            reads += got;
        }
    };
    std::thread waiting(read, true);
    std::thread trying(read, false);
    for (int round = 0; round < 300 || reads < 50; ++round) {
        curve->SetKeyframes(high, true);
        curve->OffsetKeyframes(-0.5f, kEarliest, kLatest);
        curve->EnableSplines(round % 2 == 0);
        curve->RemoveKeyframes(100, 200, true);
        curve->MergeKeyframes({{0.25f, 150}, {0.25f, 151}});
        curve->BoostKeyframes(2.0f);
        curve->CleanupKeyframes(kEarliest, kLatest);
        curve->SetKeyframes(low, false);
    }
    stop = true;
    waiting.join();
    trying.join();
    EXPECT_EQ(mixed, 0);
}

}  // namespace
}  // namespace zuc
