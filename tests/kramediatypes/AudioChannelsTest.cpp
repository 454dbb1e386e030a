#include "kramediatypes/AudioChannels.h"

#include <string>

#include <gtest/gtest.h>

namespace kramediatypes {
namespace {

std::string Names(const AudioChannelLayout& layout, bool shortForm) {
    std::string names;
    for (const AudioChannelDescription& channel : layout)
        names +=
            kracore::utility::ToUtf8(AudioChannelLabelDescription(channel.label, shortForm)) + ",";
    return names;
}

TEST(AudioChannels, LayoutsByCount) {
    const struct {
        std::size_t channels;
        std::string_view names, shortNames;
    } rows[] = {
        {0, "", ""},
        {1, "Mono,", "M,"},
        {2, "Left,Right,", "L,R,"},
        {3, ",,,", ",,,"},
        {6, "Left,Right,Center,Low Frequency,Left Surround,Right Surround,", "L,R,C,LFE,Ls,Rs,"},
        {8, ",,,,,,,,", ",,,,,,,,"},
    };
    for (const auto& row : rows) {
        const AudioChannelLayout layout = LayoutForChannelCount(row.channels);
        EXPECT_EQ(layout.size(), row.channels);
        EXPECT_EQ(Names(layout, false), row.names);
        EXPECT_EQ(Names(layout, true), row.shortNames);
    }
    EXPECT_EQ(GenericLayout(2), AudioChannelLayout(2));
}

TEST(AudioChannels, EveryLabelHasItsOwnNames) {
    AudioChannelLayout all;
    for (unsigned label = 7; label <= 10; ++label)
        all.push_back({static_cast<AudioChannelLabel>(label)});
    EXPECT_EQ(Names(all, false),
              "Right Surround,Left Rear Surround,Right Rear Surround,Center Surround,");
    EXPECT_EQ(Names(all, true), "Rs,Lrs,Rrs,Cs,");
    EXPECT_EQ(AudioChannelLabelDescription(static_cast<AudioChannelLabel>(11), false), u"");
}

}  // namespace
}  // namespace kramediatypes
