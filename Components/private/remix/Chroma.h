#pragma once

#include <vector>

#include "Components/private/remix/Spectrogram.h"

namespace zuc::components {

/// How chroma is read.
struct ChromaOptions {
    float loudnessScale = 1;       // magnitudes are compressed to ln(1 + scale x)
    bool separateSources = false;  // only what is sustained (FitzGerald, "Harmonic/percussive
                                   // separation using median filtering", 2010)
    double blockSeconds = 60;
};

/// The twelve pitch classes over time, A first, from 110 to 3520 Hz, Gaussian with a standard deviation
/// of 0.35 semitones around a tuning that is estimated from the song. False when cancelled.
bool ReadChroma(IAudioFramesGetter& frames,
                const ChromaOptions& options,
                const ProgressShare& progress,
                Spectrogram& out);

/// 1 - cosine of what sounds in the 190 ms before and behind each row.
std::vector<float> HarmonicNovelty(const Spectrogram& chroma);

}  // namespace zuc::components
