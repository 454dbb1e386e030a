#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "host/Conformance.h"
#include "host/ConformanceRig.h"
#include "kracore/Localizer.h"
#include "kracore/WStr.h"

namespace zuc::host::conformance {

/// Frames of a short render: long enough for ramps and crossfades of 100 ms at 48 kHz, and a multiple of
/// every block length that is compared.
inline constexpr std::size_t kShortFrames = 10752;
inline constexpr float kInaudible = 3.2e-5f;  // -90 dB

/// The call of the system that the effect's Process may make, as the probe describes it, at most once a
/// block; empty for nearly all.
std::string_view GetAllowedCall(const components::CatalogueEntry& effect);

/// What a check works with: the effect, the options, and where to report.
class Run {
public:
    Run(const components::CatalogueEntry& effect,
        std::string_view check,
        const ConformanceOptions& options)
        : effect_(effect), check_(check), options_(options) {}

    const ConformanceOptions& Options() const { return options_; }
    const components::CatalogueEntry& Effect() const { return effect_; }
    Rig MakeRig(const Rig::Setup& setup = {}) const { return Rig(effect_, setup); }
    Rig MakeGuardedRig(const Rig::Setup& setup) const {
        return Rig(effect_, setup, options_.probe, GetAllowedCall(effect_));
    }

    void Expect(bool holds, std::string detail) {
        if (holds) return;
        const auto title = kracore::config::Localizer::Localize(effect_.titleKey);
        findings_.push_back(
            {kracore::utility::ToUtf8(title), std::string(check_), std::move(detail)});
    }
    void ExpectSame(const Signal& got, const Signal& expected, std::string_view what) {
        const std::string difference = DescribeDifference(got, expected);
        Expect(difference.empty(), fmt::format("{}: {}", what, difference));
    }
    std::vector<Finding> TakeFindings() { return std::move(findings_); }

private:
    const components::CatalogueEntry& effect_;
    std::string_view check_;
    const ConformanceOptions& options_;
    std::vector<Finding> findings_;
};

inline Signal Noise(const Run& run, std::size_t channels, std::size_t frames) {
    return MakeNoise(channels, frames, run.Options().seed);
}

// The rules; what they promise stands in the table of Conformance.cpp. [worker]

void CheckSound(Run& run);
void CheckBlocks(Run& run);
void CheckResume(Run& run);
void CheckLatency(Run& run);
void CheckTail(Run& run);
void CheckParametersMatter(Run& run);
void CheckParameters(Run& run);
void CheckPresets(Run& run);
void CheckSettings(Run& run);
void CheckLocales(Run& run);
void CheckLayouts(Run& run);
void CheckBadSamples(Run& run);
void CheckDenormals(Run& run);
void CheckClicks(Run& run);
void CheckRealTime(Run& run);
void CheckRealTimeLongBlocks(Run& run);
void CheckRealTimeResume(Run& run);
void CheckFuzz(Run& run);
void CheckThreads(Run& run);
void CheckInstances(Run& run);
void CheckHour(Run& run);

}  // namespace zuc::host::conformance
