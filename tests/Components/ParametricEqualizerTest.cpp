#include "Components/ParametricEqualizer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <vector>

#include "kraaudiodsp/Parametric.h"
#include "kracore/WStr.h"
#include "tests/Components/EffectPlayer.h"

namespace zuc::components {
namespace {

using PE = ParametricEqualizer;
using Player = EffectPlayer<PE>;

void SetBand(Player& player, int band, const dsp::ParametricBand& to, int slope = 1) {
    player.Set(PE::At(band, PE::kOn), to.on ? 1.0f : 0.0f);
    player.Set(PE::At(band, PE::kType), static_cast<float>(to.type));
    player.Set(PE::At(band, PE::kFrequency), static_cast<float>(to.frequencyHz));
    player.Set(PE::At(band, PE::kGain), static_cast<float>(to.gainDb));
    player.Set(PE::At(band, PE::kQ), static_cast<float>(to.q));
    player.Set(PE::At(band, PE::kSlope), static_cast<float>(slope));
}

double MagnitudeDb(const std::vector<float>& response, double cyclesPerFrame) {
    std::complex<double> sum = 0.0;
    for (std::size_t i = 0; i < response.size(); ++i)
        sum += static_cast<double>(response[i]) *
               std::polar(1.0, -2.0 * std::numbers::pi * cyclesPerFrame * static_cast<double>(i));
    return 20.0 * std::log10(std::abs(sum));
}

TEST(ParametricEqualizer, SoundsLikeTheAnalogCurveUpToTheTopOctave) {
    using dsp::BandType;
    const struct {
        const char* name;
        dsp::ParametricBand band;
        int slope;  // place in the list
    } rows[] = {{"bell", {true, BandType::kBell, 12000, 12, 2.0, 2}, 1},
                {"narrow cut", {true, BandType::kBell, 300, -20, 8.0, 2}, 1},
                {"low shelf", {true, BandType::kLowShelf, 400, 9, 0.71, 2}, 1},
                {"high shelf", {true, BandType::kHighShelf, 9000, -9, 0.71, 2}, 1},
                {"high-pass 6", {true, BandType::kHighPass, 500, 0, 1.0, 1}, 0},
                {"high-pass 18", {true, BandType::kHighPass, 500, 0, 1.0, 3}, 2},
                {"high-pass 48", {true, BandType::kHighPass, 2000, 0, 1.0, 8}, 5},
                {"low-pass 24", {true, BandType::kLowPass, 9000, 0, 1.0, 4}, 3},
                {"low-pass 36", {true, BandType::kLowPass, 12000, 0, 1.0, 6}, 4},
                {"notch", {true, BandType::kNotch, 5000, 0, 2.0, 2}, 1},
                {"band-pass", {true, BandType::kBandPass, 3000, 0, 0.7, 2}, 1},
                {"tilt", {true, BandType::kTilt, 900, 6, 0.71, 2}, 1}};
    for (const float rateHz : {44100.0f, 48000.0f, 96000.0f})
        for (const auto& row : rows) {
            Player player(1, rateHz);
            SetBand(player, 3, row.band, row.slope);
            player->Resume();
            const Signal response = player.Play(MakeImpulse(1, 1 << 14));
            for (double f = 100.0; f < 0.45 * rateHz; f *= 1.19) {
                const double analog =
                    20.0 * std::log10(dsp::GetAnalogMagnitude(row.band, f, rateHz));
                if (analog < -60.0) continue;
                // The sections of a steep filter add up what they are off on its slope.
                const double limit = row.band.order > 2 ? 0.2 : 0.1;
                EXPECT_NEAR(MagnitudeDb(response[0], f / rateHz), analog, limit)
                    << row.name << " at " << f << " Hz, rate " << rateHz;
            }
        }
}

/// The response of linear phase: symmetric around the latency, and as the analog magnitude wherever the
/// curve is not narrower than the taps resolve.
TEST(ParametricEqualizer, LinearPhaseDelaysEverythingAlikeAndKeepsTheCurve) {
    using dsp::BandType;
    const struct {
        const char* name;
        dsp::ParametricBand band;
        int slope;
    } rows[] = {{"bell", {true, BandType::kBell, 16000, 12, 2.0, 2}, 1},
                {"cut", {true, BandType::kBell, 1000, -18, 3.0, 2}, 1},
                {"low shelf", {true, BandType::kLowShelf, 250, 9, 0.71, 2}, 1},
                {"high shelf", {true, BandType::kHighShelf, 9000, -9, 0.71, 2}, 1},
                {"high-pass 48", {true, BandType::kHighPass, 2000, 0, 1.0, 8}, 5},
                {"low-pass 24", {true, BandType::kLowPass, 9000, 0, 1.0, 4}, 3},
                {"notch", {true, BandType::kNotch, 5000, 0, 2.0, 2}, 1},
                {"tilt", {true, BandType::kTilt, 900, 6, 0.71, 2}, 1}};
    const struct {
        float rateHz;
        std::size_t latency;
    } rates[] = {{44100, 4096}, {48000, 4096}, {96000, 8192}};
    for (const auto& [rateHz, latency] : rates)
        for (const auto& row : rows) {
            Player player(1, rateHz);
            player.Set(PE::kPhase, 1);
            SetBand(player, 3, row.band, row.slope);
            player->Resume();
            ASSERT_EQ(player->GetInitialDelay(), static_cast<int>(latency));
            const Signal response = player.Play(MakeImpulse(1, 2 * latency + 1));
            float asymmetry = 0.0f;
            for (std::size_t k = 1; k <= latency; ++k)
                asymmetry = std::max(
                    asymmetry, std::fabs(response[0][latency - k] - response[0][latency + k]));
            EXPECT_LT(asymmetry, 1e-6f) << row.name;
            for (double f = 100.0; f < 0.45 * rateHz; f *= 1.19) {
                const double analog =
                    20.0 * std::log10(dsp::GetAnalogMagnitude(row.band, f, rateHz));
                if (analog < -60.0) continue;
                EXPECT_NEAR(MagnitudeDb(response[0], f / rateHz), analog, 0.1)
                    << row.name << " at " << f << " Hz, rate " << rateHz;
            }
        }
}

TEST(ParametricEqualizer, ParallelIsSerialBitForBit) {
    const Signal noise = MakeNoise(6, 40960);
    for (const float phase : {0.0f, 1.0f}) {
        Signal expected;
        for (const std::size_t block : {2047u, 1u, 64u, 2048u, 4096u, 20480u}) {
            Player player(6);
            for (int k = 0; k < PE::kBandCount; ++k)
                SetBand(player, k,
                        {true, static_cast<dsp::BandType>(k), 200.0 * (k + 1), 3, 2.0, 2});
            player.Set(PE::kPhase, phase);
            player->Resume();
            // From one phase to the other, with a change that waits for the end of the transition.
            Signal out = player.Play(noise, 0, 6141, block);
            player.Set(PE::kPhase, 1.0f - phase);
            Append(out, player.Play(noise, 6141, 9000, block));
            player.Set(PE::At(2, PE::kGain), -9.0f);
            Append(out, player.Play(noise, 9000, 40960, block));
            if (expected.empty()) expected = out;
            EXPECT_EQ(out, expected) << block;
        }
    }
}

/// A low sine has no steps of its own: whatever the settings do must not add any.
TEST(ParametricEqualizer, SwitchesPhaseAndLinearCurvesWithoutClicks) {
    constexpr std::size_t kFrames = 60000;
    constexpr double kToneHz = 100.0;
    const float step = static_cast<float>(2.0 * std::numbers::pi * kToneHz / 48000.0) * 0.5f;
    Signal sine(1, std::vector<float>(kFrames));
    for (std::size_t i = 0; i < kFrames; ++i)
        sine[0][i] = 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * kToneHz *
                                                        static_cast<double>(i) / 48000.0));
    const struct {
        const char* name;
        float phase, newPhase, gainDb, newGainDb;
    } rows[] = {{"to linear", 0, 1, 6, 6},
                {"to minimum", 1, 0, 6, 6},
                {"linear, another curve", 1, 1, -12, 6},
                {"linear, from flat", 1, 1, 0, 6},
                {"linear, to flat", 1, 1, 6, 0}};
    for (const auto& row : rows) {
        Player player(1);
        player.Set(PE::kPhase, row.phase);
        SetBand(player, 2, {true, dsp::BandType::kLowShelf, 1000, row.gainDb, 0.7, 2});
        player->Resume();
        Signal out = player.Play(sine, 0, 20011, 512);
        player.Set(PE::kPhase, row.newPhase);
        player.Set(PE::At(2, PE::kGain), row.newGainDb);
        Append(out, player.Play(sine, 20011, kFrames, 512));
        // The largest gain on the way is 6 dB; at equal power two equal sines may add up to 3 dB more.
        float largest = 0.0f;
        for (std::size_t i = 8192; i < kFrames; ++i)
            largest = std::max(largest, std::fabs(out[0][i] - out[0][i - 1]));
        EXPECT_LT(largest, step * 2.0f * 1.42f) << row.name;
        // Where it ends is where a fresh effect with these settings is.
        Player fresh(1);
        fresh.Set(PE::kPhase, row.newPhase);
        SetBand(fresh, 2, {true, dsp::BandType::kLowShelf, 1000, row.newGainDb, 0.7, 2});
        fresh->Resume();
        const Signal expected = fresh.Play(sine);
        for (std::size_t i = 40000; i < kFrames; ++i)
            ASSERT_NEAR(out[0][i], expected[0][i], 1e-5f) << row.name << ", frame " << i;
    }
}

