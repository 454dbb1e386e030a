#include "kraaudiofilterhost/AudioFilterBusDescription.h"

namespace kraaudiofilterhost {

AudioFilterBusDescription::AudioFilterBusDescription(
    const WStr& name, const kramediatypes::AudioChannelLayout& layout, int type)
    : name_(name), layout_(layout), type_(type) {}

AudioFilterBusDescription AudioFilterBusDescription::CreateStereo(const WStr& name, int type) {
    return {name, kramediatypes::StereoLayout(), type};
}

}  // namespace kraaudiofilterhost
