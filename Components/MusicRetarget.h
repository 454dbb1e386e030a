#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "Components/AudioOfflineComponent.h"
#include "Components/MusicRetargetResults.h"
#include "Components/Song.h"
#include "Components/TableDriven.h"
#include "kracore/Gate.h"

namespace zuc::components {

/// The effect's Guid as text.
inline constexpr char16_t kMusicRetargetComponentID[] = u"21C9C5EB-8D2A-4D73-92EB-16DC966990C4";

/// The longest target, in seconds.
inline constexpr double kLongestRemixSeconds = 86400.0;

/// Holds the analysed song; shared by an effect and its clones. The song inside is replaced whole.
class ZUC_API MusicRetargetData : public virtual kracore::utility::RefCountedObject {
public:
    ~MusicRetargetData() override;
    virtual void SetSong(std::shared_ptr<const Song> song) = 0;  // [any, may block]
    virtual std::shared_ptr<const Song> GetSong() const = 0;     // [any, may block]; null before
};

/// Makes a piece of music shorter or longer by playing its beats in another order.
///
/// The song is analysed once (beats and how they sound, see Song.h); a search chooses ranges of it whose joins
/// are plausible and whose lengths add up to the target; they are copied from reader to writer with a
/// crossfade at every join. For the fade's sample at p from 0 to below 1
///
///     out = f(p) next + f(1 - p) previous     f(p) = ln(1 + m p) / ln(1 + m)
///
/// with f(1/2) = 0.6 (dsp::kDefaultFadeShapeValue). The fade is centred on the join. Seconds become samples by
/// multiplication with the rate and truncation. The output lasts as long as all ranges together, and one
/// sample more for every fade with an odd number of samples. A fade that would begin before the source is
/// moved so that it begins at its first sample; the rest stays as it is.
///
/// A run does one of three things: with "DoAnalysis" on it only analyses; with "PrecomputedResults" on it only
/// plays the results that are stored; otherwise it searches (and analyses first if nobody has) and plays what
/// it found, with 0 to w of the progress for the search, w = min(0.9, 86400 / (target + 86400)).
///
/// Settings of the process in the debug database: "Remix.Samplerate" (Hz, 22050: the source is analysed at the
/// nearest rate from above that divides its own), "Remix.AvoidLoops" (bool, false) and
/// "Remix.SourceSeperation" (bool, true: chroma from the sustained part of the sound only).
///
/// Any number of channels up to 32. Process copies; all work is done by OfflineRun.
class ZUC_API MusicRetarget final : public TableDriven<MultiChannelOfflineComponent> {
public:
    static constexpr int kMaxChannelCount = 32;
    enum Parameter {
        kTargetDuration,    // seconds, 0 to 86400
        kMaxSlack,          // seconds, 0 to 30; whole seconds count
        kStartAtBeginning,  // of the source range
        kEndAtEnd,          // of the source range, give or take the slack
        kStretchExact,      // stored only
        kDoAnalysis,        // only analyse
        kMinBeatLength,     // beats that a jump back goes at least, 1 to 128
        kTimbreWeight,      // 0 to 5
        kChromaWeight,      // 0 to 5
        kSourceOffset,      // seconds, 0 to 86400
        kSourceDuration,  // seconds, -1 to 86400; offset + duration below 0 or behind the end: all
        kPrecomputedResults,  // only play what is stored
        kEditLength,          // 0 (jumps near by) to 1 (jumps anywhere)
        kParameterCount
    };

    MusicRetarget();
    ~MusicRetarget() override;

    bool CanChangeDuration() const override { return true; }                    // [host]
    double GetProcessedDuration() const override { return 0.0; }                // [host]
    double GetProcessedPosition(double) const override { return 0.0; }          // [host]
    double GetOriginalPosition(double) const override { return 0.0; }           // [host]
    double GetProcessedScale() const override { return 0.0; }                   // [host]
    int GetMaxOutputBlockSize(int) const override { return 0; }                 // [host]
    int OfflineProcess(float**, float**, int, int, int) override { return 0; }  // [host]
    bool OfflineProcessFinished() override;                                     // [any]
    void SetSampleRate(float rateHz) override;                                  // [host]
    /// Copies; what is not finite becomes 0. [audio]
    void Process(float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;
    /// Converts with the description, then clamps to the bounds. [host]
    void SetParameter(int index, float normalized) override;
    /// Within the results and the analysis, which are shared; the parameters are copied. [host]
    boost::intrusive_ptr<AudioFilter> Clone() const override;

    /// For this object's whole life: a cancelled effect starts no run any more. [any]
    void Cancel() override;
    /// Why the last run gave nothing; empty when it did. [host]
    void GetCompletionText(WStr& text) const override;
    /// Starts the run over a source of `length` frames. False when the effect was cancelled, a run is under
    /// way, or there is no writer. [host]
    bool OfflineRun(std::int64_t start, std::int64_t length) override;
    void SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) override;  // [host]
    void SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) override;  // [host]
    void SetProgressHandler(float volatile* progressPercent) override;               // [host]
    bool WantsToHandleProgress() const override { return true; }

    /// Narrows or widens what a parameter is clamped to; ignored from index 13 on. [host]
    void SetBounds(int index, float lo, float hi);

    boost::intrusive_ptr<MusicRetargetData> GetRetargetData() const;       // [any, may block]
    void SetRetargetData(boost::intrusive_ptr<MusicRetargetData> shared);  // [any, may block]
    MusicRetargetResults GetRetargetResults() const;                       // [any, may block]
    void SetRetargetResults(MusicRetargetResults results);                 // [any, may block]

    /// What the last search answered, kDone before the first. [any, may block]
    RetargetResult GetSearchResult() const;
    /// How unlike the two sides of each join of the last search are, in order; empty without a search. 0 is
    /// two beats that sound the same; 1 per weight is two that have nothing in common. [any, may block]
    std::vector<double> GetJoinCosts() const;
    /// Closed while a run plays its results, open at all other times.
    const kracore::threads::Gate& GetRenderGate() const { return rendered_; }

protected:
    bool ValidateParamCount(int count) const override;              // 13, and 12 of older settings
    void OnNumberOfChannelsChanged(std::size_t channels) override;  // [host]

private:
    using Values = std::array<float, kParameterCount>;
    struct Task;
    struct Worker;

    void SetupParameterInfos();
    Values GetValues() const;

    Values lo_{};
    Values hi_{};
    std::size_t channelCount_ = 2;
    std::atomic<bool> isCancelled_{false};
    kracore::threads::Gate rendered_{true};
    mutable std::mutex mutex_;  // guards what follows, up to the worker
    boost::intrusive_ptr<MusicRetargetData> shared_;
    MusicRetargetResults results_;
    RetargetResult searchResult_ = RetargetResult::kDone;
    std::vector<double> joinCosts_;
    std::string completionText_;
    std::unique_ptr<Worker> worker_;  // last: a run that is under way uses the rest
};

}  // namespace zuc::components
