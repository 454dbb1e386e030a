#include "host/Units.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>

#include "host/Error.h"
#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::host {
namespace {

using kraaudiofilterhost::AudioFilterParameterInfoUnit;

/// A unit by what it measures and how many of the base unit it is.
struct Unit {
    std::string_view name;
    enum class Dimension { kTime, kFrequency, kLevel, kRatio } dimension;
    double factor;
};
constexpr std::array kUnits{
    Unit{"s", Unit::Dimension::kTime, 1.0},       Unit{"ms", Unit::Dimension::kTime, 1e-3},
    Unit{"Hz", Unit::Dimension::kFrequency, 1.0}, Unit{"kHz", Unit::Dimension::kFrequency, 1e3},
    Unit{"dB", Unit::Dimension::kLevel, 1.0},     Unit{"%", Unit::Dimension::kRatio, 1e-2},
};
constexpr Unit kPlainFactor{"", Unit::Dimension::kRatio, 1.0};

/// Range bounds come through float exponentials; a number this much beside them is meant as the bound.
constexpr double kBoundTolerance = 1e-6;
constexpr int kMaximumDecimals = 9;

const Unit* FindUnit(std::string_view name) {
    const auto found = std::find_if(kUnits.begin(), kUnits.end(), [&](const Unit& unit) {
        return EqualsIgnoringCase(unit.name, name);
    });
    return found == kUnits.end() ? nullptr : &*found;
}

/// The unit of the parameter's own values; null when it only has a label or none.
const Unit* OwnUnit(const Parameter& parameter) {
    // "dB RMS" and the like measure what their first word says.
    const std::string_view label = parameter.unit;
    if (const Unit* unit = FindUnit(label.substr(0, label.find(' ')))) return unit;
    const bool isFactor = parameter.info->GetUnit() == AudioFilterParameterInfoUnit::kFactor;
    return isFactor && label.empty() ? &kPlainFactor : nullptr;
}

/// How many of the parameter's own units one `suffix` is; nothing when it does not fit.
std::optional<double> GetSuffixFactor(const Parameter& parameter, std::string_view suffix) {
    if (suffix.empty() || EqualsIgnoringCase(suffix, parameter.unit)) return 1.0;
    const Unit* own = OwnUnit(parameter);
    const Unit* given = FindUnit(suffix);
    if (!own || !given || own->dimension != given->dimension) return std::nullopt;
    return given->factor / own->factor;
}

/// How much of the front of `text` is a number ("-12.5e3", "-inf").
std::size_t CountNumberCharacters(std::string_view text) {
    const auto isDigitAt = [&](std::size_t i) {
        return i < text.size() && text[i] >= '0' && text[i] <= '9';
    };
    const auto isSignAt = [&](std::size_t i) {
        return i < text.size() && (text[i] == '+' || text[i] == '-');
    };
    std::size_t i = isSignAt(0) ? 1 : 0;
    if (EqualsIgnoringCase(text.substr(i, 3), "inf")) return i + 3;
    while (isDigitAt(i) || (i < text.size() && text[i] == '.')) ++i;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        std::size_t exponent = isSignAt(i + 1) ? i + 2 : i + 1;
        if (isDigitAt(exponent)) {
            while (isDigitAt(exponent)) ++exponent;
            i = exponent;
        }
    }
    return i;
}

std::optional<double> ParseNumber(std::string_view text) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (EqualsIgnoringCase(text, "-inf")) return -kInfinity;
    if (EqualsIgnoringCase(text, "inf") || EqualsIgnoringCase(text, "+inf")) return kInfinity;
    return kracore::utility::StringToNumber(text);
}

std::optional<float> ParseWord(const Parameter& parameter, std::string_view text) {
    const std::string word = Fold(text);
    for (const ParameterEntry& entry : parameter.entries)
        if (word == Fold(entry.slug) || EqualsIgnoringCase(text, entry.name))
            return entry.normalized;
    const bool isSwitch = parameter.entries.size() == 2 && parameter.entries[0].slug == "off";
    if (isSwitch && (word == "true" || word == "yes")) return 1.0f;
    if (isSwitch && (word == "false" || word == "no")) return 0.0f;
    return std::nullopt;
}

