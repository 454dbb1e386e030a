#include "kraaudiodsp/vector/PeakOps.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace dsp::vector {
namespace {

constexpr std::size_t kCounts[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,   10,  11, 12,
                                   13, 14, 15, 16, 17, 31, 32, 33, 64, 100, 257, 999};
constexpr float kGuard = 1234.5f;

std::vector<float> MakeNoise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<float> noise(count);
    for (float& x : noise) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return noise;
}

const TruePeakTaps& Taps() {
    static const TruePeakTaps taps = [] {
        TruePeakTaps made{};
        const auto noise = MakeNoise(3 * kTruePeakReach, 1);
        for (std::size_t k = 0; k < kTruePeakReach; ++k) {
            made.middle[k] = noise[k];
            made.even[k] = noise[kTruePeakReach + k];
            made.odd[k] = noise[2 * kTruePeakReach + k];
        }
        return made;
    }();
    return taps;
}

/// The signal `quarter` fourths of the way from in[0] to in[1].
double Between(const float* in, int quarter) {
    if (quarter == 0) return in[0];
    double sum = 0.0;
    for (int k = 0; k < static_cast<int>(kTruePeakReach); ++k) {
        const auto at = static_cast<std::size_t>(k);
        const double s = double{in[-k]} + in[1 + k];
        const double d = double{in[-k]} - in[1 + k];
        sum += quarter == 2 ? Taps().middle[at] * s
                            : Taps().even[at] * s + (quarter == 1 ? 1 : -1) * Taps().odd[at] * d;
    }
    return sum;
}

double PeakBetween(const float* in) {
    double points[6] = {std::fabs(Between(in - 1, 3))};
    for (int q = 0; q < 4; ++q) points[q + 1] = std::fabs(Between(in, q));
    points[5] = std::fabs(in[1]);
    const double* top = std::max_element(points + 1, points + 5);
    const double bend = 2 * top[0] - top[-1] - top[1];
    if (top[0] < top[-1] || top[0] < top[1] || bend <= 0.0) return top[0];
    return top[0] + (top[-1] - top[1]) * (top[-1] - top[1]) / (8 * bend);
}

class PeakOps : public testing::Test {
protected:
    void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
};

TEST_F(PeakOps, AgreeWithTheFormulaAndBitForBitOnEveryInstructionSet) {
    const auto noise = MakeNoise(1200, 7);
    const auto gains = MakeNoise(1200, 8);
    for (const std::size_t count : kCounts) {
        std::vector<float> firstPeaks, firstProducts;
        double firstSum = 0.0;
        for (const auto target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            SCOPED_TRACE(testing::Message() << count << " values, " << hwy::TargetName(target));
            const float* in = noise.data() + kTruePeakReach + 3;  // not aligned
            float peak = 0.0f;
            double sum = 0.0;
            for (std::size_t i = 0; i < count; ++i) {
                peak = std::max(peak, std::fabs(in[i]));
                sum += double{in[i]} * in[i];
            }
            EXPECT_EQ(PeakOf(in, count), peak);
            EXPECT_NEAR(SumOfSquares(in, count), sum, 1e-9);

            std::vector<float> peaks(count + 2, kGuard);
            TruePeaks(peaks.data() + 1, in, Taps(), count);
            std::vector<float> products(count + 2, kGuard);
            const std::size_t held =
                MultiplyWithin(products.data() + 1, in, gains.data(), 0.4f, count);
            std::size_t expectedHeld = 0;
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_NEAR(peaks[i + 1], PeakBetween(in + i), 1e-4);
                const float product = in[i] * gains[i];
                expectedHeld += std::fabs(product) > 0.4f ? 1 : 0;
                EXPECT_EQ(products[i + 1], std::max(-0.4f, std::min(0.4f, product)));
            }
            EXPECT_EQ(held, expectedHeld);
            for (const auto* guarded : {&peaks, &products}) {
                EXPECT_EQ(guarded->front(), kGuard);
                EXPECT_EQ(guarded->back(), kGuard);
            }
            if (firstPeaks.empty()) {
                firstPeaks = peaks;
                firstSum = SumOfSquares(in, count);
            }
            EXPECT_EQ(peaks, firstPeaks);
            EXPECT_EQ(SumOfSquares(in, count), firstSum);
        }
    }
}

TEST_F(PeakOps, NotANumberNeverWins) {
    auto samples = MakeNoise(200, 9);
    samples[100] = std::numeric_limits<float>::infinity();
    samples[101] = -std::numeric_limits<float>::infinity();
    std::vector<float> peaks(100);
    TruePeaks(peaks.data(), samples.data() + 50, Taps(), peaks.size());
    for (const float peak : peaks) EXPECT_FALSE(std::isnan(peak));
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_LE(PeakOf(samples.data(), 101), 1.0f);
}

}  // namespace
}  // namespace dsp::vector
