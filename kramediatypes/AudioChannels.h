#pragma once

#include <cstddef>
#include <vector>

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kramediatypes {

using kracore::WStr;

/// Where a channel is meant to be heard. The numbers are persisted.
enum class AudioChannelLabel : unsigned {
    kNone = 0,  // a channel of a generic layout: known only by its number
    kMono = 1,
    kLeft = 2,
    kRight = 3,
    kCenter = 4,
    kLowFrequency = 5,
    kLeftSurround = 6,
    kRightSurround = 7,
    kLeftRearSurround = 8,
    kRightRearSurround = 9,
    kCenterSurround = 10,
};

/// One channel of a layout.
struct AudioChannelDescription {
    AudioChannelLabel label = AudioChannelLabel::kNone;
    bool operator==(const AudioChannelDescription&) const = default;
};

/// One entry per channel, in buffer order.
using AudioChannelLayout = std::vector<AudioChannelDescription>;

ZUC_API AudioChannelLayout MonoLayout();
ZUC_API AudioChannelLayout StereoLayout();
/// L, R, C, LFE, Ls, Rs.
ZUC_API AudioChannelLayout Surround51Layout();
/// `channels` unlabelled channels.
ZUC_API AudioChannelLayout GenericLayout(std::size_t channels);
/// The customary layout of a file with that many channels: mono, stereo, 5.1, else generic.
ZUC_API AudioChannelLayout LayoutForChannelCount(std::size_t channels);

/// Localized name of a label: "Left", or "L" in the short form; empty for kNone. [any, may block]
ZUC_API WStr AudioChannelLabelDescription(AudioChannelLabel label, bool shortForm);

}  // namespace kramediatypes
