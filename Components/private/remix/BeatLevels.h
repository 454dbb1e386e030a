#pragma once

#include <vector>

#include "Components/Song.h"

namespace zuc::components {

/// How loud a beat is: root mean square of the whole, and dB (full scale is 0, nothing below -70) of its
/// halves.
struct BeatLevel {
    double rms = 0;
    double firstHalfDb = 0;
    double secondHalfDb = 0;
};

/// Reads the song once. A beat lasts to the next one; the last counts as loud as the one before. [worker]
std::vector<BeatLevel> ReadBeatLevels(const std::vector<double>& beatTimes,
                                      IAudioFramesGetter& frames);

}  // namespace zuc::components
