#include "host/Conformance.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>

#include <fmt/format.h>

#include "Components/Chorus.h"
#include "Components/Echo.h"
#include "Components/MusicRetarget.h"
#include "Components/ParametricEqualizer.h"
#include "host/ConformanceOffline.h"
#include "host/ConformanceRig.h"
#include "host/OfflineSession.h"
#include "kraaudiofilterhost/PresetData.h"
#include "kracore/Localizer.h"
#include "kracore/PropList.h"
#include "kracore/WStr.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host {
namespace {

using namespace conformance;
using components::CatalogueEntry;
using kraaudiofilterhost::AudioFilter;
using kramediatypes::LayoutForChannelCount;

/// Frames of a short render: long enough for ramps and crossfades of 100 ms at 48 kHz, and a multiple of
/// every block length that is compared.
constexpr std::size_t kShortFrames = 10752;
constexpr float kInaudible = 3.2e-5f;  // -90 dB

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

std::string_view GetAllowedCall(const CatalogueEntry& effect) {
    for (const AllowedCallRow& row : kAllowedCalls)
        if (row.effect == effect.identifier) return row.call;
    return {};
}

/// What a check works with: the effect, the options, and where to report.
class Run {
public:
    Run(const CatalogueEntry& effect, std::string_view check, const ConformanceOptions& options)
        : effect_(effect), check_(check), options_(options) {}

    const ConformanceOptions& Options() const { return options_; }
    const CatalogueEntry& Effect() const { return effect_; }
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
    const CatalogueEntry& effect_;
    std::string_view check_;
    const ConformanceOptions& options_;
    std::vector<Finding> findings_;
};

Signal Noise(const Run& run, std::size_t channels, std::size_t frames) {
    return MakeNoise(channels, frames, run.Options().seed);
}

void CheckSound(Run& run) {
    for (const std::size_t channels : {1u, 2u, 6u, 32u})
        for (const float rateHz : {8000.0f, 11025.0f, 44100.0f, 48000.0f, 96000.0f, 192000.0f}) {
            Rig rig = run.MakeRig({rateHz, channels, 512});
            // Long enough to see past any latency.
            const auto frames =
                kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
            const Signal out = rig.Render(Noise(run, channels, frames), 512);
            const auto where = fmt::format("{} channels at {} Hz", channels, rateHz);
            run.Expect(out.size() == channels, where + ": the buses have another width");
            run.Expect(IsFinite(out), where + ": output that is not finite");
            for (std::size_t c = 0; c < out.size(); ++c)
                run.Expect(GetPeak({out[c]}) > 1e-4f,
                           fmt::format("{}: channel {} is silent", where, c));
        }
}

/// Renders noise with one change of all settings on the way.
Signal RenderWithChange(const Run& run, Rig& rig, int blockFrames, bool inPlace) {
    Signal first = rig.Render(Noise(run, 2, kShortFrames), blockFrames, inPlace);
    rig.Randomize(run.Options().seed + 1);
    const Signal second = rig.Render(Noise(run, 2, kShortFrames), blockFrames, inPlace);
    for (std::size_t c = 0; c < first.size(); ++c)
        first[c].insert(first[c].end(), second[c].begin(), second[c].end());
    return first;
}

void CheckBlocks(Run& run) {
    Rig reference = run.MakeRig();
    const Signal expected = RenderWithChange(run, reference, static_cast<int>(kShortFrames), false);
    for (const int blockFrames : {1, 7, 64, 480, 2047, 2048, 4096})
        for (const bool inPlace : {false, true}) {
            Rig rig = run.MakeRig();
            run.ExpectSame(RenderWithChange(run, rig, blockFrames, inPlace), expected,
                           fmt::format("blocks of {}{}", blockFrames, inPlace ? " in place" : ""));
        }
}

void CheckResume(Run& run) {
    Rig used = run.MakeRig();
    used.Randomize(run.Options().seed);
    used.Render(MakeNoise(2, kShortFrames, run.Options().seed + 9), 480);
    used.Filter().Suspend();
    used.Resume();
    Rig fresh = run.MakeRig();
    fresh.Randomize(run.Options().seed);
    fresh.Resume();
    const Signal noise = Noise(run, 2, kShortFrames);
    run.ExpectSame(used.Render(noise, 480), fresh.Render(noise, 480), "after Resume");
}

/// True when the effect's response to an impulse starts, or has its largest value, at `frame`.
bool RespondsAt(const std::vector<float>& response, std::size_t frame) {
    const float peak = GetPeak({response});
    const auto isAudible = [peak](float x) { return std::fabs(x) > 0.01f * peak; };
    const auto first = std::find_if(response.begin(), response.end(), isAudible);
    const auto largest = std::max_element(response.begin(), response.end(), [](float a, float b) {
        return std::fabs(a) < std::fabs(b);
    });
    const auto expected = response.begin() + static_cast<std::ptrdiff_t>(frame);
    return first == expected || largest == expected;
}

void CheckLatency(Run& run) {
    for (const float rateHz : {8000.0f, 44100.0f, 48000.0f, 96000.0f}) {
        Rig rig = run.MakeRig({rateHz, 2, 512});
        const int latency = rig.Filter().GetInitialDelay();
        run.Expect(latency >= 0, fmt::format("a latency of {} frames", latency));
        if (latency < 0) continue;
        const auto frame = static_cast<std::size_t>(latency);
        const Signal response = rig.Render(MakeImpulse(2, frame + 4096), 512);
        for (std::size_t c = 0; c < response.size(); ++c)
            run.Expect(
                RespondsAt(response[c], frame),
                fmt::format("{} Hz, channel {}: no response at the reported latency of {} frames",
                            rateHz, c, latency));
    }
}

void CheckTail(Run& run) {
    Rig rig = run.MakeRig();
    const auto latency = static_cast<std::size_t>(rig.Filter().GetInitialDelay());
    const auto tail = static_cast<std::size_t>(std::max(0, rig.Filter().GetTail()));
    rig.Render(Noise(run, 2, kShortFrames), 512);
    const Signal rest = rig.Render(MakeSilence(2, latency + tail + 4096), 512);
    const float peak = GetPeak(rest, latency + tail);
    run.Expect(peak < kInaudible,
               fmt::format("{:.1f} dB are left after the reported tail of {} frames",
                           20.0f * std::log10(peak), tail));
}

/// Settings to look from that no preset has: many conditions can hold at once only there.
constexpr int kRandomStarts = 500;

/// Whether one parameter changes the output. Start -1 is a fresh effect, then come its presets, then
/// settings drawn at random.
bool MovesOutput(const Run& run, int index, int start) {
    const auto render = [&](const float* normalized) {
        Rig rig = run.MakeRig();
        if (start >= rig.Filter().GetNumFactoryPresets())
            rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(start));
        else if (start >= 0)
            rig.Filter().SetFactoryPreset(start);
        if (normalized) rig.Filter().SetParameterAutomated(index, *normalized);
        rig.Resume();
        const auto frames = kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
        return rig.Render(Noise(run, 2, frames), 512);
    };
    const Signal still = render(nullptr);
    for (const float normalized : {0.0f, 1.0f, 0.5f, 0.2f, 0.8f})
        if (!DescribeDifference(render(&normalized), still).empty()) return true;
    return false;
}

