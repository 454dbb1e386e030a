#include "kraaudiodsp/vector/VectorOps.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace dsp::vector {
namespace {

constexpr float kGuard = 1234.5f;
constexpr std::size_t kMargin = 8;

std::vector<std::size_t> Counts() {
    std::vector<std::size_t> counts{31, 32, 33, 64, 100, 999};
    for (std::size_t n = 0; n <= 17; ++n) counts.push_back(n);
    return counts;
}

/// A target with guard values around it, at a chosen distance from alignment.
struct Guarded {
    Guarded(std::size_t count, std::size_t offset)
        : storage(count + 2 * kMargin + offset, kGuard), begin(kMargin + offset), size(count) {}
    float* Data() { return storage.data() + begin; }
    bool IsIntact() const {
        for (std::size_t i = 0; i < storage.size(); ++i)
            if ((i < begin || i >= begin + size) && storage[i] != kGuard) return false;
        return true;
    }
    std::vector<float> storage;
    std::size_t begin;
    std::size_t size;
};

struct Operation {
    const char* name;
    void (*run)(float* out, const float* in, std::size_t count);
    float (*expected)(float in, std::size_t index);
};

bool IsNonFinite(float x) { return (std::bit_cast<std::uint32_t>(x) & 0x7F800000u) == 0x7F800000u; }

const Operation kOperations[] = {
    {"Multiply", [](float* out, const float* in, std::size_t n) { Multiply(out, in, 0.7f, n); },
     [](float x, std::size_t) { return x * 0.7f; }},
    {"MultiplyRamp",
     [](float* out, const float* in, std::size_t n) { MultiplyRamp(out, in, 0.3f, 1e-3f, 5, n); },
     [](float x, std::size_t i) { return x * (0.3f + 1e-3f * static_cast<float>(5 + i)); }},
    {"CopyFinite", [](float* out, const float* in, std::size_t n) { CopyFinite(out, in, n); },
     [](float x, std::size_t) { return IsNonFinite(x) ? 0.0f : x; }},
};

std::vector<float> MakeInput(std::size_t count, bool withBadValues) {
    std::mt19937 random(7);
    std::vector<float> input(count);
    for (float& x : input) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    if (withBadValues)
        for (std::size_t i = 0; i < count; i += 5)
            input[i] = i % 2 ? std::numeric_limits<float>::infinity()
                             : -std::numeric_limits<float>::quiet_NaN();
    return input;
}

TEST(VectorOps, AgreesWithTheScalarFormulaOnEveryInstructionSet) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (const Operation& operation : kOperations)
            for (const std::size_t count : Counts())
                for (std::size_t offset = 0; offset < 3; ++offset)
                    for (const bool inPlace : {false, true}) {
                        SCOPED_TRACE(testing::Message()
                                     << operation.name << " on " << hwy::TargetName(target) << ", "
                                     << count << " values, offset " << offset
                                     << (inPlace ? ", in place" : ""));
                        const bool bad = operation.name == std::string("CopyFinite");
                        const auto input = MakeInput(count, bad);
                        Guarded out(count, offset);
                        std::copy(input.begin(), input.end(), out.Data());
                        operation.run(out.Data(), inPlace ? out.Data() : input.data(), count);
                        for (std::size_t i = 0; i < count; ++i)
                            ASSERT_EQ(out.Data()[i], operation.expected(input[i], i)) << i;
                        ASSERT_TRUE(out.IsIntact());
                    }
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(VectorOps, CountsEveryValueThatIsNotFinite) {
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        for (const std::size_t count : Counts()) {
            const auto input = MakeInput(count, true);
            const std::size_t expected = (count + 4) / 5;
            EXPECT_EQ(CountNonFinite(input.data(), count), expected) << count;
            std::vector<float> copy(count);
            EXPECT_EQ(CopyFinite(copy.data(), input.data(), count), expected) << count;
            const std::vector<float> limits(count, std::numeric_limits<float>::max());
            EXPECT_EQ(CountNonFinite(limits.data(), count), 0u) << count;
        }
    }
    hwy::SetSupportedTargetsForTest(0);
}

}  // namespace
}  // namespace dsp::vector
