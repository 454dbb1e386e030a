#include "kraaudiodsp/Loudness.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

#include "LimiterSignals.h"
#include "kraaudiodsp/TruePeak.h"
#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

using Audio = std::vector<std::vector<float>>;

struct Part {
    double seconds;
    double levelDb;  // peak of a 1 kHz sine in every channel
};

Audio MakeTones(const std::vector<Part>& parts, int channels, double rateHz) {
    Audio audio(static_cast<std::size_t>(channels));
    double phase = 0.0;
    for (const Part& part : parts) {
        const double level = std::pow(10.0, part.levelDb / 20.0);
        for (int i = 0; i < static_cast<int>(part.seconds * rateHz); ++i) {
            phase += 2.0 * std::numbers::pi * 1000.0 / rateHz;
            const auto sample = static_cast<float>(level * std::sin(phase));
            for (auto& channel : audio) channel.push_back(sample);
        }
    }
    return audio;
}

/// Noise whose level wanders by 40 dB, like a programme.
Audio MakeProgramme(std::size_t channels, double rateHz) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-1.7f, 1.7f);
    Audio audio(channels, std::vector<float>(static_cast<std::size_t>(8.0 * rateHz)));
    for (std::size_t c = 0; c < channels; ++c) {
        float low = 0.0f;
        for (std::size_t i = 0; i < audio[c].size(); ++i) {
            const double t = static_cast<double>(i) / rateHz;
            low += 0.1f * (uniform(random) - low);
            audio[c][i] =
                low * static_cast<float>(std::pow(10.0, std::sin(t + 0.3 * double(c)) - 1.0));
        }
    }
    return audio;
}

Loudness Measure(const Audio& audio, double rateHz, std::size_t block = 1013) {
    static constexpr std::array<double, 6> kWeights{1, 1, 1, 0, 1.41, 1.41};
    Loudness loudness;
    loudness.Prepare(rateHz, {kWeights.data(), audio.size()});
    for (std::size_t done = 0; done < audio[0].size(); done += block) {
        std::vector<const float*> in;
        for (const auto& channel : audio) in.push_back(channel.data() + done);
        loudness.Process(in.data(), std::min(block, audio[0].size() - done));
    }
    return loudness;
}

TEST(Loudness, ReadsTheTonesOfTheStandard) {
    // EBU Tech 3341, table 1: cases 1 to 5, all tones of 1 kHz; tolerance there and here 0.1 LU.
    const struct {
        const char* name;
        std::vector<Part> parts;
        double lufs;
    } rows[] = {
        {"case 1", {{20, -23}}, -23},
        {"case 2", {{20, -33}}, -33},
        {"case 3", {{10, -36}, {60, -23}, {10, -36}}, -23},
        {"case 4", {{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}}, -23},
        {"case 5", {{20, -26}, {20.1, -20}, {20, -26}}, -23},
    };
    for (const auto& row : rows) {
        for (const double rateHz : {8000.0, 44100.0})
            EXPECT_NEAR(Measure(MakeTones(row.parts, 2, rateHz), rateHz).GetIntegratedLufs(),
                        row.lufs, 0.1)
                << row.name << ", " << rateHz;
    }
    const Loudness rising = Measure(MakeTones({{5, -40}, {3, -23}}, 2, 48000), 48000);
    EXPECT_NEAR(rising.GetShortTermLufs(), -23, 0.1);
    EXPECT_NEAR(rising.GetMomentaryLufs(), -23, 0.1);
    for (const double seconds : {0.0, 0.3})
        EXPECT_EQ(Measure(MakeTones({{seconds, -23}}, 2, 48000), 48000).GetIntegratedLufs(),
                  -INFINITY);
    EXPECT_EQ(Measure(Audio(2, std::vector<float>(96000)), 48000).GetIntegratedLufs(), -INFINITY);
}

TEST(Loudness, AgreesWithAnotherImplementation) {
    for (const double rateHz : {44100.0, 48000.0, 96000.0})
        for (const std::size_t channels : {1u, 2u, 6u}) {
            SCOPED_TRACE(testing::Message() << channels << " channels at " << rateHz);
            const Audio audio = MakeProgramme(channels, rateHz);
            ebur128_state* other =
                ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rateHz),
                             EBUR128_MODE_I | EBUR128_MODE_S);
            if (channels == 6) {
                ebur128_set_channel(other, 3, EBUR128_UNUSED);
                ebur128_set_channel(other, 4, EBUR128_LEFT_SURROUND);
                ebur128_set_channel(other, 5, EBUR128_RIGHT_SURROUND);
            }
            std::vector<float> interleaved;
            for (std::size_t i = 0; i < audio[0].size(); ++i)
                for (const auto& channel : audio) interleaved.push_back(channel[i]);
            ebur128_add_frames_float(other, interleaved.data(), audio[0].size());
            double integrated = 0.0, shortTerm = 0.0, momentary = 0.0;
            ebur128_loudness_global(other, &integrated);
            ebur128_loudness_shortterm(other, &shortTerm);
            ebur128_loudness_momentary(other, &momentary);
            ebur128_destroy(&other);
            const Loudness ours = Measure(audio, rateHz);
            EXPECT_NEAR(ours.GetIntegratedLufs(), integrated, 0.02);
            EXPECT_NEAR(ours.GetShortTermLufs(), shortTerm, 0.02);
            EXPECT_NEAR(ours.GetMomentaryLufs(), momentary, 0.02);
        }
}

TEST(TruePeak, ReadsTonesBetweenTheSamples) {
    const double frequencies[] = {100, 997, 5000, 9000, 12000, 15000, 18000, 19000, 20000};
    for (const double frequencyHz : frequencies)
        for (double phase = 0.0; phase < 3.0; phase += 0.37) {
            const auto tone = test::Tone(frequencyHz, 1.0, phase);
            TruePeak finder(tone.size());
            std::vector<float> peaks(tone.size());
            finder.Process(tone.data(), peaks.data(), tone.size());
            const float peak = *std::max_element(peaks.begin() + 100, peaks.end());
            EXPECT_GE(20.0 * std::log10(peak), -0.06) << frequencyHz << " Hz, " << phase;
            EXPECT_LE(20.0 * std::log10(peak), 0.1) << frequencyHz << " Hz, " << phase;
        }
}

TEST(TruePeak, LeavesOutOnlyWhatCannotMatter) {
    auto samples = test::Noise(0.05f, 1.0f);
    for (std::size_t i = 5000; i < 5200; ++i) samples[i] *= 10.0f;
    for (const float floor : {0.0f, 0.05f, 0.2f, 0.5f}) {
        TruePeak all(500);
        TruePeak some(500);
        std::vector<float> expected(500);
        std::vector<float> got(500);
        for (std::size_t done = 0; done < samples.size(); done += 500) {
            all.Process(samples.data() + done, expected.data(), 500);
            some.Process(samples.data() + done, got.data(), 500, floor);
            for (std::size_t i = 0; i < 500; ++i) {
                if (expected[i] > floor) {
                    ASSERT_EQ(got[i], expected[i]) << done + i;
                }
                ASSERT_LE(got[i], expected[i]) << done + i;
            }
        }
    }
}

}  // namespace
}  // namespace dsp
