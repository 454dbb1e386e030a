#include "Components/Dynamics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "Components/private/amplitude/TransferCurve.h"
#include "kraaudiodsp/FIRFilter.h"
#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using Signal = std::vector<std::vector<float>>;  // channels x frames

float ToGain(double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); }
double ToDb(double gain) { return 20.0 * std::log10(gain); }
std::size_t Frames(double ms, float rateHz = 48000.0f) {
    return static_cast<std::size_t>(ms / 1000.0 * rateHz);
}

/// A sine at a quarter of the rate, sampled halfway to its peaks: every sample is +-amplitude, so that
/// RMS and peak level are the same at every instant.
std::vector<float> Steady(double levelDb, std::size_t frames) {
    std::vector<float> signal(frames);
    for (std::size_t i = 0; i < frames; ++i) signal[i] = (i & 2 ? -1.0f : 1.0f) * ToGain(levelDb);
    return signal;
}

class DynamicsTest : public testing::Test {
protected:
    DynamicsTest() : effect_(new Dynamics) { effect_->SetSampleRate(48000.0f); }

    void SetLayout(std::size_t channels, std::size_t sideChannels) {
        const auto layout = kramediatypes::LayoutForChannelCount(channels);
        if (sideChannels == 0)
            effect_->RequestIOConfiguration({layout}, {layout});
        else
            effect_->RequestIOConfiguration(
                {layout, kramediatypes::LayoutForChannelCount(sideChannels)}, {layout});
    }
    void Set(int index, float value) {
        effect_->SetParameterAutomated(index,
                                       effect_->GetParameterInfo(index)->ToNormalized(value));
    }
    float Get(int index) const {
        return effect_->GetParameterInfo(index)->FromNormalized(effect_->GetParameter(index));
    }
    void SetCurve(const std::vector<TransferCurve::Point>& points) {
        Set(Dynamics::kXYCount, static_cast<float>(points.size()));
        for (std::size_t i = 0; i < points.size(); ++i) {
            const int index = Dynamics::kFirstPoint + 2 * static_cast<int>(i);
            Set(index, static_cast<float>(points[i].inDb));
            Set(index + 1, static_cast<float>(points[i].outDb));
        }
    }
    void SetTimes(float levelAttack, float levelRelease, float gainAttack, float gainRelease) {
        Set(Dynamics::kLevelAttackMs, levelAttack);
        Set(Dynamics::kLevelReleaseMs, levelRelease);
        Set(Dynamics::kGainAttackMs, gainAttack);
        Set(Dynamics::kGainReleaseMs, gainRelease);
    }

    Signal Process(const Signal& input, int blockFrames = 512) {
        const std::size_t frames = input.front().size();
        Signal source = input;
        Signal target(effect_->GetNumberOfOutputChannels(), std::vector<float>(frames));
        std::vector<float*> in(source.size());
        std::vector<float*> out(target.size());
        Flags flags;
        for (std::size_t done = 0; done < frames;) {
            const auto count = std::min(static_cast<std::size_t>(blockFrames), frames - done);
            for (std::size_t c = 0; c < in.size(); ++c) in[c] = source[c].data() + done;
            for (std::size_t c = 0; c < out.size(); ++c) out[c] = target[c].data() + done;
            effect_->Process(in.data(), out.data(), static_cast<int>(count), {}, flags);
            done += count;
        }
        return target;
    }
    /// Level at the end of a long steady stretch, output over input, in dB.
    double SettledGainDb(const Signal& input, std::size_t channel = 0) {
        effect_->Resume();
        return ToDb(std::fabs(Process(input)[channel].back() / input[channel].back()));
    }

    boost::intrusive_ptr<Dynamics> effect_;
};

