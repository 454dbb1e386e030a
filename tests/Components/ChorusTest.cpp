#include "Components/Chorus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <thread>
#include <vector>

#include "Components/Library.h"
#include "kracore/DebugMonitor.h"
#include "kracore/WStr.h"
#include "tests/Components/EffectPlayer.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;
using Player = EffectPlayer<Chorus>;

constexpr double kRateHz = 48000.0;

Signal MakeTone(double frequencyHz, std::size_t frames) {
    Signal tone(1, std::vector<float>(frames));
    for (std::size_t i = 0; i < frames; ++i)
        tone[0][i] = 0.5f * static_cast<float>(std::sin(2.0 * std::numbers::pi * frequencyHz *
                                                        static_cast<double>(i) / kRateHz));
    return tone;
}

/// One voice alone, its filters out of the way.
void SetVibrato(Player& player, float depthCents, float rateHz) {
    player.Set(Chorus::kVoices, 1);
    player.Set(Chorus::kDelay, 60);
    player.Set(Chorus::kDepth, depthCents);
    player.Set(Chorus::kRate, rateHz);
    player.Set(Chorus::kDrift, 0);
    player.Set(Chorus::kDry, 0);
    player.Set(Chorus::kWet, 100);
    player.Set(Chorus::kWetLowCut, 20);
    player.Set(Chorus::kWetHighCut, 24000);
    player->Resume();
}

/// The phase of a tone at each frame in cycles, from quadrature demodulation with a Hann window of 20
/// periods of the tone.
std::vector<double> GetPhase(const std::vector<float>& signal, double frequencyHz) {
    const int half = static_cast<int>(10.0 * kRateHz / frequencyHz);
    std::vector<double> phase;
    double last = 0.0;
    for (std::size_t n = static_cast<std::size_t>(half);
         n + static_cast<std::size_t>(half) < signal.size(); n += 16) {
        std::complex<double> sum = 0.0;
        for (int k = -half; k <= half; ++k) {
            const auto i = static_cast<std::size_t>(static_cast<int>(n) + k);
            const double window = 1.0 + std::cos(std::numbers::pi * k / half);
            sum += window * static_cast<double>(signal[i]) *
                   std::polar(1.0, -2.0 * std::numbers::pi * frequencyHz / kRateHz *
                                       static_cast<double>(i));
        }
        double now = std::arg(sum) / (2.0 * std::numbers::pi);
        now += std::round(last - now);
        phase.push_back(last = now);
    }
    return phase;
}

TEST(Chorus, SwingsThePitchByTheDepthAtAnyRate) {
    const struct {
        float depthCents, rateHz;
    } rows[] = {{12, 0.6f}, {30, 5.0f}, {50, 2.0f}, {90, 1.0f}, {10, 8.0f}};
    for (const auto& row : rows) {
        Player player(1);
        SetVibrato(player, row.depthCents, row.rateHz);
        const auto frames = static_cast<std::size_t>(kRateHz * (0.5 + 1.5 / row.rateHz));
        const Signal out = player.Play(MakeTone(2000.0, frames));
        const auto phase = GetPhase(out[0], 2000.0);
        double highest = 0.0;
        double lowest = 0.0;
        for (std::size_t i = 300; i + 1 < phase.size(); ++i) {  // past the longest delay
            const double offsetHz = (phase[i + 1] - phase[i]) * kRateHz / 16.0;
            const double cents = 1200.0 * std::log2(1.0 + offsetHz / 2000.0);
            highest = std::max(highest, cents);
            lowest = std::min(lowest, cents);
        }
        EXPECT_NEAR(0.5 * (highest - lowest), row.depthCents, 0.03 * row.depthCents)
            << row.rateHz << " Hz";
    }
}

/// At a low rate the shortest delay ends within the first stretch of control points.
TEST(Chorus, VoicesAreThereFromTheFirstFrameAfterResume) {
    Player player(1, 8000.0f);
    SetVibrato(player, 0.0f, 1.0f);
    player.Set(Chorus::kDelay, 1);
    player->Resume();
    Signal impulses = MakeImpulse(1, 1280);
    impulses[0][640] = 1.0f;
    const Signal out = player.Play(impulses);
    for (std::size_t i = 0; i < 64; ++i) EXPECT_NEAR(out[0][i], out[0][640 + i], 1e-3f) << i;
}

