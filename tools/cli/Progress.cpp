#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

#include "Console.h"
#include "host/JsonReader.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

constexpr auto kInterval = std::chrono::milliseconds(100);

void WriteRaw(std::string_view text) {
    // What cannot be shown is not worth ending the job for.
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

double GetFraction(const host::RenderProgress& progress) {
    double ofPass = progress.workDone;
    if (ofPass < 0.0 && progress.framesTotal > 0)
        ofPass =
            static_cast<double>(progress.framesDone) / static_cast<double>(progress.framesTotal);
    ofPass = std::max(ofPass, 0.0);
    return std::min(1.0, (progress.pass - 1 + ofPass) / progress.passCount);
}

}  // namespace

ProgressMode ParseProgressMode(std::string_view text, bool quiet) {
    const std::vector<std::string> allowed{"auto", "always", "never", "json"};
    const auto found = std::find(allowed.begin(), allowed.end(), text);
    if (found == allowed.end())
        throw host::Error(host::ExitCode::kUsage,
                          "--progress cannot be '" + std::string(text) + "'", host::Join(allowed),
                          host::DidYouMean(text, allowed));
    if (text == "json") return ProgressMode::kJson;
    if (text == "always") return ProgressMode::kLine;
    const bool shows = text == "auto" && !quiet && IsTerminal(STDERR_FILENO);
    return shows ? ProgressMode::kLine : ProgressMode::kNone;
}

std::string FormatDuration(double seconds) {
    const auto whole = static_cast<long long>(seconds);
    if (whole >= 3600)
        return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
    if (whole >= 10) return fmt::format("{}:{:02}", whole / 60, whole % 60);
    return fmt::format("0:{:04.1f}", std::floor(seconds * 10.0) / 10.0);
}

Progress::Progress(ProgressMode mode, int rateHz) : mode_(mode), rateHz_(rateHz) {}

Progress::~Progress() {
    if (isLineOpen_) WriteRaw(IsTerminal(STDERR_FILENO) ? "\r\033[K" : "\n");
}

void Progress::Show(const host::RenderProgress& progress) {
    if (mode_ == ProgressMode::kNone) return;
    const auto now = Clock::now();
    if (progress.pass != pass_) {
        pass_ = progress.pass;
        last_ = {};
    }
    if (now - last_ < kInterval) return;
    last_ = now;
    const double elapsedSeconds = std::chrono::duration<double>(now - start_).count();
    if (mode_ == ProgressMode::kLine)
        ShowLine(progress, elapsedSeconds);
    else
        ShowJson(progress, elapsedSeconds);
}

void Progress::ShowLine(const host::RenderProgress& progress, double elapsedSeconds) {
    const double doneSeconds = static_cast<double>(progress.framesDone) / rateHz_;
    std::string line;
    if (const double fraction = GetFraction(progress); fraction > 0.0)
        line = fmt::format("{:3.0f} %  ", fraction * 100.0);
    line += FormatDuration(doneSeconds);
    if (progress.framesTotal > 0)
        line += " of " + FormatDuration(static_cast<double>(progress.framesTotal) / rateHz_);
    const double allSeconds =
        static_cast<double>(progress.framesDone +
                            (progress.pass - 1) * std::max<std::int64_t>(progress.framesTotal, 0)) /
        rateHz_;
    if (elapsedSeconds > 0.0)
        line += fmt::format("  {:.0f} x real time", allSeconds / elapsedSeconds);
    if (const double fraction = GetFraction(progress); fraction > 0.0)
        line += "  " + FormatDuration(elapsedSeconds * (1.0 - fraction) / fraction) + " left";
    if (progress.overs > 0) line += fmt::format("  {} overs", progress.overs);
    const bool isTerminal = IsTerminal(STDERR_FILENO);
    WriteRaw((isTerminal ? "\r\033[K" : "\r") + line);
    isLineOpen_ = true;
}

void Progress::ShowJson(const host::RenderProgress& progress, double elapsedSeconds) {
    host::Json json = {{"progress", GetFraction(progress)},
                       {"framesDone", progress.framesDone},
                       {"framesTotal", nullptr},
                       {"pass", progress.pass},
                       {"passes", progress.passCount},
                       {"seconds", elapsedSeconds},
                       {"overs", progress.overs}};
    if (progress.framesTotal >= 0) json["framesTotal"] = progress.framesTotal;
    WriteRaw(json.dump() + "\n");
}

}  // namespace zuc::cli