void CheckParametersMatter(Run& run) {
    Rig rig = run.MakeRig();
    for (const int index : rig.GetSoundParameters()) {
        const auto info = rig.Filter().GetParameterInfo(index);
        bool moves = false;
        const int starts = rig.Filter().GetNumFactoryPresets() + kRandomStarts;
        for (int start = -1; start < starts && !moves; ++start)
            moves = MovesOutput(run, index, start);
        run.Expect(moves, fmt::format("parameter {} ({}) never changes the output", index,
                                      kracore::utility::ToUtf8(info->GetName())));
    }
}

void CheckParameters(Run& run) {
    Rig rig = run.MakeRig();
    AudioFilter& filter = rig.Filter();
    for (const int index : rig.GetSoundParameters()) {
        const auto info = filter.GetParameterInfo(index);
        for (const float normalized : {0.0f, 0.125f, 0.37f, 0.5f, 0.9f, 1.0f}) {
            filter.SetParameterAutomated(index, normalized);
            const bool isSwitch =
                info->GetRole() == kraaudiofilterhost::AudioFilterParameterRole::kSwitch;
            const float got = filter.GetParameter(index);
            const bool kept = isSwitch ? (got >= 0.5f) == (normalized >= 0.5f)
                                       : std::fabs(got - normalized) < 1e-6f;
            run.Expect(kept,
                       fmt::format("parameter {} set to {} answers {}", index, normalized, got));
            const float value = info->FromNormalized(normalized);
            run.Expect(
                std::fabs(info->ToNormalized(value) - normalized) < 1e-5f,
                fmt::format("parameter {}: the mapping does not invert at {}", index, normalized));
        }
        const float before = filter.GetParameter(index);
        for (const float bad :
             {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
            filter.SetParameter(index, bad);
            filter.SetParameterAutomated(index, bad);
        }
        run.Expect(filter.GetParameter(index) == before,
                   fmt::format("parameter {} took a value that is not finite", index));
        run.Expect(!info->GetName().empty() && !info->GetIdentifier().empty(),
                   fmt::format("parameter {} has no name", index));
    }
    for (const int unknown : {-1, filter.GetParameterCount(), std::numeric_limits<int>::max(),
                              std::numeric_limits<int>::min()}) {
        filter.SetParameter(unknown, 0.5f);
        filter.SetParameterAutomated(unknown, 0.5f);
        filter.BeginEditing(unknown);
        filter.EndEditing(unknown);
        run.Expect(!filter.GetParameterInfo(unknown) &&
                       filter.GetParameterString(unknown).empty() &&
                       std::isfinite(filter.GetParameter(unknown)),
                   fmt::format("index {} is answered as if it were a parameter", unknown));
    }
}

std::vector<float> ReadParameters(AudioFilter& filter) {
    std::vector<float> values;
    values.reserve(static_cast<std::size_t>(filter.GetParameterCount()));
    for (int i = 0; i < filter.GetParameterCount(); ++i) values.push_back(filter.GetParameter(i));
    return values;
}

void CheckPresets(Run& run) {
    Rig rig = run.MakeRig();
    AudioFilter& filter = rig.Filter();
    const int count = filter.GetNumFactoryPresets();
    std::set<kracore::WStr> names;
    for (int preset = 0; preset < count; ++preset) {
        const auto name = filter.GetFactoryPresetName(preset);
        run.Expect(!name.empty() && names.insert(name).second,
                   fmt::format("preset {} has no name of its own", preset));
        rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(preset));
        filter.SetFactoryPreset(preset);
        const auto once = ReadParameters(filter);
        Rig other = run.MakeRig();
        other.Filter().SetFactoryPreset(preset);
        for (const int index : rig.GetSoundParameters())
            run.Expect(once[static_cast<std::size_t>(index)] == other.Filter().GetParameter(index),
                       fmt::format("preset {} leaves parameter {} as it was", preset, index));
        run.Expect(
            std::all_of(once.begin(), once.end(), [](float n) { return n >= 0.0f && n <= 1.0f; }),
            fmt::format("preset {} sets a value outside its range", preset));
        rig.Resume();
        run.Expect(IsFinite(rig.Render(Noise(run, 2, kShortFrames), 512)),
                   fmt::format("preset {} gives output that is not finite", preset));
    }
    const auto before = ReadParameters(filter);
    for (const int unknown : {-1, count, std::numeric_limits<int>::max()}) {
        filter.SetFactoryPreset(unknown);
        run.Expect(filter.GetFactoryPresetName(unknown).empty() && ReadParameters(filter) == before,
                   fmt::format("preset {} is answered as if it existed", unknown));
    }
}

