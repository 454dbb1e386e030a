#pragma once

#include <string>

#include "host/Figure.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host {

/// The transfer curve of an effect with its present parameters: output level over input level, both
/// in dB, the points it goes through, and the line of unity gain. Throws Error (kUsage) when the effect
/// has no such curve. [host]
Figure PlotTransfer(kraaudiofilterhost::AudioFilter& filter, const std::string& title);

}  // namespace zuc::host
