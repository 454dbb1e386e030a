#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "kracore/Export.h"

namespace zuc::components {

/// Where an analysis takes its audio from: one mono signal at the analysis rate.
class ZUC_API IAudioFramesGetter {
public:
    virtual ~IAudioFramesGetter();
    IAudioFramesGetter() = default;
    IAudioFramesGetter(const IAudioFramesGetter&) = delete;
    IAudioFramesGetter& operator=(const IAudioFramesGetter&) = delete;

    /// Frames `first` to `last`, `last` not included; fewer when the source ends before. [worker]
    virtual std::vector<double> GetFrames(std::int64_t first, std::int64_t last) = 0;
    virtual int GetSampleRate() const = 0;           // Hz [any]
    virtual std::int64_t GetFrameCount() const = 0;  // at that rate [any]
};

/// Told how far a long operation is, 0 to 1; returns false to cancel it.
using ProgressCallback = std::function<bool(double fraction)>;

/// One row of features per beat.
struct BeatRows {
    std::size_t columns = 0;
    std::vector<float> values;  // beats x columns
    /// A beat is compared together with its two neighbours, whose rows count with this factor.
    float neighbourWeight = 0.0f;

    std::size_t GetCount() const { return columns == 0 ? 0 : values.size() / columns; }
};

/// Cosines between all pairs of beats, beats x beats, exactly 1 on the diagonal. Two rows of zeros have
/// cosine 1, a row of zeros against another has 0. [any]
ZUC_API std::vector<float> CosinesOfBeats(const BeatRows& rows);

/// The same as Euclidean distances, 0 on the diagonal. [any]
ZUC_API std::vector<float> DistancesOfBeats(const BeatRows& rows);

/// The cosine of one pair of beats. [any]
ZUC_API float CosineOfBeats(const BeatRows& rows, std::size_t i, std::size_t j);

/// What is known of a song once it has been analysed.
struct SongAnalysis {
    double durationSeconds = 0;
    int analysisRateHz = 0;
    std::vector<double> beatTimes;  // seconds, ascending, from one end of the song to the other
    double beatPeriodSeconds = 0;   // the median interval, folded into 0.33 to 0.75 s
    double gridStepSeconds = 0;     // between the beats of a remix
    double confidence = 0;          // 0 (no pulse found) to 1
    BeatRows timbre;
    BeatRows chroma;
    std::vector<float> onsets;  // onset strength, for display; 1 is one standard deviation
    double onsetRateHz = 0;     // values of `onsets` per second; the first is at time 0

    double GetBpm() const { return beatPeriodSeconds > 0 ? 60 / beatPeriodSeconds : 0; }
};

/// A piece of music, its beats and what they sound like.
///
/// The analysis is described in docs/REMIX.md. It holds one block of audio at a time plus about 1.5 MB
/// per minute of curves, uses neither files nor threads, and gives the same result on every machine.
class ZUC_API Song {
public:
    /// A song still to be analysed; `frames` is at `analysisRateHz`, best 20 to 26 kHz. [worker]
    Song(std::shared_ptr<IAudioFramesGetter> frames, int analysisRateHz);
    /// A song that was analysed before. [any]
    explicit Song(SongAnalysis analysis);

    /// Finds the beats and their features, reading `blockSeconds` of audio at a time. With
    /// `separateSources` chroma is taken from the sustained part of the sound only (median filter in
    /// time and frequency). False when cancelled, and the song stays as it was. A song without audio
    /// or pulse gives a valid analysis with few beats and no confidence. [worker]
    bool Analyse(double blockSeconds, bool separateSources, const ProgressCallback& progress);

    const SongAnalysis& GetAnalysis() const { return analysis_; }  // [any]

private:
    std::shared_ptr<IAudioFramesGetter> frames_;
    SongAnalysis analysis_;
};

/// The rate at which a source of `rateHz` is analysed: `rateHz` divided by the whole number that
/// brings it nearest to 22050 Hz from above (44100 gives 22050, 48000 and 96000 give 24000); rates
/// below that are kept. [any]
ZUC_API int GetAnalysisRate(int rateHz, int wantedHz = 22050);

/// Analysis input for shells that have the audio in blocks: mixes to mono, changes the rate and keeps
/// the result in memory (about 5 MB a minute).
class ZUC_API AnalysisInput final : public IAudioFramesGetter {
public:
    AnalysisInput(int rateHz, int channels);  // of what will be appended [worker]
    ~AnalysisInput() override;

    /// `in[channel][0 .. frames)`; values that are not finite count as 0. [worker]
    void Append(const float* const* in, int frames);
    /// Call once, behind the last Append. [worker]
    void Finish();

    std::vector<double> GetFrames(std::int64_t first, std::int64_t last) override;
    int GetSampleRate() const override;
    std::int64_t GetFrameCount() const override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace zuc::components
