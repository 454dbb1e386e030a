#pragma once

#include <cstddef>

#include "kracore/Export.h"
#include "kracore/WStr.h"
#include "kramediatypes/AudioChannels.h"

namespace kraaudiofilterhost {

using kracore::WStr;

/// One input or output bus of a filter: a localized name, a layout, and a type. Type 0 is the main
/// bus, 1 a side chain. Value semantics. [host]
class ZUC_API AudioFilterBusDescription {
public:
    static constexpr int kMain = 0;
    static constexpr int kSideChain = 1;

    AudioFilterBusDescription(const WStr& name,
                              const kramediatypes::AudioChannelLayout& layout,
                              int type);
    static AudioFilterBusDescription CreateStereo(const WStr& name, int type);

    const WStr& GetName() const { return name_; }
    const kramediatypes::AudioChannelLayout& GetLayout() const { return layout_; }
    int GetType() const { return type_; }
    std::size_t GetChannelCount() const { return layout_.size(); }

    bool operator==(const AudioFilterBusDescription&) const = default;

private:
    WStr name_;
    kramediatypes::AudioChannelLayout layout_;
    int type_;
};

}  // namespace kraaudiofilterhost
