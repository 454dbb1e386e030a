#include "host/RemixPlan.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <optional>

#include <fmt/format.h>

#include "host/Chain.h"
#include "host/Faults.h"
#include "host/JsonReader.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

constexpr const char* kSchema = "zuc.remix/1";
constexpr std::int64_t kMostSeconds = 1'000'000;
constexpr std::int64_t kMostDenominator = 1'000'000'000;
// Sums of ratios up to kMostSeconds stay within 64 bits.
constexpr std::int64_t kMostCommonDenominator = 1'000'000'000'000;
constexpr std::size_t kMostDecimals = 9;
constexpr std::size_t kMostSegments = 100'000;
constexpr const char* kAllowedTimes = "seconds as \"12345/44100\", \"12.5\" or 12.5";

std::string RatioText(const Ratio& ratio) {
    return fmt::format("{}/{}", ratio.numerator(), ratio.denominator());
}

std::optional<std::int64_t> ParseWhole(std::string_view text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return {};
    return value;
}

/// "12", "12/5" or "2.4" in lowest terms.
std::optional<Ratio> ParseRatio(std::string_view text) {
    text = Trim(text);
    if (const auto slash = text.find('/'); slash != std::string_view::npos) {
        const auto numerator = ParseWhole(Trim(text.substr(0, slash)));
        const auto denominator = ParseWhole(Trim(text.substr(slash + 1)));
        if (!numerator || !denominator || *denominator <= 0) return {};
        return Ratio(*numerator, *denominator);
    }
    const auto point = text.find('.');
    if (point == std::string_view::npos) {
        const auto whole = ParseWhole(text);
        return whole ? std::optional(Ratio(*whole)) : std::nullopt;
    }
    std::string digits(text.substr(0, point));
    std::string_view decimals = text.substr(point + 1);
    if (digits.empty() || decimals.empty() || decimals[0] == '-' || decimals[0] == '+') return {};
    decimals = decimals.substr(0, kMostDecimals);
    digits += decimals;
    std::int64_t denominator = 1;
    for (std::size_t i = 0; i < decimals.size(); ++i) denominator *= 10;
    const auto numerator = ParseWhole(digits);
    return numerator ? std::optional(Ratio(*numerator, denominator)) : std::nullopt;
}

Ratio ReadTime(const JsonValue& value) {
    const Json& json = value.Get();
    std::optional<Ratio> ratio;
    if (json.is_string()) ratio = ParseRatio(json.get<std::string>());
    if (json.is_number()) ratio = ParseRatio(json.dump());
    if (!ratio) value.Refuse("is no time", kAllowedTimes);
    if (ratio->denominator() > kMostDenominator)
        value.Refuse("the denominator is too large", fmt::format("1 … {}", kMostDenominator));
    if (*ratio < Ratio(0)) value.Refuse("is negative", "0 s and more");
    if (*ratio > Ratio(kMostSeconds))
        value.Refuse("is too long", fmt::format("up to {} s", kMostSeconds));
    return *ratio;
}

components::RetargetSegment ReadSegment(const JsonValue& value) {
    value.RequireKeys({"offset", "duration", "crossfade", "cost"});
    components::RetargetSegment segment;
    segment.offset = ReadTime(value.Require("offset"));
    segment.duration = ReadTime(value.Require("duration"));
    if (value.Has("crossfade")) segment.crossfade = ReadTime(value.Require("crossfade"));
    if (segment.duration == 0) value.Refuse("the duration is 0", "more than 0 s");
    return segment;
}

void ReadSegments(const JsonValue& list, RemixPlan& plan, Faults& faults) {
    const auto elements = list.GetElements();
    if (elements.empty() || elements.size() > kMostSegments)
        list.Refuse(fmt::format("has {} ranges", elements.size()),
                    fmt::format("1 … {}", kMostSegments));
    bool hasCosts = true;
    for (std::size_t i = 0; i < elements.size(); ++i)
        faults.Try([&] {
            plan.segments.push_back(ReadSegment(elements[i]));
            if (i == 0) return;
            hasCosts = hasCosts && elements[i].Has("cost");
            if (hasCosts) plan.joinCosts.push_back(elements[i].Require("cost").GetNumber(0, 1e9));
        });
    if (!hasCosts) plan.joinCosts.clear();
    std::int64_t common = 1;
    for (const auto& segment : plan.segments)
        for (const Ratio& ratio : {segment.offset, segment.duration, segment.crossfade}) {
            common = std::lcm(common, ratio.denominator());
            if (common > kMostCommonDenominator)
                list.Refuse("the denominators do not go together",
                            "ratios over the sample rate, such as \"12345/44100\"");
        }
}

/// Says what of one range, or of the fade that leads into it, is outside the source.
class SegmentCheck {
public:
    SegmentCheck(int rateHz, std::int64_t frames) : rateHz_(rateHz), frames_(frames) {}

