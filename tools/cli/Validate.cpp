#include <algorithm>
#include <chrono>
#include <limits>

#include <fmt/format.h>

#include "Commands.h"
#include "Console.h"
#include "RenderJob.h"
#include "host/Conformance.h"
#include "host/EffectCatalogue.h"
#include "host/Error.h"
#include "host/Faults.h"
#include "host/JsonReader.h"
#include "host/TemporaryFile.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

using host::Json;

constexpr int kHighestLevel = 10;
constexpr int kSingleLevel =
    5;  // up to it every check runs once, then twice as often at each level

struct Job {
    std::vector<std::size_t> effects;  // places in the catalogue
    std::vector<const host::ConformanceCheck*> checks;
    int level = kSingleLevel;
    std::uint64_t seed = 1;
    host::RealTimeProbe probe;
};

/// What one check said of one effect.
struct Verdict {
    const host::ConformanceCheck* check = nullptr;
    std::string reason;                 // why it was left out
    std::vector<std::string> findings;  // with the seed that showed it
    double seconds = 0.0;

    std::string_view GetStatus() const {
        if (!findings.empty()) return "broken";
        return reason.empty() ? "kept" : "left-out";
    }
};

struct Report {
    std::string slug;
    std::vector<Verdict> verdicts;

    std::size_t Count(std::string_view status) const {
        std::size_t count = 0;
        for (const Verdict& verdict : verdicts) count += verdict.GetStatus() == status;
        return count;
    }
};

const host::ConformanceCheck& FindCheck(const std::string& name) {
    const auto checks = host::GetConformanceChecks();
    const auto found = std::find_if(checks.begin(), checks.end(),
                                    [&](const auto& check) { return check.name == name; });
    if (found != checks.end()) return *found;
    std::vector<std::string> names;
    for (const host::ConformanceCheck& check : checks) names.emplace_back(check.name);
    throw host::Error(host::ExitCode::kUsage, fmt::format("there is no check '{}'", name),
                      fmt::format("{}", fmt::join(names, ", ")), host::DidYouMean(name, names));
}

Job ReadJob(const ValidateOptions& options, const host::EffectCatalogue& catalogue) {
    Job job;
    host::Faults faults;
    for (const std::string& name : options.effects)
        faults.Try([&] {
            const host::Effect& effect = catalogue.Find(name);
            job.effects.push_back(
                static_cast<std::size_t>(&effect - catalogue.GetEffects().data()));
        });
    for (const host::ConformanceCheck& check : host::GetConformanceChecks())
        if (options.checks.empty()) job.checks.push_back(&check);
    for (const std::string& name : options.checks)
        faults.Try([&] { job.checks.push_back(&FindCheck(name)); });
    faults.Try([&] { job.level = ParseInteger("--level", options.level, 1, kHighestLevel); });
    faults.Try([&] {
        job.seed = static_cast<std::uint64_t>(
            ParseInteger("--seed", options.seed, 0, std::numeric_limits<int>::max()));
    });
    faults.ThrowIfAny();
    if (job.effects.empty())
        for (std::size_t i = 0; i < catalogue.GetEffects().size(); ++i) job.effects.push_back(i);
    job.probe = host::FindRealTimeProbe();
    return job;
}

Verdict RunCheck(const Job& job,
                 const components::CatalogueEntry& effect,
                 const host::ConformanceCheck& check) {
    Verdict verdict{&check, {}, {}, 0.0};
    host::ConformanceOptions options;
    options.probe = job.probe;
    verdict.reason = host::GetConformanceException(effect, check.name, options);
    if (verdict.reason.empty() && check.level > job.level)
        verdict.reason = fmt::format("from level {}", check.level);
    if (!verdict.reason.empty()) return verdict;
    const auto start = std::chrono::steady_clock::now();
    const int rounds = 1 << std::max(0, job.level - std::max(kSingleLevel, check.level));
    for (int round = 0; round < rounds && verdict.findings.empty(); ++round) {
        options.seed = job.seed + static_cast<std::uint64_t>(round);
        for (const host::Finding& finding : host::RunConformanceCheck(effect, check.name, options))
            verdict.findings.push_back(fmt::format("{} (seed {})", finding.detail, options.seed));
    }
    verdict.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return verdict;
}