/// A tone through one voice is the tone at the delayed times: what differs is spurious.
TEST(Chorus, VoicesAreFreeOfNoise) {
    const struct {
        double toneHz;
        float depthCents, rateHz;
    } rows[] = {{1000, 12, 0.6f}, {5000, 12, 0.6f}, {997, 30, 5.0f}, {10000, 12, 0.6f}};
    for (const auto& row : rows) {
        Player player(1);
        SetVibrato(player, row.depthCents, row.rateHz);
        constexpr std::size_t kFrames = 48000;
        const Signal out = player.Play(MakeTone(row.toneHz, kFrames));
        // The delay follows from the header; voice 0 starts at phase 0, and delays count from the latency.
        const double swing = row.depthCents / 1200.0 * std::numbers::ln2 /
                             (2.0 * std::numbers::pi * row.rateHz) * kRateHz;
        // The filters at the ends of their ranges: gain and phase of one-pole filters, at the frequency
        // that the tone has at the moment.
        const double low = -std::expm1(-2.0 * std::numbers::pi * 20.0 / kRateHz);
        const double high = -std::expm1(-2.0 * std::numbers::pi * 24000.0 / kRateHz);
        const auto filters = [&](double frequencyHz) {
            const auto z = std::polar(1.0, -2.0 * std::numbers::pi * frequencyHz / kRateHz);
            const auto pole = [z](double k) { return k / (1.0 - (1.0 - k) * z); };
            return (1.0 - pole(low)) * pole(high);
        };
        double power = 0.0;
        double noise = 0.0;
        // Past the start of the low cut.
        for (std::size_t i = 24000; i < kFrames; ++i) {
            const double t = static_cast<double>(i);
            // The sine starts one control point before the sound.
            const double angle = 2.0 * std::numbers::pi * row.rateHz * (t + 64.0) / kRateHz;
            const double delay = 16.0 + 0.060 * kRateHz + swing * std::sin(angle);
            const double slope =
                swing * 2.0 * std::numbers::pi * row.rateHz / kRateHz * std::cos(angle);
            const std::complex<double> tone =
                std::polar(0.5, 2.0 * std::numbers::pi * row.toneHz * (t - delay) / kRateHz);
            const double expected = (filters(row.toneHz * (1.0 - slope)) * tone).imag();
            power += expected * expected;
            noise += std::pow(static_cast<double>(out[0][i]) - expected, 2.0);
        }
        EXPECT_LT(10.0 * std::log10(noise / power), -85.0) << row.toneHz << " Hz";
    }
}

TEST(Chorus, KeepsThePowerForAnyNumberOfVoices) {
    const Signal noise = MakeNoise(2, 96000);
    double first = 0.0;
    for (int voices = 1; voices <= 8; ++voices) {
        Player player;
        player.Set(Chorus::kVoices, static_cast<float>(voices));
        player.Set(Chorus::kDry, 0);
        player.Set(Chorus::kDelaySpread, 20);
        player->Resume();
        const Signal out = player.Play(noise);
        double power = 0.0;
        for (const auto& channel : out)
            for (std::size_t i = 9600; i < channel.size(); ++i)
                power += static_cast<double>(channel[i]) * static_cast<double>(channel[i]);
        if (voices == 1) first = power;
        EXPECT_NEAR(10.0 * std::log10(power / first), 0.0, 0.5) << voices;
    }
}

TEST(Chorus, SoundsTheSameWithoutThePoolInAnyBlocks) {
    const Signal noise = MakeNoise(2, 192000);
    const auto render = [&](std::size_t block, bool waits) {
        Player player;
        player.Set(Chorus::kDrift, 100);
        player.Set(Chorus::kFeedback, -60);
        player.Set(Chorus::kDelay, 3);
        player->Resume();
        Signal out = player.Play(noise, 0, 100000, block);
        // Time for the worker in the middle of a part.
        if (waits) std::this_thread::sleep_for(std::chrono::milliseconds(200));
        player.Set(Chorus::kVoices, 7);
        Append(out, player.Play(noise, 100000, noise[0].size(), block));
        player->Suspend();
        return out;
    };
    const Signal alone = render(512, false);  // the library is not initialized: there is no pool
    Initialize();
    for (const std::size_t block : {4000u, 1u, 64u, 480u})
        EXPECT_EQ(render(block, true), alone) << block;
    const std::string pool =
        ToUtf8(kracore::debug::ReadDebugMonitor(u"zuc.components.EffectThreadPool"));
    EXPECT_EQ(pool.find("Total Scheduled Functions Called: 0\n"), std::string::npos) << pool;
    EXPECT_NE(pool.find("Subscribed Effects: 0\n"), std::string::npos) << pool;
    Terminate();
}

TEST(Chorus, FeedbackDecaysWithinTheTail) {
    for (const float feedback : {-80.0f, 80.0f})
        for (const float delay : {1.0f, 60.0f}) {
            Player player(1, 8000.0f);
            player.Set(Chorus::kFeedback, feedback);
            player.Set(Chorus::kDelay, delay);
            player->Resume();
            const auto tail = static_cast<std::size_t>(player->GetTail());
            Signal input = MakeNoise(1, 4000);
            input[0].resize(4000 + tail + 1000);
            const Signal out = player.Play(input);
            for (std::size_t i = 0; i < out[0].size(); ++i)
                ASSERT_LT(std::fabs(out[0][i]), i < 4000 + tail ? 8.0f : 3.2e-5f) << i;
        }
}

TEST(Chorus, UnsubscribesWithItsEnd) {
    Initialize();
    {
        Player first;
        Player second;
        second->Suspend();
        second->Suspend();
        const std::string pool =
            ToUtf8(kracore::debug::ReadDebugMonitor(u"zuc.components.EffectThreadPool"));
        EXPECT_NE(pool.find("Subscribed Effects: 1\n"), std::string::npos) << pool;
    }
    const std::string pool =
        ToUtf8(kracore::debug::ReadDebugMonitor(u"zuc.components.EffectThreadPool"));
    EXPECT_NE(pool.find("Subscribed Effects: 0\n"), std::string::npos) << pool;
    Terminate();
}

}  // namespace
}  // namespace zuc::components