    std::string FindFault(const components::MusicRetargetResults& segments, std::size_t i) const {
        const std::int64_t start = ToFrames(segments[i].offset);
        const std::int64_t count = ToFrames(segments[i].duration);
        if (start + count > frames_)
            return fmt::format("ends at {} of the source, which is {} long", Time(start + count),
                               Time(frames_));
        if (i == 0) return {};
        const std::int64_t fade = ToFrames(segments[i].crossfade);
        const std::int64_t half = fade / 2;
        const std::int64_t previousEnd =
            ToFrames(segments[i - 1].offset + segments[i - 1].duration);
        if (previousEnd < half || previousEnd - half + fade > frames_)
            return fmt::format(
                "the crossfade of {} s reaches beyond the source around {}, where the range before "
                "ends",
                ToSeconds(segments[i].crossfade), Time(previousEnd));
        // What the range plays: its fade, then the rest, an odd fade's further frame included.
        const std::int64_t next =
            i + 1 < segments.size() ? ToFrames(segments[i + 1].crossfade) / 2 : 0;
        const std::int64_t first = std::max<std::int64_t>(start - half, 0);
        const std::int64_t rest = std::max<std::int64_t>(count - half - next, 0);
        if (first + fade + rest > frames_)
            return fmt::format("the crossfade of {} s reaches beyond the source's end",
                               ToSeconds(segments[i].crossfade));
        return {};
    }

private:
    std::int64_t ToFrames(const Ratio& seconds) const {
        return kracore::utility::MultiplyAndTruncate(seconds, rateHz_);
    }
    std::string Time(std::int64_t frames) const {
        return FormatTime(static_cast<double>(frames) / rateHz_);
    }
    int rateHz_;
    std::int64_t frames_;
};

}  // namespace

Ratio RemixPlan::GetDuration() const {
    Ratio sum(0);
    for (const auto& segment : segments) sum += segment.duration;
    return sum;
}

std::vector<double> RemixPlan::GetStarts() const {
    std::vector<double> starts{0.0};
    Ratio sum(0);
    for (const auto& segment : segments) {
        sum += segment.duration;
        starts.push_back(ToSeconds(sum));
    }
    return starts;
}

std::string PlanToJson(const RemixPlan& plan) {
    Json json;
    json["schema"] = kSchema;
    json["source"] = {
        {"file", plan.sourcePath}, {"rate", plan.sourceRateHz}, {"frames", plan.sourceFrames}};
    json["target"] = plan.targetSeconds;
    json["segments"] = Json::array();
    for (std::size_t i = 0; i < plan.segments.size(); ++i) {
        const auto& segment = plan.segments[i];
        Json& entry =
            json["segments"].emplace_back(Json{{"offset", RatioText(segment.offset)},
                                               {"duration", RatioText(segment.duration)},
                                               {"crossfade", RatioText(segment.crossfade)}});
        if (i > 0 && plan.joinCosts.size() == plan.GetJoinCount())
            entry["cost"] = std::round(plan.joinCosts[i - 1] * 1e6) / 1e6;
    }
    if (!(plan.fadeOut == 0)) json["fade-out"] = RatioText(plan.fadeOut);
    // File names need not be UTF-8.
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

RemixPlan PlanFromJson(std::string_view text, const std::string& name) {
    const Json json = ParseJson(text, name);
    const JsonValue root(json, name + ":");
    root.RequireKeys({"schema", "source", "target", "segments", "fade-out"});
    if (root.Require("schema").GetText() != kSchema)
        root.Require("schema").Refuse("is not a plan of a remix", kSchema);
    RemixPlan plan;
    Faults faults;
    if (root.Has("source"))
        faults.Try([&] {
            const JsonValue source = root.Require("source");
            source.RequireKeys({"file", "rate", "frames"});
            plan.sourcePath = source.Require("file").GetText();
            plan.sourceRateHz = source.Require("rate").GetInteger(1, 10'000'000);
            plan.sourceFrames =
                static_cast<std::int64_t>(source.Require("frames").GetNumber(0, 1e15));
        });
    if (root.Has("target"))
        faults.Try([&] { plan.targetSeconds = root.Require("target").GetNumber(0, 1e6); });
    faults.Try([&] { ReadSegments(root.Require("segments"), plan, faults); });
    if (root.Has("fade-out"))
        faults.Try([&] { plan.fadeOut = ReadTime(root.Require("fade-out")); });
    faults.ThrowIfAny();
    return plan;
}

RemixPlan ReadPlanFile(const std::string& path) { return PlanFromJson(ReadTextFile(path), path); }

void CheckPlan(const RemixPlan& plan, int rateHz, std::int64_t frames, const std::string& name) {
    Faults faults;
    const SegmentCheck check(rateHz, frames);
    for (std::size_t i = 0; i < plan.segments.size(); ++i)
        if (const std::string fault = check.FindFault(plan.segments, i); !fault.empty())
            faults.Add(
                Error(ExitCode::kUsage, fmt::format("{}: segments[{}]: {}", name, i, fault)));
    if (plan.fadeOut > plan.GetDuration())
        faults.Add(
            Error(ExitCode::kUsage, name + ": the fade at the end is longer than the remix"));
    faults.ThrowIfAny();
}

std::string MakeRemixTitle(const RemixPlan& plan, const std::string& songPath) {
    std::string title = std::filesystem::path(songPath).filename().string() + " as a remix of " +
                        FormatTime(ToSeconds(plan.GetDuration()));
    if (plan.sourceRateHz > 0 && plan.sourceFrames > 0)
        title += " from " + FormatTime(static_cast<double>(plan.sourceFrames) / plan.sourceRateHz);
    return title;
}

std::string FormatTime(double seconds) {
    const auto hundredths = static_cast<long long>(std::llround(seconds * 100));
    const long long whole = hundredths / 100;
    const std::string text = fmt::format("{:02}.{:02}", whole % 60, hundredths % 100);
    return whole >= 3600 ? fmt::format("{}:{:02}:{}", whole / 3600, whole / 60 % 60, text)
                         : fmt::format("{}:{}", whole / 60, text);
}

}  // namespace zuc::host