TEST_F(DynamicsTest, LatencyFollowsLookaheadAndFilter) {
    const struct {
        float rateHz;
        float lookaheadMs;
        float lowHz;
        float highHz;
        int latency;
    } rows[] = {
        {44100, 3, 20, 22050, 132 + 32 + 7},    {48000, 3, 20, 24000, 144 + 32 + 7},
        {48000, 0, 20, 24000, 32 + 7},          {48000, 500, 20, 24000, 24000 + 32 + 7},
        {48000, 3, 40, 24000, 144 + 32 + 513},  {48000, 3, 720, 24000, 144 + 32 + 201},
        {48000, 3, 20, 720, 144 + 32 + 201},    {48000, 3, 20, 20, 144 + 32 + 321},
        {48000, 3, 24000, 24000, 144 + 32 + 7}, {8000, 3, 4000, 500, 24 + 32 + 49},
        {192000, 7, 300, 300, 1344 + 32 + 513},
    };
    for (const auto& row : rows) {
        effect_->SetSampleRate(row.rateHz);
        Set(Dynamics::kLookaheadMs, row.lookaheadMs);
        Set(Dynamics::kLowCutoffHz, row.lowHz);
        Set(Dynamics::kHighCutoffHz, row.highHz);
        EXPECT_EQ(effect_->GetInitialDelay(), row.latency)
            << row.rateHz << " Hz, " << row.lookaheadMs << " ms, " << row.lowHz << " to "
            << row.highHz;
    }
    const boost::intrusive_ptr<Dynamics> fresh(new Dynamics);
    EXPECT_EQ(fresh->GetInitialDelay(), 171) << "44100 Hz is assumed until the rate is known";
}

TEST_F(DynamicsTest, DelaysByTheReportedLatencyAtAllRatesAndCutoffs) {
    int combinations = 0;
    for (const float rateHz : {8000.0f, 22050.0f, 44100.0f, 48000.0f, 96000.0f, 192000.0f})
        for (const float low : {0.0f, 0.001f, 0.01f, 0.1807f, 1.0f})
            for (const float high : {0.0f, 0.002f, 0.05f, 0.5438f, 0.99f, 0.999f, 1.0f, 0.3f}) {
                ++combinations;
                effect_->SetSampleRate(rateHz);
                effect_->SetParameterAutomated(Dynamics::kLowCutoffHz, low);
                effect_->SetParameterAutomated(Dynamics::kHighCutoffHz, high);
                effect_->Resume();
                const auto latency = static_cast<std::size_t>(effect_->GetInitialDelay());
                Signal impulse(2, std::vector<float>(latency + 50, 0.0f));
                impulse[0][0] = impulse[1][0] = 0.5f;
                const Signal out = Process(impulse, 100);
                for (std::size_t i = 0; i < out[1].size(); ++i)
                    ASSERT_NEAR(out[1][i], i == latency ? 0.5f : 0.0f, 1e-6f)
                        << rateHz << " Hz, " << low << " to " << high << ", frame " << i;
            }
    EXPECT_EQ(combinations, 240);
}

TEST_F(DynamicsTest, CutoffsKeepTheirHertzAndTheirRangeFollowsTheRate) {
    effect_->SetSampleRate(96000.0f);
    EXPECT_FLOAT_EQ(Get(Dynamics::kHighCutoffHz), 22050.0f);
    EXPECT_FLOAT_EQ(effect_->GetParameterInfo(Dynamics::kHighCutoffHz)->FromNormalized(1), 48000);
    effect_->SetSampleRate(8000.0f);
    EXPECT_EQ(effect_->GetParameter(Dynamics::kHighCutoffHz), 1.0f);
    EXPECT_EQ(effect_->GetInitialDelay(), 24 + 32 + 1) << "22050 Hz is still what is meant";
    effect_->SetSampleRate(48000.0f);
    EXPECT_FLOAT_EQ(Get(Dynamics::kHighCutoffHz), 22050.0f);
}

TEST_F(DynamicsTest, TheDefaultCurveIsTransparentAlsoAboveFullScale) {
    std::mt19937 random(1);
    Signal noise(2, std::vector<float>(20000));
    for (auto& channel : noise)
        for (float& x : channel) x = 6.0f * (static_cast<float>(random()) / 2147483648.0f - 1.0f);
    for (const float rms : {0.0f, 1.0f}) {
        Set(Dynamics::kPeakRms, rms);
        effect_->Resume();
        const auto latency = static_cast<std::size_t>(effect_->GetInitialDelay());
        const Signal out = Process(noise);
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = latency; i < 20000; ++i)
                ASSERT_NEAR(out[c][i], noise[c][i - latency], 1e-5f) << i;
    }
}

