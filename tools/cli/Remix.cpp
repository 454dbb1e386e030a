#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

#include "Commands.h"
#include "Console.h"
#include "OutputCheck.h"
#include "Progress.h"
#include "RemixTalk.h"
#include "Signals.h"
#include "host/Chain.h"
#include "host/Faults.h"
#include "host/JsonReader.h"
#include "host/RemixLabels.h"
#include "host/RemixRender.h"
#include "host/RemixReport.h"
#include "host/RemixSearch.h"
#include "host/TemporaryFile.h"
#include "host/Text.h"
#include "kracore/DebugDatabase.h"
#include "kracore/Numbers.h"

namespace zuc::cli {
namespace {

namespace fs = std::filesystem;

using host::Error;
using host::ExitCode;

double ParseNumber(const char* option, const std::string& text, double lo, double hi) {
    const auto number = kracore::utility::StringToNumber(text);
    if (!number || !(*number >= lo && *number <= hi))
        throw Error(ExitCode::kUsage, fmt::format("{} cannot be '{}'", option, text),
                    fmt::format("{} … {}", lo, hi));
    return *number;
}

std::vector<std::string> SplitAtCommas(std::string_view text) {
    std::vector<std::string> parts;
    while (true) {
        const auto comma = text.find(',');
        parts.emplace_back(host::Trim(text.substr(0, comma)));
        if (comma == std::string_view::npos) return parts;
        text.remove_prefix(comma + 1);
    }
}

double ParseEdits(const std::string& text) {
    if (text == "long") return 1.0;
    if (text == "short") return 0.0;
    return ParseNumber("--edits", text, 0, 1);
}

/// How long the remixes shall be, as typed: seconds, or shares of the song.
struct Targets {
    std::vector<double> seconds;
    std::vector<double> percents;