void CheckSettings(Run& run) {
    Rig rig = run.MakeRig();
    rig.Randomize(run.Options().seed);
    kracore::proplist::PropList list;
    kraaudiofilterhost::PresetData preset(list);
    rig.Filter().SaveSettings(preset);
    list.Set("FromTheFuture", kracore::WStr(u"kept"));
    auto read = kracore::proplist::FromJson(kracore::proplist::ToJson(list));
    const kraaudiofilterhost::PresetData loaded(read);

    Rig other = run.MakeRig();
    run.Expect(other.Filter().LoadSettings(loaded), "its own settings are refused");
    run.Expect(ReadParameters(other.Filter()) == ReadParameters(rig.Filter()),
               "parameters differ after saving and loading");
    const auto clone = rig.Filter().Clone();
    run.Expect(clone && ReadParameters(*clone) == ReadParameters(rig.Filter()), "a clone differs");
    rig.Resume();
    other.Resume();
    const Signal noise = Noise(run, 2, kShortFrames);
    run.ExpectSame(other.Render(noise, 512), rig.Render(noise, 512), "after saving and loading");

    kracore::proplist::PropList again;
    kraaudiofilterhost::PresetData savedAgain(again);
    other.Filter().SaveSettings(savedAgain);
    run.Expect(again.Has("FromTheFuture"), "a key of a later version is lost");

    const auto before = ReadParameters(other.Filter());
    std::list<float> tooFew;
    kraaudiofilterhost::PresetData(list).GetParams(tooFew);
    tooFew.pop_back();
    tooFew.pop_back();
    kraaudiofilterhost::PresetData(list).SetParams(tooFew);
    run.Expect(!other.Filter().LoadSettings(preset) && ReadParameters(other.Filter()) == before,
               "settings with too few parameters are taken");
}

