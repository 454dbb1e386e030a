#pragma once

#include "Components/private/remix/Constraints.h"

namespace zuc::components {

/// What makes a join heard although its beats have the same pattern. Beat j in place of beat e, the natural
/// successor, costs
///
///     sound     4 x timbre weight x excess of the distance of the timbre rows
///     harmony   2 x chroma weight x the same of the chroma rows, each slice less the mean of its classes
///     loudness  1/3 for each dB beyond one by which the level steps: the mean over the half beats that
///               begin one before and half a one behind the join
///     timing    1 - c(0) + 16 x max(0, max c(lag) - c(0) + 0.1), c being the correlation of the onsets
///               within three beats of e and of j, lag up to half a beat; of the 32 cheapest of a row,
///               3 for all others
///
/// excess = max(0, (d - near) / (median - near)), near being the distance that one in fifty pairs of the
/// song's beats stays below: a join has to be good for this song. Comes last: "cheapest" is what all others
/// left.
class SmoothJoinConstraint final : public Constraint {
public:
    SmoothJoinConstraint(float timbreWeight, float chromaWeight)
        : timbreWeight_(timbreWeight), chromaWeight_(chromaWeight) {}
    void Apply(SearchCosts& costs) const override;

private:
    float timbreWeight_;
    float chromaWeight_;
};

}  // namespace zuc::components
