#include "kraaudiodsp/HardLimit.h"

#include <gtest/gtest.h>

#include <cmath>

#include "LimiterSignals.h"
#include "kraaudiodsp/PeakGain.h"
#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

using Audio = std::vector<std::vector<float>>;
constexpr int kMaxLookAhead = 960;

Audio Limit(HardLimit& limiter, const Audio& in, std::size_t block = 1000) {
    Audio out(in.size(), std::vector<float>(in[0].size()));
    for (std::size_t done = 0; done < in[0].size(); done += block) {
        std::vector<const float*> from;
        std::vector<float*> to;
        for (std::size_t c = 0; c < in.size(); ++c) {
            from.push_back(in[c].data() + done);
            to.push_back(out[c].data() + done);
        }
        limiter.Process(from.data(), to.data(),
                        static_cast<int>(std::min(block, in[0].size() - done)));
    }
    return out;
}

HardLimit MakeLimiter(std::size_t channels, const HardLimit::Settings& settings) {
    HardLimit limiter;
    limiter.Prepare(channels, kMaxLookAhead, 480, test::kLimiterRateHz);
    limiter.Reset(settings);
    return limiter;
}

double ToDb(double gain) { return 20.0 * std::log10(gain); }

TEST(HardLimit, KeepsTruePeaksWithinATenthOfADecibel) {
    const float ceiling = DbToGain(-1.0f);
    auto signals = test::MakeLimiterSignals();
    signals.push_back({"clipped noise of the full band", test::Noise(4.0f, 2.0f)});
    for (const auto& signal : signals) {
        SCOPED_TRACE(signal.name);
        const bool isFullBand = &signal == &signals.back();
        for (const int lookAhead : {48, 240, 720}) {
            HardLimit limiter = MakeLimiter(1, {.ceiling = ceiling, .lookAheadFrames = lookAhead});
            const Audio out = Limit(limiter, {signal.samples});
            const double over = ToDb(test::MeasureTruePeak(out[0], 2000, out[0].size()) / ceiling);
            EXPECT_LE(over, isFullBand ? 0.35 : 0.1) << "dB above, look-ahead " << lookAhead;
            EXPECT_GE(over, -1.5) << "dB below, look-ahead " << lookAhead;
            EXPECT_EQ(limiter.GetClampedCount(), 0u);
            for (const float x : out[0]) ASSERT_LE(std::fabs(x), ceiling);
        }
    }
}

TEST(HardLimit, IsADelayWhereNothingIsNearTheCeiling) {
    for (const bool usesTruePeaks : {false, true}) {
        const HardLimit::Settings settings{.usesTruePeaks = usesTruePeaks};
        Audio in(2);
        for (auto& channel : in) channel = test::Noise(0.1f, 0.3f);
        in[0][11000] = usesTruePeaks ? 0.3f : 1.0f;  // at the ceiling is not above it
        in[1][15000] = 2.0f;
        HardLimit limiter = MakeLimiter(2, settings);
        const auto latency = static_cast<std::size_t>(limiter.GetLatency());
        EXPECT_EQ(latency, usesTruePeaks ? 264u : 240u);
        const Audio out = Limit(limiter, in);
        // The peak acts on the look-ahead before it, and until its release is over.
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 0; i < 15000 - 270; ++i)
                ASSERT_EQ(out[c][i + latency], in[c][i]) << i;
        EXPECT_NEAR(out[1][15000 + latency], 1.0f, 0.01f);
        EXPECT_NEAR(out[0][15000 + latency], in[0][15000] / 2.0f, 0.01f) << "channels are linked";
        EXPECT_EQ(Limit(limiter, Audio(2, std::vector<float>(96000)))[0][95999], 0.0f);
        EXPECT_EQ(limiter.GetReductionDb(), 0.0f) << "and back to exactly none";
    }
}

/// Attenuation of a small tone, in dB, some frames behind a burst 6 dB above the ceiling.
double AttenuationAfterBurst(const HardLimit::Settings& settings, int burstFrames, int later) {
    HardLimit limiter = MakeLimiter(1, settings);
    Audio in{std::vector<float>(96000, 1e-3f)};
    for (int i = 0; i < burstFrames; ++i) in[0][static_cast<std::size_t>(1000 + i)] = 2.0f;
    const Audio out = Limit(limiter, in);
    const auto at = static_cast<std::size_t>(1000 + burstFrames + later + settings.lookAheadFrames);
    return -ToDb(out[0][at] / 1e-3);
}

