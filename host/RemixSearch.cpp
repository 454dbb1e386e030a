#include "host/RemixSearch.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "host/EffectCatalogue.h"
#include "host/OfflineSession.h"
#include "host/RenderSource.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

using components::MusicRetarget;
using components::RetargetResult;

constexpr char16_t kAvoidLoops[] = u"Remix.AvoidLoops";

constexpr int kMostTries = 8;          // to keep a limit
constexpr int kMostRefinements = 3;    // of a free end
constexpr double kSameSeconds = 1e-6;  // durations that are no further apart are equal
constexpr double kBeatsOfFade = 8;     // of an end that is not the song's own: two bars
constexpr double kShortestFadeBeats = 0.5;
constexpr double kMostFadeShare = 1.0 / 3;  // of the remix

void Set(MusicRetarget& effect, MusicRetarget::Parameter index, double value) {
    const auto info = effect.GetParameterInfo(index);
    effect.SetParameter(index, info->ToNormalized(static_cast<float>(value)));
}

}  // namespace

boost::intrusive_ptr<MusicRetarget> MakeRemixEffect(const AudioFileInfo& info) {
    boost::intrusive_ptr<MusicRetarget> effect(new MusicRetarget);
    effect->SetSampleRate(static_cast<float>(info.rateHz));
    if (!RequestChannels(*effect, static_cast<std::size_t>(info.channels)))
        throw Error(ExitCode::kUsage, fmt::format("remix does not take {} channels", info.channels),
                    fmt::format("1 … {}", MusicRetarget::kMaxChannelCount));
    return effect;
}

double GetLikeness(double joinCost) {
    // The search pays (1 - cosine)^0.75.
    return 1 - std::clamp(std::pow(std::max(0.0, joinCost), 1 / 0.75), 0.0, 1.0);
}

RemixSearch::RemixSearch(RemixSource& source,
                         const components::SongAnalysis& song,
                         const RemixRequest& request,
                         const std::atomic<int>* interrupted)
    : source_(source),
      song_(song),
      request_(request),
      interrupted_(interrupted),
      avoidsLoops_(kAvoidLoops, request.avoidsLoops ? u"true" : u"false"),
      model_(MakeRemixEffect(source.GetInfo())) {
    model_->GetRetargetData()->SetSong(std::make_shared<components::Song>(song));
    // The last beat cannot be jumped to, so that the end needs two beats of room.
    const int least = static_cast<int>(std::ceil(2 * song.beatPeriodSeconds));
    if (!request_.endsAtEnd || request_.slackSeconds >= least) return;
    notes_.push_back(fmt::format(
        "a slack of {} s leaves no way to the end; {} s is used, two beats of this song",
        request_.slackSeconds, least));
    request_.slackSeconds = least;
}

void RemixSearch::Refuse(double targetSeconds, const std::string& why) const {
    std::vector<std::string> ways;
    if (request_.source != TimeRange{}) ways.emplace_back("a longer --source");
    if (request_.endsAtEnd) ways.emplace_back("--no-end or more --slack");
    if (request_.minLoopBeats > 1) ways.emplace_back("a shorter --min-loop");
    throw Error(ExitCode::kRemixInfeasible,
                fmt::format("{}: no remix of {}: {}", source_.GetInfo().path,
                            FormatTime(targetSeconds), why),
                "", ways.empty() ? "" : Join(ways, ", ") + " may help");
}

boost::intrusive_ptr<MusicRetarget> RemixSearch::MakeEffect(double targetSeconds,
                                                            int slackSeconds) const {
    // A cancelled effect stays cancelled: each search has its own, and all share the song.
    const auto copy = model_->Clone();
    const boost::intrusive_ptr<MusicRetarget> effect(dynamic_cast<MusicRetarget*>(copy.get()));
    Set(*effect, MusicRetarget::kTargetDuration, targetSeconds);
    Set(*effect, MusicRetarget::kMaxSlack, slackSeconds);
    Set(*effect, MusicRetarget::kStartAtBeginning, request_.startsAtStart ? 1 : 0);
    Set(*effect, MusicRetarget::kEndAtEnd, request_.endsAtEnd ? 1 : 0);
    Set(*effect, MusicRetarget::kMinBeatLength, request_.minLoopBeats);
    Set(*effect, MusicRetarget::kTimbreWeight, request_.timbreWeight);
    Set(*effect, MusicRetarget::kChromaWeight, request_.chromaWeight);
    Set(*effect, MusicRetarget::kEditLength, request_.editLength);
    Set(*effect, MusicRetarget::kSourceOffset, request_.source.beginSeconds);
    Set(*effect, MusicRetarget::kSourceDuration,
        std::isfinite(request_.source.endSeconds)
            ? request_.source.endSeconds - request_.source.beginSeconds
            : components::kLongestRemixSeconds);
    return effect;
}

