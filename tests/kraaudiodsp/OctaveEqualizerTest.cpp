#include "kraaudiodsp/OctaveEqualizer.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <deque>
#include <numbers>
#include <random>
#include <vector>

#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

using Signal = std::vector<std::vector<float>>;  // channels x frames
using Bands = OctaveEqualizer::BandGains;

constexpr Bands kUneven{0.3f, 4.0f, 0.2f, 1.0f, 2.5f, 0.9f, 0.18f, 1.7f};

Signal MakeNoise(std::size_t channels, std::size_t frames) {
    std::mt19937 random(5);
    Signal noise(channels, std::vector<float>(frames));
    for (auto& channel : noise)
        for (float& x : channel) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return noise;
}

/// Filters in blocks of the given lengths, again and again.
Signal Filter(OctaveEqualizer& equalizer, Signal signal, const std::vector<int>& blocks) {
    const int frames = static_cast<int>(signal[0].size());
    std::size_t block = 0;
    for (int done = 0; done < frames;) {
        const int count = std::min(blocks[block++ % blocks.size()], frames - done);
        std::vector<float*> io;
        for (auto& channel : signal) io.push_back(channel.data() + done);
        equalizer.Process(io.data(), count);
        done += count;
    }
    return signal;
}

Signal Filter(const Bands& bands,
              float overall,
              const Signal& signal,
              const std::vector<int>& blocks) {
    OctaveEqualizer equalizer;
    equalizer.Prepare(signal.size());
    equalizer.SetGains(bands, overall);
    return Filter(equalizer, signal, blocks);
}

/// The definition, band by band, every mean added up anew.
double SumOfBands(std::array<std::deque<double>, 7>& past, const Bands& bands, double x) {
    double out = 0.0;
    double input = x;
    for (std::size_t k = 0; k < past.size(); ++k) {
        const std::size_t length = std::size_t{2} << k;
        past[k].push_front(input);
        past[k].resize(length, 0.0);
        double mean = 0.0;
        for (const double value : past[k]) mean += value / static_cast<double>(length);
        out += (input - mean) * static_cast<double>(bands[7 - k]);
        input = mean;
    }
    return out + input * static_cast<double>(bands[0]);
}

TEST(OctaveEqualizer, IsTheSumOfItsBandsForAnyChannelsAndBlocks) {
    for (const std::size_t channels : {1u, 2u, 3u, 5u, 6u}) {
        const Signal noise = MakeNoise(channels, 1500);
        const Signal out = Filter(kUneven, 0.5f, noise, {1500});
        for (std::size_t c = 0; c < channels; ++c) {
            std::array<std::deque<double>, 7> past;
            for (std::size_t i = 0; i < noise[c].size(); ++i)
                ASSERT_NEAR(out[c][i], 0.5 * SumOfBands(past, kUneven, noise[c][i]), 4e-7)
                    << "channel " << c << " of " << channels << ", frame " << i;
        }
        for (const std::vector<int>& blocks : {std::vector{1}, {7, 1, 130}, {128}, {127, 2}})
            EXPECT_EQ(Filter(kUneven, 0.5f, noise, blocks), out) << channels << ' ' << blocks[0];
    }
}

