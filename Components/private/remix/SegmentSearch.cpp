#include "Components/private/remix/SegmentSearch.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

namespace zuc::components {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::size_t kSortedPerRow = 128;  // 3-4 are looked at on average
constexpr int kLoopReach = 4;               // beats; nearer jumps count as the same loop

/// The cheapest transitions of every row, by cost and then by beat.
struct SortedRows {
    explicit SortedRows(const TransitionMatrix& transition)
        : kept(std::min(kSortedPerRow, transition.GetBeatCount())) {
        const std::size_t count = transition.GetBeatCount();
        costs.reserve(count * kept);
        beats.reserve(count * kept);
        std::vector<std::uint32_t> order(count);
        for (std::size_t i = 0; i < count; ++i) {
            const double* row = transition.Row(i);
            std::iota(order.begin(), order.end(), 0u);
            const auto isCheaper = [row](std::uint32_t a, std::uint32_t b) {
                return row[a] < row[b] || (row[a] == row[b] && a < b);
            };
            const auto end = order.begin() + static_cast<std::ptrdiff_t>(kept);
            std::nth_element(order.begin(), end - 1, order.end(), isCheaper);
            std::sort(order.begin(), end, isCheaper);
            for (std::size_t k = 0; k < kept; ++k) {
                costs.push_back(row[order[k]]);
                beats.push_back(order[k]);
            }
        }
    }

    std::size_t kept;
    std::vector<double> costs;
    std::vector<std::uint32_t> beats;
};

struct Choice {
    double cost = kInfinity;
    std::size_t beat = 0;

    void Offer(double otherCost, std::size_t otherBeat) {
        if (otherCost < cost || (otherCost == cost && otherBeat < beat))
            *this = {otherCost, otherBeat};
    }
};

/// What the candidates of one position share.
struct Position {
    const std::vector<double>& costToGo;   // C[.][t+1]
    const std::vector<double>& penalties;  // of each candidate
    bool hasPenalties = false;
    double leastToGo = kInfinity;
};

/// All candidates of one row, one after the other.
Choice ScanRow(const double* row, double placed, std::size_t natural, const Position& at) {
    Choice best{placed + row[natural] + at.costToGo[natural] + at.penalties[natural], natural};
    for (std::size_t j = 0; j < at.costToGo.size(); ++j) {
        double cost = placed + row[j] + at.costToGo[j];
        if (cost < best.cost) cost += at.penalties[j];
        best.Offer(cost, j);
    }
    return best;
}

/// The same choice from the sorted candidates; falls back on all of them when those run out.
Choice ChooseSuccessor(const TransitionMatrix& transition,
                       const SortedRows& sorted,
                       std::size_t i,
                       double placed,
                       const Position& at) {
    const double* row = transition.Row(i);
    const std::size_t count = transition.GetBeatCount();
    const std::size_t natural = i + 1 < count ? i + 1 : 0;
    if (placed == kInfinity || at.leastToGo == kInfinity) return {kInfinity, 0};
    const double naturalCost = placed + row[natural] + at.costToGo[natural] + at.penalties[natural];
    Choice best{naturalCost, natural};
    const double* costs = sorted.costs.data() + i * sorted.kept;
    const std::uint32_t* beats = sorted.beats.data() + i * sorted.kept;
    bool isDecided = sorted.kept == count;
    for (std::size_t k = 0; k < sorted.kept; ++k) {
        if (costs[k] == kInfinity || placed + costs[k] + at.leastToGo > best.cost) {
            isDecided = true;
            break;
        }
        const std::size_t j = beats[k];
        const double bare = placed + costs[k] + at.costToGo[j];
        // Deliberate: the penalty is only added below the best so far, so a lower beat whose bare cost
        // equals what playing on costs with its penalty goes without its own.
        const bool isUnpunished = at.hasPenalties && bare == naturalCost && j < natural;
        best.Offer(isUnpunished ? bare : bare + at.penalties[j], j);
    }
    if (!isDecided) best = ScanRow(row, placed, natural, at);
    return best.cost == kInfinity ? Choice{kInfinity, 0} : best;
}

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
    const std::size_t beats = transition.GetBeatCount();
    const std::size_t positions = placement.GetPositionCount();
    const SortedRows sorted(transition);
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
        const Position at{costToGo, penalties, avoidLoops,
                          *std::min_element(costToGo.begin(), costToGo.end())};
        const std::vector<double> placed = placement.GetColumn(t);
        for (std::size_t i = 0; i < beats; ++i) {
            const Choice choice = ChooseSuccessor(transition, sorted, i, placed[i], at);
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
