#include "kraaudiodsp/vector/CurveOps.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace dsp::vector {
namespace {

struct Row {
    const char* name;
    float lo;  // of the arguments
    float hi;
    void (*run)(float* out, const float* in, std::size_t count);
    double (*expected)(double x);
    double absolute;
    double relative;
};

const Row kRows[] = {
    {"Line", 0.0f, 998.0f,
     [](float* out, const float* in, std::size_t n) {
         Line(out, -7.25f, 0.25f, static_cast<int>(in[0]), n);
     },
     [](double x) { return 0.25 * x - 7.25; }, 0.0, 0.0},
    {"MultiplyBy", -1.0f, 1.0f,
     [](float* out, const float* in, std::size_t n) { MultiplyBy(out, in, in, n); },
     [](double x) { return x * x; }, 0.0, 6e-8},
    {"ExponentialGains", 0.0f, 1.0f,
     [](float* out, const float* in, std::size_t n) { ExponentialGains(out, in, 16, -8, n); },
     [](double x) { return x > 0 ? std::exp2(16.0 * x - 8.0) : 0.0; }, 0.0, 1e-6},
    {"PowerGains", -0.1f, 1.0f,
     [](float* out, const float* in, std::size_t n) { PowerGains(out, in, 3, 1, n); },
     [](double x) { return x > 0 ? 2.0 * x * x * x : 0.0; }, 0.0, 3e-6},
    {"Log2", 1e-6f, 1e6f, [](float* out, const float* in, std::size_t n) { Log2(out, in, n); },
     [](double x) { return std::log2(x); }, 2e-7, 2e-7},
    {"LogShape", 0.0f, 1.0f,
     [](float* out, const float* in, std::size_t n) { LogShape(out, in, 1e6f, n); },
     [](double x) { return std::log1p(1e6 * x) / std::log1p(1e6); }, 3e-7, 0.0},
    {"LogShape, nearly straight", 0.0f, 1.0f,
     [](float* out, const float* in, std::size_t n) { LogShape(out, in, 0.5f, n); },
     [](double x) { return std::log1p(0.5 * x) / std::log1p(0.5); }, 3e-7, 0.0},
    {"SineShape", 0.0f, 1.0f,
     [](float* out, const float* in, std::size_t n) { SineShape(out, in, n); },
     [](double x) { return std::sin(0.5 * std::numbers::pi * x); }, 2e-7, 0.0},
};

TEST(CurveOps, FollowTheirFormulasAlikeOnEveryInstructionSet) {
    for (const Row& row : kRows) {
        std::vector<float> input(999);
        for (std::size_t i = 0; i < input.size(); ++i)
            input[i] = row.lo + (row.hi - row.lo) * static_cast<float>(i) / 998.0f;
        std::vector<float> first;
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            for (const std::size_t count : {0u, 1u, 3u, 4u, 7u, 17u, 33u, 999u})
                for (std::size_t offset = 0; offset < 3 && offset + count <= 999; ++offset) {
                    SCOPED_TRACE(testing::Message() << row.name << " on " << hwy::TargetName(target)
                                                    << ", " << count << " from " << offset);
                    std::vector<float> out(count + 2, 1234.5f);
                    row.run(out.data() + 1, input.data() + offset, count);
                    for (std::size_t i = 0; i < count; ++i) {
                        const double expected = row.expected(input[i + offset]);
                        ASSERT_NEAR(out[i + 1], expected,
                                    row.absolute + row.relative * std::fabs(expected))
                            << "at " << input[i + offset];
                        ASSERT_TRUE(first.empty() || out[i + 1] == first[i + offset]);
                    }
                    ASSERT_EQ(out.front(), 1234.5f);
                    ASSERT_EQ(out.back(), 1234.5f);
                    if (count == 999) first.assign(out.begin() + 1, out.end() - 1);
                }
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
}  // namespace dsp::vector
