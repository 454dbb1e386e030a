#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Components/ParameterInfos.h"
#include "host/Error.h"
#include "host/TimeRange.h"
#include "host/Units.h"

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

}  // namespace

/// Values and ranges: a value in [0, 1] or an Error, and its text reads back as the same value.
extern "C" int LLVMFuzzerTestOneInput(  // NOLINT(readability-identifier-naming): libFuzzer's name
    const std::uint8_t* data,
    std::size_t size) {
    static const host::Parameter kParameters[] = {
        MakeParameter(u"dB", AudioFilterParameterInfoUnit::kDecibel, -96.0f, 48.0f),
        MakeParameter(u"ms", AudioFilterParameterInfoUnit::kTime, 0.0f, 2000.0f),
        MakeParameter(u"Hz", AudioFilterParameterInfoUnit::kHertz, 20.0f, 24000.0f),
        MakeParameter(u"", AudioFilterParameterInfoUnit::kFactor, 0.0f, 1.0f)};
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const host::Parameter& parameter : kParameters) {
        try {
            const float normalized = host::ParseValue(parameter, text, "fuzz");
            if (!(normalized >= 0.0f && normalized <= 1.0f)) std::abort();
            const std::string shown = host::FormatValue(parameter, normalized);
            if (host::ParseValue(parameter, shown, "fuzz") != normalized) std::abort();
        } catch (const host::Error&) {
        }
    }
    try {
        const host::TimeRange range = host::ParseTimeRange(text);
        if (!(range.beginSeconds >= 0.0 && range.beginSeconds < range.endSeconds)) std::abort();
    } catch (const host::Error&) {
    }
    return 0;
}
