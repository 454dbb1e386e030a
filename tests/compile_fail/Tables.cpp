// The tables of an effect, well formed. compile_fail.py breaks one rule at a time and expects the
// compiler to refuse the result.
#include <array>

#include "Components/ParameterTable.h"

using namespace zuc::components;

// clang-format off
constexpr std::array kModes{EnumEntry{"$$$/Effects/Probe/Soft=Soft"}, EnumEntry{"$$$/Effects/Probe/Hard=Hard"}};

constexpr std::array<ParameterRow, 4> kParameters{{
    {0, "$$$/Effects/Probe/Width=Width", "%",  Kind::kLinear,      -10, 300, 100},
    {1, "$$$/Effects/Probe/Rate=Rate",   "Hz", Kind::kLogarithmic, 20, 2000, 440},
    {2, "$$$/Effects/Probe/Mono=Mono",   "",   Kind::kBool,        0, 1, 0},
    {3, "$$$/Effects/Probe/Mode=Mode",   "",   Kind::kEnum,        4, 5, 4, true, Role::kControl, kModes},
}};
constexpr std::array kPresets{
    PresetRow("$$$/Effects/Probe/Default=(Default)", 100, 440, 0, 4),
    PresetRow("$$$/Effects/Probe/Wide=Wide", 100, 2000, 1, 5),
};
// clang-format on
constexpr EffectTables kTables{"$$$/Effects/Probe/Title=Probe", kParameters, kPresets};
static_assert(IsWellFormed(kTables), "tables are not well formed");
