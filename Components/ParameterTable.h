#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "kraaudiofilterhost/AudioFilterParameterInfo.h"
#include "kracore/Export.h"

namespace zuc::components {

/// How a parameter's normalized value maps to its own unit.
enum class Kind { kLinear, kLogarithmic, kBool, kEnum };

using Role = kraaudiofilterhost::AudioFilterParameterRole;

/// One choice of an enumeration; keys count from the row's `lo`.
struct EnumEntry {
    std::string_view nameKey;
};

/// One parameter, as data. `lo`, `hi` and `initial` are in the parameter's own unit; a logarithmic row
/// gives the true top of its range.
struct ParameterRow {
    int index = 0;             // the enumerator this row describes
    std::string_view nameKey;  // "$$$/path=English text"
    std::string_view unit;     // "ms", "dB", "Hz", "%", a text key, or empty
    Kind kind = Kind::kLinear;
    float lo = 0.0f;
    float hi = 1.0f;
    float initial = 0.0f;
    bool automatable = true;
    Role role = Role::kControl;
    std::span<const EnumEntry> entries = {};       // of Kind::kEnum, named in ascending order
    std::string_view onKey = "$$$/Effects/On=On";  // of Kind::kBool
    std::string_view offKey = "$$$/Effects/Off=Off";
    std::size_t decimals = 1;  // least number shown
    std::size_t extra = 2;     // stored with the description
    int element = 0;           // which of several alike, from 1; 0 = the only one
};

inline constexpr std::size_t kMaxParameters = 64;

/// One factory preset: one value per parameter, in the parameter's unit and order.
struct PresetRow {
    template <class... Values>
    constexpr explicit PresetRow(std::string_view key, Values... value)
        : nameKey(key), values{static_cast<float>(value)...}, count(sizeof...(Values)) {
        static_assert(sizeof...(Values) <= kMaxParameters,
                      "more values than parameters are possible");
    }

    std::string_view nameKey;
    std::array<float, kMaxParameters> values;
    std::size_t count;
};

struct EffectTables {
    std::string_view titleKey;
    std::span<const ParameterRow> parameters;
    std::span<const PresetRow> presets;
};

constexpr bool IsTextKey(std::string_view text) {
    return text.starts_with("$$$/") && text.find('=') != std::string_view::npos &&
           text.back() != '=';
}

constexpr bool IsInRange(const ParameterRow& row, float value) {
    return value >= row.lo && value <= row.hi;
}

constexpr bool IsWellFormed(const ParameterRow& row, std::size_t position) {
    if (row.index != static_cast<int>(position) || !(row.lo < row.hi)) return false;
    if (!IsTextKey(row.nameKey) || !IsInRange(row, row.initial)) return false;
    if (row.kind == Kind::kLogarithmic && !(row.lo > 0.0f)) return false;
    if (row.kind == Kind::kBool && !(row.lo == 0.0f && row.hi == 1.0f)) return false;
    const bool isEnum = row.kind == Kind::kEnum;
    return isEnum ? static_cast<float>(row.entries.size()) == row.hi - row.lo + 1.0f
                  : row.entries.empty();
}

/// True when row i describes enumerator i, ranges are not empty, and every initial value and every
/// preset value lies in its parameter's range. Meant for a static_assert beside the tables.
constexpr bool IsWellFormed(const EffectTables& tables) {
    if (!IsTextKey(tables.titleKey) || tables.parameters.size() > kMaxParameters) return false;
    for (std::size_t i = 0; i < tables.parameters.size(); ++i)
        if (!IsWellFormed(tables.parameters[i], i)) return false;
    for (const PresetRow& preset : tables.presets) {
        if (!IsTextKey(preset.nameKey) || preset.count != tables.parameters.size()) return false;
        for (std::size_t i = 0; i < preset.count; ++i)
            if (!IsInRange(tables.parameters[i], preset.values[i])) return false;
    }
    return true;
}

/// `value` in the row's own unit as a normalized value over the row's range. [host]
ZUC_API float ToNormalized(const ParameterRow& row, float value);

/// The description of one row, with localized texts. [host]
ZUC_API kraaudiofilterhost::AudioFilterParameterInfoPtr MakeParameterInfo(const ParameterRow& row);

}  // namespace zuc::components
