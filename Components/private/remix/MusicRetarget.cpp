#include "Components/MusicRetarget.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Components/ParameterInfos.h"
#include "Components/private/OfflineJob.h"
#include "Components/private/remix/MusicRetargetAudioFramesGetter.h"
#include "Components/private/remix/MusicRetargetRenderer.h"
#include "Components/private/remix/ProgressShare.h"
#include "Components/private/remix/Retarget.h"
#include "kracore/DebugDatabase.h"
#include "kracore/Localizer.h"

namespace zuc::components {
namespace {

using kracore::debug::DebugDatabase;
using Unit = kraaudiofilterhost::AudioFilterParameterInfoUnit;

constexpr int kAnalysisRateHz = 22050;
constexpr double kAnalysisBlockSeconds = 60.0;

constexpr double kMostSearchShare = 0.9;
constexpr double kAnalysisShare = 0.7;  // of the search's share, when a run has to analyse first
// A parameter near a day in normalized floats, and a duration counted at the analysis rate, say a song's own
// duration no more exactly.
constexpr double kSameDurationSeconds = 1e-3;
constexpr int kParameterCountBeforeEditLength = 12;

using MR = MusicRetarget;
constexpr const char* kMs = "$$$/Effects/MusicRetarget/ms=ms";
constexpr const char* kBeats = "$$$/Effects/MusicRetarget/beats=beats";

// clang-format off
// Deliberate: times are in seconds although their label says ms.
constexpr std::array<ParameterRow, MR::kParameterCount> kParameters{{
    // index                     name key                                                                       unit    kind          lo     hi     initial auto
    {MR::kTargetDuration,     "$$$/Effects/MusicRetarget/TargetDuration=Target Duration",                       kMs,    Kind::kLinear, 0,     86400, 0, false},
    {MR::kMaxSlack,           "$$$/Effects/MusicRetarget/MaxSlack=Maximum Slack",                               kMs,    Kind::kLinear, 0,     30,    0, false},
    {MR::kStartAtBeginning,   "$$$/Effects/MusicRetarget/StartAtBeginning=Start at beginning",                  "",     Kind::kBool,   0,     1,     0, false},
    {MR::kEndAtEnd,           "$$$/Effects/MusicRetarget/EndAtEnd=End at end",                                  "",     Kind::kBool,   0,     1,     0, false},
    {MR::kStretchExact,       "$$$/Effects/MusicRetarget/StretchExact=Stretch to exact duration",               "",     Kind::kBool,   0,     1,     0, false},
    {MR::kDoAnalysis,         "$$$/Effects/MusicRetarget/DoAnalysis=Perform the analysis operation to enable Remix", "", Kind::kBool,  0,     1,     0, false},
    {MR::kMinBeatLength,      "$$$/Effects/MusicRetarget/MinBeatLength=Minimum length of a remixed loop in beats", kBeats, Kind::kLinear, 1, 128,   1, false},
    {MR::kTimbreWeight,       "$$$/Effects/MusicRetarget/TimbreWeight=Weight that is assigned to timbre similiarity", "", Kind::kLinear, 0,   5,     0, false},
    {MR::kChromaWeight,       "$$$/Effects/MusicRetarget/ChromaWeight=Weight that goes to chroma similarity",   "",     Kind::kLinear, 0,     5,     0, false},
    {MR::kSourceOffset,       "$$$/Effects/MusicRetarget/SourceOffset=Source Range Offset",                     kMs,    Kind::kLinear, 0,     86400, 0, false},
    {MR::kSourceDuration,     "$$$/Effects/MusicRetarget/SourceDuration=Source Range Duration",                 kMs,    Kind::kLinear, -1,    86400, 0, false},
    {MR::kPrecomputedResults, "$$$/Effects/MusicRetarget/PrecomputedResults=Use results that have been set externally instead of computing new results", "", Kind::kBool, 0, 1, 0, false},
    {MR::kEditLength,         "$$$/Effects/MusicRetarget/EditLength=Prefer more short edits over fewer longer edits", "", Kind::kLinear, 0,   1,     0, false},
}};
constexpr std::array kPresets{
    //        name key                                           target slack start end stretch analyse loop timbre chroma offset duration stored edits
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)", 60,    5,    1,    1,  0,      0,      8,   1,     1,     0,     -1,      0,     1),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/MusicRetargetTitle=Remix", kParameters,
                               kPresets};
static_assert(IsWellFormed(kTables));

/// Unit codes where the row's label does not tell.
Unit UnitOf(const ParameterRow& row) {
    if (row.unit == kMs) return Unit::kTime;
    return row.unit.empty() ? Unit::kFactor : Unit::kGeneric;
}

class MusicRetargetDataImpl final : public MusicRetargetData {
public:
    void SetSong(std::shared_ptr<const Song> song) override {
        const std::lock_guard lock(mutex_);
        song_ = std::move(song);
    }
    std::shared_ptr<const Song> GetSong() const override {
        const std::lock_guard lock(mutex_);
        return song_;
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Song> song_;
};

/// The ranges in whole frames of a source of `sourceFrames` frames. An end at the song's end is the source's:
/// the song's duration is counted in frames of the analysis. Fades are as long as the source allows on both
/// sides, and of even length: an odd one would repeat a frame, and read one beyond the source's end.
MusicRetargetResults ToSegments(const std::vector<RetargetRange>& ranges,
                                double songSeconds,
                                int rateHz,
                                std::int64_t sourceFrames) {
    const auto toFrames = [&](double seconds) {
        return static_cast<std::int64_t>(seconds * rateHz);
    };
    MusicRetargetResults results;
    std::int64_t previousEnd = 0;
    for (const RetargetRange& range : ranges) {
        const std::int64_t start = std::clamp<std::int64_t>(toFrames(range.start), 0, sourceFrames);
        const std::int64_t frames =
            range.end >= songSeconds ? sourceFrames - start
                                     : std::clamp<std::int64_t>(toFrames(range.end - range.start),
                                                                0, sourceFrames - start);
        std::int64_t fade = toFrames(range.crossfade);
        if (!results.empty())
            fade = std::min({fade, 2 * previousEnd, 2 * (sourceFrames - previousEnd),
                             2 * (sourceFrames - start)});
        fade -= fade % 2;
        results.push_back({Ratio(start, rateHz), Ratio(frames, rateHz), Ratio(fade, rateHz)});
        previousEnd = start + frames;
    }
    return results;
}

}  // namespace

MusicRetargetData::~MusicRetargetData() = default;

struct MusicRetarget::Worker {
    OfflineJob job;
};

/// One run, with the settings of its start.
struct MusicRetarget::Task {
    bool DoAll();
    bool SearchAndStore();
    bool Analyse(const std::shared_ptr<MusicRetargetAudioFramesGetter>& frames, double share) const;
    RetargetResult Search(MusicRetargetAudioFramesGetter& frames, double from);
    bool Play();

