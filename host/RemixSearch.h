#pragma once

#include <atomic>
#include <string>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "Components/MusicRetarget.h"
#include "host/RemixPlan.h"
#include "host/RemixSource.h"
#include "host/TimeRange.h"
#include "kracore/DebugDatabase.h"

namespace zuc::host {

/// What a remix shall be like, besides how long.
struct RemixRequest {
    bool startsAtStart = true;  // of the source range
    bool endsAtEnd = true;      // of the source range
    int slackSeconds = 5;       // that the end may be off; 0 to 30
    int minLoopBeats = 8;       // 1 to 128
    double timbreWeight = 1.0;  // 0 to 5
    double chromaWeight = 1.0;  // 0 to 5
    double editLength = 1.0;    // 0 (jumps near by) to 1 (jumps anywhere)
    bool avoidsLoops = true;    // do not play one loop again and again
    TimeRange source;           // what may be used
    enum class Limit { kNone, kAtLeast, kAtMost } limit = Limit::kNone;
    bool isExact = false;  // ends at the target to the sample, with a fade
};

/// Shortest target that a search can meet, in seconds.
inline constexpr double kShortestRemixSeconds = 5.0;

/// Finds remixes of one song; the song must have been analysed. While it lives, the process-wide setting
/// "Remix.AvoidLoops" is what the request says.
class RemixSearch {
public:
    /// [worker] `source` must outlive this object.
    RemixSearch(RemixSource& source,
                const components::SongAnalysis& song,
                const RemixRequest& request,
                const std::atomic<int>* interrupted);
    RemixSearch(const RemixSearch&) = delete;
    RemixSearch& operator=(const RemixSearch&) = delete;

    /// Throws Error (kRemixInfeasible) with the reasons when the request cannot be met, or Interrupted.
    /// [worker, may block]
    RemixPlan Find(double targetSeconds);
    /// What a person should know of the searches so far: a slack that had to be raised.
    const std::vector<std::string>& GetNotes() const { return notes_; }

private:
    RemixPlan Search(double targetSeconds, int slackSeconds);
    std::optional<RemixPlan> FindWithin(double targetSeconds,
                                        RemixRequest::Limit limit,
                                        int slackSeconds);
    RemixPlan FindNearest(double targetSeconds);
    RemixPlan FindExact(double targetSeconds);
    bool EndAt(RemixPlan& plan, double targetSeconds) const;
    boost::intrusive_ptr<components::MusicRetarget> MakeEffect(double targetSeconds,
                                                               int slackSeconds) const;
    [[noreturn]] void Refuse(double targetSeconds, const std::string& why) const;

    RemixSource& source_;
    const components::SongAnalysis& song_;
    RemixRequest request_;
    const std::atomic<int>* interrupted_;
    kracore::debug::ScopedDebugValue avoidsLoops_;
    boost::intrusive_ptr<components::MusicRetarget> model_;  // holds the song
    std::vector<std::string> notes_;
};

/// An effect for this audio, with its rate and channels. [host]
boost::intrusive_ptr<components::MusicRetarget> MakeRemixEffect(const AudioFileInfo& info);

/// How alike the beats at a join of that cost sound, 0 to 1. [any]
double GetLikeness(double joinCost);

}  // namespace zuc::host
