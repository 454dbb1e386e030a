#include "kraaudiodsp/FractionalDelay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "kraaudiodsp/Lfo.h"

namespace dsp {
namespace {

double Sine(double cyclesPerFrame, double frame) {
    return std::sin(2.0 * std::numbers::pi * cyclesPerFrame * frame);
}

/// Largest error of a delay on its way from 100 frames, by `speed` frames a frame, in dB.
double GetErrorDb(double cyclesPerFrame, double speed) {
    FractionalDelay delay;
    delay.Prepare(1, 1200, 64);
    vector::MovingTap tap;
    double largest = 0.0;
    int frame = 0;
    for (int run = 0; run < 40; ++run) {
        delay.Append(50);
        for (int i = 0; i < 50; ++i)
            delay.Place(0)[i] = static_cast<float>(Sine(cyclesPerFrame, frame + i));
        std::vector<float> out(50);
        float* const pointers[] = {out.data()};
        tap.gain = {1.0f, 0.0f};
        FractionalDelay::Follow(tap, {{100.37 + speed * (frame - 300), speed * 50.0, 0.0, 0.0}},
                                50);
        delay.Read(0, 1, pointers, &tap, 1, 50);
        for (int i = 0; i < 50; ++i) {
            const double at = frame + i - (100.37 + speed * (frame + i - 300));
            if (frame > 300)
                largest = std::max(largest,
                                   std::fabs(static_cast<double>(out[static_cast<std::size_t>(i)]) -
                                             Sine(cyclesPerFrame, at)));
        }
        frame += 50;
    }
    return 20.0 * std::log10(largest);
}

TEST(FractionalDelay, ReadsBetweenTheFrames) {
    const struct {
        double cyclesPerFrame, limitDb;
    } rows[] = {{0.001, -90}, {0.1, -90}, {0.25, -90}, {1.0 / 3.0, -90}, {0.4167, -60}};
    for (const auto& row : rows)
        for (const double speed : {0.0, 0.00731, -0.04, 0.2})
            EXPECT_LT(GetErrorDb(row.cyclesPerFrame, speed), row.limitDb)
                << row.cyclesPerFrame << " of the rate, speed " << speed;
}

TEST(FractionalDelay, FollowsACubic) {
    const FractionalDelay::Cubic curve{{500.25, 12.5, -30.0, 21.7}};
    vector::MovingTap tap;
    FractionalDelay::Follow(tap, curve, 64);
    for (int i = 0; i <= 64; ++i) {
        const double t = i / 64.0;
        const double expected = curve.c[0] + t * (curve.c[1] + t * (curve.c[2] + t * curve.c[3]));
        ASSERT_NEAR(std::ldexp(static_cast<double>(tap.delay), -vector::kDelayFractionBits),
                    expected, 1e-7)
            << i;
        tap.delay += tap.first;
        tap.first += tap.second;
        tap.second += tap.third;
    }
}

TEST(FractionalDelay, AddsUpTapsAndChannelsWithTheirGains) {
    for (const std::size_t channels : {1u, 2u}) {
        FractionalDelay delay;
        delay.Prepare(channels, 64, 64);
        delay.Append(64);
        for (std::size_t c = 0; c < channels; ++c) delay.Place(c)[3 + c] = 1.0f;
        vector::MovingTap taps[2];
        for (int k = 0; k < 2; ++k) {
            FractionalDelay::Follow(taps[k], {{20.0 + 10.0 * k, 0, 0, 0}}, 64);
            taps[k].gain = {1.0f + static_cast<float>(k), -0.5f};
            taps[k].gainStep = {0.01f, 0.0f};
        }
        std::vector<float> out[2] = {std::vector<float>(64), std::vector<float>(64)};
        float* const pointers[] = {out[0].data(), out[1].data()};
        delay.Read(0, channels, pointers, taps, 2, 64);
        for (std::size_t i = 0; i < 64; ++i) {
            EXPECT_NEAR(out[0][i], i == 23 ? 1.23f : i == 33 ? 2.33f : 0.0f, 1e-5f) << i;
            EXPECT_NEAR(out[1][i], channels == 2 && (i == 24 || i == 34) ? -0.5f : 0.0f, 1e-5f)
                << i;
        }
    }
}

TEST(Lfo, KeepsItsPhaseWhenTheRateChanges) {
    Lfo lfo;
    lfo.SetPhase(0.25);
    EXPECT_DOUBLE_EQ(lfo.Next(0.125), 1.0);
    EXPECT_NEAR(lfo.Next(0.625), std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(lfo.Next(0.0), 0.0, 1e-15);
}

TEST(Drift, IsSmoothBoundedAndItsOwnForEachSeed) {
    for (const std::uint64_t seed : {1u, 2u, 99u}) {
        const Drift drift(seed);
        double squares = 0.0;
        float steepest = 0.0f;
        for (int i = 0; i < 100000; ++i) {
            const float value = drift.At(0.01 * i);
            ASSERT_LE(std::fabs(value), 1.0f);
            squares += static_cast<double>(value) * static_cast<double>(value);
            steepest = std::max(steepest, std::fabs(value - drift.At(0.01 * i + 0.01)));
        }
        EXPECT_NEAR(std::sqrt(squares / 100000.0), 0.25, 0.02);
        EXPECT_LT(steepest, 0.01f * 2.0f * 3.15f) << "no faster than 1 Hz at full swing";
        EXPECT_EQ(drift.At(3.5), Drift(seed).At(3.5));
        EXPECT_NE(drift.At(3.5), Drift(seed + 1).At(3.5));
    }
}

}  // namespace
}  // namespace dsp