    float Value(Parameter index) const { return values[static_cast<std::size_t>(index)]; }
    bool OnlyAnalyses() const { return Value(kDoAnalysis) > 0.5f; }
    bool OnlyPlays() const { return Value(kPrecomputedResults) >= 0.5f; }
    bool IsCancelled() const { return run.IsCancelled() || effect.isCancelled_.load(); }
    /// False once cancelled.
    bool UpdateProgress(double fraction, double scale, double offset) const {
        run.ReportProgress(fraction * scale + offset);
        return !IsCancelled();
    }
    bool Fail(const char* why) const {
        const std::lock_guard lock(effect.mutex_);
        effect.completionText_ = why;
        return false;
    }

    MusicRetarget& effect;
    OfflineJob::Run& run;
    const Values& values;
    int rateHz = 0;
    std::int64_t sourceFrames = 0;
    double searchShare = 0.0;  // of the progress
};

// ---- Construction ----

MusicRetarget::MusicRetarget()
    : TableDriven(kTables, kMusicRetargetComponentID, kMaxChannelCount),
      shared_(new MusicRetargetDataImpl),
      worker_(std::make_unique<Worker>()) {
    for (const ParameterRow& row : kParameters) {
        lo_[static_cast<std::size_t>(row.index)] = row.lo;
        hi_[static_cast<std::size_t>(row.index)] = row.hi;
    }
    SetupParameterInfos();
}

MusicRetarget::~MusicRetarget() = default;

void MusicRetarget::SetupParameterInfos() {
    using kracore::config::Localizer;
    ClearParameterInfos();
    for (const ParameterRow& row : kParameters) {
        auto info = MakeParameterInfo(row);
        if (row.kind == Kind::kLinear) {
            info = new GenericParameterInfo(
                Localizer::Localize(row.nameKey), Localizer::Localize(row.unit), UnitOf(row),
                row.index, row.lo, row.hi, row.automatable, false, row.decimals, row.extra);
            info->SetIdentifier(std::string(kracore::config::GetKeyName(row.nameKey)));
        }
        AddParameterInfo(static_cast<std::size_t>(row.index), info);
    }
    NormalizeValues();
}

MusicRetarget::Values MusicRetarget::GetValues() const {
    Values values;
    for (int i = 0; i < kParameterCount; ++i) values[static_cast<std::size_t>(i)] = Value(i);
    return values;
}

void MusicRetarget::SetBounds(int index, float lo, float hi) {
    if (index < 0 || index >= kParameterCount) return;
    lo_[static_cast<std::size_t>(index)] = lo;
    hi_[static_cast<std::size_t>(index)] = hi;
}

void MusicRetarget::SetParameter(int index, float normalized) {
    if (const auto info = GetParameterInfo(index); info && std::isfinite(normalized)) {
        const auto i = static_cast<std::size_t>(index);
        const float value = info->FromNormalized(std::clamp(normalized, 0.0f, 1.0f));
        const float bounded = std::max(lo_[i], std::min(hi_[i], value));
        if (bounded != value) normalized = info->ToNormalized(bounded);
    }
    TableDriven::SetParameter(index, normalized);
}

bool MusicRetarget::ValidateParamCount(int count) const {
    return count == kParameterCount || count == kParameterCountBeforeEditLength;
}

void MusicRetarget::SetSampleRate(float rateHz) {
    if (rateHz != GetSampleRate()) TableDriven::SetSampleRate(rateHz);
}

void MusicRetarget::Process(float** in, float** out, int frames, Flags, Flags&) {
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        for (std::size_t c = 0; c < channelCount_; ++c)
            if (from[c] != to[c]) std::copy_n(from[c], count, to[c]);
    });
}

