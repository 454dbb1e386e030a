#include "Components/ParameterInfos.h"

#include <array>
#include <cmath>
#include <utility>

#include "ZuCore/NoteNames.h"
#include "kracore/Localizer.h"
#include "kracore/Numbers.h"

namespace zuc::components {

using kracore::config::Localizer;
using kracore::utility::NumberToString;

// ---- Generic ----

GenericParameterInfo::GenericParameterInfo(const WStr& name,
                                           const WStr& label,
                                           AudioFilterParameterInfoUnit unit,
                                           int tag,
                                           float lo,
                                           float hi,
                                           bool automatable,
                                           bool logarithmic,
                                           std::size_t decimals,
                                           std::size_t extra)
    : AudioFilterParameterInfo(name, label, unit),
      tag_(tag),
      lo_(lo),
      hi_(hi),
      automatable_(automatable),
      logarithmic_(logarithmic),
      decimals_(decimals),
      extra_(extra) {
    if (!automatable) SetExposed(false);
}

GenericParameterInfo::~GenericParameterInfo() = default;

float GenericParameterInfo::ToNormalized(float value) const {
    return logarithmic_ ? std::log(value / lo_) / hi_ : (value - lo_) / (hi_ - lo_);
}

float GenericParameterInfo::FromNormalized(float normalized) const {
    return logarithmic_ ? std::exp(normalized * hi_) * lo_ : (hi_ - lo_) * normalized + lo_;
}

WStr GenericParameterInfo::GetParameterString(float normalized) const {
    const float value = FromNormalized(normalized);
    const float magnitude = std::fabs(value);
    std::size_t maximumDecimals = 4;
    if (magnitude > 100.0f)
        maximumDecimals = 0;
    else if (magnitude > 10.0f)
        maximumDecimals = 1;
    else if (magnitude > 1.0f)
        maximumDecimals = 2;
    else if (magnitude > 0.1f)
        maximumDecimals = 3;
    return NumberToString(value, decimals_, maximumDecimals, {}, 31);
}

// ---- Bool ----

BoolParameterInfo::BoolParameterInfo(const WStr& name,
                                     const WStr& label,
                                     const WStr& trueText,
                                     const WStr& falseText,
                                     bool automatable)
    : AudioFilterParameterInfo(name, label, AudioFilterParameterInfoUnit::kBoolean),
      automatable_(automatable),
      trueText_(trueText),
      falseText_(falseText) {
    SetRole(kraaudiofilterhost::AudioFilterParameterRole::kSwitch);
}

BoolParameterInfo::~BoolParameterInfo() = default;

WStr BoolParameterInfo::GetParameterString(float normalized) const {
    return normalized > 0.5f ? trueText_ : falseText_;
}

// ---- Enum ----

EnumParameterInfo::EnumParameterInfo(const WStr& name,
                                     const WStr& label,
                                     Entries entries,
                                     bool automatable)
    : AudioFilterParameterInfo(name, label, AudioFilterParameterInfoUnit::kGeneric),
      automatable_(automatable),
      entries_(std::move(entries)) {}

EnumParameterInfo::~EnumParameterInfo() = default;

float EnumParameterInfo::ToNormalized(float value) const {
    if (!HasSpan()) return value;
    const auto lo = static_cast<float>(entries_.begin()->first);
    const auto hi = static_cast<float>(entries_.rbegin()->first);
    return (value - lo) / (hi - lo);
}

float EnumParameterInfo::FromNormalized(float normalized) const {
    if (!HasSpan()) return normalized;
    const auto lo = static_cast<float>(entries_.begin()->first);
    const auto hi = static_cast<float>(entries_.rbegin()->first);
    return (hi - lo) * normalized + lo;
}

WStr EnumParameterInfo::GetParameterString(float value) const {
    // Outside this range no key can stand, and the conversion to int would not be defined.
    if (!(std::fabs(value) < 1e9f)) return {};
    const auto found = entries_.find(static_cast<int>(value + 0.5f));
    return found == entries_.end() ? WStr() : found->second;
}

int EnumParameterInfo::GetStepCount() const { return static_cast<int>(entries_.size()); }

// ---- Key and scale ----

KeyParameterInfo::~KeyParameterInfo() = default;

WStr KeyParameterInfo::GetParameterString(float normalized) const {
    constexpr std::array kNotes{2, 1, 0, 11, 10, 9, 8, 7, 6, 5, 4, 3};
    constexpr float kLast = static_cast<float>(kNotes.size() - 1);
    const float step = std::fmin(std::fmax(normalized * kLast + 0.5f, 0.0f), kLast);
    WStr text;
    zucore::utility::GetNoteString(text, kNotes[static_cast<std::size_t>(step)], -1, false);
    return text;
}

ScaleParameterInfo::~ScaleParameterInfo() = default;

WStr ScaleParameterInfo::GetParameterString(float normalized) const {
    const float choice = std::trunc(normalized * 3.0f);
    if (choice == 0.0f)
        return Localizer::Localize("$$$/Effects/PitchCorrect/ScaleParamMajor=Major");
    if (choice == 1.0f)
        return Localizer::Localize("$$$/Effects/PitchCorrect/ScaleParamMinor=Minor");
    return Localizer::Localize("$$$/Effects/PitchCorrect/ScaleParamChromatic=Chromatic");
}

}  // namespace zuc::components