TEST(OctaveEqualizer, GivesTheSameBitsOnEveryInstructionSet) {
    const Signal noise = MakeNoise(6, 1000);
    const Signal expected = Filter(kUneven, 1.0f, noise, {1000});
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        hwy::SetSupportedTargetsForTest(target);
        EXPECT_EQ(Filter(kUneven, 1.0f, noise, {1000}), expected) << hwy::TargetName(target);
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(OctaveEqualizer, EqualGainsTelescopeToAPlainGain) {
    const Signal noise = MakeNoise(2, 2000);
    for (const float gain : {0.25f, 2.0f, 3.3f}) {
        Bands bands;
        bands.fill(gain);
        const Signal out = Filter(bands, 1.0f, noise, {333});
        for (std::size_t i = 0; i < noise[0].size(); ++i)
            ASSERT_EQ(out[0][i], noise[0][i] * gain) << i;
    }
}

TEST(OctaveEqualizer, IsLeftOutAndNotFedWhileFlat) {
    const struct {
        float db;
        float overall;
        bool enabled;
    } rows[] = {{0.0f, 1.0f, false},   {0.0009f, 1.0f, false}, {-0.0009f, 1.00009f, false},
                {0.0012f, 1.0f, true}, {-0.0012f, 1.0f, true}, {0.0f, 1.0002f, true},
                {0.0f, 0.9998f, true}};
    OctaveEqualizer equalizer;
    equalizer.Prepare(1);
    for (const auto& row : rows) {
        Bands bands;
        bands.fill(1.0f);
        bands[3] = DbToGain(row.db);
        equalizer.SetGains(bands, row.overall);
        EXPECT_EQ(equalizer.IsEnabled(), row.enabled) << row.db << ' ' << row.overall;
    }
    Bands flat;
    flat.fill(1.0f);
    const Signal noise = MakeNoise(1, 700);
    const Signal half(1, std::vector<float>(noise[0].begin(), noise[0].begin() + 350));
    const Signal rest(1, std::vector<float>(noise[0].begin() + 350, noise[0].end()));
    equalizer.SetGains(kUneven);
    const Signal first = Filter(equalizer, half, {350});
    equalizer.SetGains(flat);
    EXPECT_EQ(Filter(equalizer, noise, {100}), noise);
    equalizer.SetGains(kUneven);
    const Signal second = Filter(equalizer, rest, {350});
    Signal joined = first;
    joined[0].insert(joined[0].end(), second[0].begin(), second[0].end());
    EXPECT_EQ(joined, Filter(kUneven, 1.0f, noise, {700})) << "the flat stretch was kept";
}

TEST(OctaveEqualizer, RespondsAsItSays) {
    Signal impulse(1, std::vector<float>(300));
    impulse[0][0] = 1.0f;
    const auto response = Filter(kUneven, 1.0f, impulse, {300})[0];
    EXPECT_NE(response[OctaveEqualizer::kMemoryFrames], 0.0f);
    EXPECT_EQ(response[OctaveEqualizer::kMemoryFrames + 1], 0.0f);
    double peak = 0.0;
    for (int i = 0; i <= 5000; ++i) {
        const double cycles = i / 10000.0;
        std::complex<double> sum;
        for (std::size_t k = 0; k < response.size(); ++k)
            sum += static_cast<double>(response[k]) *
                   std::polar(1.0, -2.0 * std::numbers::pi * cycles * static_cast<double>(k));
        ASSERT_NEAR(std::abs(sum - OctaveEqualizer::GetResponse(kUneven, cycles)), 0.0, 1e-6)
            << cycles;
        peak = std::max(peak, std::abs(sum));
    }
    EXPECT_NEAR(OctaveEqualizer::GetPeakGain(kUneven), peak, 0.02 * peak);
    EXPECT_NEAR(std::abs(OctaveEqualizer::GetResponse(kUneven, 0.0)), kUneven[0], 1e-6);
    EXPECT_NEAR(std::abs(OctaveEqualizer::GetResponse(kUneven, 0.5)), kUneven[7], 1e-6);
}

TEST(OctaveEqualizer, LeavesNothingAudibleBehindAfterAnHourOfNoise) {
    OctaveEqualizer equalizer;
    equalizer.Prepare(2);
    equalizer.SetGains(kUneven);
    const Signal noise = MakeNoise(2, 48017);
    Signal block = noise;
    float* io[]{block[0].data(), block[1].data()};
    for (int second = 0; second < 3600; ++second) {
        block = noise;
        equalizer.Process(io, static_cast<int>(noise[0].size()));
    }
    const Signal rest = Filter(equalizer, Signal(2, std::vector<float>(2000)), {512});
    for (std::size_t i = OctaveEqualizer::kMemoryFrames; i < 2000; ++i)
        ASSERT_LT(std::fabs(rest[0][i]), 1e-10f) << "-200 dBFS, frame " << i;
}

}  // namespace
}  // namespace dsp
