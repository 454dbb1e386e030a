#pragma once

#include <cstddef>
#include <vector>

#include "Components/Song.h"
#include "Components/private/remix/SearchMatrices.h"

namespace zuc::components {

/// The cheapest sequence of source beats, one for each output position.
struct BeatPath {
    std::vector<std::size_t> beats;
    double cost = 0;           // of the whole path; infinity when every path is forbidden
    bool isCancelled = false;  // then `beats` is empty
};

/// Minimises the sum of placement and transition costs by dynamic programming over the output
/// positions, from the last to the first (Bellman, "Dynamic Programming", 1957).
///
///     C[i][m-1] = P[i][m-1]
///     C[i][t] = min over j of P[i][t] + T[i][j] + C[j][t+1] (+ loop penalty of j at t)
///
/// Equal costs choose the lower beat, also for the start. With `avoidLoops`, a candidate j whose own
/// successor a (at t + 1) is a jump pays for every later step from cur to next with |cur - j| < 4 and
/// |next - a| < 4 the amount (1 - |next - a| / 4) + (1 - |cur - j| / 4), so that one loop played again
/// and again becomes dear. It is added only where the bare cost is below the best so far.
///
/// Exact, to the last bit, without looking at all beats x beats transitions of every position: a row's
/// cheapest transitions are sorted beforehand, and as floating-point addition is monotone, the walk
/// through them ends where even the cheapest continuation of all beats could not win any more; where a
/// row's sorted ones do not decide, the beats with the least cost to go do, or the row is read whole.
/// Takes about 2 bytes per beat and position (twice that with avoidLoops; twice again above 65535 beats
/// or positions) besides the matrices. `progress` is asked before each position. Costs are finite or +infinity; at least one beat and one position. [worker]
BeatPath FindCheapestPath(const TransitionMatrix& transition,
                          const PlacementMatrix& placement,
                          bool avoidLoops,
                          const ProgressCallback& progress);

}  // namespace zuc::components
