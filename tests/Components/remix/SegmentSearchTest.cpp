#include "Components/private/remix/SegmentSearch.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <random>

namespace zuc::components {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The recursion word for word, with every matrix in full: what the search has to equal bit by bit.
class LiteralSearch {
public:
    LiteralSearch(const TransitionMatrix& transition,
                  const PlacementMatrix& placement,
                  bool avoidLoops)
        : n_(static_cast<int>(transition.GetBeatCount())),
          m_(static_cast<int>(placement.GetPositionCount())),
          avoidLoops_(avoidLoops),
          back_(m_, std::vector<int>(n_, 0)) {
        std::vector<std::vector<double>> costs(m_);
        costs[m_ - 1] = placement.GetColumn(m_ - 1);
        for (int t = m_ - 2; t >= 0; --t) {
            const auto placed = placement.GetColumn(t);
            costs[t].resize(n_);
            for (int i = 0; i < n_; ++i) {
                const double* row = transition.Row(i);
                int beat = i + 1 < n_ ? i + 1 : 0;
                double best = placed[i] + row[beat] + costs[t + 1][beat] + Penalty(beat, t);
                for (int j = 0; j < n_; ++j) {
                    double cost = placed[i] + row[j] + costs[t + 1][j];
                    if (avoidLoops_ && cost < best) cost += Penalty(j, t);
                    if ((cost < best && cost < kInfinity) || (cost == best && j < beat)) {
                        best = cost;
                        beat = j;
                    }
                }
                costs[t][i] = best;
                back_[t][i] = beat;
            }
        }
        int start = 0;
        for (int i = 1; i < n_; ++i)
            if (costs[0][i] < costs[0][start]) start = i;
        path.cost = costs[0][start];
        for (int t = 0; t < m_; ++t) {
            path.beats.push_back(start);
            if (t + 1 < m_) start = back_[t][start];
        }
    }

    BeatPath path;

private:
    double Penalty(int j, int t) const {
        if (!avoidLoops_ || t + 1 >= m_) return 0;
        const int a = back_[t + 1][j];
        if (a == j + 1 || t + 2 >= m_ - 1) return 0;
        double sum = 0;
        int current = a;
        for (int s = t + 2; s <= m_ - 2; ++s) {
            const int next = back_[s][current];
            const int d1 = std::abs(current - j), d2 = std::abs(next - a);
            if (d1 < 4 && d2 < 4) sum += (1 - 0.25 * d2) + (1 - 0.25 * d1);
            current = next;
        }
        return sum;
    }

    int n_, m_;
    bool avoidLoops_;
    std::vector<std::vector<int>> back_;
};

struct Instance {
    Instance(std::mt19937& random, int n, int m, double grain, double forbidden, bool isMusical)
        : transition(n), placement(n, m) {
        std::uniform_real_distribution<double> uniform(0, 1);
        // A coarse grain makes many equal costs.
        const auto cost = [&] {
            const double x = uniform(random);
            return uniform(random) < forbidden ? kInfinity
                   : grain > 0                 ? std::floor(x / grain) * grain
                                               : x;
        };
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) transition.Row(i)[j] += cost();
        if (isMusical)  // playing on is free, short loops are cheap: the loop penalty has work
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    transition.Row(i)[j] *= j == i + 1 ? 0.0 : j > i - 6 && j < i ? 0.02 : 1.0;
        for (int i = 0; i < n; ++i) {
            for (double* c = transition.Row(i); c < transition.Row(i) + n; ++c)
                if (std::isnan(*c)) *c = kInfinity;
            if (uniform(random) < forbidden / 2) placement.AddToRow(i, kInfinity);
            for (const int t : {0, m - 1, m / 2})
                if (uniform(random) < forbidden) placement.Add(i, t, kInfinity);
            if (uniform(random) < 0.1) placement.Add(i, m / 3, cost());
        }
    }
    TransitionMatrix transition;
    PlacementMatrix placement;
};