void MusicRetarget::OnNumberOfChannelsChanged(std::size_t channels) { channelCount_ = channels; }

boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> MusicRetarget::Clone() const {
    auto copy = TableDriven::Clone();
    if (auto* const remix = dynamic_cast<MusicRetarget*>(copy.get())) {
        remix->SetRetargetData(GetRetargetData());
        remix->SetRetargetResults(GetRetargetResults());
        remix->lo_ = lo_;
        remix->hi_ = hi_;
    }
    return copy;
}

// ---- Analysis and results ----

boost::intrusive_ptr<MusicRetargetData> MusicRetarget::GetRetargetData() const {
    const std::lock_guard lock(mutex_);
    return shared_;
}

void MusicRetarget::SetRetargetData(boost::intrusive_ptr<MusicRetargetData> shared) {
    if (!shared) return;
    const std::lock_guard lock(mutex_);
    shared_ = std::move(shared);
}

MusicRetargetResults MusicRetarget::GetRetargetResults() const {
    const std::lock_guard lock(mutex_);
    return results_;
}

void MusicRetarget::SetRetargetResults(MusicRetargetResults results) {
    const std::lock_guard lock(mutex_);
    results_ = std::move(results);
}

RetargetResult MusicRetarget::GetSearchResult() const {
    const std::lock_guard lock(mutex_);
    return searchResult_;
}

std::vector<double> MusicRetarget::GetJoinCosts() const {
    const std::lock_guard lock(mutex_);
    return joinCosts_;
}

void MusicRetarget::GetCompletionText(WStr& text) const {
    const std::lock_guard lock(mutex_);
    text = kracore::utility::FromUtf8(completionText_);
}

// ---- Runs ----

void MusicRetarget::SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) {
    worker_->job.SetReader(std::move(reader));
}

void MusicRetarget::SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) {
    worker_->job.SetWriter(std::move(writer));
}

void MusicRetarget::SetProgressHandler(float volatile* progressPercent) {
    worker_->job.SetProgressHandler(progressPercent);
}

void MusicRetarget::Cancel() {
    isCancelled_.store(true);
    worker_->job.Cancel();
}

bool MusicRetarget::OfflineProcessFinished() {
    return isCancelled_.load() || worker_->job.IsFinished();
}

bool MusicRetarget::OfflineRun(std::int64_t, std::int64_t length) {
    if (isCancelled_.load()) return false;
    return worker_->job.Start([this, values = GetValues(), length](OfflineJob::Run& run) {
        Task task{*this, run, values, static_cast<int>(GetSampleRate()),
                  std::max<std::int64_t>(0, length)};
        return task.DoAll();
    });
}

bool MusicRetarget::Task::DoAll() {
    Fail("");
    if (IsCancelled()) return Fail(DescribeResult(RetargetResult::kCancelled));
    if ((OnlyAnalyses() || !OnlyPlays()) && !SearchAndStore()) return false;
    return OnlyAnalyses() || Play();
}