    std::size_t GetCount() const { return seconds.size() + percents.size(); }
    std::vector<double> Resolve(double songSeconds) const {
        std::vector<double> all = seconds;
        for (const double percent : percents) all.push_back(songSeconds * percent / 100);
        return all;
    }
};

/// Everything that the command line says, read and checked.
struct Job {
    Targets targets;
    host::RemixRequest request;
    host::SampleFormat samples = host::SampleFormat::kLikeSource;
    ProgressMode progress = ProgressMode::kNone;
    std::optional<host::RemixPlan> plan;
};

/// "2m37s" for 157: what %T stands for.
std::string TargetText(double seconds) {
    const auto tenths = std::llround(seconds * 10);
    std::string text = fmt::format("{}m{:02}", tenths / 600, tenths / 10 % 60);
    if (tenths % 10 != 0) text += fmt::format(".{}", tenths % 10);
    return text + "s";
}

std::string Expand(std::string path, double targetSeconds) {
    const std::string target = TargetText(targetSeconds);
    for (auto at = path.find("%T"); at != std::string::npos;
         at = path.find("%T", at + target.size()))
        path.replace(at, 2, target);
    return path;
}

/// The options that name something to be written.
std::array<std::pair<const char*, const std::string*>, 5> GetOutputs(const RemixOptions& o) {
    return {{{"OUT", &o.output},
             {"--plan-out", &o.planOut},
             {"--labels", &o.labels},
             {"--preview-joins", &o.previews},
             {"--report", &o.report}}};
}

void CheckFiles(const RemixOptions& o, const Job& job, host::Faults& faults) {
    const auto refuse = [&](const std::string& what, const std::string& hint = {}) {
        faults.Add(Error(ExitCode::kUsage, what, "", hint));
    };
    if (o.plan.empty() && job.targets.GetCount() == 0 && faults.IsEmpty())
        refuse("remix: --to is missing", "for example --to 2:37, --percent 60 or --plan plan.json");
    if (!o.plan.empty() && job.targets.GetCount() > 0)
        refuse("remix: --plan and a target exclude each other");
    if (o.atLeast && o.atMost) refuse("remix: --at-least and --at-most exclude each other");
    bool writes = false;
    for (const auto& [name, path] : GetOutputs(o)) {
        writes = writes || !path->empty();
        if (job.targets.GetCount() > 1 && !path->empty() && path->find("%T") == std::string::npos)
            refuse(fmt::format("remix: {} has to differ for each target", name),
                   "%T in its name is the target");
    }
    if (!writes && !o.talk.json) refuse("remix: OUT is missing", "or --plan-out, --report, --json");
    if (o.output.empty() && !(o.stems.empty() && o.remap.empty()))
        refuse("remix: --stems and --remap need OUT: their results stand beside it");
    if (o.output == "-" && !(o.stems.empty() && o.remap.empty()))
        refuse("remix: --stems and --remap cannot stand beside standard output");
}

Job ReadOptions(const RemixOptions& o) {
    Job job;
    host::Faults faults;
    const auto number = [&](const char* option, const std::string& text, double lo, double hi,
                            auto& value) {
        if (text.empty()) return;
        faults.Try([&] {
            value = static_cast<std::remove_reference_t<decltype(value)>>(
                ParseNumber(option, text, lo, hi));
        });
    };
    if (!o.to.empty())
        faults.Try([&] {
            for (const std::string& part : SplitAtCommas(o.to))
                job.targets.seconds.push_back(host::ParseTime(part));
        });
    if (!o.percent.empty())
        faults.Try([&] {
            for (std::string part : SplitAtCommas(o.percent)) {
                if (part.ends_with('%')) part.pop_back();
                job.targets.percents.push_back(ParseNumber("--percent", part, 1, 10000));
            }
        });
    host::RemixRequest& request = job.request;
    number("--slack", o.slack, 0, 30, request.slackSeconds);
    number("--min-loop", o.minLoop, 1, 128, request.minLoopBeats);
    number("--timbre", o.timbre, 0, 5, request.timbreWeight);
    number("--chroma", o.chroma, 0, 5, request.chromaWeight);
    if (!o.edits.empty()) faults.Try([&] { request.editLength = ParseEdits(o.edits); });
    if (!o.source.empty()) faults.Try([&] { request.source = host::ParseTimeRange(o.source); });
    if (!o.bits.empty()) faults.Try([&] { job.samples = host::ParseSampleFormat(o.bits); });
    faults.Try([&] { job.progress = ParseProgressMode(o.talk.progress, o.talk.quiet); });
    request.startsAtStart = !o.noStart;
    request.endsAtEnd = !o.noEnd;
    // On, unless a developer's setting or the option says otherwise.
    request.avoidsLoops =
        o.avoidLoops != 0
            ? o.avoidLoops > 0
            : kracore::debug::DebugDatabase::GetBool(u"Remix.AvoidLoops").value_or(true);
    request.isExact = o.exact;
    if (o.atLeast) request.limit = host::RemixRequest::Limit::kAtLeast;
    if (o.atMost) request.limit = host::RemixRequest::Limit::kAtMost;
    CheckFiles(o, job, faults);
    if (!o.plan.empty()) faults.Try([&] { job.plan = host::ReadPlanFile(o.plan); });
    faults.ThrowIfAny();
    return job;
}

/// Analysis first, then the remixes, shown as passes of one job.
class RemixProgress {
public:
    RemixProgress(ProgressMode mode, const host::AudioFileInfo& info, int passes)
        : progress_(mode, info.rateHz), info_(info), passes_(passes) {}
    void Show(int pass, double fraction) {
        host::RenderProgress shown;
        shown.framesTotal = info_.frames;
        shown.framesDone = static_cast<std::int64_t>(fraction * static_cast<double>(info_.frames));
        shown.pass = pass;
        shown.passCount = passes_;
        progress_.Show(shown);
    }

private:
    Progress progress_;
    const host::AudioFileInfo& info_;
    int passes_;
};

/// Where what belongs to `output` goes: "short.srt", "short-stems".
std::string Beside(const std::string& output, const std::string& ending) {
    return (fs::path(output).parent_path() / (fs::path(output).stem().string() + ending)).string();
}

void WriteTexts(const RemixOptions& o, double target, RemixResult& result) {
    const auto write = [&](const std::string& path, const std::string& text) {
        host::WriteFileAtomically(path, text);
        if (path != "-") result.files.push_back(path);
    };
    if (!o.planOut.empty()) write(Expand(o.planOut, target), host::PlanToJson(result.plan));
    if (!o.labels.empty()) write(Expand(o.labels, target), host::PlanToLabels(result.plan));
    if (!o.remap.empty()) {
        const std::string path = Beside(result.output, fs::path(o.remap).extension().string());
        std::error_code ignored;
        if (fs::equivalent(path, o.remap, ignored))
            throw Error(ExitCode::kUsage, "--remap would replace " + o.remap, "another OUT");
        write(path, host::RemapLabels(host::ReadTextFile(o.remap), o.remap, result.plan));
    }
}

void WriteAudio(const RemixOptions& o,
                const Job& job,
                host::RemixSource& source,
                const std::function<void(double)>& progress,
                RemixResult& result) {
    const double target = result.plan.targetSeconds;
    const host::AudioFileInfo& info = source.GetInfo();
    const bool needsCopy = !o.previews.empty() || !o.report.empty();
    host::SpooledAudio copy(info.rateHz, info.channels);
    if (!result.output.empty()) {
        host::RemixOutput output;
        output.path = result.output;
        output.format = o.format;
        output.samples = job.samples;
        output.copy = needsCopy ? &copy : nullptr;
        output.progress = progress;
        output.interrupted = &GetInterruption();
        result.report = host::WriteRemix(result.plan, source, output);
    } else if (needsCopy) {
        host::PlayPlan(
            result.plan, source.GetAudio(), info,
            [&](float* const* audio, int frames) { copy.Append(audio, frames); },
            &GetInterruption());
    }
    if (!o.stems.empty())
        for (auto& path : host::WriteStems(result.plan, o.stems, Beside(result.output, "-stems"),
                                           &GetInterruption()))
            result.files.push_back(std::move(path));
    if (!o.previews.empty())
        for (auto& path : host::WritePreviews(result.plan, copy, Expand(o.previews, target)))
            result.files.push_back(std::move(path));
    if (o.report.empty()) return;
    const std::string path = Expand(o.report, target);
    const auto* song = source.FindAnalysis(o.noCache ? host::SongCache("") : host::SongCache());
    host::WriteFileAtomically(path, host::MakeRemixReport(result.plan, source, copy, song));
    result.files.push_back(path);
}

std::vector<RemixResult> RunAll(const RemixOptions& o) {
    Job job = ReadOptions(o);
    const InterruptibleJob interruptible;
    host::RemixSource source(o.input, &GetInterruption());
    const int passes = 1 + static_cast<int>(std::max<std::size_t>(1, job.targets.GetCount()));
    RemixProgress progress(job.progress, source.GetInfo(), passes);
    std::vector<RemixResult> results;
    std::vector<std::string> notes;
    if (job.plan) {
        host::CheckPlan(*job.plan, source.GetInfo().rateHz, source.GetInfo().frames, o.plan);
        if (job.plan->sourceFrames > 0 && (job.plan->sourceFrames != source.GetInfo().frames ||
                                           job.plan->sourceRateHz != source.GetInfo().rateHz))
            notes.push_back(o.plan + " was made for a file of another length or rate");
        results.push_back({*job.plan, Expand(o.output, job.plan->targetSeconds), {}, {}, {}});
    } else {
        const host::SongCache cache = o.noCache ? host::SongCache("") : host::SongCache();
        const auto& song = source.Analyse(cache, [&](double fraction) {
            progress.Show(1, fraction);
            return true;
        });
        host::RemixSearch search(source, song, job.request, &GetInterruption());
        // All are found before the first is written.
        for (const double target : job.targets.Resolve(source.GetSeconds()))
            results.push_back({search.Find(target), Expand(o.output, target), {}, {}, {}});
        notes = search.GetNotes();
    }
    for (const RemixResult& result : results)
        if (!result.output.empty()) CheckOutput(result.output, o.overwrite, o.keepExisting);
    for (std::size_t i = 0; i < results.size(); ++i) {
        RemixResult& result = results[i];
        result.warnings = notes;
        const int pass = static_cast<int>(i) + 2;
        WriteAudio(
            o, job, source, [&](double fraction) { progress.Show(pass, fraction); }, result);
        WriteTexts(o, result.plan.targetSeconds, result);
        if (result.report.overs.count > 0)
            result.warnings.push_back(
                fmt::format("{} samples beyond full scale, by up to {:.2f} dB",
                            result.report.overs.count, 20 * std::log10(result.report.overs.peak)));
        for (const std::string& lost : result.report.lostMetadata)
            result.warnings.push_back("not kept: " + lost);
    }
    return results;
}

}  // namespace

int RunRemix(const RemixOptions& options) {
    const bool reportsToStderr = options.output == "-" || options.planOut == "-";
    const auto report = [&](const std::string& json) {
        if (reportsToStderr)
            Say(std::string_view(json).substr(0, json.size() - 1));
        else
            Print(json);
    };
    try {
        const std::vector<RemixResult> results = RunAll(options);
        host::Json json = host::Json::array();
        for (const RemixResult& result : results) {
            json.push_back(RemixToJson(result));
            if (options.talk.quiet) continue;
            for (const std::string& warning : result.warnings) SayWarning(warning);
            if (!options.talk.json) Say(DescribeRemix(result, options.talk.verbose));
        }
        if (options.talk.json)
            report(host::Json{{"remixes", json}}.dump(-1, ' ', false,
                                                      host::Json::error_handler_t::replace) +
                   "\n");
        return static_cast<int>(ExitCode::kDone);
    } catch (const Error& error) {
        if (options.talk.json) report(ErrorToJson(error));
        if (!options.talk.json || !reportsToStderr) SayError(error);
        return static_cast<int>(error.GetCode());
    }
}

}  // namespace zuc::cli
