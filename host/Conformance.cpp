#include "host/Conformance.h"

#include <algorithm>
#include <array>

#include "Components/Chorus.h"
#include "Components/Echo.h"
#include "Components/MusicRetarget.h"
#include "Components/ParametricEqualizer.h"
#include "host/ConformanceOffline.h"
#include "host/ConformanceRun.h"
#include "host/OfflineSession.h"

namespace zuc::host {
namespace {

using namespace conformance;
using components::CatalogueEntry;

// ---- Offline effects ----

void Report(Run& run, const std::string& fault) { run.Expect(fault.empty(), fault); }

void CheckOfflineRun(Run& run) {
    Report(run, FindOfflineRunFault(run.Effect(), run.Options().seed));
}
void CheckOfflineCancel(Run& run) {
    Report(run, FindOfflineCancelFault(run.Effect(), run.Options().seed));
}
void CheckOfflineFaults(Run& run) {
    Report(run, FindOfflineWriterFault(run.Effect(), run.Options().seed));
}

// ---- The table ----

struct CheckRow {
    ConformanceCheck check;
    void (*run)(Run&) = nullptr;
    enum class For { kAll, kBlockwise, kOffline } effects = For::kAll;
    bool needsProbe = false;
};
using For = CheckRow::For;

// clang-format off
constexpr std::array kRows{
    CheckRow{{"sound",              "Finite sound from noise, at 1, 2, 6, 8 and 32 channels and 8 to 384 kHz", 1}, CheckSound},
    CheckRow{{"blocks",             "The same output for any block length, in place or not"}, CheckBlocks, For::kBlockwise},
    CheckRow{{"resume",             "After Resume the effect is like a fresh one with these settings"}, CheckResume, For::kBlockwise},
    CheckRow{{"latency",            "The latency is the reported one, to the frame"}, CheckLatency, For::kBlockwise},
    CheckRow{{"tail",               "Silence, below -90 dB, after the reported tail"}, CheckTail, For::kBlockwise},
    CheckRow{{"parameters-matter",  "Every parameter that shapes the sound changes the output"}, CheckParametersMatter, For::kBlockwise},
    CheckRow{{"parameters",         "Values read back as set; bad values and indices are refused", 1}, CheckParameters},
    CheckRow{{"presets",            "Presets have names, set every parameter and stay in range", 1}, CheckPresets},
    CheckRow{{"settings",           "Saved settings and clones sound the same; damaged ones are refused", 1}, CheckSettings},
    CheckRow{{"locales",            "Settings and texts are the same where a comma marks the decimals"}, CheckLocales},
    CheckRow{{"layouts",            "Layout proposals are answered as the contract says", 1}, CheckLayouts},
    CheckRow{{"bad-samples",        "Input that is not finite counts as silence and poisons nothing", 1}, CheckBadSamples},
    CheckRow{{"denormals",          "No denormals come out; the caller's floating-point state is kept"}, CheckDenormals},
    CheckRow{{"clicks",             "Moving a parameter makes no larger steps than its settings do"}, CheckClicks, For::kBlockwise},
    CheckRow{{"fuzz",               "Any input, any values in any order and blocks of 1 to 8192 frames: finite output", 5}, CheckFuzz, For::kBlockwise},
    CheckRow{{"threads",            "Another thread may set parameters while it processes", 5}, CheckThreads, For::kBlockwise},
    CheckRow{{"instances",          "Several at once give what one alone gives"}, CheckInstances, For::kBlockwise},
    CheckRow{{"hour",               "An hour of sound leaves no residue, no drift and no memory behind", 10}, CheckHour, For::kBlockwise},
    CheckRow{{"real-time",          "Processing allocates nothing, waits for nothing and never calls the system"}, CheckRealTime, For::kAll, true},
    CheckRow{{"real-time-long-blocks", "The same for blocks of 2048 frames and more"}, CheckRealTimeLongBlocks, For::kAll, true},
    CheckRow{{"real-time-resume",   "The same for Resume"}, CheckRealTimeResume, For::kAll, true},
    CheckRow{{"offline-run",        "An offline run gives all its frames, finite, the same through any ring"}, CheckOfflineRun, For::kOffline},
    CheckRow{{"offline-cancel",     "A cancelled or abandoned run ends and closes its writer"}, CheckOfflineCancel, For::kOffline},
    CheckRow{{"offline-faults",     "A reader that fails ends the run; a writer that takes little loses nothing"}, CheckOfflineFaults, For::kOffline},
};

struct ExceptionRow {
    std::u16string_view effect;  // component identifier
    std::string_view check;
    std::string_view reason;
};
constexpr std::array kExceptions{
    ExceptionRow{components::kEchoComponentID, "clicks", "the equalizer's band gains change at once, by contract; delays, feedback and levels have a test of their own"},
    ExceptionRow{components::kParametricEqualizerComponentID, "real-time-long-blocks", "long blocks are spread over the processors, and the audio thread waits for them, by contract"},
    ExceptionRow{components::kChorusComponentID, "real-time-resume", "Resume subscribes to the effect thread pool, which may start a worker, by contract"},
    ExceptionRow{components::kMusicRetargetComponentID, "offline-run", "a remix is as long as its target, up to a day, and noise is no music; it has tests of its own"},
    ExceptionRow{components::kMusicRetargetComponentID, "offline-faults", "the same, and a writer that takes nothing 100 times ends the run, by contract"},
};
// clang-format on

constexpr auto kChecks = [] {
    std::array<ConformanceCheck, kRows.size()> checks{};
    for (std::size_t i = 0; i < kRows.size(); ++i) checks[i] = kRows[i].check;
    return checks;
}();

const CheckRow* FindRow(std::string_view name) {
    const auto found = std::find_if(kRows.begin(), kRows.end(),
                                    [&](const CheckRow& row) { return row.check.name == name; });
    return found == kRows.end() ? nullptr : &*found;
}

}  // namespace

std::span<const ConformanceCheck> GetConformanceChecks() { return kChecks; }

std::string_view GetConformanceException(const CatalogueEntry& effect,
                                         std::string_view check,
                                         const ConformanceOptions& options) {
    const CheckRow* row = FindRow(check);
    if (row && row->needsProbe && !options.probe.IsActive())
        return "this program is not linked with a real-time guard";
    if (row && row->effects != For::kAll) {
        const auto filter = effect.create();
        const bool isOffline = WorksOffline(*filter);
        if (isOffline && row->effects == For::kBlockwise)
            return "the effect works offline: its audio goes through a writer";
        if (!isOffline && row->effects == For::kOffline) return "the effect works block by block";
    }
    for (const ExceptionRow& exception : kExceptions)
        if (exception.effect == effect.identifier && exception.check == check)
            return exception.reason;
    return {};
}

std::vector<Finding> RunConformanceCheck(const CatalogueEntry& effect,
                                         std::string_view check,
                                         const ConformanceOptions& options) {
    Run run(effect, check, options);
    if (const CheckRow* row = FindRow(check))
        row->run(run);
    else
        run.Expect(false, "there is no such check");
    return run.TakeFindings();
}

}  // namespace zuc::host