TEST_F(DynamicsTest, EveryPresetHasItsStaticGain) {
    ASSERT_EQ(effect_->GetNumFactoryPresets(), 33);
    for (int preset = 0; preset < 33; ++preset) {
        effect_->SetFactoryPreset(preset);
        TransferCurve::Shape shape;
        shape.count = static_cast<std::size_t>(std::lround(Get(Dynamics::kXYCount)));
        shape.isSpline = Get(Dynamics::kSplineCurves) > 0.5f;
        for (std::size_t i = 0; i < shape.count; ++i)
            shape.points[i] = {Get(Dynamics::kFirstPoint + 2 * static_cast<int>(i)),
                               Get(Dynamics::kFirstPoint + 2 * static_cast<int>(i) + 1)};
        TransferCurve curve;
        curve.SetShape(shape);
        // What the detector's band leaves of the signal at a quarter of the rate.
        const double low = Get(Dynamics::kLowCutoffHz) / 48000.0;
        const double high = Get(Dynamics::kHighCutoffHz) / 48000.0;
        double bandGain = 1.0;
        if (low > 0.001) {
            dsp::FIRFilter filter;
            filter.Prepare(513);
            filter.GenerateFIRCoeffs(low, high, 2 * static_cast<int>(1.5 / low) + 1);
            const int half = filter.GetTaps() / 2;
            bandGain = filter.GetCoeffs()[half];
            for (int n = 2; n <= half; n += 2)
                bandGain += (n % 4 ? -2.0 : 2.0) * filter.GetCoeffs()[half - n];
        }
        for (const double level : {-70.0, -45.0, -27.0, -15.0, -4.0, 0.0}) {
            const double heard = level + ToDb(std::fabs(bandGain));
            const double expected = curve.GetOutputDb(heard) - heard +
                                    Get(Dynamics::kOutputGainDb) + Get(Dynamics::kMakeupGainDb);
            const auto signal = Steady(level, 72000);
            EXPECT_NEAR(SettledGainDb({signal, signal}), expected, 0.1)
                << kracore::utility::ToUtf8(effect_->GetFactoryPresetName(preset)) << " at "
                << level << " dB";
        }
    }
}

TEST_F(DynamicsTest, PresetsAndPointsReadAsDocumented) {
    const auto nameOf = [&](int index) {
        return kracore::utility::ToUtf8(effect_->GetParameterInfo(index)->GetName());
    };
    EXPECT_EQ(nameOf(Dynamics::kFirstPoint + 12), "Location7");
    EXPECT_EQ(nameOf(Dynamics::kMakeupGainDb - 1), "Value7");
    EXPECT_EQ(effect_->GetParameterCount(), 32);
    EXPECT_EQ(Get(Dynamics::kLevelAttackMs), 24.0f);
    effect_->SetFactoryPreset(0);
    EXPECT_EQ(Get(Dynamics::kLevelAttackMs), 1.0f) << "preset and initial values differ";
    EXPECT_EQ(Get(Dynamics::kCurrentTab), 1.0f);
    effect_->SetFactoryPreset(6);
    EXPECT_EQ(Get(Dynamics::kXYCount), 5.0f);
    EXPECT_EQ(Get(Dynamics::kFirstPoint + 10), 0.0f) << "points not listed are (0, 0)";
    EXPECT_TRUE(effect_->GetFactoryPresetName(33).empty());
}

/// Gains that come out in "Envelope Only", from frame `from` on, in dB.
std::vector<double> GainsDb(const std::vector<float>& gains, std::size_t from) {
    std::vector<double> db;
    for (std::size_t i = from; i < gains.size(); ++i) db.push_back(ToDb(gains[i]));
    return db;
}

