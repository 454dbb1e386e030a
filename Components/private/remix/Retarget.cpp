#include "Components/private/remix/Retarget.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include "Components/private/remix/SegmentSearch.h"
#include "Components/private/remix/SmoothJoinConstraint.h"

namespace zuc::components {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kMinSeconds = 5;  // of the output grid
constexpr double kEditLengthFree = 0.9999999;
constexpr double kLongEditWeight = 40;
constexpr double kLongEditExponent = 2;
constexpr int kLongEditFreeBeats = 16;
constexpr int kLongEndBeats = 8;
constexpr int kShortestRangeBeats = 4;
constexpr int kMostSearches = 8;
constexpr double kSlipCost = 1;

struct SourceRange {
    double start, end;
};

SourceRange GetSourceRange(const RetargetOptions& options, double durationSeconds) {
    const bool isToEnd = options.sourceEnd < 0 || options.sourceEnd > durationSeconds;
    return {std::max(0.0, options.sourceStart), isToEnd ? durationSeconds : options.sourceEnd};
}

int FirstBeatNotBelow(const std::vector<double>& beatTimes, double seconds) {
    return static_cast<int>(std::lower_bound(beatTimes.begin(), beatTimes.end(), seconds) -
                            beatTimes.begin());
}

bool IsCost(double cost) { return std::isfinite(cost) || cost == kInfinity; }

bool AreCosts(const TransitionMatrix& transition, const PlacementMatrix& placement) {
    for (std::size_t i = 0; i < transition.GetBeatCount(); ++i)
        if (!std::all_of(transition.Row(i), transition.Row(i) + transition.GetBeatCount(), IsCost))
            return false;
    for (const std::size_t t : {std::size_t{0}, placement.GetPositionCount() - 1}) {
        const auto column = placement.GetColumn(t);
        if (!std::all_of(column.begin(), column.end(), IsCost)) return false;
    }
    return true;
}

/// Makes the dearer of two jumps with fewer than `leastBeats` between them dearer still; false when a path
/// has no such.
bool PunishSlip(const std::vector<std::size_t>& path,
                std::size_t leastBeats,
                TransitionMatrix& transition) {
    std::size_t last = path.size();  // where the path jumped last
    for (std::size_t t = 0; t + 1 < path.size(); ++t) {
        if (path[t + 1] == path[t] + 1) continue;
        if (last < t && t - last < leastBeats) {
            double& first = transition.Row(path[last])[path[last + 1]];
            double& second = transition.Row(path[t])[path[t + 1]];
            (first > second ? first : second) += kSlipCost;
            return true;
        }
        last = t;
    }
    return false;
}

}  // namespace

const char* DescribeResult(RetargetResult result) {
    switch (result) {
        case RetargetResult::kDone:
            return "done";
        case RetargetResult::kCancelled:
            return "cancelled";
        case RetargetResult::kNoBeats:
            return "the song has fewer than two beats";
        case RetargetResult::kBadCosts:
            return "a similarity of beats is not a number";
        case RetargetResult::kInfeasible:
            return "no sequence of beats keeps all conditions; more slack at the end, a shorter "
                   "minimum "
                   "loop or a longer source range may help";
        case RetargetResult::kOutOfMemory:
            return "the song or the target is too long for the memory";
        case RetargetResult::kNoSampleRate:
            return "the sample rate is not known";
    }
    return "";
}

ConstraintList Retarget::BuildConstraints(const RetargetOptions& options) const {
    const SongAnalysis& song = song_->GetAnalysis();
    const SourceRange range = GetSourceRange(options, song.durationSeconds);
    ConstraintList list;
    list.push_back(std::make_shared<TimbrePitchConstraint>(
        static_cast<float>(options.timbreWeight), static_cast<float>(options.chromaWeight)));
    list.push_back(std::make_shared<EnergyConstraint>(static_cast<float>(options.energyWeight)));
    list.push_back(std::make_shared<QuietEndsConstraint>());
    list.push_back(std::make_shared<MinimumLoopConstraint>(options.minBeatLength));
    int first = -1, last = -1;
    if (options.startAtBeginning) {
        first = FirstBeatNotBelow(song.beatTimes, range.start);
        list.push_back(std::make_shared<StartAtBeatConstraint>(first, 0));
    }
    if (options.endAtEnd) {
        last = std::max(FirstBeatNotBelow(song.beatTimes, range.end) - 1, 0);
        const double slack =
            song.beatPeriodSeconds > 0 ? options.maxSlack / song.beatPeriodSeconds : 0;
        list.push_back(std::make_shared<EndAtBeatConstraint>(last, static_cast<int>(slack)));
    }
    list.push_back(std::make_shared<SourceTimeRangeConstraint>(range.start, range.end));
    if (options.editLength < kEditLengthFree) {
        const double preference = 1 - options.editLength;
        list.push_back(std::make_shared<PenalizeLongEditsConstraint>(
            preference * preference * kLongEditWeight, kLongEditExponent, kLongEditFreeBeats));
    }
    list.push_back(std::make_shared<LongEndsConstraint>(first, last, kLongEndBeats));
    list.push_back(std::make_shared<SmoothJoinConstraint>(
        static_cast<float>(options.timbreWeight), static_cast<float>(options.chromaWeight)));
    return list;
}

