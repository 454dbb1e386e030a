#pragma once

#include <span>

#include "Components/Catalogue.h"

namespace zuc::host::test {

inline constexpr int kDelayLatencyFrames = 100;
inline constexpr int kDelayTailFrames = 50;

/// Effects for tests of the host layer:
///
///   "test-delay" (class TestDelay), 1 to 8 channels: y[n] = Level (x[n - 100] + x[n - 150] / 2); reports
///   a latency of 100 frames and a tail of 50. Has one parameter of every kind.
///   "endless" (class TestEndless): passes audio unchanged and reports a tail without end.
///   "side-chain" (class TestSideChain), stereo: gives what comes in at its side chain.
///   "test-offline" (class TestOffline), offline: takes `analysis` ms to begin, then gives the source
///   backwards, with way=double twice over and as a length nobody knows before, with way=give-up not at all.
std::span<const components::CatalogueEntry> GetTestEffects();

}  // namespace zuc::host::test
