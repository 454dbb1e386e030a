#include "host/SampleConversion.h"

#include <gmock/gmock.h>

#include <fmt/format.h>
#include <numeric>

#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

TEST(Dither, IsTriangularAndWhite) {
    constexpr std::size_t kCount = 1 << 20;
    for (const std::uint64_t seed : {0u, 1u, 12345u}) {
        std::vector<float> noise(kCount);
        Dither(seed).Fill(noise.data(), kCount);
        const double n = static_cast<double>(kCount);
        // Bounds of four to five standard deviations of each estimate.
        EXPECT_NEAR(std::accumulate(noise.begin(), noise.end(), 0.0) / n, 0.0, 0.002);
        EXPECT_NEAR(std::inner_product(noise.begin(), noise.end(), noise.begin(), 0.0) / n,
                    1.0 / 6.0, 0.001);
        EXPECT_LT(*std::max_element(noise.begin(), noise.end()), 1.0f);
        EXPECT_GT(*std::min_element(noise.begin(), noise.end()), -1.0f);
        const auto inner =
            std::count_if(noise.begin(), noise.end(), [](float x) { return std::fabs(x) < 0.5f; });
        EXPECT_NEAR(static_cast<double>(inner) / n, 0.75, 0.002);
        for (std::size_t lag = 1; lag <= 64; ++lag) {
            const double sum =
                std::inner_product(noise.begin(), noise.end() - static_cast<long>(lag),
                                   noise.begin() + static_cast<long>(lag), 0.0);
            EXPECT_LT(std::fabs(sum / n * 6.0), 5.0 / std::sqrt(n)) << lag;
        }
    }
}

TEST(Dither, DoesNotDependOnCounts) {
    std::vector<float> whole(1000), parts(1000);
    Dither(7).Fill(whole.data(), whole.size());
    Dither inParts(7);
    for (std::size_t at = 0, count = 0; at < parts.size(); at += count, ++count)
        inParts.Fill(&parts[at], count = std::min(count, parts.size() - at));
    EXPECT_EQ(parts, whole);
}

TEST(Dither, MakesTheErrorOfALevelIndependentOfIt) {
    constexpr std::size_t kCount = 200000;
    std::vector<float> noise(kCount);
    Dither(3).Fill(noise.data(), kCount);
    for (const float level : {0.0f, 0.25f, 0.5f, 0.9f}) {
        const std::vector<float> samples(kCount, (1000.0f + level) / 32768.0f);
        std::vector<std::int32_t> integers(kCount);
        Quantise(samples.data(), noise.data(), integers.data(), kCount, 16);
        double sum = 0.0, squares = 0.0;
        for (const std::int32_t value : integers) {
            const double error = value - 1000.0 - level;
            sum += error;
            squares += error * error;
        }
        // Triangular noise of 1/6 and rounding of 1/12 LSB^2, whatever the level is.
        EXPECT_NEAR(sum / kCount, 0.0, 0.005) << level;
        EXPECT_NEAR(squares / kCount, 0.25, 0.005) << level;
    }
}

TEST(Quantise, RoundsAndCutsOff) {
    struct Case {
        float sample;
        int bits;
        std::int32_t expected;
    };
    for (const Case& c :
         {Case{1.0f, 16, 32767}, Case{-1.0f, 16, -32768}, Case{7.0f, 16, 32767},
          Case{-INFINITY, 16, -32768}, Case{NAN, 16, 0}, Case{0.5f / 32768, 16, 1},
          Case{-0.49f / 32768, 16, 0}, Case{INFINITY, 24, 8388607}, Case{-2.0f, 24, -8388608},
          Case{8388607.0f / 8388608, 24, 8388607}, Case{1.0f, 32, 2147483647},
          Case{-1.0f, 32, INT32_MIN}, Case{NAN, 32, 0}, Case{2.0f, 8, 127}}) {
        std::int32_t out = 1;
        Quantise(&c.sample, nullptr, &out, 1, c.bits);
        EXPECT_EQ(out, c.expected) << c.sample << " " << c.bits;
    }
}

TEST(AudioWriter, GivesTheSameBytesForEveryBlockSize) {
    const TestFolder folder;
    Channels samples = MakeNoise(2, 20000, 24);
    const auto bytesOf = [&](std::size_t blockFrames, std::uint64_t seed) {
        AudioWriterOptions options = MakeOptions(folder / "a.wav", 2, SampleFormat::kInt16);
        options.seed = seed;
        WriteAudio(options, samples, {}, blockFrames);
        return ReadBytes(options.path);
    };
    const std::string expected = bytesOf(20000, 1);
    for (const std::size_t blockFrames : {1, 7, 1000, 4096})
        EXPECT_EQ(bytesOf(blockFrames, 1), expected);
    EXPECT_NE(bytesOf(1000, 2), expected);
}

TEST(AudioWriter, CountsOvers) {
    const TestFolder folder;
    for (const SampleFormat format : {SampleFormat::kInt16, SampleFormat::kFloat32}) {
        AudioWriter writer(MakeOptions(folder / "a.wav", 2, format), {});
        Channels samples(2, std::vector<float>(48000, 1.0f));  // full scale itself is none
        WriteFrames(writer, samples, 4800);
        EXPECT_EQ(writer.GetOvers().count, 0);
        EXPECT_EQ(writer.GetOvers().peak, 1.0f);
        EXPECT_EQ(writer.GetOvers().GetGainToAvoidDb(), 0.0f);
        samples[1][24000] = -2.0f;
        samples[0][24001] = 1.5f;
        samples[0][30000] = INFINITY;
        samples[0][30001] = NAN;
        WriteFrames(writer, samples, 4800);
        EXPECT_EQ(writer.GetOvers().count, 3);
        EXPECT_EQ(writer.GetOvers().firstSeconds, 1.5);
        EXPECT_EQ(writer.GetOvers().firstChannel, 1);
        EXPECT_EQ(writer.GetOvers().peak, 2.0f);
        EXPECT_NEAR(writer.GetOvers().GetGainToAvoidDb(), -6.02, 0.01);
    }
}

TEST(PeakOf, FindsThePeakWhereverItIs) {
    for (const std::size_t count : {1, 2, 3, 4, 5, 15, 16, 17, 33, 64}) {
        for (std::size_t at = 0; at < count; ++at) {
            std::vector<float> samples(count, 0.25f);
            samples[at] = -0.75f;
            EXPECT_EQ(PeakOf(samples.data(), count), 0.75f) << count << " " << at;
            samples[at] = NAN;
            EXPECT_FALSE(std::isfinite(PeakOf(samples.data(), count)));
        }
    }
}

}  // namespace
}  // namespace zuc::host