TEST(ParametricEqualizer, LinearPhaseOfNothingIsThePlainInputLater) {
    const Signal noise = MakeNoise(2, 12000);
    Player player;
    player.Set(PE::kPhase, 1);
    player->Resume();
    EXPECT_EQ(player->GetTail(), 0);
    const Signal out = player.Play(noise);
    for (std::size_t c = 0; c < 2; ++c)
        EXPECT_TRUE(std::equal(out[c].begin() + 4096, out[c].end(), noise[c].begin()));
}

TEST(ParametricEqualizer, LeavesTheSoundAloneWhileNothingIsSetAndComesBackToIt) {
    const Signal noise = MakeNoise(2, 48000);
    Player player;
    EXPECT_EQ(player.Play(noise), noise);
    SetBand(player, 0, {true, dsp::BandType::kHighPass, 80, 0, 0.7, 8}, 5);
    SetBand(player, 4, {true, dsp::BandType::kBell, 1500, 6, 1.0, 2});
    player.Set(PE::kOutputGain, -6.0f);
    EXPECT_NE(player.Play(noise), noise);
    player.Set(PE::At(0, PE::kOn), 0.0f);
    player.Set(PE::At(4, PE::kGain), 0.0f);
    player.Set(PE::kOutputGain, 0.0f);
    EXPECT_EQ(player->GetTail(), 0);
    const Signal out = player.Play(noise);
    for (std::size_t c = 0; c < 2; ++c)
        EXPECT_TRUE(std::equal(out[c].begin() + 960, out[c].end(), noise[c].begin() + 960))
            << "after a ramp of 20 ms";
}

