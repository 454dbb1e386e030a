#include "Components/private/remix/SegmentSearch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace zuc::components {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::size_t kSortedPerRow = 128;  // 3 to 4 are looked at on average
constexpr std::size_t kRowsTogether = 8;    // a cache line of costs
constexpr std::size_t kBlockBeats = 256;    // of a row read whole
constexpr std::size_t kReadsPerWalk = 32;   // values read in order in the time of one found by beat
constexpr int kLoopReach = 4;               // beats; nearer jumps count as the same loop

/// The cheapest transitions of every row, by cost and then by beat. They lie rank by rank for a few
/// rows at a time, because a position goes through all rows and seldom beyond the first ranks.
class SortedRows {
public:
    explicit SortedRows(const TransitionMatrix& transition)
        : rows_(transition.GetBeatCount()), ranks_(std::min(kSortedPerRow, rows_)) {
        const std::size_t places = (rows_ + kRowsTogether - 1) / kRowsTogether * kRowsTogether;
        costs_.resize(places * ranks_);
        beats_.resize(places * ranks_);
        std::vector<std::uint32_t> order(rows_);
        for (std::size_t i = 0; i < rows_; ++i) {
            const double* row = transition.Row(i);
            std::iota(order.begin(), order.end(), 0u);
            const auto isCheaper = [row](std::uint32_t a, std::uint32_t b) {
                return row[a] < row[b] || (row[a] == row[b] && a < b);
            };
            const auto end = order.begin() + static_cast<std::ptrdiff_t>(ranks_);
            std::nth_element(order.begin(), end - 1, order.end(), isCheaper);
            std::sort(order.begin(), end, isCheaper);
            for (std::size_t k = 0; k < ranks_; ++k) {
                costs_[Place(i, k)] = row[order[k]];
                beats_[Place(i, k)] = order[k];
            }
        }
    }

    std::size_t GetRankCount() const { return ranks_; }
    bool AreWhole() const { return ranks_ == rows_; }
    double GetCost(std::size_t i, std::size_t rank) const { return costs_[Place(i, rank)]; }
    std::size_t GetBeat(std::size_t i, std::size_t rank) const { return beats_[Place(i, rank)]; }

private:
    std::size_t Place(std::size_t i, std::size_t rank) const {
        return (i / kRowsTogether * ranks_ + rank) * kRowsTogether + i % kRowsTogether;
    }

    std::size_t rows_;
    std::size_t ranks_;
    std::vector<double> costs_;
    std::vector<std::uint32_t> beats_;
};

/// The least of offset + a[k] + b[k].
double LeastSum(double offset, const double* a, const double* b, std::size_t count) {
    std::array<double, 8> least{};
    least.fill(kInfinity);
    for (std::size_t k = 0; k + 8 <= count; k += 8)
        for (std::size_t lane = 0; lane < 8; ++lane) {
            const double sum = offset + a[k + lane] + b[k + lane];
            least[lane] = sum < least[lane] ? sum : least[lane];
        }
    for (std::size_t k = count / 8 * 8; k < count; ++k)
        least[0] = std::min(least[0], offset + a[k] + b[k]);
    return *std::min_element(least.begin(), least.end());
}

struct Choice {
    double cost = kInfinity;
    std::size_t beat = 0;

    void Offer(double otherCost, std::size_t otherBeat) {
        if (otherCost < cost || (otherCost == cost && otherBeat < beat))
            *this = {otherCost, otherBeat};
    }
};

/// What is the same at every position.
struct Transitions {
    explicit Transitions(const TransitionMatrix& transition) : matrix(transition), sorted(matrix) {
        const std::size_t count = matrix.GetBeatCount();
        for (std::size_t i = 0; i < count; ++i)
            natural.push_back(matrix.Row(i)[i + 1 < count ? i + 1 : 0]);
    }
    const TransitionMatrix& matrix;
    const SortedRows sorted;
    std::vector<double> natural;  // costs of playing on
};

/// The choices at one position.
class Position {
public:
    Position(const Transitions& transitions,
             const std::vector<double>& costToGo,
             const std::vector<double>& penalties,
             bool isPunishing)
        : transitions_(transitions),
          costToGo_(costToGo),
          penalties_(penalties),
          isPunishing_(isPunishing),
          leastToGo_(*std::min_element(costToGo.begin(), costToGo.end())) {}