void SayReport(const Report& report, bool verbose) {
    Print(fmt::format("{}: {} kept, {} broken, {} left out\n", report.slug, report.Count("kept"),
                      report.Count("broken"), report.Count("left-out")));
    for (const Verdict& verdict : report.verdicts) {
        for (const std::string& finding : verdict.findings)
            Print(fmt::format("  broken: {}: {}\n", verdict.check->promise, finding));
        if (verbose && verdict.findings.empty())
            Print(fmt::format("  {}: {}{}\n", verdict.GetStatus(), verdict.check->promise,
                              verdict.reason.empty() ? "" : " (" + verdict.reason + ")"));
    }
}

Json ToJson(const Report& report) {
    Json json = {{"effect", report.slug}, {"checks", Json::array()}};
    for (const Verdict& verdict : report.verdicts) {
        Json entry = {{"check", verdict.check->name},
                      {"promise", verdict.check->promise},
                      {"status", verdict.GetStatus()},
                      {"seconds", verdict.seconds}};
        if (!verdict.reason.empty()) entry["reason"] = verdict.reason;
        if (!verdict.findings.empty()) entry["findings"] = verdict.findings;
        json["checks"].push_back(std::move(entry));
    }
    return json;
}

/// The form that CI servers read: a suite for each effect, a case for each check.
std::string ToJUnit(const std::vector<Report>& reports) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=\"zuc validate\">\n";
    for (const Report& report : reports) {
        xml += fmt::format(
            "  <testsuite name=\"{}\" tests=\"{}\" failures=\"{}\" skipped=\"{}\">\n", report.slug,
            report.verdicts.size(), report.Count("broken"), report.Count("left-out"));
        for (const Verdict& verdict : report.verdicts) {
            xml += fmt::format("    <testcase classname=\"{}\" name=\"{}\" time=\"{:.3f}\">",
                               report.slug, verdict.check->name, verdict.seconds);
            if (!verdict.reason.empty())
                xml += fmt::format("<skipped message=\"{}\"/>", host::EscapeMarkup(verdict.reason));
            for (const std::string& finding : verdict.findings)
                xml += fmt::format("<failure message=\"{}\"/>", host::EscapeMarkup(finding));
            xml += "</testcase>\n";
        }
        xml += "  </testsuite>\n";
    }
    return xml + "</testsuites>\n";
}

}  // namespace

int RunValidate(const ValidateOptions& options) {
    const host::EffectCatalogue catalogue;
    const Job job = ReadJob(options, catalogue);
    std::vector<Report> reports;
    std::size_t broken = 0;
    for (const std::size_t place : job.effects) {
        Report report{catalogue.GetEffects()[place].slug, {}};
        for (const host::ConformanceCheck* check : job.checks)
            report.verdicts.push_back(RunCheck(job, components::GetCatalogue()[place], *check));
        broken += report.Count("broken");
        if (!options.json) SayReport(report, options.verbose);
        reports.push_back(std::move(report));
    }
    if (!options.junit.empty()) host::WriteFileAtomically(options.junit, ToJUnit(reports));
    if (options.json) {
        Json json = {{"schema", "zuc.validate/1"}, {"level", job.level},
                     {"seed", job.seed},           {"realTimeGuard", job.probe.IsActive()},
                     {"broken", broken},           {"effects", Json::array()}};
        for (const Report& report : reports) json["effects"].push_back(ToJson(report));
        Print(json.dump(2) + "\n");
    } else if (!job.probe.IsActive()) {
        Say("zuc: real-time safety was left out: no guard is present, see 'zuc validate --help'");
    }
    return static_cast<int>(broken > 0 ? host::ExitCode::kClippedOrFaulty : host::ExitCode::kDone);
}

}  // namespace zuc::cli
