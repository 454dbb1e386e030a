#include "kraaudiodsp/FIRFilter.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <vector>

#include "kraaudiodsp/vector/FirOps.h"

namespace dsp {
namespace {

constexpr int kMaxTaps = 513;

FIRFilter MakeFilter(double low, double high, int taps) {
    FIRFilter filter;
    filter.Prepare(kMaxTaps);
    filter.GenerateFIRCoeffs(low, high, taps);
    return filter;
}

/// Signed gain of the filter at a frequency, its delay taken off; the filter is symmetric.
double GainAt(const FIRFilter& filter, double frequency) {
    const int half = filter.GetTaps() / 2;
    double gain = filter.GetCoeffs()[half];
    for (int n = 1; n <= half; ++n)
        gain +=
            2.0 * filter.GetCoeffs()[half - n] * std::cos(2.0 * std::numbers::pi * frequency * n);
    return gain;
}

std::vector<float> Noise(std::size_t count) {
    std::mt19937 random(5);
    std::vector<float> noise(count);
    for (float& x : noise) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return noise;
}

TEST(FIRFilter, HasItsEdgesUnityGainAndStopBand) {
    const struct {
        const char* name;
        double low;
        double high;
        int taps;
        double unityAt;
    } rows[] = {
        {"speech band", 300 / 48000.0, 3400 / 48000.0, 513, std::sqrt(300.0 * 3400.0) / 48000.0},
        {"the same, swapped", 3400 / 48000.0, 300 / 48000.0, 513, std::sqrt(300 * 3400) / 48000.0},
        {"sibilants", 4000 / 44100.0, 12000 / 44100.0, 101, std::sqrt(4e3 * 12e3) / 44100.0},
        {"low-pass", 0.0, 0.1, 201, 0.0},
        {"high-pass", 0.1, 0.5, 201, 0.5},
        {"beyond the ends", -3.0, 0.1, 201, 0.0},
        {"narrow", 0.1, 0.13, 401, std::sqrt(0.1 * 0.13)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const FIRFilter filter = MakeFilter(row.low, row.high, row.taps);
        ASSERT_EQ(filter.GetTaps(), row.taps);
        EXPECT_NEAR(GainAt(filter, row.unityAt), 1.0, 1e-5);
        const double low = std::min(row.low, row.high);
        const double high = std::max(row.low, row.high);
        // The 6 dB point lies within 2 % of the edge.
        const auto expectEdge = [&](double edge, double inside) {
            EXPECT_GT(GainAt(filter, edge * (1.0 + 0.02 * inside)), 0.5) << edge;
            EXPECT_LT(GainAt(filter, edge * (1.0 - 0.02 * inside)), 0.5) << edge;
        };
        if (low > 0.0) expectEdge(low, 1.0);
        if (high < 0.5) expectEdge(high, -1.0);
        const double margin = 1.6 / row.taps;
        for (int i = 0; i <= 5000; ++i) {
            const double frequency = 0.5 * i / 5000;
            if (frequency > low - margin && frequency < high + margin) continue;
            ASSERT_LT(std::fabs(GainAt(filter, frequency)), 0.004) << "-48 dB at " << frequency;
        }
    }
}

TEST(FIRFilter, DegenerateBandsStayUsable) {
    for (const double edge : {0.0, 0.1, 0.25, 0.5}) {
        const FIRFilter filter = MakeFilter(edge, edge, 101);
        EXPECT_NEAR(GainAt(filter, edge), 1.0, 1e-4) << "a band without width at " << edge;
    }
    EXPECT_EQ(MakeFilter(0.1, 0.2, 100).GetTaps(), 101) << "even counts are raised";
    EXPECT_EQ(MakeFilter(0.1, 0.2, 9999).GetTaps(), kMaxTaps);
    EXPECT_EQ(MakeFilter(0.1, 0.2, -3).GetTaps(), 1);
}

TEST(FIRFilter, FiltersAnyBlocksLikeTheSumInDouble) {
    const auto input = Noise(9000);
    for (const int taps : {1, 7, 65, 513})
        for (const int block : {1, 63, 480, 9000}) {
            SCOPED_TRACE(testing::Message() << taps << " taps, blocks of " << block);
            FIRFilter filter = MakeFilter(0.02, 0.2, taps);
            auto output = input;
            for (int done = 0; done < 9000; done += block)
                filter.Process(output.data() + done, std::min(block, 9000 - done));
            for (int i = 0; i < 9000; i += 37) {
                double expected = 0.0;
                for (int k = 0; k < taps && k <= i; ++k)
                    expected += static_cast<double>(filter.GetCoeffs()[std::min(k, taps - 1 - k)]) *
                                input[static_cast<std::size_t>(i - k)];
                ASSERT_NEAR(output[static_cast<std::size_t>(i)], expected, 1e-6) << i;
            }
        }
}

TEST(FIRFilter, DisabledOrFullBandItOnlyDelays) {
    const auto input = Noise(3000);
    const auto expectDelay = [&](FIRFilter& filter, std::size_t delay) {
        auto output = input;
        filter.Reset();
        filter.Process(output.data(), 3000);
        for (std::size_t i = 0; i < 3000; ++i)
            ASSERT_EQ(output[i], i < delay ? 0.0f : input[i - delay]) << i;
    };
    FIRFilter filter = MakeFilter(0.1, 0.2, 321);
    filter.Disable();
    expectDelay(filter, 160);
    filter.GenerateFIRCoeffs(0.0, 0.5, 7);
    expectDelay(filter, 3);
    filter.Enable();
    expectDelay(filter, 3);
    FIRFilter fresh;
    fresh.Prepare(kMaxTaps);
    expectDelay(fresh, 0);
    fresh.CopyCoeffs(MakeFilter(0.1, 0.2, 65));
    EXPECT_EQ(fresh.GetTaps(), 65);
    EXPECT_NEAR(GainAt(fresh, std::sqrt(0.02)), 1.0, 1e-5);
}

TEST(FIRFilter, IsTheSameBitForBitOnEveryInstructionSetAndForEveryCount) {
    const auto input = Noise(1200);
    const auto taps = Noise(33);
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (const std::size_t half : {0u, 1u, 5u, 32u})
            for (const std::size_t count : {0u, 1u, 3u, 8u, 15u, 16u, 17u, 31u, 64u, 100u, 999u}) {
                std::vector<float> output(count + 1, 77.0f);
                vector::SymmetricFir(output.data(), input.data(), taps.data(), half, count);
                for (std::size_t i = 0; i < count; ++i) {
                    float sum = 0.0f;
                    for (std::size_t k = 0; k < half; ++k)
                        sum += taps[k] * (input[i + k] + input[i + 2 * half - k]);
                    sum += taps[half] * input[i + half];
                    ASSERT_EQ(output[i], sum) << hwy::TargetName(target) << ", " << half << " taps "
                                              << i << " of " << count;
                }
                ASSERT_EQ(output[count], 77.0f) << "wrote too far";
            }
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
}  // namespace dsp
