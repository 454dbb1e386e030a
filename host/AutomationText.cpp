#include <algorithm>
#include <cmath>

#include "host/Automation.h"
#include "host/Error.h"
#include "host/Text.h"
#include "host/TimeRange.h"
#include "kracore/Numbers.h"

namespace zuc::host {
namespace {

constexpr const char* kExample = "for example echo.decay-left:0s=64%,5s=20%";
constexpr std::string_view kHoldWord = "hold";

std::vector<std::string_view> Split(std::string_view text, std::string_view separators) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find_first_of(separators, begin), text.size());
        parts.push_back(Trim(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return parts;
}

bool IsHold(std::string_view text) {
    return EqualsIgnoringCase(text, kHoldWord) || text == "1" || EqualsIgnoringCase(text, "true") ||
           EqualsIgnoringCase(text, "yes") || EqualsIgnoringCase(text, "on");
}

/// Times must rise: a curve has one value at a time.
void Append(std::vector<CurvePoint>& points, CurvePoint point, const std::string& place) {
    if (!points.empty() && point.seconds <= points.back().seconds)
        throw Error(ExitCode::kUsage,
                    place + ": the point at " + ToText(point.seconds) + " s does not follow " +
                        ToText(points.back().seconds) + " s",
                    "rising times");
    points.push_back(std::move(point));
}

CurvePoint ParsePoint(std::string_view text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals + 1 == text.size())
        throw Error(ExitCode::kUsage, "'" + std::string(text) + "' is no point of a curve",
                    "TIME=VALUE or TIME=VALUE hold", kExample);
    CurvePoint point{ParseTime(text.substr(0, equals)), {}};
    std::string_view value = Trim(text.substr(equals + 1));
    const std::size_t blank = value.find_last_of(' ');
    if (blank != std::string_view::npos && EqualsIgnoringCase(value.substr(blank + 1), kHoldWord)) {
        point.hold = true;
        value = Trim(value.substr(0, blank));
    }
    point.value = value;
    return point;
}

}  // namespace

std::vector<CurvePoint> ParseCurvePoints(std::string_view text) {
    text = Trim(text);
    if (text.starts_with('@')) {
        const std::string path(text.substr(1));
        return ParseCurveCsv(ReadTextFile(path), path);
    }
    std::vector<CurvePoint> points;
    for (const std::string_view part : Split(text, ","))
        Append(points, ParsePoint(part), "'" + std::string(text) + "'");
    return points;
}

std::vector<CurvePoint> ParseCurveCsv(std::string_view csv, std::string_view source) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (csv.starts_with(kByteOrderMark)) csv.remove_prefix(kByteOrderMark.size());
    std::vector<CurvePoint> points;
    int row = 0;
    for (const std::string_view line : Split(csv, "\n")) {
        ++row;
        if (line.empty() || line.starts_with('#')) continue;
        const std::string place = std::string(source) + ":" + std::to_string(row);
        const auto cells = Split(line, line.find('\t') != std::string_view::npos  ? "\t"
                                       : line.find(';') != std::string_view::npos ? ";"
                                                                                  : ",");
        const bool isHeading = points.empty() && !cells[0].empty() &&
                               cells[0].find_first_of("0123456789") == std::string_view::npos;
        if (isHeading) continue;
        if (cells.size() < 2 || cells.size() > 3 || cells[1].empty())
            throw Error(ExitCode::kUsage, place + ": '" + std::string(line) + "' is no row",
                        "TIME,VALUE or TIME,VALUE,hold");
        try {
            Append(
                points,
                {ParseTime(cells[0]), std::string(cells[1]), cells.size() == 3 && IsHold(cells[2])},
                place);
        } catch (const Error& error) {
            throw Error(error.GetCode(), place + ": " + error.GetMessage(), error.GetAllowed());
        }
    }
    if (points.empty())
        throw Error(ExitCode::kUsage, std::string(source) + " holds no points",
                    "rows TIME,VALUE or TIME,VALUE,hold");
    return points;
}

std::size_t FindStep(const Chain& chain, const EffectCatalogue& catalogue, std::string_view name) {
    const std::size_t mark = name.find('#');
    const std::string slug = catalogue.Find(name.substr(0, mark)).slug;
    std::vector<std::size_t> meant;
    std::vector<std::string> present;
    for (std::size_t k = 0; k < chain.size(); ++k) {
        present.push_back(chain[k].effect);
        if (chain[k].placeholder.empty() && catalogue.Find(chain[k].effect).slug == slug)
            meant.push_back(k);
    }
    if (meant.empty())
        throw Error(ExitCode::kUsage, "the chain has no " + slug, Join(present), "add -e " + slug);
    if (mark == std::string_view::npos && meant.size() == 1) return meant.front();
    const auto number = mark == std::string_view::npos
                            ? std::nullopt
                            : kracore::utility::StringToNumber(name.substr(mark + 1));
    if (!number || *number != std::floor(*number) || *number < 1.0 ||
        *number > static_cast<double>(meant.size()))
        throw Error(ExitCode::kUsage,
                    "'" + std::string(name) + "' does not say which " + slug + " of the chain",
                    slug + "#1 … " + slug + "#" + std::to_string(meant.size()));
    return meant[static_cast<std::size_t>(*number) - 1];
}

void AddAutomation(Chain& chain, const EffectCatalogue& catalogue, std::string_view text) {
    const std::size_t colon = text.find(':');
    const std::size_t dot = text.substr(0, colon).find('.');
    if (colon == std::string_view::npos || dot == std::string_view::npos || dot == 0 ||
        dot + 1 == colon)
        throw Error(ExitCode::kUsage, "'" + std::string(text) + "' is no automation",
                    "EFFECT.PARAMETER:TIME=VALUE,… or EFFECT.PARAMETER:@FILE.csv", kExample);
    ChainStep& step = chain[FindStep(chain, catalogue, Trim(text.substr(0, dot)))];
    CurveText curve{std::string(Trim(text.substr(dot + 1, colon - dot - 1))),
                    ParseCurvePoints(text.substr(colon + 1))};
    const auto same = std::find_if(
        step.automation.begin(), step.automation.end(),
        [&](const CurveText& other) { return Fold(other.parameter) == Fold(curve.parameter); });
    if (same == step.automation.end())
        step.automation.push_back(std::move(curve));
    else
        *same = std::move(curve);
}

}  // namespace zuc::host
