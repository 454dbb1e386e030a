#include "host/RemixLabels.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include <fmt/format.h>

#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::host {
namespace {

constexpr double kSameSeconds = 1e-6;

/// A text and when it holds; at a point when both times are equal.
struct TimedText {
    double begin = 0.0;
    double end = 0.0;
    std::string text;      // lines without the last line end
    std::string settings;  // behind the times, of .vtt
};

struct LabelFile {
    std::string header;  // of .vtt
    std::vector<TimedText> texts;
};

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines;
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    while (!text.empty()) {
        const auto end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines.emplace_back(line);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

[[noreturn]] void Refuse(const std::string& path, std::size_t line, const std::string& what) {
    throw Error(ExitCode::kInput, fmt::format("{}: line {}: {}", path, line + 1, what));
}

/// Seconds of "1:02:03.500", "02:03,500" or "3.5".
std::optional<double> ParseClock(std::string_view text) {
    std::string clock(Trim(text));
    std::replace(clock.begin(), clock.end(), ',', '.');
    double seconds = 0;
    std::string_view rest = clock;
    for (int parts = 1;; ++parts) {
        const auto colon = rest.find(':');
        const auto value = kracore::utility::StringToNumber(rest.substr(0, colon));
        if (!value || *value < 0 || parts > 3) return {};
        seconds = 60 * seconds + *value;
        if (colon == std::string_view::npos) return seconds;
        rest.remove_prefix(colon + 1);
    }
}

LabelFile ReadLabelTrack(const std::vector<std::string>& lines, const std::string& path) {
    LabelFile file;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        // A line that begins with a backslash holds the frequencies of the label before.
        if (Trim(line).empty() || line[0] == '\\') continue;
        const auto first = line.find('\t');
        const auto second = first == std::string::npos ? first : line.find('\t', first + 1);
        if (first == std::string::npos) Refuse(path, i, "expected start, tab, end, tab, text");
        const auto begin = ParseClock(line.substr(0, first));
        const auto end = ParseClock(line.substr(first + 1, second - first - 1));
        if (!begin || !end || *end < *begin) Refuse(path, i, "these are no times");
        file.texts.push_back(
            {*begin, *end, second == std::string::npos ? "" : line.substr(second + 1), ""});
    }
    return file;
}

LabelFile ReadSubtitles(const std::vector<std::string>& lines, const std::string& path) {
    LabelFile file;
    constexpr std::string_view kArrow = "-->";
    std::size_t i = 0;
    while (i < lines.size()) {
        const auto arrow = lines[i].find(kArrow);
        if (arrow == std::string::npos) {
            if (file.texts.empty() && lines[i].starts_with("WEBVTT")) file.header = lines[i];
            ++i;
            continue;
        }
        TimedText text;
        const std::string_view after =
            Trim(std::string_view(lines[i]).substr(arrow + kArrow.size()));
        const auto blank = after.find(' ');
        const auto begin = ParseClock(lines[i].substr(0, arrow));
        const auto end = ParseClock(after.substr(0, blank));
        if (!begin || !end || *end < *begin) Refuse(path, i, "these are no times");
        text.begin = *begin;
        text.end = *end;
        if (blank != std::string_view::npos) text.settings = after.substr(blank);
        for (++i; i < lines.size() && !Trim(lines[i]).empty(); ++i)
            text.text += (text.text.empty() ? "" : "\n") + lines[i];
        file.texts.push_back(std::move(text));
    }
    return file;
}

/// Where each text is heard, in the order of the remix.
std::vector<TimedText> Remap(const std::vector<TimedText>& texts, const RemixPlan& plan) {
    const std::vector<double> starts = plan.GetStarts();
    std::vector<TimedText> moved;
    for (const TimedText& text : texts) {
        const std::size_t first = moved.size();
        for (std::size_t i = 0; i < plan.segments.size(); ++i) {
            const double offset = ToSeconds(plan.segments[i].offset);
            const double end = offset + ToSeconds(plan.segments[i].duration);
            const bool isPoint = text.begin == text.end;
            if (isPoint ? text.begin < offset || text.begin >= end
                        : text.end <= offset || text.begin >= end)
                continue;
            TimedText piece = text;
            piece.begin = starts[i] + std::max(text.begin, offset) - offset;
            piece.end = starts[i] + std::min(text.end, end) - offset;
            // Heard on without a break, over a join from the source's range to itself or the like.
            if (!isPoint && moved.size() > first &&
                std::abs(moved.back().end - piece.begin) < kSameSeconds)
                moved.back().end = piece.end;
            else
                moved.push_back(std::move(piece));
        }
    }
    std::stable_sort(moved.begin(), moved.end(),
                     [](const TimedText& a, const TimedText& b) { return a.begin < b.begin; });
    return moved;
}

std::string ClockText(double seconds, char point) {
    const auto ms = std::llround(seconds * 1000);
    return fmt::format("{:02}:{:02}:{:02}{}{:03}", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                       point, ms % 1000);
}

std::string LabelLine(double begin, double end, std::string_view text) {
    return fmt::format("{:.6f}\t{:.6f}\t{}\n", begin, end, text);
}

}  // namespace

std::string PlanToLabels(const RemixPlan& plan) {
    const std::vector<double> starts = plan.GetStarts();
    std::string text;
    for (std::size_t i = 0; i < plan.segments.size(); ++i) {
        const auto& segment = plan.segments[i];
        text += LabelLine(starts[i], starts[i + 1],
                          fmt::format("{} - {}", FormatTime(ToSeconds(segment.offset)),
                                      FormatTime(ToSeconds(segment.offset + segment.duration))));
    }
    return text;
}

std::string RemapLabels(std::string_view text, const std::string& path, const RemixPlan& plan) {
    const std::string extension = ToLower(std::filesystem::path(path).extension().string());
    const std::vector<std::string> lines = SplitLines(text);
    if (extension != ".txt" && extension != ".srt" && extension != ".vtt")
        throw Error(ExitCode::kInput, path + ": texts of this kind cannot be moved",
                    ".txt (label track), .srt, .vtt");
    const LabelFile file =
        extension == ".txt" ? ReadLabelTrack(lines, path) : ReadSubtitles(lines, path);
    std::string out =
        extension == ".vtt" ? (file.header.empty() ? "WEBVTT" : file.header) + "\n\n" : "";
    int number = 0;
    for (const TimedText& piece : Remap(file.texts, plan)) {
        if (extension == ".txt")
            out += LabelLine(piece.begin, piece.end, piece.text);
        else if (extension == ".srt")
            out += fmt::format("{}\n{} --> {}\n{}\n\n", ++number, ClockText(piece.begin, ','),
                               ClockText(piece.end, ','), piece.text);
        else
            out += fmt::format("{} --> {}{}\n{}\n\n", ClockText(piece.begin, '.'),
                               ClockText(piece.end, '.'), piece.settings, piece.text);
    }
    return out;
}

}  // namespace zuc::host