void CheckLayouts(Run& run) {
    Rig rig = run.MakeRig();
    AudioFilter& filter = rig.Filter();
    const auto request = [&](std::size_t in, std::size_t out) {
        filter.RequestIOConfiguration({LayoutForChannelCount(in)}, {LayoutForChannelCount(out)});
        return filter.GetOutputBuses().front().GetChannelCount();
    };
    run.Expect(request(6, 6) == 6, "5.1 is refused");
    run.Expect(request(2, 1) == 6 && request(0, 0) == 6,
               "unequal or empty layouts change the buses");
    filter.RequestIOConfiguration({LayoutForChannelCount(2), LayoutForChannelCount(2)},
                                  {LayoutForChannelCount(2), LayoutForChannelCount(2)});
    run.Expect(filter.GetOutputBuses().front().GetChannelCount() == 6,
               "two output buses change the buses");
    run.Expect(request(33, 33) == 1, "33 channels do not give a mono bus");
    run.Expect(filter.GetInputBuses().front().GetLayout() == kramediatypes::MonoLayout(),
               "33 channels do not give a mono layout");
    run.Expect(request(1, 1) == 1 && request(2, 2) == 2, "mono or stereo is refused");
}

void CheckBadSamples(Run& run) {
    Rig rig = run.MakeRig();
    Signal noise = Noise(run, 2, kShortFrames);
    const std::array bad{
        std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::signaling_NaN()};
    for (std::size_t k = 0; k < bad.size(); ++k) noise[k % 2][100 + 37 * k] = bad[k];
    run.Expect(IsFinite(rig.Render(noise, 480)), "output that is not finite after bad input");
    const auto expected = bad.size() * rig.GetInputChannels() / 2;
    run.Expect(rig.Filter().GetNonFiniteSampleCount() == expected,
               fmt::format("{} bad samples were counted instead of {}",
                           rig.Filter().GetNonFiniteSampleCount(), expected));
    const auto frames = kShortFrames + static_cast<std::size_t>(rig.Filter().GetInitialDelay());
    const Signal after = rig.Render(Noise(run, 2, frames), 480);
    run.Expect(IsFinite(after) && GetPeak(after) > 1e-4f, "bad input poisons what follows");
}

/// Sound so faint that what an effect remembers of it decays through the denormals, then silence. The
/// input itself holds none: an effect may pass its input on unchanged.
void CheckDenormals(Run& run) {
    Rig rig = run.MakeRig();
    Signal faint = Noise(run, 2, kShortFrames);
    for (auto& channel : faint)
        for (float& sample : channel) {
            sample *= 1e-34f;
            if (std::fpclassify(sample) == FP_SUBNORMAL) sample = 0.0f;
        }
    Signal out = rig.Render(faint, 512);
    for (const auto& channel : rig.Render(MakeSilence(2, kShortFrames), 512))
        out.push_back(channel);
    for (const auto& channel : out)
        run.Expect(std::none_of(channel.begin(), channel.end(),
                                [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }),
                   "denormal output");
    volatile float smallest = std::numeric_limits<float>::min();
    run.Expect(smallest * 0.5f != 0.0f, "the caller's floating-point state is not restored");
}

float GetLargestStep(const Signal& signal, std::size_t firstFrame) {
    float largest = 0.0f;
    for (const auto& channel : signal)
        for (std::size_t i = firstFrame + 1; i < channel.size(); ++i)
            largest = std::max(largest, std::fabs(channel[i] - channel[i - 1]));
    return largest;
}

