#include "kraaudiodsp/PartitionedFir.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <random>
#include <vector>

#include "kraaudiodsp/vector/SpectrumOps.h"

namespace dsp {
namespace {

std::vector<float> MakeNoise(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<float> noise(count);
    for (float& x : noise) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return noise;
}

TEST(SpectrumOps, AddsComplexProductsAlikeOnEveryMachine) {
    using Complex = std::complex<float>;
    constexpr Complex kGuard{123.0f, 45.0f};
    for (std::size_t count = 0; count <= 70; ++count)
        for (const std::size_t offset : {0u, 1u}) {
            const auto numbers = MakeNoise(6 * count + 6, 3);
            const auto* const values = reinterpret_cast<const Complex*>(numbers.data());
            const Complex* const a = values + offset;
            const Complex* const b = values + count + offset;
            std::vector<Complex> expected(values + 2 * count, values + 3 * count);
            for (std::size_t k = 0; k < count; ++k) {
                const Complex sum = expected[k];
                expected[k] = {
                    (sum.real() + a[k].real() * b[k].real()) + a[k].imag() * -b[k].imag(),
                    (sum.imag() + a[k].real() * b[k].imag()) + a[k].imag() * b[k].real()};
            }
            for (const auto target : hwy::SupportedAndGeneratedTargets()) {
                hwy::SetSupportedTargetsForTest(target);
                std::vector<Complex> sum(values + 2 * count, values + 3 * count);
                sum.push_back(kGuard);
                vector::AddProducts(sum.data(), a, b, count);
                EXPECT_EQ(sum.back(), kGuard) << count;
                sum.pop_back();
                EXPECT_EQ(sum, expected) << count << " on " << hwy::TargetName(target);
            }
            hwy::SetSupportedTargetsForTest(0);
        }
}

/// Against the sum by its definition, in double, with two responses of which one comes in and one leaves
/// in the middle of a part.
TEST(PartitionedFir, ConvolvesInAnyBlocks) {
    constexpr std::size_t kPart = 64;
    constexpr std::size_t kParts = 5;
    constexpr std::size_t kFrames = 2000;
    constexpr std::size_t kSwitch = 1003;
    const auto input = MakeNoise(kFrames, 1);
    FirSpectra spectra[2];
    std::vector<float> taps[2];
    for (unsigned r = 0; r < 2; ++r) {
        taps[r] = MakeNoise(kPart * kParts, 10 + r);
        spectra[r].Prepare(kPart, kParts);
        for (std::size_t part = 0; part < kParts; ++part)
            spectra[r].SetPart(part, taps[r].data() + part * kPart);
    }
    const auto expected = [&](std::size_t r, std::size_t n) {
        double sum = 0.0;
        for (std::size_t k = 0; k < taps[r].size() && n >= kPart + k; ++k)
            sum += static_cast<double>(taps[r][k]) * static_cast<double>(input[n - kPart - k]);
        return sum;
    };
    PartitionedFir fir;
    fir.Prepare(kPart, kParts);
    std::vector<float> first[2];
    for (const std::size_t block : {1u, 7u, 64u, 1000u, 333u}) {
        fir.Reset();
        fir.SetSpectra(0, &spectra[0]);
        std::vector<float> out[2];
        for (auto& each : out) each.assign(kFrames, 0.0f);
        for (std::size_t n = 0; n < kFrames;) {
            if (n == kSwitch) {
                fir.SetSpectra(1, &spectra[1]);
                fir.SetSpectra(0, nullptr);
            }
            const std::size_t end = n < kSwitch ? kSwitch : kFrames;
            const std::size_t run = std::min(block, end - n);
            fir.Process(input.data() + n, out[0].data() + n, out[1].data() + n,
                        static_cast<int>(run));
            n += run;
        }
        for (std::size_t n = 0; n < kFrames; ++n) {
            ASSERT_NEAR(out[0][n], n < kSwitch ? expected(0, n) : 0.0, 2e-5) << n;
            ASSERT_NEAR(out[1][n], n < kSwitch ? 0.0 : expected(1, n), 2e-5) << n;
        }
        for (std::size_t r = 0; r < 2; ++r) {
            if (first[r].empty()) first[r] = out[r];
            EXPECT_EQ(out[r], first[r]) << "blocks of " << block;
        }
    }
}

}  // namespace
}  // namespace dsp
