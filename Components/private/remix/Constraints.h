#pragma once

#include <memory>
#include <vector>

#include "Components/private/remix/BeatLevels.h"
#include "Components/private/remix/SearchMatrices.h"

namespace zuc::components {

/// What a search is about, and the costs of its choices so far.
struct SearchCosts {
    TransitionMatrix& transition;  // beats x beats
    PlacementMatrix& placement;    // beats x output positions
    const SongAnalysis& song;
    const std::vector<BeatLevel>& levels;  // of the song's beats
};

/// Adds its costs to those of the others; +infinity forbids. All are [worker].
class Constraint {
public:
    virtual ~Constraint() = default;
    Constraint() = default;
    Constraint(const Constraint&) = delete;
    Constraint& operator=(const Constraint&) = delete;

    virtual void Apply(SearchCosts& costs) const = 0;
};
using ConstraintList = std::vector<std::shared_ptr<Constraint>>;

/// (1 - cosine)^0.75: of the powers tried, this one keeps the music at the joins most alike while making
/// few of them. [any]
double CostOfCosine(float cosine);

/// A beat may replace the natural successor of another as far as it sounds like it: the cost of i -> j
/// is the dissimilarity of i + 1 and j, CostOfCosine, of the chroma and timbre rows. Leaving the
/// last beat or going to it is forbidden.
class TimbrePitchConstraint final : public Constraint {
public:
    TimbrePitchConstraint(float timbreWeight, float chromaWeight)
        : timbreWeight_(timbreWeight), chromaWeight_(chromaWeight) {}
    void Apply(SearchCosts& costs) const override;

private:
    float timbreWeight_;
    float chromaWeight_;
};

/// The same for loudness: 10 x the difference of the root mean squares of beats i + 1 and j. The last
/// beat counts as loud as the one before.
class EnergyConstraint final : public Constraint {
public:
    explicit EnergyConstraint(float weight) : weight_(weight) {}
    void Apply(SearchCosts& costs) const override;

private:
    float weight_;
};

/// No jump leaves or enters what fades in before the first beat, or out behind the last one, that is an
/// eighth as loud as the median beat: quiet beats sound alike, and the search would pass time with them.
class QuietEndsConstraint final : public Constraint {
public:
    void Apply(SearchCosts& costs) const override;
};

/// A jump within the first `beats` of a remix that starts at beat `first`, or into the last ones before beat
/// `last` at which it ends, costs extra: what is played for a moment only is heard as a slip. Negative beats
/// stand for a free end.
class LongEndsConstraint final : public Constraint {
public:
    LongEndsConstraint(int first, int last, int beats)
        : first_(first), last_(last), beats_(beats) {}
    void Apply(SearchCosts& costs) const override;

private:
    int first_;
    int last_;
    int beats_;
};

/// A jump back goes back at least `beats`; a beat never follows itself.
class MinimumLoopConstraint final : public Constraint {
public:
    explicit MinimumLoopConstraint(int beats) : beats_(beats) {}
    void Apply(SearchCosts& costs) const override;

private:
    int beats_;
};

/// The first output position plays `beat`, or one at most `slackBeats` away.
class StartAtBeatConstraint final : public Constraint {
public:
    StartAtBeatConstraint(int beat, int slackBeats) : beat_(beat), slackBeats_(slackBeats) {}
    void Apply(SearchCosts& costs) const override;

private:
    int beat_;
    int slackBeats_;
};

/// The last output position plays the beat behind `beat` (negative: behind the last one), or one at
/// most `slackBeats` away from there.
class EndAtBeatConstraint final : public Constraint {
public:
    EndAtBeatConstraint(int beat, int slackBeats) : beat_(beat), slackBeats_(slackBeats) {}
    void Apply(SearchCosts& costs) const override;

private:
    int beat_;
    int slackBeats_;
};

/// Only beats at `startSeconds` to `endSeconds`, both included, are played at all.
class SourceTimeRangeConstraint final : public Constraint {
public:
    SourceTimeRangeConstraint(double startSeconds, double endSeconds)
        : startSeconds_(startSeconds), endSeconds_(endSeconds) {}
    void Apply(SearchCosts& costs) const override;

private:
    double startSeconds_;
    double endSeconds_;
};

/// Far jumps cost weight x (d / beats)^exponent, d the distance beyond `freeBeats` (below 1 it is 0).
class PenalizeLongEditsConstraint final : public Constraint {
public:
    PenalizeLongEditsConstraint(double weight, double exponent, int freeBeats)
        : weight_(weight), exponent_(exponent), freeBeats_(freeBeats) {}
    void Apply(SearchCosts& costs) const override;

private:
    double weight_;
    double exponent_;
    int freeBeats_;
};

}  // namespace zuc::components