[[noreturn]] void Refuse(const Parameter& parameter,
                         std::string_view text,
                         std::string_view effect,
                         std::string_view why) {
    std::vector<std::string> words;
    for (const ParameterEntry& entry : parameter.entries) words.push_back(entry.slug);
    throw Error(ExitCode::kUsage,
                std::string(effect) + ": " + parameter.slug + " cannot be '" + std::string(text) +
                    "'" + std::string(why),
                FormatRange(parameter), DidYouMean(text, words));
}

float ParseOwnNumber(const Parameter& parameter, std::string_view text, std::string_view effect) {
    const std::size_t length = CountNumberCharacters(text);
    const auto number = ParseNumber(text.substr(0, length));
    if (length == 0 || !number) Refuse(parameter, text, effect, ": that is no number");
    const auto factor = GetSuffixFactor(parameter, Trim(text.substr(length)));
    if (!factor) Refuse(parameter, text, effect, ": the unit does not fit");
    const double value = *number * *factor;
    const double lo = std::min(parameter.lo, parameter.hi);
    const double hi = std::max(parameter.lo, parameter.hi);
    const double slack =
        kBoundTolerance * std::max(std::isfinite(lo) ? std::abs(lo) : 0.0, std::abs(hi));
    if (!(value >= lo - slack && value <= hi + slack))
        Refuse(parameter, text, effect, ": out of range");
    const float normalized =
        parameter.info->ToNormalized(static_cast<float>(std::clamp(value, lo, hi)));
    if (!std::isfinite(normalized))
        Refuse(parameter, text, effect, ": the range has no such point");
    return std::clamp(normalized, 0.0f, 1.0f);
}

std::string FixedText(double value, int decimals) {
    std::array<char, 400> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::fixed, decimals)
                         .ptr;
    std::string fixed(text.data(), end);
    return fixed.find_first_not_of("-0.") == std::string::npos && fixed[0] == '-' ? fixed.substr(1)
                                                                                  : fixed;
}

std::string WithUnit(std::string number, const Parameter& parameter) {
    if (parameter.unit.empty()) return number;
    return number + (parameter.unit == "%" ? "" : " ") + parameter.unit;
}

/// A bound in few digits; the exact value of an exponential range is of no interest.
std::string FormatBound(float bound) {
    if (std::isinf(bound)) return bound < 0 ? "-inf" : "inf";
    std::string text = FixedText(bound, std::abs(bound) >= 100.0f ? 1 : 3);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text;
}

}  // namespace

float ParseValue(const Parameter& parameter, std::string_view text, std::string_view effect) {
    text = Trim(text);
    if (text.starts_with("n:")) {
        const auto number = kracore::utility::StringToNumber(text.substr(2));
        if (!number || *number < 0.0 || *number > 1.0)
            Refuse(parameter, text, effect, ": normalized values are n:0 … n:1");
        return static_cast<float>(*number);
    }
    if (const auto normalized = ParseWord(parameter, text)) return *normalized;
    return ParseOwnNumber(parameter, text, effect);
}

std::string FormatValue(const Parameter& parameter, float normalized) {
    for (const ParameterEntry& entry : parameter.entries)
        if (entry.normalized == normalized) return entry.slug;
    const double value = parameter.info->FromNormalized(normalized);
    if (std::isinf(value)) return WithUnit(FormatBound(static_cast<float>(value)), parameter);
    for (int decimals = 0; std::isfinite(value) && decimals <= kMaximumDecimals; ++decimals) {
        const std::string text = FixedText(value, decimals);
        const double rounded = *kracore::utility::StringToNumber(text);
        const float back = parameter.info->ToNormalized(static_cast<float>(rounded));
        if (std::clamp(back, 0.0f, 1.0f) == normalized) return WithUnit(text, parameter);
    }
    return "n:" + ToText(normalized);
}

std::string FormatRange(const Parameter& parameter) {
    if (!parameter.entries.empty()) {
        std::vector<std::string> words;
        for (const ParameterEntry& entry : parameter.entries) words.push_back(entry.slug);
        return Join(words);
    }
    return FormatBound(parameter.lo) + " … " + WithUnit(FormatBound(parameter.hi), parameter);
}

}  // namespace zuc::host
