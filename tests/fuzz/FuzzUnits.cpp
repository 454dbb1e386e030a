// Values, ranges and curves: a value in [0, 1] or an Error, and its text reads back as the same value; times rise.

#include <cmath>
#include <string>
#include <vector>

#include "Components/ParameterInfos.h"
#include "host/Automation.h"
#include "host/Text.h"
#include "host/TimeRange.h"
#include "host/Units.h"
#include "tests/fuzz/Fuzz.h"

namespace {

using namespace zuc;
using kraaudiofilterhost::AudioFilterParameterInfoUnit;

host::Parameter MakeParameter(const char16_t* label,
                              AudioFilterParameterInfoUnit unit,
                              float lo,
                              float hi) {
    host::Parameter parameter;
    parameter.slug = "parameter";
    parameter.unit = kracore::utility::ToUtf8(label);
    parameter.lo = lo;
    parameter.hi = hi;
    parameter.info = new components::GenericParameterInfo(u"Parameter", label, unit, 0, lo, hi,
                                                          true, false, 1, 2);
    return parameter;
}

void CheckCurve(const std::vector<zuc::host::CurvePoint>& points) {
    double last = -1.0;
    for (const auto& point : points) {
        zuc::fuzz::Require(point.seconds > last && std::isfinite(point.seconds));
        last = point.seconds;
    }
}

}  // namespace

void zuc::fuzz::Run(std::string_view input) {
    static const host::Parameter kParameters[] = {
        MakeParameter(u"dB", AudioFilterParameterInfoUnit::kDecibel, -96.0f, 48.0f),
        MakeParameter(u"ms", AudioFilterParameterInfoUnit::kTime, 0.0f, 2000.0f),
        MakeParameter(u"Hz", AudioFilterParameterInfoUnit::kHertz, 20.0f, 24000.0f),
        MakeParameter(u"", AudioFilterParameterInfoUnit::kFactor, 0.0f, 1.0f)};
    for (const host::Parameter& parameter : kParameters)
        Try([&] {
            const float normalized = host::ParseValue(parameter, input, "fuzz");
            Require(normalized >= 0.0f && normalized <= 1.0f);
            const std::string shown = host::FormatValue(parameter, normalized);
            Require(host::ParseValue(parameter, shown, "fuzz") == normalized);
        });
    // "@" would read any file of the machine.
    Try([&] {
        if (!host::Trim(input).starts_with('@')) CheckCurve(host::ParseCurvePoints(input));
    });
    Try([&] { CheckCurve(host::ParseCurveCsv(input, "fuzz")); });
    const host::TimeRange range = host::ParseTimeRange(input);
    Require(range.beginSeconds >= 0.0 && range.beginSeconds < range.endSeconds);
}
