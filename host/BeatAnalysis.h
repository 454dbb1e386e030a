#pragma once

#include <string>

#include "Components/Song.h"
#include "host/Figure.h"
#include "host/SongCache.h"

namespace zuc::host {

/// The beats of an audio file, from the cache when they are there. `progress` returns false to stop,
/// which throws Interrupted. Throws Error(kInput) for what cannot be read and for files shorter than
/// two seconds. [worker]
components::SongAnalysis AnalyseBeats(const std::string& path,
                                      const SongCache& cache,
                                      const components::ProgressCallback& progress);

/// {"duration": s, "bpm": n, "beat_period": s, "beats": [s, ...], "confidence": 0-1}, one line. [any]
std::string BeatsToJson(const components::SongAnalysis& song);

/// One line per beat, "start<TAB>end<TAB>number", as audio editors import labels. [any]
std::string BeatsToLabels(const components::SongAnalysis& song);

/// Writes the file once more with a short tick of 1 kHz on every beat, to listen whether they are right.
/// Throws Error(kInput, kOutput, kUsage). [worker]
void WriteClicks(const std::string& inputPath,
                 const std::string& outputPath,
                 const components::SongAnalysis& song);

/// Waveform, onset strength and beats over time, and below them which beats sound alike. Throws
/// Error(kInput). [worker]
Figure PlotBeats(const std::string& path, const components::SongAnalysis& song);

}  // namespace zuc::host