/// A 100 Hz sine while one parameter swings ten times a second: no larger steps than those that the
/// settings on its way make when they stand still.
/// One parameter swings ten times a second, set anew every 64 frames.
Signal RenderSwinging(const Run& run, int index, const Signal& input) {
    constexpr std::size_t kBlockFrames = 64;
    Rig rig = run.MakeRig();
    Signal all = MakeSilence(2, 0);
    for (std::size_t done = 0; done + kBlockFrames <= input[0].size(); done += kBlockFrames) {
        const double phase = 10.0 * static_cast<double>(done) / 48000.0;
        const auto swing = static_cast<float>(2.0 * std::fabs(phase - std::floor(phase + 0.5)));
        rig.Filter().SetParameterAutomated(index, swing);
        Signal block(2);
        for (std::size_t c = 0; c < 2; ++c)
            block[c].assign(input[c].begin() + static_cast<std::ptrdiff_t>(done),
                            input[c].begin() + static_cast<std::ptrdiff_t>(done + kBlockFrames));
        const Signal out = rig.Render(block, static_cast<int>(kBlockFrames));
        for (std::size_t c = 0; c < 2; ++c)
            all[c].insert(all[c].end(), out[c].begin(), out[c].end());
    }
    return all;
}

/// A 100 Hz sine while one parameter moves: no larger steps than those that the settings on its way
/// make when they stand still. Half as much again allows for two settings that add up in a crossfade.
void CheckClicks(Run& run) {
    Rig model = run.MakeRig();
    const auto settled = 4800 + static_cast<std::size_t>(model.Filter().GetInitialDelay());
    const Signal sine = MakeSine(2, settled + 19200, 100.0, 48000.0);
    for (const int index : model.GetSoundParameters()) {
        if (!model.Filter().GetParameterInfo(index)->CanBeAutomated()) continue;
        float standing = 0.0f;
        for (const float normalized : {0.0f, 0.25f, 0.5f, 0.75f, 1.0f}) {
            Rig still = run.MakeRig();
            still.Filter().SetParameterAutomated(index, normalized);
            still.Resume();
            standing = std::max(standing, GetLargestStep(still.Render(sine, 512), settled));
        }
        const float step = GetLargestStep(RenderSwinging(run, index, sine), settled);
        run.Expect(step <= 1.5f * standing + 0.01f,
                   fmt::format("moving parameter {} makes a step of {}, standing it makes {}",
                               index, step, standing));
    }
}

void RenderGuarded(Run& run, Rig& rig, std::size_t channels, int blockFrames) {
    rig.Randomize(run.Options().seed + static_cast<std::uint64_t>(blockFrames));
    rig.Render(Noise(run, channels, 8192), blockFrames);
    run.Expect(rig.GetProcessFinding().empty(),
               fmt::format("Process is not real-time safe with {} channels in blocks of {}: {}",
                           channels, blockFrames, rig.GetProcessFinding()));
}

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
    CheckRow{{"sound",              "Finite sound from noise, at 1, 2, 6 and 32 channels and 8 to 192 kHz"}, CheckSound},
    CheckRow{{"blocks",             "The same output for any block length, in place or not"}, CheckBlocks, For::kBlockwise},
    CheckRow{{"resume",             "After Resume the effect is like a fresh one with these settings"}, CheckResume, For::kBlockwise},
    CheckRow{{"latency",            "The latency is the reported one, to the frame"}, CheckLatency, For::kBlockwise},
    CheckRow{{"tail",               "Silence, below -90 dB, after the reported tail"}, CheckTail, For::kBlockwise},
    CheckRow{{"parameters-matter",  "Every parameter that shapes the sound changes the output"}, CheckParametersMatter, For::kBlockwise},
    CheckRow{{"parameters",         "Values read back as set; bad values and indices are refused"}, CheckParameters},
    CheckRow{{"presets",            "Presets have names, set every parameter and stay in range"}, CheckPresets},
    CheckRow{{"settings",           "Saved settings and clones sound the same; damaged ones are refused"}, CheckSettings},
    CheckRow{{"layouts",            "Layout proposals are answered as the contract says"}, CheckLayouts},
    CheckRow{{"bad-samples",        "Input that is not finite counts as silence and poisons nothing"}, CheckBadSamples},
    CheckRow{{"denormals",          "No denormals come out; the caller's floating-point state is kept"}, CheckDenormals},
    CheckRow{{"clicks",             "Moving a parameter makes no larger steps than its settings do"}, CheckClicks, For::kBlockwise},
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
