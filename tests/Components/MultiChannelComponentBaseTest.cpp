#include "Components/MultiChannelComponentBase.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "Components/Catalogue.h"
#include "Components/Library.h"
#include "Components/ParameterInfos.h"
#include "kraaudiofilterhost/FilterCatalogue.h"
#include "kracore/WStr.h"

namespace zuc::components {
namespace {

using kracore::utility::ToUtf8;
using kramediatypes::LayoutForChannelCount;

/// Passes audio, remembers channel changes and the pieces it was given.
class Probe final : public MultiChannelComponentBase {
public:
    explicit Probe(int maxChannels = 32)
        : MultiChannelComponentBase(u"test.Probe", u"Probe", maxChannels) {}
    int GetParameterCount() const override { return 2; }
    void Process(float** in, float** out, int frames, Flags, Flags&) override {
        ProcessGuarded(in, out, frames,
                       [this](const float* const* from, float* const* to, int count) {
                           pieces.push_back(count);
                           for (std::size_t c = 0; c < GetNumberOfOutputChannels(); ++c)
                               std::copy_n(from[c], count, to[c]);
                       });
    }
    void OnNumberOfChannelsChanged(std::size_t channels) override { changes.push_back(channels); }
    using MultiChannelComponentBase::AddParameterInfo;

