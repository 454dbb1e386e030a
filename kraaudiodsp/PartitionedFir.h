#pragma once

#include <complex>
#include <cstddef>
#include <vector>

#include "kraaudiodsp/AlignedVector.h"
#include "kraaudiodsp/RealFft.h"
#include "kraaudiodsp/SlidingBuffer.h"

namespace dsp {

/// A long impulse response as the spectra of its parts, for any number of PartitionedFirs to read.
class FirSpectra {
public:
    /// Room for partCount parts of partFrames taps, a size that RealFft allows; all 0. [host]
    void Prepare(std::size_t partFrames, std::size_t partCount);
    /// Takes the taps of one part. `taps[0 .. partFrames)`. [audio]
    void SetPart(std::size_t part, const float* taps);
    const std::complex<float>* GetPart(std::size_t part) const {
        return spectra_.data() + part * binCount_;
    }
    std::size_t GetPartFrames() const { return partFrames_; }
    std::size_t GetPartCount() const { return partCount_; }

private:
    std::size_t partFrames_ = 0;
    std::size_t partCount_ = 0;
    std::size_t binCount_ = 0;
    AlignedVector<std::complex<float>> spectra_;
    AlignedVector<float> padded_;  // twice partFrames_
    RealFft<float> fft_;
};

/// One channel through a long impulse response, one part later than by the definition of convolution:
///
///     out[n] = sum over k of taps[k] in[n - partFrames - k]
///
/// Uniform parts in the frequency domain, with the spectra of past input kept (overlap-save: W. G. Gardner,
/// "Efficient convolution without input-output delay", JAES 43-3, 1995; F. Wefers, "Partitioned convolution
/// algorithms for real-time auralization", 2015). Errors stay below -120 dB of the input. Work comes at
/// every partFrames-th frame counted from Reset, whatever the blocks, so these do not change the output.
///
/// Two impulse responses may be heard at once, each from its own first frame on as if it had always been
/// there, because the input is kept.
class PartitionedFir {
public:
    /// For impulse responses of these sizes. [host]
    void Prepare(std::size_t partFrames, std::size_t partCount);
    /// Silence before; no impulse response in either place. [audio]
    void Reset();
    /// Puts an impulse response, of the sizes prepared, into place 0 or 1; null takes it out. What is there
    /// stays in use until it is replaced. [audio]
    void SetSpectra(std::size_t place, const FirSpectra* spectra);
    /// `in[0 .. frames)` through what is in the places; an output that is null, or whose place is empty, is
    /// left alone. `in` may be either output. [audio]
    void Process(const float* in, float* first, float* second, int frames);

private:
    void TakeInput();
    void Convolve(std::size_t place);

    static constexpr std::size_t kPlaces = 2;

    std::size_t partFrames_ = 0;
    std::size_t partCount_ = 0;
    std::size_t binCount_ = 0;
    std::size_t position_ = 0;                   // in the part that fills
    std::size_t newest_ = 0;                     // of inputs_
    AlignedVector<float> input_;                 // the part before and the one that fills
    AlignedVector<std::complex<float>> inputs_;  // spectra of the last partCount_ parts
    AlignedVector<std::complex<float>> sum_;
    AlignedVector<float> result_;  // twice partFrames_
    const FirSpectra* spectra_[kPlaces] = {};
    AlignedVector<float> outputs_[kPlaces];  // of the part that is heard
    RealFft<float> fft_;
};

}  // namespace dsp
