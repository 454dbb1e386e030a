#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

namespace dsp::test {

inline constexpr double kLimiterRateHz = 48000.0;
inline constexpr std::size_t kLimiterFrames = 24000;

inline double Sinc(double x) {
    return x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

/// Hann-windowed sinc of `half` samples to either side, cut off at a fraction of the rate.
inline double LowPass(double distance, double half, double cutoff) {
    if (std::fabs(distance) >= half) return 0.0;
    const double window = 0.5 + 0.5 * std::cos(std::numbers::pi * distance / half);
    return 2.0 * cutoff * Sinc(2.0 * cutoff * distance) * window;
}

/// Nothing above 20 kHz: 511 taps, cut off at 19.8 kHz.
inline std::vector<float> BandLimit(const std::vector<float>& in) {
    constexpr int kHalf = 255;
    std::vector<float> out(in.size());
    for (int i = 0; i < static_cast<int>(in.size()); ++i) {
        double sum = 0.0;
        for (int k = -kHalf; k <= kHalf; ++k)
            if (i + k >= 0 && i + k < static_cast<int>(in.size()))
                sum += in[static_cast<std::size_t>(i + k)] *
                       LowPass(k, kHalf + 1.0, 19800.0 / kLimiterRateHz);
        out[static_cast<std::size_t>(i)] = static_cast<float>(sum);
    }
    return out;
}

inline std::vector<float> Make(const std::function<double(double t)>& at) {
    std::vector<float> out(kLimiterFrames);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<float>(at(static_cast<double>(i) / kLimiterRateHz));
    return out;
}

inline std::vector<float> Tone(double frequencyHz, double level, double phase = 0.0) {
    return Make([=](double t) {
        return level * std::sin(2.0 * std::numbers::pi * frequencyHz * t + phase);
    });
}

inline std::vector<float> Noise(float level, float clip) {
    std::mt19937 random(29);
    std::normal_distribution<float> normal(0.0f, level);
    std::vector<float> out(kLimiterFrames);
    for (float& x : out) x = std::clamp(normal(random), -clip, clip);
    return out;
}

struct LimiterSignal {
    const char* name;
    std::vector<float> samples;
};

/// Signals up to 20 kHz that hide their peaks between the samples, or come suddenly; all well above full
/// scale.
inline std::vector<LimiterSignal> MakeLimiterSignals() {
    constexpr double kPi = std::numbers::pi;
    return {
        {"a quarter of the rate, between its peaks", Tone(12000, 2.0, kPi / 4)},
        {"0.417 of the rate", Tone(20000, 2.0, 0.3)},
        {"19 and 20 kHz", Make([](double t) {
             return 1.2 * (std::sin(2 * kPi * 19000 * t) + std::sin(2 * kPi * 20000 * t + 1.0));
         })},
        {"noise", BandLimit(Noise(0.7f, 10.0f))},
        {"clipped noise", BandLimit(Noise(4.0f, 2.0f))},
        {"square wave of 997 Hz",
         BandLimit(Make([](double t) { return std::sin(2 * kPi * 997 * t) > 0.0 ? 1.5 : -1.5; }))},
        {"bursts of 7 kHz", BandLimit(Make([](double t) {
             return std::fmod(t, 0.05) < 0.004 ? 3.0 * std::sin(2 * kPi * 7000 * t) : 0.0;
         }))},
        {"single samples", BandLimit(Make([](double t) {
             return std::fmod(t * kLimiterRateHz + 0.5, 997.0) < 1.0 ? 4.0 : 0.05;
         }))},
        {"sine of 50 Hz", Tone(50, 2.0)},
    };
}

/// The largest magnitude of frames [first, last) at 16 places each, 96 taps a phase.
inline double MeasureTruePeak(const std::vector<float>& x, std::size_t first, std::size_t last) {
    constexpr int kReach = 48;
    double peak = 0.0;
    std::vector<double> taps;
    for (int p = 0; p < 16; ++p) {
        taps.clear();
        for (int k = -kReach + 1; k <= kReach; ++k)
            taps.push_back(LowPass(k - p / 16.0, kReach, 0.5));
        for (std::size_t i = std::max<std::size_t>(first, kReach);
             i < last && i + kReach < x.size(); ++i) {
            double sum = 0.0;
            for (std::size_t k = 0; k < taps.size(); ++k) sum += taps[k] * x[i + 1 - kReach + k];
            peak = std::max(peak, std::fabs(sum));
        }
    }
    return peak;
}

}  // namespace dsp::test
