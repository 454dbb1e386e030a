#include "kraaudiodsp/Resample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "kracore/Debug.h"

namespace dsp {
namespace {

struct Rates {
    double from, to;
};

std::vector<float> Sine(std::size_t frames, double cyclesPerFrame, double at = 0) {
    std::vector<float> sine(frames);
    for (std::size_t i = 0; i < frames; ++i)
        sine[i] = static_cast<float>(
            std::sin(2 * std::numbers::pi * cyclesPerFrame * (static_cast<double>(i) + at)));
    return sine;
}

std::vector<float> Convert(Resample& resample,
                           const std::vector<float>& in,
                           int inBlock,
                           int outBlock) {
    std::vector<float> out;
    std::vector<float> block(static_cast<std::size_t>(outBlock));
    for (std::size_t at = 0; at < in.size();) {
        const int frames = std::min(inBlock, static_cast<int>(in.size() - at));
        int consumed = 0;
        const int given =
            resample.Process(in.data() + at, frames, block.data(), outBlock, &consumed);
        at += static_cast<std::size_t>(consumed);
        out.insert(out.end(), block.begin(), block.begin() + given);
    }
    while (const int given = resample.Flush(block.data(), outBlock))
        out.insert(out.end(), block.begin(), block.begin() + given);
    return out;
}

/// Power of the sine of known frequency and phase against what else there is, in dB; the ends, where
/// the silence around the signal shows, are left out. `offset` receives the misalignment in frames.
double SnrDb(const std::vector<float>& out, double cyclesPerFrame, double& offset) {
    const std::size_t margin = out.size() / 4;
    double sines = 0, cosines = 0, power = 0;
    for (std::size_t i = margin; i < out.size() - margin; ++i) {
        const double angle = 2 * std::numbers::pi * cyclesPerFrame * static_cast<double>(i);
        const double window = 1 - std::cos(2 * std::numbers::pi * static_cast<double>(i - margin) /
                                           static_cast<double>(out.size() - 2 * margin));
        sines += window * out[i] * std::sin(angle);
        cosines += window * out[i] * std::cos(angle);
        power += window;
    }
    const double a = 2 * sines / power, b = 2 * cosines / power;
    offset = std::atan2(b, a) / (2 * std::numbers::pi * cyclesPerFrame);
    double noise = 0, signal = 0;
    for (std::size_t i = margin; i < out.size() - margin; ++i) {
        const double angle = 2 * std::numbers::pi * cyclesPerFrame * static_cast<double>(i);
        const double fit = a * std::sin(angle) + b * std::cos(angle);
        signal += fit * fit;
        noise += std::pow(out[i] - fit, 2);
    }
    return 10 * std::log10(signal / noise);
}

TEST(Resample, KeepsSinesAlignedAndCleanAtEveryRatio) {
    const Rates rates[] = {{44100, 22050}, {48000, 24000},   {44100, 48000},
                           {48000, 44100}, {8000, 96000},    {192000, 24000},
                           {22050, 44100}, {44100, 44100},   {1, 32},
                           {32, 1},        {44100, 43999.7}, {1, std::numbers::sqrt2}};
    for (const Rates& row : rates) {
        SCOPED_TRACE(testing::Message() << row.from << " to " << row.to);
        Resample resample;
        resample.SetSampleRates(row.from, row.to);
        const double lower = std::min(row.from, row.to);
        const auto in =
            Sine(static_cast<std::size_t>(3000 * row.from / lower), 0.2 * lower / row.from);
        const auto out = Convert(resample, in, 4096, 1000);
        EXPECT_EQ(out.size(), static_cast<std::size_t>(
                                  static_cast<double>(in.size()) * row.to / row.from + 0.5));
        double offset = 0;
        EXPECT_GE(SnrDb(out, 0.2 * lower / row.to, offset), 110) << "order 59";
        EXPECT_LT(std::abs(offset) * lower / row.to, 0.001) << "frames of the lower rate";
    }
}

TEST(Resample, PassAndStopBandFollowTheOrder) {
    struct Row {
        int order;
        double passEdge;  // -0.1 dB, of the new Nyquist frequency
        double aliasDb;   // from 1.2 of it on
    };
    for (const Row& row : {Row{29, 0.77, -80}, Row{59, 0.83, -92}, Row{119, 0.86, -103}}) {
        Resample resample;
        resample.SetSampleRates(2, 1);
        resample.SetFilterOrder(row.order);
        const auto levelDb = [&](double cyclesPerFrame) {
            resample.Reset();
            const auto out = Convert(resample, Sine(8000, cyclesPerFrame), 512, 512);
            double power = 0;
            for (std::size_t i = 1000; i < 3000; ++i) power += out[i] * out[i] / 2000.0;
            return 10 * std::log10(2 * power + 1e-30);
        };
        EXPECT_GT(levelDb(row.passEdge / 4), -0.11) << row.order;
        for (int k = 0; k < 45; ++k) {
            const double f = 1.2 + 0.0173 * k;
            EXPECT_LT(levelDb(f / 4), row.aliasDb) << row.order << " at " << f;
        }
    }
}

TEST(Resample, BlocksAndResetDoNotShow) {
    for (const Rates& row : {Rates{44100, 22050}, Rates{44100, 48000}, Rates{7, 6.123456}}) {
        Resample resample;
        resample.SetSampleRates(row.from, row.to);
        const auto in = Sine(2500, 0.031, 0.3);
        const auto whole = Convert(resample, in, 2500, 6000);
        for (const int inBlock : {1, 7, 64, 1025})
            for (const int outBlock : {1, 33, 2000}) {
                resample.Reset();
                EXPECT_EQ(Convert(resample, in, inBlock, outBlock), whole)
                    << inBlock << " " << outBlock;
            }
        resample.Reset();
        std::vector<float> out(400);
        for (const int frames : {1, 5, 100}) {
            const auto needed = static_cast<int>(resample.GetInputNeeded(frames));
            EXPECT_EQ(resample.Process(in.data(), needed - 1, out.data(), 400), frames - 1);
            EXPECT_EQ(resample.Process(in.data(), 1, out.data(), 1), 1);
        }
    }
}

TEST(Resample, RefusesRatiosThatItCannotMake) {
    int refused = 0;
    auto previous = kracore::debug::SetAssertionHandler(
        [&](const kracore::debug::AssertionFailure&) { ++refused; });
    Resample resample;
    for (const Rates& row : {Rates{0, 1}, Rates{1, 0}, Rates{33, 1}, Rates{1, 33}, Rates{-1, -1}})
        resample.SetSampleRates(row.from, row.to);
    kracore::debug::SetAssertionHandler(previous);
    EXPECT_EQ(refused, 5);
    EXPECT_EQ(Convert(resample, Sine(100, 0.1), 100, 100).size(), 100u);
}

}  // namespace
}  // namespace dsp
