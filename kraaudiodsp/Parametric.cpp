#include "kraaudiodsp/Parametric.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <span>

#include "kraaudiodsp/LinearPhaseDesign.h"
#include "kraaudiodsp/Units.h"

namespace dsp {
namespace {

constexpr double kRampMs = 20.0;
constexpr double kFadeMs = 50.0;
constexpr double kHighestFrequency = 0.49;  // of the rate
constexpr double kTailDb = 90.0;
constexpr double kLongestTailFrames = 60.0 * 192000.0;

void Add(AnalogBand& band, const AnalogSection& section) { band.sections[band.count++] = section; }

void AddPass(AnalogBand& band, double frequencyHz, int order, bool isHigh) {
    if (order % 2 == 1) Add(band, isHigh ? MakeHighPass(frequencyHz) : MakeLowPass(frequencyHz));
    for (int k = 0; k < order / 2; ++k) {
        const double angle = std::numbers::pi * (2 * k + 1) / (2.0 * order);
        const double q =
            0.5 / std::cos(order % 2 == 1 ? std::numbers::pi * (k + 1) / order : angle);
        Add(band, isHigh ? MakeHighPass(frequencyHz, q) : MakeLowPass(frequencyHz, q));
    }
}

double GetPower(std::span<const AnalogBand> bands, double frequencyHz) {
    double power = 1.0;
    for (const AnalogBand& band : bands)
        for (std::size_t s = 0; s < band.count; ++s)
            power *= std::norm(GetResponse(band.sections[s], frequencyHz));
    return power;
}

}  // namespace

AnalogBand MakeAnalog(const ParametricBand& band, double rateHz) {
    AnalogBand analog;
    if (!band.on) return analog;
    const double f = std::min(band.frequencyHz, kHighestFrequency * rateHz);
    const auto unlessFlat = [&](const AnalogSection& section) {
        if (band.gainDb != 0.0) Add(analog, section);
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
            Add(analog, MakeNotch(f, band.q));
            break;
        case BandType::kBandPass:
            Add(analog, MakeBandPass(f, band.q));
            break;
        case BandType::kTilt:
            unlessFlat(MakeLowShelf(f, -band.gainDb, band.q));
            unlessFlat(MakeHighShelf(f, band.gainDb, band.q));
            break;
    }
    return analog;
}

ParametricCurve::ParametricCurve(const Bands& bands, double gain, double rateHz) {
    for (std::size_t k = 0; k < kBandCount; ++k) {
        const AnalogBand analog = MakeAnalog(bands[k], rateHz);
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

double GetAnalogMagnitude(const ParametricBand& band, double frequencyHz, double rateHz) {
    const AnalogBand analog = MakeAnalog(band, rateHz);
    return std::sqrt(GetPower({&analog, 1}, frequencyHz));
}

double GetLoudnessChangeDb(const ParametricCurve::Bands& bands) {
    // The analog filters behind the two stages of the weighting.
    const AnalogSection shelf = MakeHighShelf(1682.0, 4.0, 0.7072);
    const AnalogSection highPass = MakeHighPass(38.1, 0.5);
    std::array<AnalogBand, ParametricCurve::kBandCount> analog;
    for (std::size_t k = 0; k < bands.size(); ++k)
        analog[k] = MakeAnalog(bands[k], std::numeric_limits<double>::infinity());
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

// ---- One channel ----

int Parametric::GetFadeFrames(double rateHz) { return std::max(1, MsToFrames(kFadeMs, rateHz)); }

int Parametric::GetSettlingFrames(double rateHz) {
    return static_cast<int>(LinearPhaseDesign::GetTaps(rateHz));
}

void Parametric::SetSampleRate(int rateHz) {
    rampFrames_ = std::max(1, MsToFrames(kRampMs, rateHz));
    fadeFrames_ = GetFadeFrames(rateHz);
    latencyFrames_ = static_cast<std::size_t>(LinearPhaseDesign::GetLatency(rateHz));
    fir_.Prepare(LinearPhaseDesign::GetPartFrames(rateHz), LinearPhaseDesign::kPartCount);
    past_.Prepare(latencyFrames_, kPieceFrames);
}

void Parametric::Reset() {
    cascade_.Reset();
    if (linearRuns_) {
        fir_.Reset();
        past_.Reset();
    }
    paths_ = {};
    heard_ = 0;
    minimumRuns_ = true;
    linearRuns_ = fades_ = false;
}

void Parametric::Start(const Path& path) {
    paths_[heard_] = path;
    minimumRuns_ = !path.isLinear;
    linearRuns_ = path.isLinear;
    if (path.isLinear) fir_.SetSpectra(heard_, path.response);
}

void Parametric::Feed(const Path& path) {
    if (path.isLinear && !linearRuns_) {
        fir_.Reset();
        past_.Reset();
        linearRuns_ = true;
    }
    if (!path.isLinear && !minimumRuns_) {
        cascade_.Reset();
        minimumRuns_ = true;
    }
}

void Parametric::FadeTo(const Path& path) {
    paths_[1 - heard_] = path;
    if (path.isLinear) fir_.SetSpectra(1 - heard_, path.response);
    fadePosition_ = 0;
    fades_ = true;
}

void Parametric::EndFade() {
    fir_.SetSpectra(heard_, nullptr);
    paths_[heard_] = {};
    heard_ = 1 - heard_;
    linearRuns_ = paths_[heard_].isLinear;
    minimumRuns_ = !linearRuns_;
    fades_ = false;
}

void Parametric::RunLinear(const float* in, int frames) {
    float* const place = past_.Append(static_cast<std::size_t>(frames));
    std::copy_n(in, frames, place);
    fir_.Process(in, linear_[0].data(), linear_[1].data(), frames);
    for (std::size_t p = 0; p < paths_.size(); ++p)
        if (paths_[p].isLinear && !paths_[p].response)
            std::transform(place - latencyFrames_, place - latencyFrames_ + frames,
                           linear_[p].begin(),
                           [gain = paths_[p].gain](float x) { return gain * x; });
}

void Parametric::Mix(float* out, int frames) {
    const auto sound = [this](std::size_t place) {
        return paths_[place].isLinear ? linear_[place].data() : minimum_.data();
    };
    const float* const old = sound(heard_);
    if (!fades_) {
        std::copy_n(old, frames, out);
        return;
    }
    const float* const next = sound(1 - heard_);
    const bool isInPhase = paths_[0].isLinear == paths_[1].isLinear;
    for (int i = 0; i < frames; ++i) {
        const float done =
            std::min(1.0f, static_cast<float>(fadePosition_ + i) / static_cast<float>(fadeFrames_));
        const float angle = 0.5f * std::numbers::pi_v<float> * done;
        const float weight = isInPhase ? done : std::sin(angle);
        const float rest = isInPhase ? 1.0f - done : std::cos(angle);
        out[i] = rest * old[i] + weight * next[i];
    }
    fadePosition_ += frames;
}

void Parametric::ProcessPiece(const float* in, float* out, int frames) {
    if (!linearRuns_) return cascade_.Process(in, out, frames);
    RunLinear(in, frames);
    if (minimumRuns_) cascade_.Process(in, minimum_.data(), frames);
    Mix(out, frames);
}

void Parametric::Process(const float* in, float* out, int frames) {
    for (int done = 0; done < frames;) {
        const int most =
            std::min(frames - done, fades_ ? fadeFrames_ - fadePosition_ : frames - done);
        const int run = std::min(most, static_cast<int>(kPieceFrames));
        ProcessPiece(in + done, out + done, run);
        done += run;
        if (fades_ && fadePosition_ == fadeFrames_) EndFade();
    }
}

}  // namespace dsp
