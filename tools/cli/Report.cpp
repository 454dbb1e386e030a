#include "Report.h"

#include <cmath>

#include <fmt/format.h>

#include "Console.h"
#include "Progress.h"
#include "host/JsonReader.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

using host::Json;

constexpr double kTolerableLu = 0.5;

std::string DescribeFile(const host::AudioFileInfo& info) {
    return fmt::format("{} ({}, {}, {} Hz, {} channel{})",
                       info.path == "-" ? "standard stream" : info.path, info.format, info.encoding,
                       info.rateHz, info.channels, info.channels == 1 ? "" : "s");
}

Json FileToJson(const host::AudioFileInfo& info, std::int64_t frames) {
    return {{"path", info.path},         {"format", info.format}, {"encoding", info.encoding},
            {"bits", info.bits},         {"float", info.isFloat}, {"rate", info.rateHz},
            {"channels", info.channels}, {"frames", frames}};
}

std::string DescribeLoudness(const host::MeasuredLoudness& loudness) {
    const std::string text = std::isfinite(loudness.integratedLufs)
                                 ? fmt::format("{:.1f} LUFS", loudness.integratedLufs)
                                 : "no loudness";
    if (!(loudness.truePeak > 0.0f)) return text;
    return text + fmt::format(", true peak {:.1f} dBTP", 20.0f * std::log10(loudness.truePeak));
}

/// Decibels of a linear peak; silence is null.
Json PeakToJson(float peak) {
    return peak > 0.0f ? Json(20.0 * std::log10(static_cast<double>(peak))) : Json(nullptr);
}

}  // namespace

void SayWarnings(const host::RenderReport& report) {
    const host::Overs& overs = report.overs;
    if (overs.count > 0)
        SayWarning(
            fmt::format("{} samples exceed full scale{}, the first at {} in channel {}; "
                        "lower the level by {:.1f} dB, or use --on-clip limit or normalize",
                        overs.count, report.output.isFloat ? "" : " and were cut off",
                        FormatDuration(overs.firstSeconds), overs.firstChannel + 1,
                        std::ceil(-overs.GetGainToAvoidDb() * 10.0f) / 10.0f));
    if (report.nonFiniteSamplesIn > 0)
        SayWarning(fmt::format("{}: {} samples are no finite numbers", report.input.path,
                               report.nonFiniteSamplesIn));
    if (report.isInputTruncated)
        SayWarning(report.input.path +
                   ": ends before its header says; what there is was processed");
    if (report.loudness && report.loudnessTargetLufs) {
        const double missing = *report.loudnessTargetLufs - report.loudness->integratedLufs;
        if (!std::isfinite(missing))
            SayWarning("the output is silent or shorter than 400 ms; its level was not changed");
        else if (missing > kTolerableLu)
            SayWarning(
                fmt::format("the loudness stays {:.1f} LU below the one asked for, because peaks "
                            "leave no room; compress first, or ask for less",
                            missing));
    }
    if (report.isTailCut)
        SayWarning(
            fmt::format("the effects' tail is longer than {:.0f} s and was cut; --tail sets it",
                        host::kMaximumAutoTailSeconds));
    if (!report.lostMetadata.empty())
        SayWarning(report.output.format + " cannot hold all that the input says: " +
                   host::Join(report.lostMetadata) + " lost");
}

void SayReport(const host::RenderReport& report, bool verbose) {
    const double seconds = static_cast<double>(report.framesOut) / report.output.rateHz;
    std::string line =
        fmt::format("{}: {} of audio in {:.2f} s ({:.0f} x real time)", DescribeFile(report.output),
                    FormatDuration(seconds), report.seconds, report.GetSpeed());
    if (report.normalizeGainDb != 0.0f)
        line += fmt::format(", gain {:.2f} dB", report.normalizeGainDb);
    if (report.limiterLowestGainDb < 0.0f)
        line += fmt::format(", limited by up to {:.2f} dB", -report.limiterLowestGainDb);
    if (report.loudness) line += "; " + DescribeLoudness(*report.loudness);
    Say(line);
    for (const std::string& text : report.completionTexts) Say(text);
    if (!verbose) return;
    std::vector<std::vector<std::string>> rows;
    if (!report.input.path.empty())
        rows.push_back(
            {"input", DescribeFile(report.input) + fmt::format(", {} frames", report.framesIn)});
    rows.push_back({"output", fmt::format("{} frames", report.framesOut)});
    rows.push_back({"latency", fmt::format("{} frames, removed", report.latencyFrames)});
    rows.push_back({"tail", fmt::format("{} frames", report.tailFrames)});
    rows.push_back({"peak", report.overs.peak > 0.0f
                                ? fmt::format("{:.2f} dBFS", 20.0f * std::log10(report.overs.peak))
                                : "silence"});
    Say(FormatColumns(rows, "  "));
}

void PrintReportJson(const host::RenderReport& report, const host::Chain& chain, bool toStderr) {
    const Json json = {
        {"schema", "zuc.report/1"},
        {"exitCode", 0},
        {"input",
         report.input.path.empty() ? Json(nullptr) : FileToJson(report.input, report.framesIn)},
        {"output", FileToJson(report.output, report.framesOut)},
        {"chain", Json::parse(host::FormatChainJson(chain))["effects"]},
        {"latencyFrames", report.latencyFrames},
        {"tailFrames", report.tailFrames},
        {"tailCut", report.isTailCut},
        {"overs",
         {{"count", report.overs.count},
          {"firstSeconds",
           report.overs.count > 0 ? Json(report.overs.firstSeconds) : Json(nullptr)},
          {"firstChannel",
           report.overs.count > 0 ? Json(report.overs.firstChannel + 1) : Json(nullptr)},
          {"gainToAvoidDb", report.overs.GetGainToAvoidDb()}}},
        {"peakDb", PeakToJson(report.overs.peak)},
        {"normalizeGainDb", report.normalizeGainDb},
        {"loudnessLufs", report.loudness && std::isfinite(report.loudness->integratedLufs)
                             ? Json(report.loudness->integratedLufs)
                             : Json(nullptr)},
        {"truePeakDb", report.loudness ? PeakToJson(report.loudness->truePeak) : Json(nullptr)},
        {"limiterLowestGainDb", report.limiterLowestGainDb},
        {"nonFiniteSamplesIn", report.nonFiniteSamplesIn},
        {"lostMetadata", report.lostMetadata},
        {"messages", report.completionTexts},
        {"inputTruncated", report.isInputTruncated},
        {"seconds", report.seconds},
        {"speed", report.GetSpeed()}};
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace);
    if (toStderr)
        Say(text);
    else
        Print(text + "\n");
}

}  // namespace zuc::cli
