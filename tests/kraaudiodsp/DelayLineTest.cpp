#include "kraaudiodsp/DelayLine.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kraaudiodsp/SettingsFade.h"
#include "kraaudiodsp/vector/DelayOps.h"

namespace dsp {
namespace {

TEST(DelayLine, RunsMeetEveryDelayWithoutAWrap) {
    constexpr int kFrames = 37;
    for (const int delay : {1, 2, 17, 36, 37})
        for (const int wanted : {1, 5, 100}) {
            SCOPED_TRACE(testing::Message() << "delay " << delay << ", runs of " << wanted);
            DelayLine line;
            line.Prepare(2, kFrames);
            std::vector<float> history(kFrames, 0.0f);
            float next = 1.0f;
            for (int done = 0; done < 500;) {
                const int run = line.LimitRun(std::min(wanted, delay), delay);
                ASSERT_GE(run, 1);
                const float* tap = line.Tap(1, delay);
                for (int i = 0; i < run; ++i)
                    ASSERT_EQ(tap[i], history[history.size() - static_cast<std::size_t>(delay) +
                                              static_cast<std::size_t>(i)])
                        << "frame " << done + i;
                for (int i = 0; i < run; ++i) {
                    line.WritePlace(0)[i] = -1.0f;
                    line.WritePlace(1)[i] = next;
                    history.push_back(next++);
                }
                line.Advance(run);
                done += run;
            }
            line.Reset();
            EXPECT_EQ(*line.Tap(1, delay), 0.0f);
        }
}

TEST(SettingsFade, KeepsTheLastRequestForTheEndOfTheFade) {
    SettingsFade<int> fade;
    fade.SetLength(10);
    fade.Reset(1);
    fade.Request(1);
    EXPECT_FALSE(fade.IsRunning()) << "nothing changes";
    fade.Request(2);
    EXPECT_EQ(fade.LimitRun(100), 10);
    fade.Advance(4);
    EXPECT_EQ(fade.GetPosition(), 4);
    fade.Request(3);
    fade.Request(4);
    EXPECT_EQ(fade.GetCurrent(), 1);
    EXPECT_EQ(fade.GetTarget(), 2);
    const LinearGain gain = fade.Between(3.0f, 8.0f);
    EXPECT_FLOAT_EQ(gain.start + gain.step * 4.0f, 5.0f);
    fade.Advance(fade.LimitRun(100));
    EXPECT_EQ(fade.GetCurrent(), 2);
    EXPECT_EQ(fade.GetTarget(), 4);
    EXPECT_EQ(fade.GetPosition(), 0);
    fade.Advance(3);
    fade.Request(5);
    fade.Request(4);
    fade.Advance(7);
    EXPECT_FALSE(fade.IsRunning()) << "what waited is in force already";
    EXPECT_EQ(fade.GetCurrent(), 4);
    EXPECT_EQ(fade.LimitRun(100), 100);
    fade.Request(6);
    fade.Reset(7);
    EXPECT_FALSE(fade.IsRunning());
    EXPECT_EQ(fade.Between(7.0f, 9.0f).step, 0.0f);
}

constexpr std::size_t kFirst = 5;
float Gain(std::size_t i) { return 0.3f + 1e-3f * static_cast<float>(kFirst + i); }

float Kept(float in, float echo, std::size_t i) {
    const float sum = in * Gain(i) + echo;
    return std::isfinite(sum) ? std::clamp(sum, -1.0f, 1.0f) : 0.0f;
}

TEST(DelayOps, AgreeWithTheScalarFormulasOnEveryInstructionSet) {
    constexpr float kGuard = 1234.5f;
    std::mt19937 random(3);
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (const std::size_t count : {0u, 1u, 3u, 7u, 16u, 31u, 33u, 100u}) {
            SCOPED_TRACE(testing::Message() << hwy::TargetName(target) << ", " << count);
            std::vector<float> a(count + 1);
            std::vector<float> b(count + 1);
            for (std::size_t i = 0; i < count; ++i) {
                a[i] = static_cast<float>(random()) / 1e9f - 2.0f;
                b[i] = static_cast<float>(random()) / 1e9f - 2.0f;
            }
            if (count > 7) {
                a[2] = std::numeric_limits<float>::infinity();
                b[5] = std::numeric_limits<float>::quiet_NaN();
            }
            a[count] = b[count] = kGuard;
            auto sum = a;
            vector::AddRamped(sum.data(), b.data(), 0.3f, 1e-3f, kFirst, count);
            auto x = a;
            auto y = b;
            vector::Exchange(x.data(), y.data(), 0.3f, 1e-3f, kFirst, count);
            std::vector<float> kept(count + 1, kGuard);
            auto out = a;
            vector::FeedBack(kept.data(), out.data(), out.data(), b.data(), 0.3f, 1e-3f, kFirst,
                             count);
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(kept[i], Kept(a[i], b[i], i)) << i;
                if (!std::isfinite(a[i]) || !std::isfinite(b[i])) continue;
                EXPECT_EQ(sum[i], a[i] + b[i] * Gain(i)) << i;
                EXPECT_EQ(x[i], a[i] + (b[i] - a[i]) * Gain(i)) << i;
                EXPECT_EQ(y[i], b[i] + (a[i] - b[i]) * Gain(i)) << i;
                EXPECT_EQ(out[i], a[i] + b[i]) << i;
            }
            for (const auto* array : {&sum, &x, &y, &kept, &out})
                EXPECT_EQ((*array)[count], kGuard);
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
}  // namespace dsp
