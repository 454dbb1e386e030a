#pragma once

#include "host/ChainProcessor.h"
#include "host/Figure.h"

namespace zuc::host {

/// What the chain's curves do over time, one panel each in its own unit: the parameters that are
/// automated and the curves of envelope effects. `seconds` is how much is shown and the selection over
/// which presets' curves stretch; 0 means up to the last point, or 10 s. Levels below -96 dB are
/// drawn there.
/// Throws Error (kUsage) when there is no curve. [host]
Figure PlotCurves(ChainProcessor& chain, float rateHz, double seconds);

}  // namespace zuc::host