/// The worst high-Q low band while it moves: all that is not near the sine is noise of the movement.
TEST(ParametricEqualizer, SweepsANarrowLowBandWithoutNoise) {
    constexpr std::size_t kFrames = 3 * 48000;
    constexpr double kToneHz = 3000.0;
    Player player(1);
    SetBand(player, 2, {true, dsp::BandType::kBell, 20, 24, 40.0, 2});
    player->Resume();
    Signal sine(1, std::vector<float>(kFrames));
    for (std::size_t i = 0; i < kFrames; ++i)
        sine[0][i] = 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * kToneHz *
                                                        static_cast<double>(i) / 48000.0));
    Signal out;
    for (std::size_t done = 0; done < kFrames; done += 480) {
        const double progress = static_cast<double>(done) / kFrames;
        player.Set(PE::At(2, PE::kFrequency), static_cast<float>(20.0 * std::pow(7.5, progress)));
        Append(out, player.Play(sine, done, done + 480, 480));
    }
    // The band's own gain at 3 kHz moves the sine by less than 0.01 dB; what a high-pass leaves above
    // and below the sine in a Hann-windowed spectrum must stay below -110 dB.
    const auto level = [&](double hz) {
        std::complex<double> sum = 0.0;
        for (std::size_t i = 0; i < kFrames; ++i) {
            const double t = static_cast<double>(i);
            const double window = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * t / kFrames);
            sum += window * static_cast<double>(out[0][i]) *
                   std::polar(1.0, -2.0 * std::numbers::pi * hz / 48000.0 * t);
        }
        return 20.0 * std::log10(std::abs(sum) * 4.0 / kFrames / 0.5 + 1e-12);
    };
    EXPECT_NEAR(level(kToneHz), 0.0, 0.01);
    for (const double hz : {500.0, 1500.0, 2900.0, 2980.0, 3020.0, 3100.0, 4000.0, 9000.0, 15000.0})
        EXPECT_LT(level(hz), -110.0) << hz << " Hz";
}

