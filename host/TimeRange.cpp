#include "host/TimeRange.h"

#include <optional>
#include <string>

#include "host/Error.h"
#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::host {
namespace {

constexpr double kSecondsPerMinute = 60.0;
constexpr double kLongestSeconds = 1e7;  // four months; keeps frame numbers far from overflow

std::optional<double> ParseUnsigned(std::string_view text) {
    const bool beginsWithDigit = !text.empty() && text[0] >= '0' && text[0] <= '9';
    return beginsWithDigit || text.starts_with('.') ? kracore::utility::StringToNumber(text)
                                                    : std::nullopt;
}

/// "1:02:03.5": every part but the first below 60, only the last with decimals.
std::optional<double> ParseClock(std::string_view text) {
    double seconds = 0.0;
    bool isFirst = true;
    while (true) {
        const std::size_t colon = text.find(':');
        const bool isLast = colon == std::string_view::npos;
        const auto part = text.substr(0, colon);
        const auto number = ParseUnsigned(part);
        if (!number || (!isFirst && *number >= kSecondsPerMinute)) return std::nullopt;
        if (!isLast && part.find_first_not_of("0123456789") != std::string_view::npos)
            return std::nullopt;
        seconds = seconds * kSecondsPerMinute + *number;
        if (isLast) return seconds;
        text.remove_prefix(colon + 1);
        isFirst = false;
    }
}

std::optional<double> ParseSeconds(std::string_view text) {
    if (text.ends_with("ms")) {
        const auto number = ParseUnsigned(Trim(text.substr(0, text.size() - 2)));
        return number ? std::optional(*number / 1000.0) : std::nullopt;
    }
    if (text.ends_with('s')) return ParseUnsigned(Trim(text.substr(0, text.size() - 1)));
    return ParseClock(text);
}

}  // namespace

double ParseTime(std::string_view text) {
    const auto seconds = ParseSeconds(Trim(text));
    if (!seconds || *seconds > kLongestSeconds)
        throw Error(ExitCode::kUsage, "'" + std::string(text) + "' is no time",
                    "seconds (12.5, 250ms), minutes (1:30) or hours (1:02:03)");
    return *seconds;
}

TimeRange ParseTimeRange(std::string_view text) {
    const std::size_t dots = text.find("..");
    if (dots == std::string_view::npos)
        throw Error(ExitCode::kUsage, "'" + std::string(text) + "' is no range",
                    "BEGIN..END, BEGIN.. or ..END", "for example 0:30..1:00");
    TimeRange range;
    const std::string_view begin = Trim(text.substr(0, dots));
    const std::string_view end = Trim(text.substr(dots + 2));
    if (!begin.empty()) range.beginSeconds = ParseTime(begin);
    if (!end.empty()) range.endSeconds = ParseTime(end);
    if (!(range.beginSeconds < range.endSeconds))
        throw Error(ExitCode::kUsage,
                    "the range '" + std::string(text) + "' ends before it begins");
    return range;
}

}  // namespace zuc::host
