// Plans of remixes: refused, or the same after they were written and read again. A plan that fits its source
// plays as long as it says, wherever its joins are.

#include <cmath>

#include "host/AudioSource.h"
#include "host/RemixLabels.h"
#include "host/RemixRender.h"
#include "tests/fuzz/Fuzz.h"

namespace zuc::fuzz {
namespace {

constexpr int kRateHz = 1000;
constexpr std::int64_t kSourceFrames = std::int64_t{20} * kRateHz;
constexpr double kMostSeconds = 60.0;
constexpr std::size_t kMostSegments = 50;

void Play(const host::RemixPlan& plan) {
    host::SilentSource source(kRateHz, 1, kSourceFrames);
    std::int64_t frames = 0;
    host::PlayPlan(
        plan, source, source.GetInfo(), [&](float* const*, int count) { frames += count; },
        nullptr);
    const double announced = host::ToSeconds(plan.GetDuration()) * kRateHz;
    // Each range is cut to whole frames, and an odd fade adds one.
    Require(std::abs(static_cast<double>(frames) - announced) <=
            2.0 * static_cast<double>(plan.segments.size()) + 1.0);
}

}  // namespace

void Run(std::string_view input) {
    const host::RemixPlan plan = host::PlanFromJson(input, "fuzz");
    const std::string json = host::PlanToJson(plan);
    const host::RemixPlan again = host::PlanFromJson(json, "fuzz");
    Require(again.segments == plan.segments && again.fadeOut == plan.fadeOut &&
            host::PlanToJson(again) == json);
    Require(plan.GetStarts().size() == plan.segments.size() + 1);
    host::PlanToLabels(plan);
    host::GetPreviews(plan);
    host::MakeRemixTitle(plan, "fuzz");
    host::CheckPlan(plan, kRateHz, kSourceFrames, "fuzz");
    if (host::ToSeconds(plan.GetDuration()) <= kMostSeconds &&
        plan.segments.size() <= kMostSegments)
        Play(plan);
}

}  // namespace zuc::fuzz