TEST(ParametricEqualizer, TailHoldsWhatRings) {
    for (const auto& band :
         {dsp::ParametricBand{true, dsp::BandType::kBell, 40, 24, 20.0, 2},
          dsp::ParametricBand{true, dsp::BandType::kHighPass, 20, 0, 1.0, 8},
          dsp::ParametricBand{true, dsp::BandType::kLowShelf, 100, 12, 1.0, 2}}) {
        Player player(1);
        SetBand(player, 1, band, band.order == 8 ? 5 : 1);
        player->Resume();
        const auto tail = static_cast<std::size_t>(player->GetTail());
        const Signal response = player.Play(MakeImpulse(1, tail + 4800));
        for (std::size_t i = tail; i < response[0].size(); ++i)
            ASSERT_LT(std::fabs(response[0][i]), 3.2e-5f) << i;
    }
}

TEST(ParametricEqualizer, AutoGainTakesTheLoudnessBack) {
    dsp::ParametricCurve::Bands bands;
    EXPECT_NEAR(dsp::GetLoudnessChangeDb(bands), 0.0, 1e-9);
    bands[0] = {true, dsp::BandType::kLowShelf, 24000, 6, 0.71, 2};
    EXPECT_NEAR(dsp::GetLoudnessChangeDb(bands), 6.0, 0.5) << "nearly a plain gain";
    Player player(1);
    SetBand(player, 1, {true, dsp::BandType::kHighShelf, 20, 24, 0.71, 2});
    player.Set(PE::kAutoGain, 1.0f);
    player->Resume();
    const Signal response = player.Play(MakeImpulse(1, 1 << 14));
    EXPECT_NEAR(MagnitudeDb(response[0], 1000.0 / 48000.0), 12.0, 0.1) << "24 dB less at most 12";
}

TEST(ParametricEqualizer, PresetsSwitchTheirBandsOn) {
    const struct {
        const char* name;
        int bands;
        double testHz, db;  // of the analog sum of its bands, by hand
    } rows[] = {{"(Default)", 0, 1000, 0},        {"Vocal Presence", 4, 80, -3.3},
                {"Kick Tighten", 3, 60, 3.8},     {"De-Mud Mix", 2, 30, -3.0},
                {"Air", 1, 12000, 2.0},           {"Telephone", 3, 1500, 4.0},
                {"Loudness Curve", 2, 90, 3.0},   {"Acoustic Guitar", 4, 90, -3.8},
                {"Dialogue Clean", 3, 100, -3.2}, {"Brighter Tilt", 1, 900, 0.0}};
    Player player(1);
    ASSERT_EQ(player->GetNumFactoryPresets(), static_cast<int>(std::size(rows)));
    for (int p = 0; p < static_cast<int>(std::size(rows)); ++p) {
        EXPECT_EQ(kracore::utility::ToUtf8(player->GetFactoryPresetName(p)), rows[p].name);
        player->SetFactoryPreset(p);
        int on = 0;
        for (int k = 0; k < PE::kBandCount; ++k) on += player.Get(PE::At(k, PE::kOn)) >= 0.5f;
        EXPECT_EQ(on, rows[p].bands) << rows[p].name;
        player->Resume();
        const Signal response = player.Play(MakeImpulse(1, 1 << 15));
        EXPECT_NEAR(MagnitudeDb(response[0], rows[p].testHz / 48000.0), rows[p].db, 0.5)
            << rows[p].name;
    }
}

}  // namespace
}  // namespace zuc::components