    std::vector<std::size_t> changes;
    std::vector<int> pieces;
};

TEST(MultiChannelComponentBase, AnswersLayoutProposals) {
    boost::intrusive_ptr<Probe> effect(new Probe);
    const struct {
        std::size_t in, out, expected;
        const char* inName;
        const char* outName;
        bool told;
    } rows[] = {
        {2, 2, 2, "Stereo In", "Stereo Out", false},
        {2, 1, 2, "Stereo In", "Stereo Out", false},
        {0, 0, 2, "Stereo In", "Stereo Out", false},
        {1, 1, 1, "Mono In", "Mono Out", true},
        {6, 6, 6, "Surround 5.1 In", "Surround 5.1 Out", true},
        {6, 6, 6, "Surround 5.1 In", "Surround 5.1 Out", false},
        {8, 8, 8, "Multichannel In", "Multichannel Out", true},
        {32, 32, 32, "Multichannel In", "Multichannel Out", true},
        {33, 33, 1, "Mono In", "Mono Out", true},
        {2, 2, 2, "Stereo In", "Stereo Out", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.in << " in, " << row.out << " out");
        effect->changes.clear();
        effect->RequestIOConfiguration({LayoutForChannelCount(row.in)},
                                       {LayoutForChannelCount(row.out)});
        EXPECT_EQ(effect->GetNumberOfInputChannels(), row.expected);
        EXPECT_EQ(effect->GetNumberOfOutputChannels(), row.expected);
        EXPECT_EQ(ToUtf8(effect->GetInputBuses().front().GetName()), row.inName);
        EXPECT_EQ(ToUtf8(effect->GetOutputBuses().front().GetName()), row.outName);
        EXPECT_EQ(effect->changes,
                  row.told ? std::vector<std::size_t>{row.expected} : std::vector<std::size_t>{});
    }
    effect->changes.clear();
    effect->RequestIOConfiguration({}, {});
    effect->RequestIOConfiguration({LayoutForChannelCount(6), LayoutForChannelCount(2)},
                                   {LayoutForChannelCount(6)});
    EXPECT_TRUE(effect->changes.empty());
}

TEST(MultiChannelComponentBase, KeepsTheFirstDescriptionOfAnIndex) {
    boost::intrusive_ptr<Probe> effect(new Probe);
    const auto make = [](float hi) {
        return boost::intrusive_ptr<GenericParameterInfo>(new GenericParameterInfo(
            u"P", u"", AudioFilterParameterInfoUnit::kGeneric, 0, 0, hi, true, false, 1, 2));
    };
    const auto first = make(10);
    effect->AddParameterInfo(0, first);
    effect->AddParameterInfo(0, make(20));
    EXPECT_EQ(effect->GetParameterInfo(0), first);
    effect->SetParameter(0, 0.123f);
    EXPECT_EQ(ToUtf8(effect->GetParameterString(0)), "1.23");
    effect->SetParameter(0, 0.3f);
    EXPECT_EQ(ToUtf8(effect->GetParameterString(0)), "3.0");
    for (const int unknown : {-1, 1, 2, std::numeric_limits<int>::max()}) {
        EXPECT_EQ(effect->GetParameterInfo(unknown), nullptr);
        EXPECT_TRUE(effect->GetParameterString(unknown).empty());
    }
}

TEST(MultiChannelComponentBase, AsksItsKeyframeSource) {
    struct Source : AudioParamInterface {
        bool GetKeyFrameParameter(unsigned long index, float& value) override {
            if (index == 1) value = 0.75f;
            return index == 1;
        }
    } source;
    boost::intrusive_ptr<Probe> effect(new Probe);
    float value = 0.1f;
    EXPECT_FALSE(effect->GetKeyFrameParameter(1, value));
    effect->SetAudioParamInterface(&source);
    EXPECT_FALSE(effect->GetKeyFrameParameter(0, value));
    EXPECT_EQ(value, 0.1f);
    EXPECT_TRUE(effect->GetKeyFrameParameter(1, value));
    EXPECT_EQ(value, 0.75f);
    effect->SetAudioParamInterface(nullptr);
    EXPECT_FALSE(effect->GetKeyFrameParameter(1, value));
    AudioParamInterface none;
    EXPECT_FALSE(none.GetKeyFrameParameter(0, value));
}

TEST(MultiChannelComponentBase, GuardsBlocksOfAnyLength) {
    boost::intrusive_ptr<Probe> effect(new Probe);
    effect->SetBlockSize(64);
    const std::size_t frames = 2500;
    std::vector<float> left(frames, 0.5f);
    std::vector<float> right(frames, -0.5f);
    left[0] = std::numeric_limits<float>::quiet_NaN();
    right[0] = right[2400] = -std::numeric_limits<float>::infinity();  // one piece with two faults
    std::vector<float> out(frames);
    float* ins[] = {left.data(), right.data()};
    float* outs[] = {out.data(), right.data()};
    Flags flags;
    effect->Process(ins, outs, static_cast<int>(frames), {}, flags);
    EXPECT_EQ(effect->pieces, (std::vector<int>{1024, 1024, 452}));
    EXPECT_EQ(effect->GetNonFiniteSampleCount(), 3u);
    for (std::size_t i = 0; i < frames; ++i) {
        ASSERT_EQ(out[i], i == 0 ? 0.0f : 0.5f) << i;
        ASSERT_EQ(right[i], i == 0 || i == 2400 ? 0.0f : -0.5f) << i;
    }
    EXPECT_NE(left[0], left[0]) << "the host's input stays as it is";
}

TEST(Library, CountsItsUsers) {
    const auto& entry = GetCatalogue().front();
    const WStr identifier(entry.identifier);
    using kraaudiofilterhost::utility::CreateAudioFilter;
    EXPECT_EQ(CreateAudioFilter(identifier), nullptr);
    Initialize();
    Initialize();
    Terminate();
    const auto effect = CreateAudioFilter(identifier);
    ASSERT_NE(effect, nullptr);
    EXPECT_EQ(effect->GetComponentID(), identifier);
    EXPECT_EQ(CreateAudioFilter(u"zuc.Unknown"), nullptr);
    Terminate();
    EXPECT_EQ(CreateAudioFilter(identifier), nullptr);

    SetupTempDir(u"/tmp/host");
    SetupTempDir(GetTempDir());
    EXPECT_EQ(ToUtf8(GetTempDir()), "/tmp/host");
    SetupTempDir({});
}

}  // namespace
}  // namespace zuc::components
