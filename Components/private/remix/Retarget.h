#pragma once

#include <memory>
#include <vector>

#include "Components/MusicRetargetResults.h"
#include "Components/Song.h"
#include "Components/private/remix/Constraints.h"

namespace zuc::components {

/// What a remix shall be like.
struct RetargetOptions {
    bool startAtBeginning = false;
    bool endAtEnd = false;
    bool avoidLoops = false;    // do not play one loop again and again
    double editLength = 1.0;    // 1: jumps may go anywhere; down to 0: the nearer the better
    double sourceStart = -1.0;  // seconds; the part of the song that may be used
    double sourceEnd = -1.0;    // negative, or behind the end: to the end of the song
    double timbreWeight = 1.0;
    double chromaWeight = 1.0;
    double energyWeight = 0.5;
    int maxSlack = 5;       // seconds that the end beat may be off
    int minBeatLength = 8;  // of a loop
};

/// A part of the source to be played, in seconds of the source.
struct RetargetRange {
    double start = 0;
    double end = 0;
    double crossfade = 0;  // leads into this range
    double joinCost = 0;   // of jumping to this range: how unlike its two sides are
};

/// Finds the ranges of a song that, played one after the other, last as long as wanted: one source beat
/// for every beat of the output, by least cost.
class Retarget {
public:
    explicit Retarget(std::shared_ptr<const Song> song) : song_(std::move(song)) {}

    const Song& GetSong() const { return *song_; }  // [any]

    /// What the options stand for. [worker]
    ConstraintList BuildConstraints(const RetargetOptions& options) const;

    /// Puts the ranges for `targetSeconds` into `ranges`, which stay as they were on failure. With
    /// endAtEnd, a slack of less than two beats is infeasible: the last beat of a song cannot be jumped
    /// to, and playing ends one beat before it. Where less than four beats (or the shortest loop) are played
    /// between two jumps, the dearer one pays 1 more and the search is made again, at most seven times.
    /// [worker]
    RetargetResult Search(double targetSeconds,
                          const ConstraintList& constraints,
                          const RetargetOptions& options,
                          std::vector<RetargetRange>& ranges,
                          const ProgressCallback& progress,
                          IAudioFramesGetter& frames) const;

    /// Beats of the output for `targetSeconds`: multiples of the grid step below L = target - (duration -
    /// (grid step + last beat)), which is at least 5 s. [any]
    std::size_t GetPositionCount(double targetSeconds) const;

private:
    std::vector<RetargetRange> MakeRanges(const std::vector<std::size_t>& path,
                                          const RetargetOptions& options) const;

    std::shared_ptr<const Song> song_;
};

}  // namespace zuc::components
