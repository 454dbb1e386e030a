#include "kramediatypes/AudioChannels.h"

#include <array>
#include <initializer_list>
#include <string_view>

#include "kracore/Localizer.h"

namespace kramediatypes {
namespace {

struct LabelRow {
    AudioChannelLabel label;
    std::string_view nameKey;
    std::string_view shortKey;
};

// clang-format off
constexpr std::array<LabelRow, 10> kLabels{{
    {AudioChannelLabel::kMono,              "$$$/Audio/Channels/Mono=Mono",                              "$$$/Audio/Channels/Short/Mono=M"},
    {AudioChannelLabel::kLeft,              "$$$/Audio/Channels/Left=Left",                              "$$$/Audio/Channels/Short/Left=L"},
    {AudioChannelLabel::kRight,             "$$$/Audio/Channels/Right=Right",                            "$$$/Audio/Channels/Short/Right=R"},
    {AudioChannelLabel::kCenter,            "$$$/Audio/Channels/Center=Center",                          "$$$/Audio/Channels/Short/Center=C"},
    {AudioChannelLabel::kLowFrequency,      "$$$/Audio/Channels/LowFrequency=Low Frequency",             "$$$/Audio/Channels/Short/LowFrequency=LFE"},
    {AudioChannelLabel::kLeftSurround,      "$$$/Audio/Channels/LeftSurround=Left Surround",             "$$$/Audio/Channels/Short/LeftSurround=Ls"},
    {AudioChannelLabel::kRightSurround,     "$$$/Audio/Channels/RightSurround=Right Surround",           "$$$/Audio/Channels/Short/RightSurround=Rs"},
    {AudioChannelLabel::kLeftRearSurround,  "$$$/Audio/Channels/LeftRearSurround=Left Rear Surround",    "$$$/Audio/Channels/Short/LeftRearSurround=Lrs"},
    {AudioChannelLabel::kRightRearSurround, "$$$/Audio/Channels/RightRearSurround=Right Rear Surround",  "$$$/Audio/Channels/Short/RightRearSurround=Rrs"},
    {AudioChannelLabel::kCenterSurround,    "$$$/Audio/Channels/CenterSurround=Center Surround",         "$$$/Audio/Channels/Short/CenterSurround=Cs"},
}};
// clang-format on

}  // namespace

AudioChannelLayout MonoLayout() { return {{AudioChannelLabel::kMono}}; }

AudioChannelLayout StereoLayout() {
    return {{AudioChannelLabel::kLeft}, {AudioChannelLabel::kRight}};
}

AudioChannelLayout Surround51Layout() {
    return {{AudioChannelLabel::kLeft},         {AudioChannelLabel::kRight},
            {AudioChannelLabel::kCenter},       {AudioChannelLabel::kLowFrequency},
            {AudioChannelLabel::kLeftSurround}, {AudioChannelLabel::kRightSurround}};
}

AudioChannelLayout GenericLayout(std::size_t channels) { return AudioChannelLayout(channels); }

AudioChannelLayout LayoutForChannelCount(std::size_t channels) {
    for (const auto& layout : {MonoLayout(), StereoLayout(), Surround51Layout()})
        if (layout.size() == channels) return layout;
    return GenericLayout(channels);
}

WStr AudioChannelLabelDescription(AudioChannelLabel label, bool shortForm) {
    for (const LabelRow& row : kLabels)
        if (row.label == label)
            return kracore::config::Localizer::Localize(shortForm ? row.shortKey : row.nameKey);
    return {};
}

}  // namespace kramediatypes