std::size_t Retarget::GetPositionCount(double targetSeconds) const {
    const SongAnalysis& song = song_->GetAnalysis();
    const double step = song.gridStepSeconds;
    const double seconds = std::max(
        kMinSeconds, targetSeconds - (song.durationSeconds - (step + song.beatTimes.back())));
    auto count = static_cast<std::size_t>(seconds / step);
    while (static_cast<double>(count) * step < seconds) ++count;
    while (count > 1 && static_cast<double>(count - 1) * step >= seconds) --count;
    return count;
}

std::vector<RetargetRange> Retarget::MakeRanges(const std::vector<std::size_t>& path,
                                                const RetargetOptions& options) const {
    const SongAnalysis& song = song_->GetAnalysis();
    const std::vector<double>& times = song.beatTimes;
    const SourceRange source = GetSourceRange(options, song.durationSeconds);
    std::vector<RetargetRange> ranges;
    RetargetRange current{options.startAtBeginning ? source.start : times[path.front()], 0,
                          song.beatPeriodSeconds, 0};
    for (std::size_t t = 0; t + 1 < path.size(); ++t) {
        const std::size_t next = path[t] + 1;
        if (path[t + 1] == next) continue;
        current.end = next < times.size() ? times[next] : song.durationSeconds;
        ranges.push_back(current);
        current.start = times[path[t + 1]];
        current.joinCost =
            options.timbreWeight * CostOfCosine(CosineOfBeats(song.timbre, next, path[t + 1])) +
            options.chromaWeight * CostOfCosine(CosineOfBeats(song.chroma, next, path[t + 1]));
    }
    current.end = options.endAtEnd ? source.end : times[path.back()];
    ranges.push_back(current);
    return ranges;
}

RetargetResult Retarget::Search(double targetSeconds,
                                const ConstraintList& constraints,
                                const RetargetOptions& options,
                                std::vector<RetargetRange>& ranges,
                                const ProgressCallback& progress,
                                IAudioFramesGetter& frames) const try {
    const SongAnalysis& song = song_->GetAnalysis();
    if (song.beatTimes.size() < 2 || !(song.gridStepSeconds > 0)) return RetargetResult::kNoBeats;
    TransitionMatrix transition(song.beatTimes.size());
    PlacementMatrix placement(song.beatTimes.size(), GetPositionCount(targetSeconds));
    const std::vector<BeatLevel> levels = ReadBeatLevels(song.beatTimes, frames);
    SearchCosts costs{transition, placement, song, levels};
    for (const auto& constraint : constraints) {
        if (progress && !progress(0)) return RetargetResult::kCancelled;
        constraint->Apply(costs);
    }
    if (!AreCosts(transition, placement)) return RetargetResult::kBadCosts;
    BeatPath path = FindCheapestPath(transition, placement, options.avoidLoops, progress);
    const auto leastBeats =
        static_cast<std::size_t>(std::clamp(options.minBeatLength, 1, kShortestRangeBeats));
    for (int k = 1; k < kMostSearches && PunishSlip(path.beats, leastBeats, transition); ++k)
        path = FindCheapestPath(transition, placement, options.avoidLoops,
                                [&](double) { return !progress || progress(1); });
    if (path.isCancelled) return RetargetResult::kCancelled;
    if (path.cost == kInfinity) return RetargetResult::kInfeasible;
    ranges = MakeRanges(path.beats, options);
    return RetargetResult::kDone;
} catch (const std::bad_alloc&) {
    return RetargetResult::kOutOfMemory;
}

}  // namespace zuc::components