TEST(SegmentSearch, EqualsTheLiteralRecursionOnRandomInstances) {
    std::mt19937 random(5);
    int feasible = 0, differentWithLoops = 0;
    for (int trial = 0; trial < 300; ++trial) {
        const int n = 1 + static_cast<int>(random() % (trial % 10 == 0 ? 200 : 40));
        const int m = 1 + static_cast<int>(random() % 60);
        const double grains[] = {0.0, 0.125, 0.25, 1.0};
        const double forbidden[] = {0.0, 0.1, 0.5, 0.97};
        const Instance instance(random, n, m, grains[trial % 4], forbidden[trial / 4 % 4],
                                trial % 3 == 0);
        BeatPath plain;
        for (const bool avoidLoops : {false, true}) {
            const LiteralSearch literal(instance.transition, instance.placement, avoidLoops);
            const BeatPath path =
                FindCheapestPath(instance.transition, instance.placement, avoidLoops, nullptr);
            ASSERT_EQ(path.beats, literal.path.beats) << trial << " " << n << "x" << m;
            ASSERT_EQ(path.cost, literal.path.cost) << trial;
            if (!avoidLoops) plain = path;
            differentWithLoops += avoidLoops && path.beats != plain.beats ? 1 : 0;
        }
        feasible += plain.cost < kInfinity ? 1 : 0;
    }
    // The instances are neither all trivial nor all hopeless.
    EXPECT_GT(feasible, 150);
    EXPECT_LT(feasible, 290);
    EXPECT_GT(differentWithLoops, 20);
}

TEST(SegmentSearch, LongPlateausOfEqualCostsEqualTheLiteralRecursion) {
    // More equal transitions than are sorted beforehand. With few beats allowed at the end those are
    // gone through, with many the rows are read whole.
    constexpr int kBeats = 700;
    for (const int endStep : {3, 90}) {
        TransitionMatrix transition(kBeats);
        PlacementMatrix placement(kBeats, 10);
        for (int i = 0; i < kBeats; ++i) {
            for (int j = 0; j < kBeats; ++j) transition.Row(i)[j] = (i + 3 * j) % 290 < 280 ? 1 : 2;
            if (i % endStep != 1) placement.Add(i, 9, kInfinity);
            if (i < 400) placement.Add(i, 6, 0.5);
        }
        for (const bool avoidLoops : {false, true})
            EXPECT_EQ(FindCheapestPath(transition, placement, avoidLoops, nullptr).beats,
                      LiteralSearch(transition, placement, avoidLoops).path.beats)
                << endStep;
    }
}

TEST(SegmentSearch, AsksBeforeEveryPositionAndStopsWhenTold) {
    TransitionMatrix transition(4);
    const PlacementMatrix placement(4, 10);
    std::vector<double> fractions;
    const auto stopAfter = [&](std::size_t calls) {
        fractions.clear();
        return FindCheapestPath(transition, placement, false, [&](double fraction) {
            fractions.push_back(fraction);
            return fractions.size() < calls;
        });
    };
    EXPECT_FALSE(stopAfter(100).isCancelled);
    EXPECT_EQ(fractions.size(), 9u);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_LE(fractions.back(), 1.0);
    const BeatPath cancelled = stopAfter(3);
    EXPECT_TRUE(cancelled.isCancelled);
    EXPECT_TRUE(cancelled.beats.empty());
    EXPECT_EQ(fractions.size(), 3u);
}

TEST(SegmentSearch, TiesGoToTheLowerBeat) {
    // All equal: the start is beat 0, and as playing on costs the same, beat 0 follows again and again.
    EXPECT_EQ(FindCheapestPath(TransitionMatrix(3), PlacementMatrix(3, 4), false, nullptr).beats,
              (std::vector<std::size_t>{0, 0, 0, 0}));
    // A jump wins from playing on at the same cost only when its target is lower.
    TransitionMatrix transition(5);
    for (std::size_t i = 0; i < 5; ++i)
        for (std::size_t j = 0; j < 5; ++j) transition.Row(i)[j] = j == i + 1 ? 1 : 9;
    transition.Row(2)[0] = 1;
    transition.Row(0)[4] = 1;
    PlacementMatrix placement(5, 3);
    for (const std::size_t i : {0u, 1u, 3u, 4u}) placement.Add(i, 0, kInfinity);
    EXPECT_EQ(FindCheapestPath(transition, placement, false, nullptr).beats,
              (std::vector<std::size_t>{2, 0, 1}));
}

}  // namespace
}  // namespace zuc::components
