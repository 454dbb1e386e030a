#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include "ChainArguments.h"
#include "Commands.h"
#include "Console.h"
#include "Progress.h"
#include "Report.h"
#include "Signals.h"
#include "host/Faults.h"
#include "host/Render.h"
#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

constexpr int kDefaultBlockFrames = 2048;
constexpr int kMaximumBlockFrames = 1 << 20;
constexpr int kLowestRateHz = 1000;
constexpr int kHighestRateHz = 768000;
// The format that a chain is checked for when the input cannot be read anyway.
constexpr int kAssumedRateHz = 48000;
constexpr int kAssumedChannels = 2;

int ParseInteger(const char* option, const std::string& text, int lo, int hi) {
    const auto number = kracore::utility::StringToNumber(text);
    if (!number || *number != std::floor(*number) || *number < lo || *number > hi)
        throw Error(ExitCode::kUsage, std::string(option) + " cannot be '" + text + "'",
                    "whole numbers from " + std::to_string(lo) + " to " + std::to_string(hi));
    return static_cast<int>(*number);
}

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
    if (!(rate >= kLowestRateHz && rate <= kHighestRateHz))
        throw Error(ExitCode::kUsage, "--rate cannot be '" + text + "'",
                    fmt::format("{} … {} Hz", kLowestRateHz, kHighestRateHz),
                    "for example --rate 44100 or 44.1kHz");
    return static_cast<int>(rate);
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

/// Whether there is something at `path` that writing would replace.
bool WouldReplace(const std::string& path) {
    struct stat status {};
    return path != "-" && ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void CheckOutput(const ProcessOptions& options) {
    if (options.overwrite && options.keepExisting)
        throw Error(ExitCode::kUsage, "-y and -n exclude each other");
    if (options.overwrite || !WouldReplace(options.output)) return;
    throw Error(ExitCode::kOutput, options.output + " exists already", "",
                options.keepExisting ? "" : "-y replaces it");
}

/// Everything that the command line says about the job, read and checked.
struct Job {
    host::RenderOptions render;
    int rateHz = 0;
    int blockFrames = kDefaultBlockFrames;
    ProgressMode progress = ProgressMode::kNone;
    std::unique_ptr<host::AudioReader> reader;
    std::unique_ptr<host::AudioReader> sideChain;
    std::optional<host::ChainProcessor> chain;
};

void ReadOptions(const ProcessOptions& options, Job& job, host::Faults& faults) {
    faults.Try([&] { CheckOutput(options); });
    if (!options.range.empty())
        faults.Try([&] { job.render.range = host::ParseTimeRange(options.range); });
    faults.Try([&] { job.render.tail = host::ParseTail(options.tail); });
    faults.Try([&] { job.render.onClip = ParseOnClip(options.onClip); });
    if (!options.bits.empty())
        faults.Try([&] { job.render.output.samples = host::ParseSampleFormat(options.bits); });
    if (!options.rate.empty()) faults.Try([&] { job.rateHz = ParseRate(options.rate); });
    if (!options.block.empty())
        faults.Try([&] {
            job.blockFrames = ParseInteger("--block", options.block, 1, kMaximumBlockFrames);
        });
    faults.Try(
        [&] { job.progress = ParseProgressMode(options.talk.progress, options.talk.quiet); });
    job.render.output.path = options.output;
    job.render.output.format = options.format;
    job.render.output.dither = !options.noDither;
    job.render.interrupted = &GetInterruption();
}

Job Prepare(const ProcessOptions& options) {
    Job job;
    host::Faults faults;
    ReadOptions(options, job, faults);
    const host::Chain chain = MakeChain(options.chain, faults);
    faults.Try([&] { job.reader = host::AudioReader::Open(options.input); });
    if (!options.sideChain.empty())
        faults.Try([&] { job.sideChain = host::AudioReader::Open(options.sideChain); });
    job.render.sideChain = job.sideChain.get();
    const int fileRateHz = job.reader ? job.reader->GetInfo().rateHz : kAssumedRateHz;
    if (job.rateHz == 0) job.rateHz = fileRateHz;
    faults.Try([&] {
        job.chain.emplace(
            chain, host::EffectCatalogue(), host::UserPresets(), static_cast<float>(job.rateHz),
            static_cast<std::size_t>(job.reader ? job.reader->GetInfo().channels
                                                : kAssumedChannels),
            job.blockFrames,
            static_cast<std::size_t>(job.sideChain ? job.sideChain->GetInfo().channels : 0));
    });
    faults.ThrowIfAny();
    return job;
}

}  // namespace

int RunProcess(const ProcessOptions& options) {
    const bool reportsToStderr = options.output == "-";
    try {
        Job job = Prepare(options);
        host::RenderReport report;
        {
            Progress progress(job.progress, job.rateHz);
            if (job.progress != ProgressMode::kNone)
                job.render.progress = [&](const host::RenderProgress& p) { progress.Show(p); };
            const InterruptibleJob interruptible;
            report = host::Render(*job.reader, *job.chain, job.rateHz, job.render);
        }
        if (!options.saveChainFile.empty())
            host::WriteChainFile(options.saveChainFile, job.chain->GetResolvedChain());
        if (!options.talk.quiet) SayWarnings(report);
        if (options.talk.json)
            PrintReportJson(report, job.chain->GetResolvedChain(), reportsToStderr);
        else if (!options.talk.quiet)
            SayReport(report, options.talk.verbose);
        return static_cast<int>(ExitCode::kDone);
    } catch (const Error& error) {
        if (options.talk.json) {
            const std::string json = ErrorToJson(error);
            if (reportsToStderr)
                Say(std::string_view(json).substr(0, json.size() - 1));
            else
                Print(json);
        }
        if (!options.talk.json || !reportsToStderr) SayError(error);
        return static_cast<int>(error.GetCode());
    }
}

}  // namespace zuc::cli