    /// The cheapest successor of beat i, which costs `placed` itself.
    Choice ChooseSuccessor(std::size_t i, double placed) {
        if (placed == kInfinity || leastToGo_ == kInfinity) return {kInfinity, 0};
        const std::size_t next = i + 1 < costToGo_.size() ? i + 1 : 0;
        const double cost = placed + transitions_.natural[i] + costToGo_[next] + penalties_[next];
        Walk walk{placed, {cost, next}, {cost, next}};
        const SortedRows& sorted = transitions_.sorted;
        bool isDecided = sorted.AreWhole();
        for (std::size_t k = 0; k < sorted.GetRankCount(); ++k) {
            const double transition = sorted.GetCost(i, k);
            if (transition == kInfinity || placed + transition + leastToGo_ > walk.best.cost) {
                isDecided = true;
                break;
            }
            Offer(walk, transition, sorted.GetBeat(i, k));
        }
        if (!isDecided) OfferRest(walk, i);
        return walk.best.cost == kInfinity ? Choice{kInfinity, 0} : walk.best;
    }

private:
    struct Walk {
        double placed = 0;
        Choice natural;
        Choice best;
    };

    void Offer(Walk& walk, double transition, std::size_t j) const {
        const double bare = walk.placed + transition + costToGo_[j];
        if (bare > walk.best.cost) return;
        // Deliberate: the penalty is only added below the best so far, so a lower beat whose bare cost
        // equals what playing on costs with its penalty goes without its own.
        const bool isUnpunished =
            isPunishing_ && bare == walk.natural.cost && j < walk.natural.beat;
        walk.best.Offer(isUnpunished ? bare : bare + penalties_[j], j);
    }

    /// Where a row's sorted transitions run out, all others cost at least as much as the last of them,
    /// and the beats with the least cost to go decide.
    void OfferRest(Walk& walk, std::size_t i) {
        if (byCostToGo_.empty()) {
            byCostToGo_.resize(costToGo_.size());
            std::iota(byCostToGo_.begin(), byCostToGo_.end(), 0u);
            std::sort(byCostToGo_.begin(), byCostToGo_.end(),
                      [this](auto a, auto b) { return costToGo_[a] < costToGo_[b]; });
        }
        const double* row = transitions_.matrix.Row(i);
        const SortedRows& sorted = transitions_.sorted;
        const double least = walk.placed + sorted.GetCost(i, sorted.GetRankCount() - 1);
        const auto isTooDear = [&](std::uint32_t j) {
            return costToGo_[j] == kInfinity || least + costToGo_[j] > walk.best.cost;
        };
        const std::size_t few = byCostToGo_.size() / kReadsPerWalk;
        if (!isTooDear(byCostToGo_[few])) return ReadRow(walk, row);
        for (const std::uint32_t j : byCostToGo_) {
            if (isTooDear(j)) return;
            Offer(walk, row[j], j);
        }
    }

    /// Offers the whole row, but for blocks in which even without penalty nothing could win.
    void ReadRow(Walk& walk, const double* row) const {
        for (std::size_t from = 0; from < costToGo_.size(); from += kBlockBeats) {
            const std::size_t to = std::min(costToGo_.size(), from + kBlockBeats);
            const double least =
                LeastSum(walk.placed, row + from, costToGo_.data() + from, to - from);
            const bool isTooLate = least == walk.best.cost && from > walk.best.beat;
            if (least > walk.best.cost || isTooLate) continue;
            for (std::size_t j = from; j < to; ++j) Offer(walk, row[j], j);
        }
    }

    const Transitions& transitions_;
    const std::vector<double>& costToGo_;   // C[.][t+1]
    const std::vector<double>& penalties_;  // of each candidate
    bool isPunishing_;
    double leastToGo_;
    std::vector<std::uint32_t> byCostToGo_;  // empty until needed
};

/// Successors of all beats at all positions, and for each the next position where its tail jumps.
template <typename Index>
class Successors {
public:
    Successors(std::size_t beats, std::size_t positions, bool withJumps)
        : beats_(beats),
          positions_(positions),
          next_(beats * positions, 0),
          jumps_(withJumps ? beats * positions : 0, static_cast<Index>(positions - 1)) {}

    void Set(std::size_t t, std::size_t i, std::size_t beat) {
        next_[t * beats_ + i] = static_cast<Index>(beat);
    }
    std::size_t Get(std::size_t t, std::size_t i) const { return next_[t * beats_ + i]; }