TEST_F(DynamicsTest, EnvelopesDo99PercentOfAStepInTheirTime) {
    constexpr std::size_t kSettle = 96000;
    const struct {
        const char* name;
        float times[4];
        double fromDb;
        double toDb;
        double ms;
        bool isLevel;
    } rows[] = {
        {"level attack", {50, 0, 0, 0}, -60, -10, 50, true},
        {"level release", {0, 700, 0, 0}, -10, -60, 700, true},
        {"gain attack", {0, 0, 80, 0}, -60, -10, 80, false},
        {"gain release", {0, 0, 0, 400}, -10, -60, 400, false},
    };
    // A constant output level makes the gain in dB the negated level; no filter before the detector.
    Set(Dynamics::kHighCutoffHz, 24000);
    SetCurve({{-100, -50}});
    Set(Dynamics::kEnvelopeOnly, 1);
    for (const auto& row : rows) {
        SetTimes(row.times[0], row.times[1], row.times[2], row.times[3]);
        effect_->Resume();
        auto signal = Steady(row.fromDb, kSettle);
        const auto step = Steady(row.toDb, kSettle);
        signal.insert(signal.end(), step.begin(), step.end());
        const auto out = Process({signal, signal})[0];
        // The detector comes first: 3 frames of the filter and 60 for 99 % of its own smoothing.
        const auto gains = GainsDb(out, kSettle);
        const auto progress = [&](std::size_t frame) -> double {
            const double from = -50 - row.fromDb;
            const double to = -50 - row.toDb;
            if (row.isLevel) return (gains[frame] - from) / (to - from);
            return (ToGain(gains[frame]) - ToGain(from)) / (ToGain(to) - ToGain(from));
        };
        EXPECT_LT(progress(Frames(row.ms)), 0.9901) << row.name;
        EXPECT_GT(progress(Frames(row.ms) + 200), 0.99) << row.name;
        EXPECT_GT(progress(Frames(row.ms) / 2), 0.85) << row.name;
    }
}

TEST_F(DynamicsTest, LinkedChannelsShareTheGainOfTheLoudest) {
    SetCurve({{-100, -100}, {-30, -30}, {0, -30}});
    const Signal signal{Steady(-40, 96000), Steady(-10, 96000)};
    EXPECT_NEAR(SettledGainDb(signal, 0), 0.0, 0.01);
    EXPECT_NEAR(SettledGainDb(signal, 1), -20.0, 0.1);
    Set(Dynamics::kLinkChannels, 1);
    EXPECT_NEAR(SettledGainDb(signal, 0), -20.0, 0.1);
    EXPECT_NEAR(SettledGainDb(signal, 1), -20.0, 0.1);
    // Switching over takes 10 ms and makes no step.
    Set(Dynamics::kEnvelopeOnly, 1);
    Set(Dynamics::kLinkChannels, 0);
    SettledGainDb(signal);
    Set(Dynamics::kLinkChannels, 1);
    const auto gains = Process(signal)[1];
    for (std::size_t i = 1; i < gains.size(); ++i)
        ASSERT_LT(std::fabs(gains[i] - gains[i - 1]), 1.0f / 240.0f) << i;
}

TEST_F(DynamicsTest, TheSideChainDrivesTheGain) {
    SetCurve({{-100, -100}, {-30, -30}, {0, -30}});
    const auto quiet = Steady(-60, 96000);
    const auto loud = Steady(-10, 96000);
    const struct {
        const char* name;
        std::size_t channels;
        Signal input;  // main channels, then side chain
        std::vector<double> gainsDb;
    } rows[] = {
        {"unconnected", 2, {loud, quiet}, {-20, 0}},
        {"mono drives both", 2, {quiet, quiet, loud}, {-20, -20}},
        {"silence lifts", 2, {loud, loud, quiet}, {0, 0}},
        {"channel by channel", 2, {loud, loud, loud, quiet}, {-20, 0}},
        {"the last one drives the rest", 3, {loud, loud, quiet, quiet, loud}, {0, -20, -20}},
        {"more side than main", 1, {loud, quiet, loud, loud}, {0}},
    };
    for (const auto& row : rows) {
        SetLayout(row.channels, row.input.size() - row.channels);
        ASSERT_EQ(effect_->GetNumberOfInputChannels(), row.input.size()) << row.name;
        for (std::size_t c = 0; c < row.channels; ++c)
            EXPECT_NEAR(SettledGainDb(row.input, c), row.gainsDb[c], 0.1) << row.name << ", " << c;
    }
    SetLayout(1, 1);
    Set(Dynamics::kInputGainDb, 12);
    EXPECT_NEAR(SettledGainDb({quiet, loud}), 12.0 - 20.0, 0.1) << "input gain is for the main bus";
    SetLayout(1, 0);
    EXPECT_NEAR(SettledGainDb({Steady(-12, 96000)}), 12.0 - 30.0, 0.1) << "and for its detector";
}

