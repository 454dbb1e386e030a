#pragma once

#include <array>

#include "Components/ParameterTable.h"
#include "kracore/Localizer.h"
#include "kracore/Numbers.h"

namespace zuc::components {

/// The unit in which delay times are shown; it changes no sample.
enum class DelayTimeUnit { kMilliseconds, kSamples, kSeconds };

inline constexpr std::array<EnumEntry, 3> kDelayTimeUnits{{
    {"$$$/Effects/DelayTimeUnits/Milliseconds=Milliseconds"},
    {"$$$/Effects/DelayTimeUnits/Samples=Samples"},
    {"$$$/Effects/DelayTimeUnits/Seconds=Seconds"},
}};

inline kracore::WStr GetDelayTimeUnitName(int unit) {
    return kracore::config::Localizer::Localize(
        kDelayTimeUnits[static_cast<std::size_t>(unit)].nameKey);
}

/// `ms` in that unit, without its name; `frames` is the same time in samples.
inline kracore::WStr FormatDelayTime(double ms, int frames, int unit) {
    switch (static_cast<DelayTimeUnit>(unit)) {
        case DelayTimeUnit::kSamples:
            return kracore::utility::NumberToString(frames, 0, 0, {}, 31);
        case DelayTimeUnit::kSeconds:
            return kracore::utility::NumberToString(ms / 1000.0, 1, 4, {}, 31);
        case DelayTimeUnit::kMilliseconds:
            break;
    }
    return kracore::utility::NumberToString(ms, 1, 2, {}, 31);
}

}  // namespace zuc::components
