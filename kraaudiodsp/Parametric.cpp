#include "kraaudiodsp/Parametric.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

constexpr double kRampMs = 20.0;
constexpr double kHighestFrequency = 0.49;  // of the rate
constexpr double kTailDb = 90.0;
constexpr double kLongestTailFrames = 60.0 * 192000.0;

/// The analog sections of one band; the longest is a pass filter of 8th order.
struct AnalogBand {
    std::array<AnalogSection, 4> sections;
    std::size_t count = 0;
    void Add(const AnalogSection& section) { sections[count++] = section; }
};

void AddPass(AnalogBand& band, double frequencyHz, int order, bool isHigh) {
    if (order % 2 == 1) band.Add(isHigh ? MakeHighPass(frequencyHz) : MakeLowPass(frequencyHz));
    for (int k = 0; k < order / 2; ++k) {
        const double angle = std::numbers::pi * (2 * k + 1) / (2.0 * order);
        const double q =
            0.5 / std::cos(order % 2 == 1 ? std::numbers::pi * (k + 1) / order : angle);
        band.Add(isHigh ? MakeHighPass(frequencyHz, q) : MakeLowPass(frequencyHz, q));
    }
}

AnalogBand MakeAnalog(const ParametricBand& band) {
    AnalogBand analog;
    const double f = band.frequencyHz;
    const auto unlessFlat = [&](const AnalogSection& section) {
        if (band.gainDb != 0.0) analog.Add(section);
    };
    switch (band.type) {
        case BandType::kBell:
            unlessFlat(MakeBell(f, band.gainDb, band.q));
            break;
        case BandType::kLowShelf:
            unlessFlat(MakeLowShelf(f, band.gainDb, band.q));
            break;
        case BandType::kHighShelf:
            unlessFlat(MakeHighShelf(f, band.gainDb, band.q));
            break;
        case BandType::kHighPass:
            AddPass(analog, f, band.order, true);
            break;
        case BandType::kLowPass:
            AddPass(analog, f, band.order, false);
            break;
        case BandType::kNotch:
            analog.Add(MakeNotch(f, band.q));
            break;
        case BandType::kBandPass:
            analog.Add(MakeBandPass(f, band.q));
            break;
        case BandType::kTilt:
            unlessFlat(MakeLowShelf(f, -band.gainDb, band.q));
            unlessFlat(MakeHighShelf(f, band.gainDb, band.q));
            break;
    }
    return analog;
}

double GetPower(std::span<const AnalogBand> bands, double frequencyHz) {
    double power = 1.0;
    for (const AnalogBand& band : bands)
        for (std::size_t s = 0; s < band.count; ++s)
            power *= std::norm(GetResponse(band.sections[s], frequencyHz));
    return power;
}

}  // namespace

ParametricCurve::ParametricCurve(const Bands& bands, double gain, double rateHz) {
    for (std::size_t k = 0; k < kBandCount; ++k) {
        ParametricBand band = bands[k];
        if (!band.on) continue;
        band.frequencyHz = std::min(band.frequencyHz, kHighestFrequency * rateHz);
        const AnalogBand analog = MakeAnalog(band);
        Biquad* place = &sections_[k * kSectionsPerBand];
        for (std::size_t s = 0; s < analog.count; ++s) {
            const DesignedFilter filter = Design(analog.sections[s], rateHz);
            place = std::copy_n(filter.sections.begin(), filter.count, place);
        }
    }
    sections_.back().b0 = gain;
}

int ParametricCurve::GetTail() const {
    double slowest = 0.0;
    for (const Biquad& section : sections_) slowest = std::max(slowest, GetPoleRadius(section));
    if (slowest <= 0.0) return 0;
    // Several slow poles decay later than one alone: a third on top.
    const double frames = kTailDb / 20.0 * std::numbers::ln10 / -std::log(slowest) * 4.0 / 3.0;
    return static_cast<int>(std::min(frames, kLongestTailFrames)) + 1;
}

double GetAnalogMagnitude(const ParametricBand& band, double frequencyHz) {
    if (!band.on) return 1.0;
    const AnalogBand analog = MakeAnalog(band);
    return std::sqrt(GetPower({&analog, 1}, frequencyHz));
}

double GetLoudnessChangeDb(const ParametricCurve::Bands& bands) {
    // The analog filters behind the two stages of the weighting.
    const AnalogSection shelf = MakeHighShelf(1682.0, 4.0, 0.7072);
    const AnalogSection highPass = MakeHighPass(38.1, 0.5);
    std::array<AnalogBand, ParametricCurve::kBandCount> analog;
    for (std::size_t k = 0; k < bands.size(); ++k)
        if (bands[k].on) analog[k] = MakeAnalog(bands[k]);
    double before = 0.0;
    double after = 0.0;
    for (int point = 0; point < 60; ++point) {
        const double frequencyHz = 20.0 * std::exp2((point + 0.5) / 6.0);
        const double weight = std::norm(GetResponse(shelf, frequencyHz)) *
                              std::norm(GetResponse(highPass, frequencyHz));
        before += weight;
        after += weight * GetPower(analog, frequencyHz);
    }
    return 10.0 * std::log10(std::max(after, 1e-12) / before);
}

void Parametric::SetSampleRate(int rateHz) {
    rampFrames_ = std::max(1, MsToFrames(kRampMs, rateHz));
}

void Parametric::Process(const float* in, float* out, int frames) {
    for (int done = 0; done < frames; done += BiquadCascade::kMaxFrames)
        cascade_.Process(in + done, out + done, std::min(frames - done, BiquadCascade::kMaxFrames));
}

}  // namespace dsp
