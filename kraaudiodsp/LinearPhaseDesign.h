#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/Parametric.h"
#include "kraaudiodsp/PartitionedFir.h"
#include "kraaudiodsp/RealFft.h"

namespace dsp {

/// Makes the impulse response of linear phase that has the analog magnitude of an equalizer's bands, in
/// steps short enough for the audio thread.
///
/// The magnitude at GetTaps() points around the circle, taken back to time, times a Kaiser window of beta
/// 8 (J. F. Kaiser, 1974). Details of the curve that are narrower than 2.9 GetTaps()-ths of the rate, 17 Hz
/// at 48 kHz, come out smoothed. The taps begin at 1 and end before kPartCount parts, centre on
/// 15 parts, and with the part by which PartitionedFir is late the delay is GetTaps() / 2 frames.
class LinearPhaseDesign {
public:
    static constexpr std::size_t kPartCount = 30;
    /// Calls of Step for one response.
    static constexpr int kStepCount = 24;

    /// 8192 at 48 kHz, as many more as the rate is higher, a power of two. [any]
    static std::size_t GetTaps(double rateHz);
    static int GetLatency(double rateHz) { return static_cast<int>(GetTaps(rateHz) / 2); }
    static std::size_t GetPartFrames(double rateHz) { return GetTaps(rateHz) / (kPartCount + 2); }

    void Prepare(double rateHz);  // [host]
    /// Begins a response that goes into `spectra`, which has the sizes above. [audio]
    void Start(const ParametricCurve::Bands& bands, double gain, FirSpectra& spectra);
    /// Goes on; up to 20 us at 48 kHz. Nothing happens after the last step. [audio]
    void Step();
    bool IsDone() const { return step_ == kStepCount; }  // [audio]

private:
    /// |H|^2 of a section over the square of the frequency in points of the circle.
    struct PowerRatio {
        double n0, n1, n2, d0, d1, d2;
    };
    void MakeMagnitudes(std::size_t first, std::size_t last);
    void Window();

    static constexpr std::size_t kMostSections = 4 * ParametricCurve::kBandCount;

    double rateHz_ = 0.0;
    std::size_t taps_ = 0;
    std::array<PowerRatio, kMostSections> sections_{};
    std::size_t sectionCount_ = 0;
    double gain_ = 1.0;
    FirSpectra* spectra_ = nullptr;
    int step_ = kStepCount;
    std::vector<double> powers_;
    std::vector<std::complex<float>> magnitudes_;
    std::vector<float> response_;  // the centre first
    std::vector<float> window_;    // from the centre on
    std::vector<float> centered_;  // kPartCount parts
    RealFft<float> fft_;
};

}  // namespace dsp
