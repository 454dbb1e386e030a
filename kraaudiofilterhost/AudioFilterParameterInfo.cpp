#include "kraaudiofilterhost/AudioFilterParameterInfo.h"

#include "kracore/Numbers.h"

namespace kraaudiofilterhost {

AudioFilterParameterInfo::AudioFilterParameterInfo(const WStr& name,
                                                   const WStr& label,
                                                   AudioFilterParameterInfoUnit unit)
    : name_(name), label_(label), unit_(unit) {}

AudioFilterParameterInfo::~AudioFilterParameterInfo() = default;

float AudioFilterParameterInfo::ToNormalized(float value) const { return value; }

float AudioFilterParameterInfo::FromNormalized(float normalized) const { return normalized; }

bool AudioFilterParameterInfo::CanRamp() const { return GetStepCount() == 0; }

bool AudioFilterParameterInfo::CanBeAutomated() const { return true; }

bool AudioFilterParameterInfo::SupportsStringForArbitraryValues() const { return true; }

WStr AudioFilterParameterInfo::GetParameterString(float normalized) const {
    return kracore::utility::NumberToString(FromNormalized(normalized), 0, 2);
}

int AudioFilterParameterInfo::GetStepCount() const {
    return unit_ == AudioFilterParameterInfoUnit::kBoolean ? 2 : 0;
}

}  // namespace kraaudiofilterhost