RemixPlan RemixSearch::Search(double targetSeconds, int slackSeconds) {
    const AudioFileInfo& info = source_.GetInfo();
    const auto effect = MakeEffect(targetSeconds, slackSeconds);
    try {
        // A run plays what it has found; the first frame says that the search is over.
        source_.GetAudio().Seek(0);  // where a session expects it
        OfflineSession session(effect, source_.GetAudio(), info.frames);
        AudioBlock block(static_cast<std::size_t>(info.channels), 1);
        session.Read(block.GetChannels(), 1, {interrupted_, {}});
    } catch (const Error&) {
        if (effect->GetSearchResult() == RetargetResult::kDone) throw;
        Refuse(targetSeconds, components::DescribeResult(effect->GetSearchResult()));
    }
    RemixPlan plan;
    plan.segments = effect->GetRetargetResults();
    plan.sourcePath = info.path;
    plan.sourceRateHz = info.rateHz;
    plan.sourceFrames = info.frames;
    plan.targetSeconds = targetSeconds;
    const double weight = std::max(1e-3, request_.timbreWeight + request_.chromaWeight);
    for (const double cost : effect->GetJoinCosts()) plan.joinCosts.push_back(cost / weight);
    return plan;
}

std::optional<RemixPlan> RemixSearch::FindWithin(double targetSeconds,
                                                 RemixRequest::Limit limit,
                                                 int slackSeconds) {
    double asked = targetSeconds;
    double further = 0.5 * song_.gridStepSeconds;
    for (int i = 0; i < kMostTries && asked > 0; ++i) {
        RemixPlan plan = Search(asked, slackSeconds);
        plan.targetSeconds = targetSeconds;
        const double over = ToSeconds(plan.GetDuration()) - targetSeconds;
        if (limit == RemixRequest::Limit::kAtLeast ? over >= -kSameSeconds : over <= kSameSeconds)
            return plan;
        // Further than the excess, and more each time: within the slack the end need not give way.
        asked -= over + std::copysign(further, over);
        further *= 2;
    }
    return std::nullopt;
}

RemixPlan RemixSearch::FindNearest(double targetSeconds) {
    double asked = targetSeconds;
    RemixPlan best;
    double bestOver = 0;
    for (int i = 0; i < kMostRefinements; ++i) {
        RemixPlan plan = Search(asked, request_.slackSeconds);
        plan.targetSeconds = targetSeconds;
        const double over = ToSeconds(plan.GetDuration()) - targetSeconds;
        if (!best.segments.empty() && std::abs(over) >= std::abs(bestOver)) break;
        best = std::move(plan);
        bestOver = over;
        // An anchored end is off by the slack, which the music needs.
        if (request_.endsAtEnd || std::abs(over) < song_.gridStepSeconds / 4) break;
        asked -= over;
    }
    return best;
}

bool RemixSearch::EndAt(RemixPlan& plan, double targetSeconds) const {
    const int rateHz = source_.GetInfo().rateHz;
    const Ratio target(std::llround(targetSeconds * rateHz), rateHz);
    const Ratio excess = plan.GetDuration() - target;
    auto& last = plan.segments.back();
    if (excess < Ratio(0) || last.duration - excess < last.crossfade) return false;
    last.duration -= excess;
    if (excess == 0 && request_.endsAtEnd) return true;
    // An end of the song's own that is cut off by little needs a short fade only.
    const double period = song_.beatPeriodSeconds;
    const double most = std::min(kBeatsOfFade * period, targetSeconds * kMostFadeShare);
    const double fade = request_.endsAtEnd
                            ? std::clamp(2 * ToSeconds(excess), kShortestFadeBeats * period, most)
                            : most;
    plan.fadeOut = Ratio(std::llround(fade * rateHz), rateHz);
    return true;
}

RemixPlan RemixSearch::FindExact(double targetSeconds) {
    const int least = static_cast<int>(std::ceil(2 * song_.beatPeriodSeconds));
    const int first = request_.endsAtEnd ? least : request_.slackSeconds;
    RemixPlan best;
    double bestExcess = 0;
    for (int slack = first; slack <= request_.slackSeconds; ++slack) {
        auto plan = FindWithin(targetSeconds, RemixRequest::Limit::kAtLeast, slack);
        if (!plan) continue;
        const double excess = ToSeconds(plan->GetDuration()) - targetSeconds;
        if ((best.segments.empty() || excess < bestExcess) && EndAt(*plan, targetSeconds)) {
            best = std::move(*plan);
            bestExcess = excess;
        }
        if (!best.segments.empty() && bestExcess < song_.beatPeriodSeconds) break;
    }
    if (best.segments.empty()) Refuse(targetSeconds, "none can be cut off at the target");
    return best;
}

RemixPlan RemixSearch::Find(double targetSeconds) {
    if (!(targetSeconds >= kShortestRemixSeconds))
        throw Error(ExitCode::kRemixInfeasible,
                    fmt::format("{}: no remix of {}: that is too short", source_.GetInfo().path,
                                FormatTime(targetSeconds)),
                    fmt::format("{} s and more", kShortestRemixSeconds));
    if (song_.beatTimes.size() < 2) Refuse(targetSeconds, "the song has no beats");
    if (request_.isExact) return FindExact(targetSeconds);
    if (request_.limit == RemixRequest::Limit::kNone) return FindNearest(targetSeconds);
    auto plan = FindWithin(targetSeconds, request_.limit, request_.slackSeconds);
    if (!plan) Refuse(targetSeconds, "every one found is too long or too short");
    return *plan;
}

}  // namespace zuc::host
