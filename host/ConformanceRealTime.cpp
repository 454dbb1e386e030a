#include "host/ConformanceRun.h"

#include <algorithm>
#include <array>
#include <limits>

#include "Components/Chorus.h"
#include "host/AudioThread.h"

namespace zuc::host {

RealTimeProbe FindRealTimeProbe() {
    if (!rtguard_enter || !rtguard_leave || !rtguard_count_findings || !rtguard_describe_last)
        return {};
    return {rtguard_enter, rtguard_leave, rtguard_count_findings, rtguard_describe_last};
}

}  // namespace zuc::host

namespace zuc::host::conformance {

namespace {

/// One call of the system that an effect's Process may make, at most once a block.
struct AllowedCallRow {
    std::u16string_view effect;
    std::string_view call;  // as the probe describes it
    std::string_view reason;
};

// clang-format off
constexpr std::array kAllowedCalls{
    AllowedCallRow{components::kChorusComponentID, "sem_post", "wakes a worker that sleeps, which never waits"},
};

// clang-format on

}  // namespace

std::string_view GetAllowedCall(const components::CatalogueEntry& effect) {
    for (const AllowedCallRow& row : kAllowedCalls)
        if (row.effect == effect.identifier) return row.call;
    return {};
}

namespace {

void RenderGuarded(Run& run, Rig& rig, std::size_t channels, int blockFrames) {
    rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(blockFrames));
    rig.Render(Noise(run, channels, 8192), blockFrames);
    run.Expect(rig.GetProcessFinding().empty(),
               fmt::format("Process is not real-time safe with {} channels in blocks of {}: {}",
                           channels, blockFrames, rig.GetProcessFinding()));
}

}  // namespace

void CheckRealTime(Run& run) {
    for (const std::size_t channels : {1u, 2u, 6u, 32u}) {
        Rig rig = run.MakeGuardedRig({48000.0f, channels, 512});
        for (const int blockFrames : {512, 1, 64, 2047})
            RenderGuarded(run, rig, channels, blockFrames);
        Signal bad = Noise(run, channels, 512);
        bad[0][3] = std::numeric_limits<float>::quiet_NaN();
        rig.Render(bad, 512);
        run.Expect(rig.GetProcessFinding().empty(),
                   fmt::format("Process is not real-time safe with input that is not finite: {}",
                               rig.GetProcessFinding()));
        // Hosts set what may be automated from their audio threads.
        std::vector<int> parameters = rig.GetSoundParameters();
        std::erase_if(parameters, [&](int index) {
            return !rig.Filter().GetParameterInfo(index)->CanBeAutomated();
        });
        const std::string finding = rig.Watch([&] {
            for (const int index : parameters) rig.Filter().SetParameter(index, 0.3f);
        });
        run.Expect(finding.empty(),
                   fmt::format("setting parameters is not real-time safe: {}", finding));
    }
}

void CheckRealTimeLongBlocks(Run& run) {
    for (const std::size_t channels : {1u, 2u, 6u, 32u}) {
        Rig rig = run.MakeGuardedRig({48000.0f, channels, 4096});
        for (const int blockFrames : {2048, 4096}) RenderGuarded(run, rig, channels, blockFrames);
    }
}

void CheckRealTimeResume(Run& run) {
    Rig rig = run.MakeGuardedRig({48000.0f, 2, 512});
    rig.Render(Noise(run, 2, 512), 512);
    rig.Resume();
    run.Expect(rig.GetResumeFinding().empty(),
               fmt::format("Resume is not real-time safe: {}", rig.GetResumeFinding()));
}

}  // namespace zuc::host::conformance
