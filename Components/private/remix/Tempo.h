#pragma once

#include <cstddef>
#include <vector>

#include "Components/private/remix/OnsetFunction.h"

namespace zuc::components {

/// How strongly each beat period is present, over time.
struct Tempogram {
    static constexpr std::size_t kTempos = 128;  // from kLoBpm, kPerOctave to the octave
    static constexpr double kLoBpm = 40;
    static constexpr double kPerOctave = 48;

    double rateHz = 1;  // rows a second; row k is centred on k / rateHz
    std::vector<std::vector<float>> rows;
    std::vector<float> total;  // over all rows; the largest is 1

    static double Bpm(double tempo);
};

/// Product of autocorrelation (at one to four periods) and spectrum (at the beat and its double) of
/// ten-second pieces of the onset function (Peeters, "Template-based estimation of time-varying
/// tempo", 2007: what is periodic has both).
Tempogram MakeTempogram(const OnsetFunction& onsets);

/// Tempos worth tracking: the strongest ones, their halves and doubles, and ratios of three.
std::vector<double> FindTempoCandidates(const Tempogram& tempogram);

/// The most likely course of the beat period around one tempo, in onset values, one per onset value.
std::vector<double> FollowTempo(const Tempogram& tempogram,
                                double tempo,
                                const OnsetFunction& onsets);

}  // namespace zuc::components
