#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "Components/Song.h"
#include "Components/private/remix/ProgressShare.h"

namespace zuc::components {

/// Bands over time: `count` rows of `bands` values, row k at time k / rateHz.
struct Spectrogram {
    std::size_t bands = 0;
    double rateHz = 0;
    std::vector<float> values;

    std::size_t GetCount() const { return bands == 0 ? 0 : values.size() / bands; }
    float* Row(std::size_t k) { return values.data() + k * bands; }
    const float* Row(std::size_t k) const { return values.data() + k * bands; }
};

/// How a signal is cut into spectra: Hann windows of `size` frames, centred on multiples of `hop`.
struct SpectrumLayout {
    std::size_t size = 1024;
    std::size_t hop = 256;
    double blockSeconds = 60;  // of audio held at a time
};

/// Hands the magnitude spectrum (size / 2 + 1 values, 1 for a sine of amplitude 1) of every frame to
/// `visit`, in order. False when cancelled.
bool ForEachSpectrum(IAudioFramesGetter& frames,
                     const SpectrumLayout& layout,
                     const ProgressShare& progress,
                     const std::function<void(const float* magnitudes)>& visit);

/// Triangles of height 1 and equal width on the mel scale (O'Shaughnessy, "Speech Communication", 1987:
/// 2595 log10(1 + f / 700)); the highest band ends below the Nyquist frequency.
class MelBands {
public:
    MelBands(std::size_t bands, double loHz, double hiHz, std::size_t size, double rateHz);
    /// Mean magnitude of each band. [any]
    void Apply(const float* magnitudes, float* out) const;

private:
    struct Band {
        std::size_t first;
        std::vector<float> weights;
    };
    std::vector<Band> bands_;
};

/// All frames of a signal as mel bands, 30 Hz to 10 kHz.
bool ReadMelSpectrogram(IAudioFramesGetter& frames,
                        const SpectrumLayout& layout,
                        std::size_t bands,
                        const ProgressShare& progress,
                        Spectrogram& out);

}  // namespace zuc::components
