#include "Components/Song.h"

#include <algorithm>
#include <cmath>

#include "Components/private/remix/BeatRefinement.h"
#include "Components/private/remix/BeatTracker.h"
#include "Components/private/remix/Chroma.h"
#include "Components/private/remix/OnsetFunction.h"
#include "Components/private/remix/Spectrogram.h"

namespace zuc::components {
namespace {

constexpr std::size_t kOnsetSize = 1024;
constexpr std::size_t kOnsetHop = 256;
constexpr std::size_t kBands = 48;
constexpr std::size_t kSlices = 4;  // of a beat
constexpr float kNeighbourWeight = 0.8f;
constexpr double kShortestPeriod = 0.33;  // seconds; what is outside is folded by octaves
constexpr double kLongestPeriod = 0.75;
constexpr double kGridMargin = 1 + 1e-9;  // keeps the song's own duration below one more beat

/// Four means of the spectrogram's rows per beat, less the song's mean of each column.
BeatRows SliceBeats(const Spectrogram& rows, const SongAnalysis& song) {
    BeatRows beats{kSlices * rows.bands, {}, kNeighbourWeight};
    if (rows.GetCount() == 0) return beats;
    beats.values.assign(song.beatTimes.size() * beats.columns, 0.0f);
    for (std::size_t i = 0; i < song.beatTimes.size(); ++i) {
        const double from = song.beatTimes[i];
        const bool isLast = i + 1 == song.beatTimes.size();
        const double step =
            (isLast ? song.beatPeriodSeconds : song.beatTimes[i + 1] - from) / kSlices;
        for (std::size_t s = 0; s < kSlices; ++s) {
            const double at = (from + step * static_cast<double>(s)) * rows.rateHz;
            const std::size_t last = rows.GetCount() - 1;
            const std::size_t lo = std::min(last, static_cast<std::size_t>(at + 0.5));
            const std::size_t hi = std::clamp(
                static_cast<std::size_t>(at + step * rows.rateHz + 0.5), lo + 1, last + 1);
            float* out = beats.values.data() + i * beats.columns + s * rows.bands;
            for (std::size_t k = lo; k < hi; ++k)
                for (std::size_t b = 0; b < rows.bands; ++b)
                    out[b] += rows.Row(k)[b] / static_cast<float>(hi - lo);
        }
    }
    for (std::size_t c = 0; c < beats.columns; ++c) {
        double sum = 0;
        for (std::size_t i = c; i < beats.values.size(); i += beats.columns)
            sum += static_cast<double>(beats.values[i]);
        const auto mean = static_cast<float>(sum / static_cast<double>(song.beatTimes.size()));
        for (std::size_t i = c; i < beats.values.size(); i += beats.columns)
            beats.values[i] -= mean;
    }
    return beats;
}

double MedianInterval(const std::vector<double>& times) {
    std::vector<double> intervals;
    for (std::size_t k = 1; k < times.size(); ++k) intervals.push_back(times[k] - times[k - 1]);
    const auto middle = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), middle, intervals.end());
    return *middle;
}

void MeasureGrid(SongAnalysis& song) {
    const std::size_t count = song.beatTimes.size();
    if (count < 2) return;
    song.beatPeriodSeconds = MedianInterval(song.beatTimes);
    while (song.beatPeriodSeconds < kShortestPeriod) song.beatPeriodSeconds *= 2;
    while (song.beatPeriodSeconds > kLongestPeriod) song.beatPeriodSeconds /= 2;
    if (count > 2)
        song.gridStepSeconds = song.beatTimes.back() / static_cast<double>(count - 2) * kGridMargin;
}

}  // namespace

IAudioFramesGetter::~IAudioFramesGetter() = default;

Song::Song(std::shared_ptr<IAudioFramesGetter> frames, int analysisRateHz)
    : frames_(std::move(frames)) {
    analysis_.analysisRateHz = analysisRateHz;
}

Song::Song(SongAnalysis analysis) : analysis_(std::move(analysis)) {}

bool Song::Analyse(double blockSeconds, bool separateSources, const ProgressCallback& progress) {
    if (frames_ == nullptr) return false;
    const ProgressShare all(progress);
    SongAnalysis song;
    song.analysisRateHz = analysis_.analysisRateHz;
    song.durationSeconds = static_cast<double>(frames_->GetFrameCount()) / song.analysisRateHz;
    Spectrogram loudness, chroma;
    const SpectrumLayout layout{kOnsetSize, kOnsetHop, blockSeconds};
    if (!ReadMelSpectrogram(*frames_, layout, kBands, all.Part(0, 0.25), loudness)) return false;
    const float scale = CompressLoudness(loudness);
    if (!ReadChroma(*frames_, {scale, separateSources, blockSeconds}, all.Part(0.25, 0.5), chroma))
        return false;
    OnsetFunction onsets = MakeOnsetFunction(loudness, HarmonicNovelty(chroma), chroma.rateHz);
    const BeatTrack track = FindBeats(onsets, all.Part(0.5, 0.75));
    if (track.isCancelled) return false;
    for (const double beat : track.beats) song.beatTimes.push_back(beat / onsets.rateHz);
    if (!RefineBeats(*frames_, scale, blockSeconds, all.Part(0.75, 1), song.beatTimes))
        return false;
    ExtendBeats(song.durationSeconds, song.beatTimes);
    song.confidence = track.confidence;
    MeasureGrid(song);
    song.timbre = SliceBeats(loudness, song);
    song.chroma = SliceBeats(chroma, song);
    song.onsets = std::move(onsets.strength);
    song.onsetRateHz = onsets.rateHz;
    analysis_ = std::move(song);
    return all.Report(1);
}

}  // namespace zuc::components
