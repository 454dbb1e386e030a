#pragma once

#include <vector>

#include "Components/private/remix/OnsetFunction.h"
#include "Components/private/remix/ProgressShare.h"

namespace zuc::components {

/// The sequence of onset values that are strong and a period apart, by dynamic programming (Ellis,
/// "Beat tracking by dynamic programming", 2007).
///
///     C[i] = onset[i] + max(0, max over lags l of C[i + l] - tightness ln(-l / period[i])^2)
///
/// with l from -2 period to -round(period / 2). Indices ascend. `periods` has a value above 0, in onset
/// values, for every onset value. Progress is reported every 500 values as (i + 1) / N; when cancelled
/// the result is empty. Throws std::invalid_argument when the tightness is not above 0.
std::vector<std::size_t> TrackBeats(const std::vector<float>& onsets,
                                    const std::vector<double>& periods,
                                    double tightness,
                                    const ProgressShare& progress);

/// What tracking found.
struct BeatTrack {
    std::vector<double> beats;  // places in onset values
    double confidence = 0;      // 0 to 1
    bool isCancelled = false;
};

/// Tries the tempos that the onset function suggests, each loosely and then as stiffly as the music
/// allows, and keeps the one whose beats stand out best.
BeatTrack FindBeats(const OnsetFunction& onsets, const ProgressShare& progress);

}  // namespace zuc::components