bool MusicRetarget::Task::SearchAndStore() {
    const auto answer = [this](RetargetResult result) {
        const std::lock_guard lock(effect.mutex_);
        effect.searchResult_ = result;
        effect.completionText_ = result == RetargetResult::kDone ? "" : DescribeResult(result);
        return result == RetargetResult::kDone;
    };
    if (rateHz <= 0) return answer(RetargetResult::kNoSampleRate);
    const auto wantedHz = DebugDatabase::GetInteger(u"Remix.Samplerate").value_or(kAnalysisRateHz);
    const auto frames = std::make_shared<MusicRetargetAudioFramesGetter>(
        run, rateHz, GetAnalysisRate(rateHz, static_cast<int>(wantedHz)), sourceFrames);
    const auto target = static_cast<double>(Value(kTargetDuration));
    searchShare =
        std::min(kMostSearchShare, kLongestRemixSeconds / (target + kLongestRemixSeconds));
    const bool needsAnalysis = OnlyAnalyses() || !effect.GetRetargetData()->GetSong();
    const double analysisShare = OnlyAnalyses() ? 1.0 : kAnalysisShare * searchShare;
    if (needsAnalysis && !Analyse(frames, analysisShare)) {
        if (frames->HasFailed() && !IsCancelled()) return Fail("the source could not be read");
        return answer(RetargetResult::kCancelled);
    }
    if (OnlyAnalyses()) return true;
    const RetargetResult result = Search(*frames, needsAnalysis ? analysisShare : 0.0);
    if (frames->HasFailed() && !IsCancelled()) return Fail("the source could not be read");
    return answer(result);
}

bool MusicRetarget::Task::Analyse(const std::shared_ptr<MusicRetargetAudioFramesGetter>& frames,
                                  double share) const {
    const auto song = std::make_shared<Song>(frames, frames->GetSampleRate());
    const bool separateSources = DebugDatabase::GetBool(u"Remix.SourceSeperation").value_or(true);
    const bool isDone = song->Analyse(kAnalysisBlockSeconds, separateSources, [&](double fraction) {
        return UpdateProgress(fraction, share, 0.0) && !frames->HasFailed();
    });
    if (!isDone || IsCancelled() || frames->HasFailed()) return false;
    // Without the way to this run's reader, which ends with it.
    effect.GetRetargetData()->SetSong(std::make_shared<Song>(song->GetAnalysis()));
    return true;
}

RetargetResult MusicRetarget::Task::Search(MusicRetargetAudioFramesGetter& frames, double from) {
    {
        const std::lock_guard lock(effect.mutex_);
        effect.results_.clear();
        effect.joinCosts_.clear();
    }
    const Retarget retarget(effect.GetRetargetData()->GetSong());
    RetargetOptions options;
    options.startAtBeginning = Value(kStartAtBeginning) > 0.5f;
    options.endAtEnd = Value(kEndAtEnd) > 0.5f;
    options.avoidLoops = DebugDatabase::GetBool(u"Remix.AvoidLoops").value_or(options.avoidLoops);
    options.editLength = static_cast<double>(Value(kEditLength));
    options.sourceStart = static_cast<double>(Value(kSourceOffset));
    options.sourceEnd = options.sourceStart + static_cast<double>(Value(kSourceDuration));
    options.timbreWeight = static_cast<double>(Value(kTimbreWeight));
    options.chromaWeight = static_cast<double>(Value(kChromaWeight));
    options.maxSlack = static_cast<int>(Value(kMaxSlack));
    options.minBeatLength = static_cast<int>(Value(kMinBeatLength));
    const double songSeconds = retarget.GetSong().GetAnalysis().durationSeconds;
    auto target = static_cast<double>(Value(kTargetDuration));
    if (std::abs(target - songSeconds) < kSameDurationSeconds) target = songSeconds;
    std::vector<RetargetRange> ranges;
    const RetargetResult result = retarget.Search(
        target, retarget.BuildConstraints(options), options, ranges,
        [&](double fraction) {
            return UpdateProgress(fraction, searchShare - from, from) && !frames.HasFailed();
        },
        frames);
    if (result != RetargetResult::kDone) return result;
    UpdateProgress(searchShare, 1.0, 0.0);
    const std::lock_guard lock(effect.mutex_);
    effect.results_ = ToSegments(ranges, songSeconds, rateHz, sourceFrames);
    for (std::size_t i = 1; i < ranges.size(); ++i) effect.joinCosts_.push_back(ranges[i].joinCost);
    return result;
}

bool MusicRetarget::Task::Play() {
    const MusicRetargetResults results = effect.GetRetargetResults();
    if (results.empty()) return true;
    effect.rendered_.Close();
    const bool isPlayed =
        rateHz > 0 && MusicRetargetRenderer(run, rateHz).Play(results, [this](double fraction) {
            UpdateProgress(fraction, 1.0 - searchShare, searchShare);
        });
    effect.rendered_.Open();
    if (isPlayed) return true;
    return Fail(IsCancelled() ? DescribeResult(RetargetResult::kCancelled)
                              : "the source could not be read, or the output not be written");
}

}  // namespace zuc::components
