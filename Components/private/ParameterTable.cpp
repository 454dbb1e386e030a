#include "Components/ParameterTable.h"

#include <cmath>
#include <string>

#include "Components/ParameterInfos.h"
#include "kracore/Localizer.h"

namespace zuc::components {
namespace {

using kracore::config::Localizer;

AudioFilterParameterInfoUnit UnitOf(const ParameterRow& row) {
    using Unit = AudioFilterParameterInfoUnit;
    if (row.unit == "dB") return Unit::kDecibel;
    if (row.unit == "ms" || row.unit == "s") return Unit::kTime;
    if (row.unit == "Hz") return Unit::kHertz;
    if (row.unit == "%") return Unit::kPercent;
    return Unit::kGeneric;
}

kraaudiofilterhost::AudioFilterParameterInfoPtr MakeUntagged(const ParameterRow& row) {
    const WStr name = Localizer::Localize(row.nameKey);
    const WStr label = Localizer::Localize(row.unit);
    switch (row.kind) {
        case Kind::kBool:
            return new BoolParameterInfo(name, label, Localizer::Localize(row.onKey),
                                         Localizer::Localize(row.offKey), row.automatable);
        case Kind::kEnum: {
            EnumParameterInfo::Entries entries;
            int key = static_cast<int>(row.lo);
            for (const EnumEntry& entry : row.entries)
                entries.emplace(key++, Localizer::Localize(entry.nameKey));
            return new EnumParameterInfo(name, label, std::move(entries), row.automatable);
        }
        case Kind::kLinear:
        case Kind::kLogarithmic:
            break;
    }
    const bool logarithmic = row.kind == Kind::kLogarithmic;
    const float hi = logarithmic ? std::log(row.hi / row.lo) : row.hi;
    return new GenericParameterInfo(name, label, UnitOf(row), row.index, row.lo, hi,
                                    row.automatable, logarithmic, row.decimals, row.extra);
}

}  // namespace

float ToNormalized(const ParameterRow& row, float value) {
    if (row.kind == Kind::kBool) return value;
    if (row.kind == Kind::kLogarithmic) return std::log(value / row.lo) / std::log(row.hi / row.lo);
    return (value - row.lo) / (row.hi - row.lo);
}

kraaudiofilterhost::AudioFilterParameterInfoPtr MakeParameterInfo(const ParameterRow& row) {
    auto info = MakeUntagged(row);
    info->SetRole(row.kind == Kind::kBool && row.role == Role::kControl ? Role::kSwitch : row.role);
    info->SetIdentifier(std::string(kracore::config::GetKeyName(row.nameKey)), row.element);
    return info;
}

}  // namespace zuc::components
