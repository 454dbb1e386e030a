#pragma once

#include <vector>

#include "Components/private/remix/Spectrogram.h"

namespace zuc::components {

/// Moves beats (seconds) that are known to about 10 ms onto the onsets beside them, with a finer look
/// at the signal: each takes the place of the strongest onset near it, as far as that is clear and
/// agrees with the line through its neighbours. False when cancelled.
bool RefineBeats(IAudioFramesGetter& frames,
                 float loudnessScale,
                 double blockSeconds,
                 const ProgressShare& progress,
                 std::vector<double>& beatTimes);

/// Continues the beats with the period that they have at each end to both ends of the song.
void ExtendBeats(double durationSeconds, std::vector<double>& beatTimes);

}  // namespace zuc::components