TEST_F(DynamicsTest, LayoutsKeepTheSideChainBus) {
    const struct {
        std::vector<std::size_t> in;
        std::size_t out;
        std::size_t main;  // afterwards
        std::size_t side;
    } rows[] = {
        {{2}, 2, 2, 0},       {{6, 2}, 6, 6, 2}, {{1}, 2, 6, 2},      {{2, 2, 2}, 2, 6, 2},
        {{0, 2}, 0, 6, 2},    {{6, 1}, 6, 6, 1}, {{6}, 6, 6, 0},      {{32, 2}, 32, 32, 2},
        {{32, 3}, 32, 32, 2}, {{33}, 33, 1, 0},  {{33, 2}, 33, 1, 2},
    };
    for (const auto& row : rows) {
        std::vector<kramediatypes::AudioChannelLayout> in;
        for (const std::size_t n : row.in) in.push_back(kramediatypes::LayoutForChannelCount(n));
        effect_->RequestIOConfiguration(in, {kramediatypes::LayoutForChannelCount(row.out)});
        ASSERT_EQ(effect_->GetInputBuses().size(), 2u);
        EXPECT_EQ(effect_->GetInputBuses()[0].GetChannelCount(), row.main);
        EXPECT_EQ(effect_->GetInputBuses()[1].GetChannelCount(), row.side);
        EXPECT_EQ(kracore::utility::ToUtf8(effect_->GetInputBuses()[1].GetName()), "Side-Chain In");
        EXPECT_EQ(effect_->GetOutputBuses().size(), 1u);
        EXPECT_EQ(effect_->GetNumberOfOutputChannels(), row.main);
    }
}

TEST_F(DynamicsTest, BandEdgesMayBeSwapped) {
    std::mt19937 random(4);
    Signal noise(2, std::vector<float>(9600));
    for (auto& channel : noise)
        for (float& x : channel) x = static_cast<float>(random()) / 4294967296.0f;
    SetCurve({{-100, -100}, {-40, -40}, {0, -40}});
    const auto render = [&](float low, float high) {
        Set(Dynamics::kLowCutoffHz, low);
        Set(Dynamics::kHighCutoffHz, high);
        effect_->Resume();
        return Process(noise);
    };
    const Signal straight = render(500, 3000);
    EXPECT_EQ(render(3000, 500), straight);
    EXPECT_NE(render(20, 24000), straight);
}

TEST_F(DynamicsTest, OtherParametersLeaveDelayedAudioAlone) {
    const Signal signal(2, Steady(-20, 4800));
    effect_->Resume();
    Process(signal);
    const auto disturb = [&](int index, float value) {
        Set(index, value);
        const auto out = Process(signal)[0];
        return std::count(out.begin(), out.begin() + 100, 0.0f);
    };
    EXPECT_EQ(disturb(Dynamics::kGainAttackMs, 7), 0);
    EXPECT_EQ(disturb(Dynamics::kLockFilter, 1), 0);
    EXPECT_EQ(disturb(Dynamics::kHighCutoffHz, 21000), 0) << "another filter, the same latency";
    EXPECT_EQ(disturb(Dynamics::kLookaheadMs, 20), 100) << "another latency starts from silence";
}

TEST_F(DynamicsTest, CurveDataSamplesTheDisplay) {
    std::vector<float> samples{1, 2, 3};
    const auto read = [&](int curve, std::size_t points) {
        return effect_->GetCurveData(curve, points, samples);
    };
    SetCurve({{-100, -50}, {-50, -30}, {0, -20}});
    ASSERT_EQ(read(0, 5), 5u);
    EXPECT_EQ(samples, (std::vector<float>{-50, -40, -30, -25, -20}));
    EXPECT_EQ(read(0, 1), 1u);
    EXPECT_EQ(samples, (std::vector<float>{-50}));
    EXPECT_EQ(read(1, 5), 0u);
    EXPECT_TRUE(samples.empty());
    EXPECT_EQ(read(0, 0), 0u);
    Set(Dynamics::kSplineCurves, 1);
    ASSERT_EQ(read(0, 101), 101u);
    EXPECT_EQ(samples[50], -30.0f);
    EXPECT_GT(std::fabs(samples[25] + 40.0f), 0.1f) << "between points a spline is not straight";
    Set(Dynamics::kXYCount, 0.4f);
    EXPECT_EQ(read(0, 5), 0u) << "0.4 points are none";
}

}  // namespace
}  // namespace zuc::components
