#include "kraaudiodsp/IntraClip.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <variant>
#include <vector>

#include "LimiterSignals.h"

namespace dsp::intraclip {
namespace {

using Audio = std::vector<std::vector<float>>;
using Field = std::variant<float IntraClipParam::*, int IntraClipParam::*>;
constexpr double kRateHz = 48000.0;
constexpr double kSegmentSeconds = 6.0;
constexpr double kPauseSeconds = 1.5;

/// Syllables of noise, four a second, of several talkers with pauses between; over noise of a room.
Audio MakeTalk(const std::vector<double>& levelsDb, double roomDb) {
    std::mt19937 random(17);
    std::normal_distribution<double> normal;
    Audio audio(2);
    for (const double levelDb : levelsDb) {
        double low = 0.0;
        const double seconds = kSegmentSeconds + kPauseSeconds;
        for (int i = 0; i < static_cast<int>(seconds * kRateHz); ++i) {
            const double t = i / kRateHz;
            const double syllable = std::pow(std::sin(std::numbers::pi * 4.0 * t), 2.0);
            low += 0.3 * (normal(random) - low);
            // The noise has 0.176 of the power that went in, the syllables 3/8 of that.
            const double voice =
                t < kSegmentSeconds ? std::pow(10.0, levelDb / 20.0) * syllable * low / 0.257 : 0.0;
            for (auto& channel : audio)
                channel.push_back(
                    static_cast<float>(voice + std::pow(10.0, roomDb / 20.0) * normal(random)));
        }
    }
    return audio;
}

/// The output without the latency.
Audio Level(IntraClip& kernel, const Audio& in, std::size_t block = 700) {
    const auto latency = static_cast<std::size_t>(kernel.GetLatency());
    Audio padded = in;
    for (auto& channel : padded) channel.resize(channel.size() + latency);
    for (std::size_t done = 0; done < padded[0].size(); done += block) {
        std::vector<float*> io;
        for (auto& channel : padded) io.push_back(channel.data() + done);
        kernel.Process(io.data(), io.data(),
                       static_cast<long>(std::min(block, padded[0].size() - done)));
    }
    for (auto& channel : padded)
        channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(latency));
    return padded;
}

double PowerDb(const std::vector<float>& x, double fromSeconds, double toSeconds) {
    double sum = 0.0;
    const auto first = static_cast<std::size_t>(fromSeconds * kRateHz);
    const auto last = static_cast<std::size_t>(toSeconds * kRateHz);
    for (std::size_t i = first; i < last; ++i)
        sum += static_cast<double>(x[i]) * static_cast<double>(x[i]);
    return 10.0 * std::log10(sum / static_cast<double>(last - first) + 1e-12);
}

class IntraClipTest : public testing::Test {
protected:
    void TearDown() override { SetGlobalParam({}); }
};

TEST_F(IntraClipTest, BringsTalkersTogetherAndLeavesPausesLow) {
    const std::vector<double> levels{-16, -28, -36, -20, -36, -24};
    const Audio talk = MakeTalk(levels, -64);
    const struct {
        float amount;
        double mostDeviationDb;
    } rows[] = {{100, 1.0}, {70, 2.4}, {0, 7.6}};
    for (const auto& row : rows) {
        IntraClip kernel;
        kernel.SetParameter(IntraClip::kAmountPercent, row.amount);
        kernel.SetParameter(IntraClip::kBoostLowSignals, 1.0f);
        ASSERT_TRUE(kernel.Initialize(2, 48000.0f, 512));
        const Audio out = Level(kernel, talk);
        double mean = 0.0, square = 0.0;
        for (std::size_t k = 0; k < levels.size(); ++k) {
            const double begin = static_cast<double>(k) * (kSegmentSeconds + kPauseSeconds);
            const double end = begin + kSegmentSeconds;
            const double levelDb = PowerDb(out[0], begin, end);
            mean += levelDb / static_cast<double>(levels.size());
            square += levelDb * levelDb / static_cast<double>(levels.size());
            for (double t = end + 0.4; t < end + kPauseSeconds - 0.05; t += 0.05)
                EXPECT_LE(PowerDb(out[0], t, t + 0.05), -45.5) << row.amount << ", pause " << k;
        }
        EXPECT_LE(std::sqrt(square - mean * mean), row.mostDeviationDb) << row.amount;
        EXPECT_LE(20.0 * std::log10(test::MeasureTruePeak(out[0], 1000, 200000)), -0.9);
    }
}

TEST_F(IntraClipTest, GateLowersPausesOnly) {
    const Audio talk = MakeTalk({-20, -20}, -64);
    Audio outs[2];
    for (const float gate : {0.0f, 1.0f}) {
        IntraClip kernel;
        kernel.SetParameter(IntraClip::kGate, gate);
        kernel.Initialize(2, 48000.0f, 512);
        outs[static_cast<std::size_t>(gate)] = Level(kernel, talk);
    }
    EXPECT_NEAR(PowerDb(outs[1][0], 0.5, 5.5), PowerDb(outs[0][0], 0.5, 5.5), 0.05);
    // Noise at the floor lies 15 dB below the threshold; 1.5:1 takes 7.5 dB off, in about a second. The floor
    // that is bounded by -60 lies 4 dB above the noise.
    const double less = PowerDb(outs[0][0], 7.2, 7.3) - PowerDb(outs[1][0], 7.2, 7.3);
    EXPECT_GT(less, 4.0);
    EXPECT_LT(less, 9.5);
}

TEST_F(IntraClipTest, EveryFieldOfTheRecordMatters) {
    const struct {
        const char* name;
        Field field;
        float value;
    } rows[] = {
        {"refLevel", &IntraClipParam::refLevel, -20},
        {"maxGain", &IntraClipParam::maxGain, 5},
        {"maxGainDelta", &IntraClipParam::maxGainDelta, 12},
        {"peakMax", &IntraClipParam::peakMax, -20},
        {"peakMin", &IntraClipParam::peakMin, -25},
        {"bodyDynamic", &IntraClipParam::bodyDynamic, 6},
        {"minRMSNoise", &IntraClipParam::minRMSNoise, -70},
        {"maxRMSNoise", &IntraClipParam::maxRMSNoise, -58},
        {"compAttackTime", &IntraClipParam::compAttackTime, 40},
        {"compReleaseTime", &IntraClipParam::compReleaseTime, 100},
        {"peakSmoothAttackTime", &IntraClipParam::peakSmoothAttackTime, 300},
        {"peakSmoothReleaseTime", &IntraClipParam::peakSmoothReleaseTime, 2000},
        {"noiseThresholdOffset", &IntraClipParam::noiseThresholdOffset, 25},
        {"noiseGateRatio", &IntraClipParam::noiseGateRatio, 3},
        {"noiseGateAttack", &IntraClipParam::noiseGateAttack, 100},
        {"noiseGateRelease", &IntraClipParam::noiseGateRelease, 100},
        {"noiseGateHoldTime", &IntraClipParam::noiseGateHoldTime, 500},
        {"numRMSBuckets", &IntraClipParam::numRMSBuckets, 5},
        {"rmsWindowTime", &IntraClipParam::rmsWindowTime, 100},
        {"selBucketIndex", &IntraClipParam::selBucketIndex, 5},
        {"delayCompensationTime", &IntraClipParam::delayCompensationTime, -100},
        {"delayCompensationTime, gain late", &IntraClipParam::delayCompensationTime, 100},
        {"finCompAttack", &IntraClipParam::finCompAttack, 50},
        {"finCompRelease", &IntraClipParam::finCompRelease, 50},
        {"finCompThresh", &IntraClipParam::finCompThresh, -20},
        {"finLimLookAhead", &IntraClipParam::finLimLookAhead, 10},
        {"finLimRelease", &IntraClipParam::finLimRelease, 10},
        {"finLimCeil", &IntraClipParam::finLimCeil, -6},
        {"without the compressor", &IntraClipParam::processingBlockActiveBitField, 14},
        {"without the one on peaks", &IntraClipParam::processingBlockActiveBitField, 13},
        {"without the limiter", &IntraClipParam::processingBlockActiveBitField, 11},
        {"without the gate", &IntraClipParam::processingBlockActiveBitField, 7},
    };
    const Audio talk = MakeTalk({-16, -34, -12}, -56);
    IntraClipParam standard;
    standard.finCompThresh = -10.0f;  // so that there is something to compress and to limit
    standard.finLimCeil = -9.0f;
    const auto run = [&](const IntraClipParam& record) {
        SetGlobalParam(record);
        IntraClip kernel;
        if (record.refLevel == standard.refLevel) kernel.SetParameter(IntraClip::kTargetDb, -8.0f);
        kernel.SetParameter(IntraClip::kAmountPercent, 100.0f);
        kernel.SetParameter(IntraClip::kGate, 1.0f);
        kernel.Initialize(2, 48000.0f, 512);
        return Level(kernel, talk);
    };
    const Audio expected = run(standard);
    for (const auto& row : rows) {
        IntraClipParam record = standard;
        if (const auto* field = std::get_if<float IntraClipParam::*>(&row.field))
            record.*(*field) = row.value;
        else
            record.*(std::get<int IntraClipParam::*>(row.field)) = static_cast<int>(row.value);
        EXPECT_TRUE(run(record) != expected) << row.name;
    }
}

TEST_F(IntraClipTest, LatencyIsExactForEveryRecord) {
    const struct {
        float rateHz, delayMs, lookAheadMs;
        int blocks;
        long latency;
    } rows[] = {
        {48000, -200, 5, 15, 9864}, {44100, -200, 5, 15, 8820 + 221 + 24},
        {48000, 0, 5, 15, 264},     {48000, 150, 5, 15, 264},
        {48000, -200, 5, 11, 9600}, {96000, -10, 20, 15, 2904},
    };
    for (const auto& row : rows) {
        IntraClipParam record;
        record.delayCompensationTime = row.delayMs;
        record.finLimLookAhead = row.lookAheadMs;
        record.processingBlockActiveBitField = row.blocks;
        SetGlobalParam(record);
        IntraClip kernel;
        kernel.Initialize(1, row.rateHz, 64);
        ASSERT_EQ(kernel.GetLatency(), row.latency);
        std::vector<float> io(12000);
        io[100] = 0.25f;  // below the compressor's knee
        float* channel = io.data();
        kernel.Process(&channel, &channel, 12000);
        EXPECT_EQ(io[static_cast<std::size_t>(100 + row.latency)], 0.25f);
    }
}

TEST_F(IntraClipTest, DebugModesShowTheirCurveOnTheRight) {
    const Audio talk = MakeTalk({-16, -34}, -64);
    IntraClipParam record;
    record.finCompThresh = -10.0f;
    record.finLimCeil = -4.0f;
    const auto run = [&](int mode) {
        record.debugMode = mode;
        SetGlobalParam(record);
        IntraClip kernel;
        kernel.SetParameter(IntraClip::kGate, 1.0f);
        kernel.Initialize(2, 48000.0f, 512);
        return Level(kernel, talk);
    };
    const Audio normal = run(0);
    std::vector<Audio> shown{normal};
    for (int mode = 1; mode <= 6; ++mode) {
        shown.push_back(run(mode));
        EXPECT_EQ(shown.back()[0], normal[0]) << "the left channel stays";
        for (int other = 0; other < mode; ++other)
            EXPECT_NE(shown.back()[1], shown[static_cast<std::size_t>(other)][1]) << mode << other;
    }
    EXPECT_EQ(run(7), normal);
    // The gains together are what the left channel has been multiplied by.
    for (std::size_t i = 0; i < talk[0].size(); i += 97) {
        double gainDb = 0.0;
        for (const std::size_t mode : {1u, 2u, 3u, 5u})
            gainDb += 60.0 * static_cast<double>(shown[mode][1][i]);
        const double expected = static_cast<double>(talk[0][i]) * std::pow(10.0, gainDb / 20.0);
        ASSERT_NEAR(normal[0][i], expected, 1e-4) << i;
        ASSERT_LE(shown[6][1][i], -50.0f / 60.0f);
        ASSERT_GE(shown[6][1][i], -1.0f);
    }
}

TEST_F(IntraClipTest, AnswersByIndexAndBearsAnyRecord) {
    IntraClip kernel;
    for (long index = -2; index < 12; ++index) {
        float lo = 7.0f, hi = 7.0f;
        kernel.GetBounds(index, lo, hi);
        const bool isKnown = index >= 0 && index < IntraClip::kParameterCount;
        EXPECT_EQ(lo < hi, isKnown);
        kernel.SetParameter(index, 1e9f);
        const bool isMeter = index == IntraClip::kAmplificationDb;
        EXPECT_EQ(kernel.GetParameter(index), isMeter ? 0.0f : hi);
        kernel.SetParameter(index, std::numeric_limits<float>::quiet_NaN());
        EXPECT_EQ(kernel.GetParameter(index), isMeter ? 0.0f : hi);
    }
    EXPECT_FALSE(kernel.Initialize(0, 48000.0f, 512));
    EXPECT_FALSE(kernel.Initialize(33, 48000.0f, 512));
    EXPECT_FALSE(kernel.Initialize(2, 0.0f, 512));
    EXPECT_EQ(IntraClip().GetParameter(IntraClip::kTargetDb), -18.0f);

    const Audio talk = MakeTalk({-16}, -64);
    const float extremes[] = {0.0f, -1e30f, 1e30f, std::numeric_limits<float>::quiet_NaN()};
    for (const float extreme : extremes) {
        IntraClipParam record;
        auto* fields = reinterpret_cast<float*>(&record);
        for (std::size_t i = 0; i < 17; ++i) fields[i] = extreme;
        for (float IntraClipParam::*field :
             {&IntraClipParam::rmsWindowTime, &IntraClipParam::delayCompensationTime,
              &IntraClipParam::finCompAttack, &IntraClipParam::finCompRelease,
              &IntraClipParam::finCompThresh, &IntraClipParam::finLimLookAhead,
              &IntraClipParam::finLimRelease, &IntraClipParam::finLimCeil})
            record.*field = extreme;
        record.numRMSBuckets = record.selBucketIndex = extreme > 0 ? 1 << 30 : -1;
        SetGlobalParam(record);
        IntraClip wild;
        wild.SetParameter(IntraClip::kGate, 1.0f);
        ASSERT_TRUE(wild.Initialize(2, 48000.0f, 512));
        for (const auto& channel : Level(wild, talk))
            for (const float x : channel) ASSERT_TRUE(std::isfinite(x)) << extreme;
    }
}

}  // namespace
}  // namespace dsp::intraclip
