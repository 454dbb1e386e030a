#include <fmt/format.h>
#include <gmock/gmock.h>

#include "host/PeakLimiter.h"
#include "host/Resampler.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

Channels Limit(Channels samples,
               float ceiling,
               std::size_t blockFrames,
               float* lowestGain = nullptr) {
    PeakLimiter limiter(48000, static_cast<int>(samples.size()), ceiling);
    const std::size_t frames = samples.front().size();
    for (std::size_t first = 0; first < frames; first += blockFrames)
        limiter.Process(Pointers(samples, first).data(),
                        static_cast<int>(std::min(blockFrames, frames - first)));
    if (lowestGain) *lowestGain = limiter.GetLowestGain();
    return samples;
}

TEST(PeakLimiter, KeepsTheCeiling) {
    Channels noise = MakeNoise(3, 30000, 24);
    for (auto& channel : noise)
        for (float& sample : channel) sample *= 4.0f;
    Channels sine{MakeSine(997, 48000, 30000, 1.7)};
    Channels clicks(2, std::vector<float>(30000, 0.1f));
    for (std::size_t i = 0; i < 30000; i += 1237) clicks[i % 2][i] = 50.0f;
    clicks[0][20000] = INFINITY;
    clicks[0][20500] = -1e38f;
    for (const Channels& samples : {noise, sine, clicks}) {
        for (const float ceiling : {1.0f, 0.891f}) {
            float lowestGain = 1.0f;
            const Channels out = Limit(samples, ceiling, 512, &lowestGain);
            for (const auto& channel : out)
                for (const float sample : channel) ASSERT_LE(std::fabs(sample), ceiling);
            EXPECT_LT(lowestGain, 0.7f);
            EXPECT_EQ(Limit(samples, ceiling, 77), out);
        }
    }
}

TEST(PeakLimiter, IsADelayUnlessSomethingExceedsTheCeiling) {
    Channels samples = MakeNoise(2, 30000, 24);  // up to exactly full scale
    samples[1][15000] = 2.0f;
    const int delay = PeakLimiter(48000, 2).GetLatencyFrames();
    EXPECT_EQ(delay, 240);
    const Channels out = Limit(samples, 1.0f, 1000);
    const auto ahead = static_cast<std::size_t>(delay);
    for (std::size_t c = 0; c < 2; ++c) {
        for (std::size_t i = 0; i + ahead < 30000; ++i) {
            const bool isNear = i + ahead >= 15000 && i <= 15000 + ahead;
            if (!isNear) {
                ASSERT_EQ(out[c][i + ahead], samples[c][i]) << i;
            }
        }
    }
    EXPECT_NEAR(out[1][15000 + ahead], 1.0f, 1e-6f);
    EXPECT_NEAR(out[0][15000 + ahead], samples[0][15000] / 2.0f, 1e-6f);  // channels are linked
}

TEST(PeakLimiter, LowersTheGainSmoothly) {
    Channels samples(1, std::vector<float>(4000, 0.5f));
    samples[0][2000] = 4.0f;
    const Channels out = Limit(samples, 1.0f, 4000);
    for (std::size_t i = 241; i < 4000; ++i) {
        if (i == 2240 || i == 2241) continue;  // the click itself
        // Two boxes of 121 frames: a triangle that moves by 1/121 of the drop of 3/4 at most.
        ASSERT_LE(std::fabs(out[0][i] - out[0][i - 1]), 0.5f * 0.75f / 121.0f * 1.01f) << i;
    }
}

std::vector<float> Resample(const std::vector<float>& in, int fromHz, int toHz, int blockFrames) {
    Resampler resampler(fromHz, toHz, 2);
    std::vector<float> out;
    Channels block(2, std::vector<float>(300));
    for (std::size_t at = 0; at < in.size();) {
        const int count = std::min(blockFrames, static_cast<int>(in.size() - at));
        const std::array<const float*, 2> from{&in[at], &in[at]};
        const Resampler::Progress progress =
            resampler.Process(from.data(), count, Pointers(block).data(), 300);
        at += static_cast<std::size_t>(progress.consumed);
        out.insert(out.end(), block[1].begin(), block[1].begin() + progress.produced);
    }
    while (const int count = resampler.Drain(Pointers(block).data(), 300))
        out.insert(out.end(), block[1].begin(), block[1].begin() + count);
    return out;
}

TEST(Resampler, KeepsLengthTimeAndQuality) {
    struct Case {
        int fromHz, toHz;
    };
    for (const Case& c :
         {Case{44100, 48000}, Case{48000, 44100}, Case{48000, 16000}, Case{8000, 192000},
          Case{48000, 48000}, Case{44100, 88200}, Case{11025, 44100}}) {
        for (const int frames : {0, 1, 100, 30011}) {
            SCOPED_TRACE(fmt::format("{} to {} Hz, {} frames", c.fromHz, c.toHz, frames));
            const std::vector<float> sine = MakeSine(1000, c.fromHz, frames);
            const std::vector<float> out = Resample(sine, c.fromHz, c.toHz, 1000);
            ASSERT_EQ(out.size(), static_cast<std::size_t>(std::llround(
                                      static_cast<double>(frames) * c.toHz / c.fromHz)));
            EXPECT_EQ(Resample(sine, c.fromHz, c.toHz, 77), out);
            if (frames < 30000) continue;
            const std::vector<float> ideal = MakeSine(1000, c.toHz, static_cast<int>(out.size()));
            double error = 0.0, power = 0.0;
            // The ends hold the onset of the sine, which is not band limited.
            for (std::size_t i = out.size() / 8; i < out.size() * 7 / 8; ++i) {
                error += std::pow(static_cast<double>(out[i]) - ideal[i], 2);
                power += std::pow(static_cast<double>(ideal[i]), 2);
            }
            EXPECT_LT(10.0 * std::log10(error / power + 1e-30), -105.0);
        }
    }
    EXPECT_EQ(Resampler::GetOutputFrames(std::int64_t{1} << 50, 44100, 88200),
              std::int64_t{1} << 51);
}

}  // namespace
}  // namespace zuc::host
