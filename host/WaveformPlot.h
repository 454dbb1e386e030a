#pragma once

#include <string>
#include <vector>

#include "host/Figure.h"
#include "host/TimeRange.h"

namespace zuc::host {

/// The samples of audio files over time, a panel for each channel, one file below the other and all on
/// the same scale: full scale, or the highest peak when that is above. Throws Error (kInput, kUsage), or
/// an ErrorList. [worker]
Figure PlotWaveforms(const std::vector<std::string>& paths, const TimeRange& range);

}  // namespace zuc::host
