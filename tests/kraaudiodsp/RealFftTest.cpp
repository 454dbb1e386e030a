#include "kraaudiodsp/RealFft.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cmath>
#include <random>
#include <type_traits>
#include <vector>

#include "kracore/Debug.h"

namespace dsp {
namespace {

template <typename T>
std::vector<T> Noise(std::size_t count) {
    std::mt19937 random(11);
    std::vector<T> noise(count);
    for (T& x : noise) x = static_cast<T>(random()) / T(2147483648.0) - T(1);
    return noise;
}

/// One bin by the definition, in long double.
template <typename T>
std::complex<long double> Bin(const std::vector<T>& x, std::size_t k) {
    std::complex<long double> sum = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
        const auto turn = static_cast<long double>(i * k % x.size()) / x.size();
        sum += static_cast<long double>(x[i]) * std::polar(1.0L, -2 * std::acos(-1.0L) * turn);
    }
    return sum;
}

template <typename T>
class RealFftTest : public testing::Test {
protected:
    static constexpr bool kIsFloat = std::is_same_v<T, float>;
    static constexpr double kRoundTripDb = kIsFloat ? -132 : -290;
};
using Types = testing::Types<float, double>;
TYPED_TEST_SUITE(RealFftTest, Types);

const std::size_t kSizes[] = {2,    4,    6,    8,    10,   12,   16,   18,    20,    24,
                              30,   32,   40,   48,   50,   54,   60,   64,    90,    96,
                              128,  150,  240,  256,  360,  480,  512,  750,   960,   1000,
                              1024, 1250, 1536, 2048, 4096, 4800, 9600, 16384, 65536, 1048576};

TYPED_TEST(RealFftTest, IsTheTransformAndItsInverseForEverySizeAndInstructionSet) {
    using T = TypeParam;
    for (const std::size_t size : kSizes) {
        RealFft<T> fft;
        fft.Prepare(size);
        const auto input = Noise<T>(size);
        std::vector<std::complex<T>> first;
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
            hwy::SetSupportedTargetsForTest(target);
            SCOPED_TRACE(testing::Message() << size << " on " << hwy::TargetName(target));
            std::vector<std::complex<T>> spectrum(size / 2 + 1);
            fft.Forward(input.data(), spectrum.data());
            if (first.empty()) first = spectrum;
            ASSERT_EQ(first, spectrum) << "not the same bits on every machine";
            std::vector<T> back(size);
            fft.Inverse(spectrum.data(), back.data());
            double error = 0, energy = 0;
            for (std::size_t i = 0; i < size; ++i) {
                error += std::pow(static_cast<double>(back[i]) - static_cast<double>(input[i]), 2);
                energy += std::pow(static_cast<double>(input[i]), 2);
            }
            // -310 dB stands for no error at all
            ASSERT_LT(10 * std::log10(error / energy + 1e-31), this->kRoundTripDb);
        }
        hwy::SetSupportedTargetsForTest(0);
        const std::size_t step = size < 300 ? 1 : size < 20000 ? size / 8 - 1 : size / 2;
        for (std::size_t k = 0; k <= size / 2; k += step) {
            const std::complex<long double> expected = Bin(input, k);
            const std::complex<long double> actual(first[k].real(), first[k].imag());
            // Rounding grows with the root of the size (noise of rms 0.58) and the number of passes.
            const long double rounding = this->kIsFloat ? 6e-8L : 1.2e-16L;
            const long double passes = std::log2(static_cast<long double>(size)) + 1;
            ASSERT_LT(std::abs(expected - actual), 4 * rounding * passes * std::sqrt(0.4L * size))
                << size << " bin " << k;
        }
    }
}

TEST(RealFft, RefusesSizesThatItCannotTransform) {
    int refused = 0;
    auto previous = kracore::debug::SetAssertionHandler(
        [&](const kracore::debug::AssertionFailure&) { ++refused; });
    RealFft<float> fft;
    fft.Prepare(48);
    for (const std::size_t size : {0u, 1u, 3u, 15u, 14u, 2u * 1048576u}) fft.Prepare(size);
    kracore::debug::SetAssertionHandler(previous);
    EXPECT_EQ(refused, 6);
    EXPECT_EQ(fft.GetSize(), 48u);

    struct Row {
        std::size_t asked, given;
    };
    for (const Row& row : {Row{0, 2}, {2, 2}, {3, 4}, {7, 8}, {13, 16}, {961, 972}, {1025, 1080}})
        EXPECT_EQ(RealFft<float>::GoodSize(row.asked), row.given) << row.asked;
}

}  // namespace
}  // namespace dsp