    /// Call once all successors at t are set.
    void LinkJumps(std::size_t t) {
        for (std::size_t i = 0; i < beats_; ++i)
            jumps_[t * beats_ + i] =
                Get(t, i) == i + 1 ? jumps_[(t + 1) * beats_ + i + 1] : static_cast<Index>(t);
    }

    /// Walks the tail of j jump by jump; the steps between are only visited near the loop. Adds in
    /// ascending order of position.
    double GetLoopPenalty(std::size_t j, std::size_t t) const {
        if (t + 2 >= positions_ - 1) return 0;
        const auto from = static_cast<std::int64_t>(j);
        const auto to = static_cast<std::int64_t>(Get(t + 1, j));
        if (to == from + 1) return 0;
        double sum = 0;
        const auto step = [&](std::int64_t current, std::int64_t next) {
            const std::int64_t a = std::abs(next - to), b = std::abs(current - from);
            if (a < kLoopReach && b < kLoopReach)
                sum += (1 - 0.25 * static_cast<double>(a)) + (1 - 0.25 * static_cast<double>(b));
        };
        std::int64_t current = to;
        for (std::size_t s = t + 2; s + 1 < positions_;) {
            const auto at = static_cast<std::size_t>(current);
            const std::size_t jump = std::min<std::size_t>(jumps_[s * beats_ + at], positions_ - 1);
            const auto natural = static_cast<std::int64_t>(jump - s);
            const std::int64_t lo = std::max({current, from - kLoopReach, to - kLoopReach - 1});
            const std::int64_t hi =
                std::min({current + natural - 1, from + kLoopReach, to + kLoopReach});
            for (std::int64_t c = lo; c <= hi; ++c) step(c, c + 1);
            current += natural;
            if (jump + 1 >= positions_) break;
            const auto next =
                static_cast<std::int64_t>(Get(jump, static_cast<std::size_t>(current)));
            step(current, next);
            current = next;
            s = jump + 1;
        }
        return sum;
    }

private:
    std::size_t beats_;
    std::size_t positions_;
    std::vector<Index> next_;
    std::vector<Index> jumps_;  // positions - 1 when the tail jumps no more
};

template <typename Index>
BeatPath Search(const TransitionMatrix& transition,
                const PlacementMatrix& placement,
                bool avoidLoops,
                const ProgressCallback& progress) {
    const std::size_t beats = placement.GetBeatCount();
    const std::size_t positions = placement.GetPositionCount();
    const Transitions transitions(transition);
    Successors<Index> successors(beats, positions, avoidLoops);
    std::vector<double> costToGo = placement.GetColumn(positions - 1);
    std::vector<double> costHere(beats);
    std::vector<double> penalties(beats, 0.0);
    for (std::size_t t = positions - 1; t-- > 0;) {
        if (progress &&
            !progress(static_cast<double>(positions - 1 - t) / static_cast<double>(positions)))
            return {{}, kInfinity, true};
        if (avoidLoops)
            for (std::size_t j = 0; j < beats; ++j)
                penalties[j] = costToGo[j] < kInfinity ? successors.GetLoopPenalty(j, t) : 0.0;
        Position position(transitions, costToGo, penalties, avoidLoops);
        const std::vector<double> placed = placement.GetColumn(t);
        for (std::size_t i = 0; i < beats; ++i) {
            const Choice choice = position.ChooseSuccessor(i, placed[i]);
            costHere[i] = choice.cost;
            successors.Set(t, i, choice.beat);
        }
        if (avoidLoops) successors.LinkJumps(t);
        costToGo.swap(costHere);
    }
    BeatPath path;
    const auto start = std::min_element(costToGo.begin(), costToGo.end());
    path.cost = *start;
    path.beats.push_back(static_cast<std::size_t>(start - costToGo.begin()));
    for (std::size_t t = 0; t + 1 < positions; ++t)
        path.beats.push_back(successors.Get(t, path.beats.back()));
    return path;
}

}  // namespace

BeatPath FindCheapestPath(const TransitionMatrix& transition,
                          const PlacementMatrix& placement,
                          bool avoidLoops,
                          const ProgressCallback& progress) {
    const std::size_t largest = std::max(transition.GetBeatCount(), placement.GetPositionCount());
    return largest <= std::numeric_limits<std::uint16_t>::max()
               ? Search<std::uint16_t>(transition, placement, avoidLoops, progress)
               : Search<std::uint32_t>(transition, placement, avoidLoops, progress);
}

}  // namespace zuc::components
