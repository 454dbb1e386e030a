#pragma once

#include <cstddef>
#include <vector>

#include "kraaudiodsp/SlidingBuffer.h"

namespace dsp {

/// A linear-phase band filter of one channel: (taps - 1) / 2 frames of delay at every frequency.
///
/// The impulse response is the windowed difference of two sinc functions,
///
///     h[n] = cos(pi (high + low) n) sinc((high - low) n) w[n],   n = -(taps - 1)/2 ... (taps - 1)/2
///
/// with w the Kaiser window for beta 5 (stop band below -48 dB from 1.6 / taps outside an edge) and
/// normalized to gain 1 at 0 for a low-pass, at 0.5 for a high-pass, else at sqrt(low high).
/// Source: J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window function",
/// Proc. IEEE Symposium on Circuits and Systems, 1974.
class FIRFilter {
public:
    /// Makes room for filters of up to `maxTaps` taps and silences the filter, which then does
    /// nothing until coefficients are generated. [host]
    void Prepare(int maxTaps);

    /// Edges as fractions of the sample rate, 0 to 0.5 and in any order; low <= 0 gives a low-pass,
    /// high >= 0.5 a high-pass, both a pure delay. An even number of taps is raised by one, more than
    /// prepared are lowered to what there is room for. The input so far is kept. Enables the filter.
    /// [audio]
    void GenerateFIRCoeffs(double low, double high, int taps);
    /// The coefficients of another filter, which are not made anew. [audio]
    void CopyCoeffs(const FIRFilter& other);

    /// Filters in place; any count. [audio]
    void Process(float* samples, int frames);
    /// Forgets the input so far. [audio]
    void Reset();
    /// Turns the filter into a pure delay of (taps - 1) / 2 frames and back, so that the latency does
    /// not move. [audio]
    void Disable() { isEnabled_ = false; }
    void Enable() { isEnabled_ = true; }

    int GetTaps() const { return static_cast<int>(2 * half_ + 1); }  // [any]
    /// The first (taps + 1) / 2 coefficients; the others mirror them. [any]
    const float* GetCoeffs() const { return coeffs_.data(); }

private:
    static constexpr int kPieceFrames = 1024;

    SlidingBuffer history_;
    std::vector<float> coeffs_;  // h[-half] to h[0]
    std::size_t half_ = 0;
    bool isEnabled_ = false;
};

}  // namespace dsp
