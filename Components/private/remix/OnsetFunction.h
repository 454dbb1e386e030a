#pragma once

#include <vector>

#include "Components/private/remix/Spectrogram.h"

namespace zuc::components {

/// How suddenly the sound changes, over time.
struct OnsetFunction {
    double rateHz = 0;            // values a second; the first is at time 0
    std::vector<float> strength;  // mean near 0, standard deviation 1
    std::vector<float> low;       // the same of the lowest fifth of the bands alone
    std::vector<float> harmony;   // change of harmony as a multiple of its mean; may be empty
};

/// Divides by the 95th percentile of the frames' maxima and compresses: ln(1 + 100 x). Returns the
/// factor in front of the values, 0 for silence.
float CompressLoudness(Spectrogram& spectrogram);

/// Spectral flux with a maximum filter over three bands against vibrato (Boeck & Widmer, "Maximum
/// filter vibrato suppression for onset detection", 2013) in five parts of the spectrum, each
/// measured by its own level. `novelty` is how much the harmony changes (any rate; may be empty).
OnsetFunction MakeOnsetFunction(const Spectrogram& loudness,
                                const std::vector<float>& novelty,
                                double noveltyRateHz);

/// Centred running mean of `width` values; shorter at the ends.
std::vector<float> RunningMean(const std::vector<float>& x, std::size_t width);

/// Sum of products of x and the reversed y at every position of x, the same length as x. Throws
/// std::invalid_argument when y is longer than x.
std::vector<double> ConvolveSame(const std::vector<double>& x, const std::vector<double>& y);

}  // namespace zuc::components
