#pragma once

#include <vector>

#include "Components/private/remix/OnsetFunction.h"

namespace zuc::components {

/// Mean onset strength at places (onset values); a place may be off by one value.
double MeanStrengthAt(const std::vector<float>& onsets, const std::vector<double>& places);

/// Places that lie the given fraction of an interval behind every `step`-th beat, but for the last.
std::vector<double> PlacesBetween(const std::vector<double>& beats,
                                  double fraction,
                                  std::size_t first = 0,
                                  std::size_t step = 1);

/// The beats of a metronome, if the music follows one: a single period and phase, found by trying all
/// near those of `beats`. Music does when the tracked beats lie on it, or where they do not, mostly half
/// or a third of a beat off, as trackers go astray in syncopated parts. Otherwise the beats as they are.
std::vector<double> SteadyBeats(const OnsetFunction& onsets, const std::vector<double>& beats);

/// The beats, or those half or a third of a beat away that are more like beats: strong, with changes of
/// harmony, and, where every beat is divided in two unequal parts, with the longer part first.
std::vector<double> ChoosePhase(const OnsetFunction& onsets, const std::vector<double>& beats);

}  // namespace zuc::components