TEST(HardLimit, ReleasesAsSet) {
    const struct {
        const char* name;
        bool isAuto;
        int burstFrames;
        int later;
        double expectedDb;  // of 6.02 dB
        double toleranceDb;
    } rows[] = {
        {"manual, after a look-ahead and a release", false, 10, 4800 + 240, 6.02 * 0.368, 0.15},
        {"the same after a long burst", false, 24000, 4800 + 240, 6.02 * 0.368, 0.15},
        {"auto, single peaks release like manual", true, 10, 4800 + 240, 6.02 * 0.368, 0.15},
        {"auto, long bursts release eight times slower", true, 24000, 8 * 4800 + 240, 6.02 * 0.368,
         0.2},
    };
    for (const auto& row : rows)
        EXPECT_NEAR(AttenuationAfterBurst({.isReleaseAuto = row.isAuto, .usesTruePeaks = false},
                                          row.burstFrames, row.later),
                    row.expectedDb, row.toleranceDb)
            << row.name;
}

/// Power of the harmonics of a 50 Hz sine over that of the sine, in dB.
double DistortionDb(const std::vector<float>& x) {
    constexpr std::size_t kFrames = 48000;
    const auto power = [&](double frequencyHz) {
        double re = 0.0, im = 0.0;
        for (std::size_t i = 0; i < kFrames; ++i) {
            const double angle =
                2.0 * std::numbers::pi * frequencyHz * static_cast<double>(i) / 48000.0;
            re += x[x.size() - kFrames + i] * std::cos(angle);
            im += x[x.size() - kFrames + i] * std::sin(angle);
        }
        return re * re + im * im;
    };
    double harmonics = 0.0;
    for (int k = 2; k <= 40; ++k) harmonics += power(50.0 * k);
    return 10.0 * std::log10(harmonics / power(50.0));
}

TEST(HardLimit, LeavesBassClean) {
    Audio in(1);
    for (int i = 0; i < 6; ++i) {
        const auto tone = test::Tone(50, 2.0);  // whole periods
        in[0].insert(in[0].end(), tone.begin(), tone.end());
    }
    HardLimit limiter = MakeLimiter(1, {});
    EXPECT_LT(DistortionDb(Limit(limiter, in)[0]), -50.0);
}

TEST(HardLimit, LinksByDegreesAndTakesChangesWithoutOvers) {
    Audio in{test::Tone(997, 4.0), test::Tone(1009, 0.5)};
    for (const float link : {0.0f, 0.5f, 1.0f}) {
        HardLimit limiter = MakeLimiter(2, {.link = link});
        const Audio out = Limit(limiter, in);
        const float peak = *std::max_element(out[1].begin() + 12000, out[1].end());
        EXPECT_NEAR(ToDb(peak / 0.5), -12.04 * static_cast<double>(link), 0.1) << link;
    }
    HardLimit limiter = MakeLimiter(2, {});
    const Audio noise{test::Noise(1.0f, 3.0f), test::Noise(0.3f, 3.0f)};
    std::mt19937 random(5);
    for (int k = 0; k < 12; ++k) {
        const float unit = static_cast<float>(random() % 1000) / 1000.0f;
        const HardLimit::Settings settings{.ceiling = 0.3f + 0.7f * unit,
                                           .drive = 0.5f + 3.0f * (1.0f - unit),
                                           .releaseFrames = 100.0f + 9000.0f * unit,
                                           .isReleaseAuto = k % 3 == 0,
                                           .link = k % 2 == 0 ? 1.0f : unit};
        limiter.SetSettings(settings);
        for (const auto& channel : Limit(limiter, noise, 777))
            for (std::size_t i = 300; i < channel.size(); ++i)
                ASSERT_LE(std::fabs(channel[i]), settings.ceiling) << k << ", frame " << i;
    }
    EXPECT_EQ(limiter.GetClampedCount(), 0u);
}

/// With a release that holds nothing back, only the look-ahead can keep a peak until its sample comes.
TEST(PeakGain, LowersEachSampleByWhatItNeeds) {
    for (const int lookAhead : {2, 3, 5, 48, 241}) {
        PeakGain gain;
        gain.Prepare(kMaxLookAhead, test::kLimiterRateHz);
        gain.Reset(lookAhead);
        gain.SetRelease(0.0, false);
        std::vector<float> needed(2000, 0.0f);
        for (std::size_t i = 10; i < needed.size(); i += 7 * i / 5)
            needed[i] = 1.0f + static_cast<float>(i % 9);
        std::vector<float> lowered = needed;
        gain.Process(lowered.data(), lowered.size());
        for (std::size_t i = 0, n = static_cast<std::size_t>(lookAhead); n < lowered.size();
             ++i, ++n)
            ASSERT_GE(lowered[n], needed[i]) << "frame " << i << ", look-ahead " << lookAhead;
    }
}

}  // namespace
}  // namespace dsp
