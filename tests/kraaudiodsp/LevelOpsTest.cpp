#include "kraaudiodsp/vector/LevelOps.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace dsp::vector {
namespace {

constexpr float kTable[] = {1.0f, 0.5f, 0.25f, 0.5f, 2.0f};  // one entry per dB
const LevelTable kLevels{kTable, 5, 1.0f, 0.0f, -0.5f, 6.0f};

float Interpolate(float level) {
    const float position = std::min(-level, 4.0f);
    const auto index = std::min(static_cast<std::size_t>(position), std::size_t{3});
    const float fraction = position - static_cast<float>(index);
    return kTable[index] * (1.0f - fraction) + kTable[index + 1] * fraction;
}

struct Operation {
    const char* name;
    float lowest;  // of the inputs
    float highest;
    bool isLogarithmic;  // compared in dB
    void (*run)(float* out, const float* in, std::size_t count);
    std::function<double(float in, std::size_t index)> expected;
};

const Operation kOperations[] = {
    {"ToDb of powers", -0.1f, 4.0f, false,
     [](float* out, const float* in, std::size_t n) { ToDb(out, in, 4.3429448f, -89.08f, n); },
     [](float x, std::size_t) {
         return std::max(10.0 * std::log10(std::max(static_cast<double>(x), 1e-10)), -89.08);
     }},
    {"ToDb of large amplitudes", 0.0f, 1e30f, false,
     [](float* out, const float* in, std::size_t n) { ToDb(out, in, 8.6858896f, -200.0f, n); },
     [](float x, std::size_t) { return 20.0 * std::log10(std::max<double>(x, 1e-10)); }},
    {"FromDb", -100.0f, 100.0f, true, FromDb,
     [](float x, std::size_t) { return std::pow(10.0, x / 20.0); }},
    {"LookUpGains", -7.0f, 20.0f, true,
     [](float* out, const float* in, std::size_t n) { LookUpGains(out, in, kLevels, n); },
     [](float x, std::size_t) {
         if (x > 0.0f) return std::pow(10.0, std::min(-0.5 * x, 6.0) / 20.0);
         return static_cast<double>(Interpolate(x));
     }},
    {"MultiplyGains", -1.0f, 1.0f, false,
     [](float* out, const float* in, std::size_t n) {
         MultiplyGains(out, in, in, 0.3f, 1e-3f, 7, n);
     },
     [](float x, std::size_t i) {
         return static_cast<double>(x * x * (0.3f + 1e-3f * static_cast<float>(7 + i)));
     }},
};

TEST(LevelOps, AgreeWithTheFormulaAndBitForBitOnEveryInstructionSet) {
    std::mt19937 random(11);
    for (const Operation& operation : kOperations) {
        std::uniform_real_distribution<float> range(operation.lowest, operation.highest);
        std::vector<float> input(1000);
        for (float& x : input) x = range(random);
        input[3] = operation.lowest;
        input[4] = 0.0f;
        input[5] = operation.highest;
        std::vector<float> reference;
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            for (const std::size_t count : {0u, 1u, 3u, 15u, 16u, 17u, 33u, 999u}) {
                SCOPED_TRACE(testing::Message() << operation.name << " on "
                                                << hwy::TargetName(target) << ", " << count);
                std::vector<float> output(input);
                output[count] = 77.0f;
                operation.run(output.data(), output.data(), count);
                ASSERT_EQ(output[count], 77.0f) << "wrote too far";
                if (count == 999 && reference.empty()) reference = output;
                for (std::size_t i = 0; i < count; ++i) {
                    const double expected = operation.expected(input[i], i);
                    const double difference = operation.isLogarithmic
                                                  ? 20.0 * std::log10(output[i] / expected)
                                                  : output[i] - expected;
                    ASSERT_NEAR(difference, 0.0, 1e-5 + 2e-7 * std::fabs(expected)) << input[i];
                    if (!reference.empty()) {
                        ASSERT_EQ(output[i], reference[i]) << i;
                    }
                }
            }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(LevelOps, MaximumKeepsTheLarger) {
    std::vector<float> a{1, -2, 3, 0, 5, 6, 7, 8, 9};
    const std::vector<float> b{0, -1, 4, 0, -5, 9, 1, 10, 2};
    Maximum(a.data(), b.data(), a.size());
    EXPECT_EQ(a, (std::vector<float>{1, -1, 4, 0, 5, 9, 7, 10, 9}));
}

}  // namespace
}  // namespace dsp::vector
