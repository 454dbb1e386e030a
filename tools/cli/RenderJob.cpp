#include "RenderJob.h"

#include <array>
#include <cmath>

#include <fmt/format.h>

#include "ChainArguments.h"
#include "Console.h"
#include "OutputCheck.h"
#include "Report.h"
#include "Signals.h"
#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

constexpr int kMaximumBlockFrames = 1 << 20;
constexpr int kLowestRateHz = 1000;

/// "48000", "48 kHz" or "44.1k".
int ParseRate(const std::string& text) {
    std::string lower = host::ToLower(host::Trim(text));
    double factor = 1.0;
    for (const std::string_view suffix : {"khz", "hz", "k"})
        if (lower.ends_with(suffix)) {
            if (suffix != "hz") factor = 1000.0;
            lower.resize(lower.size() - suffix.size());
            break;
        }
    const auto number = kracore::utility::StringToNumber(lower);
    const double rate = number ? std::round(*number * factor) : 0.0;
    if (!(rate >= kLowestRateHz && rate <= host::kHighestRateHz))
        throw Error(ExitCode::kUsage, "--rate cannot be '" + text + "'",
                    fmt::format("{} … {} Hz", kLowestRateHz, host::kHighestRateHz),
                    "for example --rate 44100 or 44.1kHz");
    return static_cast<int>(rate);
}

/// "-16", "-16LUFS" or "-16 LUFS".
double ParseLoudness(const std::string& text) {
    constexpr double kLowestLufs = -60.0;
    std::string lower = host::ToLower(host::Trim(text));
    if (lower.ends_with("lufs")) lower.resize(lower.size() - 4);
    const auto number = kracore::utility::StringToNumber(std::string(host::Trim(lower)));
    if (!number || !(*number >= kLowestLufs && *number <= 0.0))
        throw Error(ExitCode::kUsage, "--loudness cannot be '" + text + "'",
                    fmt::format("{:.0f} … 0 LUFS", kLowestLufs),
                    "-14LUFS for music on streaming services, -16LUFS for podcasts, -23LUFS for "
                    "broadcast");
    return *number;
}

host::OnClip ParseOnClip(const std::string& text) {
    constexpr std::array kNames{"warn", "error", "limit", "normalize"};
    constexpr std::array kValues{host::OnClip::kWarn, host::OnClip::kError, host::OnClip::kLimit,
                                 host::OnClip::kNormalize};
    for (std::size_t i = 0; i < kNames.size(); ++i)
        if (text == kNames[i]) return kValues[i];
    const std::vector<std::string> names(kNames.begin(), kNames.end());
    throw Error(ExitCode::kUsage, "--on-clip cannot be '" + text + "'", host::Join(names),
                host::DidYouMean(text, names));
}

host::RenderReport Run(RenderJob& job) {
    Progress progress(job.progress, job.rateHz);
    if (job.progress != ProgressMode::kNone)
        job.render.progress = [&](const host::RenderProgress& p) { progress.Show(p); };
    const InterruptibleJob interruptible;
    return host::Render(*job.source, *job.chain, job.rateHz, job.render);
}

}  // namespace

int ParseInteger(const char* option, const std::string& text, int lo, int hi) {
    const auto number = kracore::utility::StringToNumber(text);
    if (!number || *number != std::floor(*number) || *number < lo || *number > hi)
        throw Error(ExitCode::kUsage, std::string(option) + " cannot be '" + text + "'",
                    "whole numbers from " + std::to_string(lo) + " to " + std::to_string(hi));
    return static_cast<int>(*number);
}

void ReadArguments(const RenderArguments& arguments, RenderJob& job, host::Faults& faults) {
    faults.Try([&] { CheckOutput(arguments.output, arguments.overwrite, arguments.keepExisting); });
    faults.Try([&] { job.render.tail = host::ParseTail(arguments.tail); });
    faults.Try([&] { job.render.onClip = ParseOnClip(arguments.onClip); });
    job.render.measuresLoudness = arguments.measure;
    if (!arguments.loudness.empty())
        faults.Try([&] {
            job.render.loudnessLufs = ParseLoudness(arguments.loudness);
            if (job.render.onClip == host::OnClip::kNormalize)
                throw Error(ExitCode::kUsage,
                            "--loudness and --on-clip normalize exclude each other", "",
                            "--loudness limits peaks above -1 dBTP itself");
        });
    if (!arguments.bits.empty())
        faults.Try([&] { job.render.output.samples = host::ParseSampleFormat(arguments.bits); });
    if (!arguments.rate.empty()) faults.Try([&] { job.rateHz = ParseRate(arguments.rate); });
    if (!arguments.block.empty())
        faults.Try([&] {
            job.blockFrames = ParseInteger("--block", arguments.block, 1, kMaximumBlockFrames);
        });
    faults.Try(
        [&] { job.progress = ParseProgressMode(arguments.talk.progress, arguments.talk.quiet); });
    job.render.output.path = arguments.output;
    job.render.output.format = arguments.format;
    job.render.output.dither = !arguments.noDither;
    job.render.interrupted = &GetInterruption();
}

int RunRenderJob(const RenderArguments& arguments, const std::function<RenderJob()>& prepare) {
    const bool reportsToStderr = arguments.output == "-";
    const TalkOptions& talk = arguments.talk;
    try {
        RenderJob job = prepare();
        const host::Chain& chain = job.chain->GetResolvedChain();
        if (!talk.quiet) WarnOfPlaceholders(chain);
        const host::RenderReport report = Run(job);
        if (!arguments.saveChainFile.empty()) host::WriteChainFile(arguments.saveChainFile, chain);
        if (!talk.quiet) SayWarnings(report);
        if (talk.json)
            PrintReportJson(report, chain, reportsToStderr);
        else if (!talk.quiet)
            SayReport(report, talk.verbose);
        return static_cast<int>(ExitCode::kDone);
    } catch (const Error& error) {
        if (talk.json) {
            const std::string json = ErrorToJson(error);
            if (reportsToStderr)
                Say(std::string_view(json).substr(0, json.size() - 1));
            else
                Print(json);
        }
        if (!talk.json || !reportsToStderr) SayError(error);
        return static_cast<int>(error.GetCode());
    }
}

}  // namespace zuc::cli
