#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "Components/FadeEnvelope.h"
#include "Components/GainEnvelope.h"
#include "Components/VolumeEnvelope.h"
#include "kraaudiofilterhost/PresetData.h"
#include "kracore/PropList.h"

namespace zuc::components {
namespace {

constexpr float kRateHz = 48000.0f;
constexpr float kSilenceDb = -std::numeric_limits<float>::infinity();

using Effect = boost::intrusive_ptr<EnvelopeBase>;

template <class Envelope>
Effect Make(double selectionFrames = 20'000) {
    Effect effect(new Envelope);
    effect->SetSampleRate(kRateHz);
    effect->SetCurrentDuration(selectionFrames / static_cast<double>(kRateHz));
    return effect;
}

void Set(EnvelopeBase& effect, int index, float value) {
    effect.SetParameter(index, effect.GetParameterInfo(index)->ToNormalized(value));
}

/// The gains of the next `frames` frames.
std::vector<float> Play(EnvelopeBase& effect, int frames, int blockFrames = 480) {
    std::vector<float> left(static_cast<std::size_t>(frames), 1.0f);
    std::vector<float> right = left;
    Flags flags;
    for (int done = 0; done < frames; done += blockFrames) {
        float* channels[] = {left.data() + done, right.data() + done};
        effect.Process(channels, channels, std::min(blockFrames, frames - done), {}, flags);
    }
    EXPECT_EQ(left, right);
    return left;
}

std::vector<float> PlayFromStart(EnvelopeBase& effect, int frames) {
    effect.SetCurrentOffset(0);
    effect.Resume();
    return Play(effect, frames);
}

float ToGain(const EnvelopeBase& effect, float level) {
    return effect.GetLevelUnit() == "dB" ? std::pow(10.0f, level / 20.0f) : level / 100.0f;
}

float LargestStep(const std::vector<float>& gains) {
    float largest = 0.0f;
    for (std::size_t i = 1; i < gains.size(); ++i)
        largest = std::max(largest, std::fabs(gains[i] - gains[i - 1]));
    return largest;
}

TEST(Envelope, GainsAreThoseOfTheCurve) {
    struct Row {
        const char* name;
        Effect (*make)(double);
        int smooth;
    };
    const Row rows[] = {{"gain", Make<GainEnvelope>, GainEnvelope::kSmoothCurve},
                        {"volume", Make<VolumeEnvelope>, VolumeEnvelope::kSmoothCurve},
                        {"fade", Make<FadeEnvelope>, FadeEnvelope::kSmoothCurve}};
    for (const Row& row : rows)
        for (const bool smooth : {false, true}) {
            const Effect effect = row.make(20'000);
            Set(*effect, row.smooth, smooth);
            const auto& curve = effect->GetCurve();
            const Keyframe keyframes[] = {{0.9f, 100},  {0.2f, 1111},   {0.5f, 1130},  {0.5f, 4000},
                                          {0.3f, 9000}, {1.0f, 15'000}, {0.0f, 19'000}};
            for (const Keyframe& keyframe : keyframes) curve->InsertKeyframe(keyframe);
            const auto gains = PlayFromStart(*effect, 20'000);
            for (int i = 0; i < 20'000; ++i) {
                const float expected = ToGain(*effect, effect->GetLevel(curve->GetValue(i)));
                // 0.01 dB, and 16-frame chords of a spline that ends in silence
                ASSERT_NEAR(gains[i], expected, 0.00115f * expected + 1e-6f)
                    << row.name << (smooth ? " smooth" : "") << ", frame " << i;
            }
            EXPECT_EQ(gains.back(), 0.0f) << row.name;
        }
}

TEST(Envelope, LevelsAndCurveValuesInvertEachOther) {
    struct Row {
        Effect effect;
        float level;
        float curveValue;
    };
    const Row rows[] = {
        {Make<GainEnvelope>(), 0.0f, 0.5f},         {Make<GainEnvelope>(), -12.0f, 0.25f},
        {Make<GainEnvelope>(), 99.0f, 1.0f},        {Make<GainEnvelope>(), kSilenceDb, 0.0f},
        {Make<VolumeEnvelope>(), 0.0f, 0.8f},       {Make<VolumeEnvelope>(), 6.0f, 1.0f},
        {Make<VolumeEnvelope>(), kSilenceDb, 0.0f}, {Make<FadeEnvelope>(), 20.0f, 0.2f}};
    for (const Row& row : rows) {
        EXPECT_NEAR(row.effect->ToCurveValue(row.level), row.curveValue, 1e-6f) << row.level;
        const float level = row.effect->GetLevel(row.curveValue);
        const float expected = std::min(ToGain(*row.effect, row.level), 15.8489319f);  // 24 dB
        EXPECT_NEAR(ToGain(*row.effect, level), expected, 1e-5f) << row.level;
    }
}

TEST(Envelope, WithoutKeyframesSamplesPassBitForBit) {
    for (const Effect& effect :
         {Make<GainEnvelope>(), Make<VolumeEnvelope>(), Make<FadeEnvelope>()})
        EXPECT_EQ(PlayFromStart(*effect, 3000), std::vector<float>(3000, 1.0f));
    const Effect volume = Make<VolumeEnvelope>();
    for (const float maximumDb : {0.0f, 3.0f, 12.0f}) {
        Set(*volume, VolumeEnvelope::kMaximumDb, maximumDb);
        EXPECT_EQ(PlayFromStart(*volume, 100), std::vector<float>(100, 1.0f)) << maximumDb;
    }
}

TEST(Envelope, HoldsEndInFades) {
    const Effect effect = Make<GainEnvelope>();
    effect->GetCurve()->InsertKeyframe(0, 0.5f, true, false);
    effect->GetCurve()->InsertKeyframe(1000, 0.0f, false, false);
    struct Row {
        float edgeMs;
        int frames;
    };
    for (const Row& row : {Row{0, 0}, Row{2, 96}, Row{50, 2400}}) {
        Set(*effect, GainEnvelope::kEdgeSmoothingMs, row.edgeMs);
        const auto gains = PlayFromStart(*effect, 4000);
        EXPECT_EQ(gains[999], 1.0f);
        EXPECT_EQ(gains[1000], row.frames == 0 ? 0.0f : 1.0f);
        EXPECT_NEAR(gains[1000 + row.frames / 2], row.frames == 0 ? 0.0f : 0.5f, 1e-5f);
        EXPECT_EQ(gains[1000 + row.frames], 0.0f);
    }
}

TEST(Envelope, ChangesWhilePlayingMakeNoSteps) {
    const Effect effect = Make<GainEnvelope>();
    effect->Resume();
    Play(*effect, 1000);
    effect->GetCurve()->InsertKeyframe(0, 1.0f, false, false);
    auto gains = Play(*effect, 1000);
    EXPECT_EQ(gains[0], 1.0f);
    EXPECT_LT(LargestStep(gains), 0.04f);  // 24 dB up within 480 frames
    EXPECT_NEAR(gains.back(), 15.849f, 1e-3f);
    Set(*effect, GainEnvelope::kOutputTrimDb, -24.0f);
    gains = Play(*effect, 1000);
    EXPECT_LT(LargestStep(gains), 0.04f);
    EXPECT_NEAR(gains.back(), 1.0f, 1e-5f);
    effect->SetCurrentOffset(50'000);  // a seek takes the new gain at once
    effect->GetCurve()->Flatten(0.0f);
    EXPECT_EQ(Play(*effect, 1)[0], 0.0f);
}

TEST(Envelope, FadesHaveTheirShapesAndExactEnds) {
    const int kFade = 4800;
    const Effect effect = Make<FadeEnvelope>(20'000);
    Set(*effect, FadeEnvelope::kFadeInMs, 100.0f);
    Set(*effect, FadeEnvelope::kFadeOutMs, 100.0f);
    struct Row {
        FadeShape shape;
        float bend;
        bool reverse;
        double inAtQuarter;   // from the formulas
        double outAtQuarter;  // a quarter of the fade before the end
    };
    const Row rows[] = {
        {FadeShape::kLinear, 0.5f, true, 0.25, 0.25},
        {FadeShape::kLogarithmic, 0.70710678f, true, 0.463458, 0.463458},
        {FadeShape::kLogarithmic, 0.70710678f, false, 0.463458, 1.0 - 0.873495},
        {FadeShape::kLogarithmic, 0.3f, true, 1.0 - 0.870020, 1.0 - 0.870020},
        {FadeShape::kCosine, 0.5f, true, 0.146447, 0.146447},
        {FadeShape::kEqualPower, 0.5f, true, 0.382683, 0.382683},
        {FadeShape::kEqualPower, 0.5f, false, 0.382683, 1.0 - 0.923880},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "shape " << static_cast<int>(row.shape) << ", bend "
                                        << row.bend << (row.reverse ? " reversed" : ""));
        Set(*effect, FadeEnvelope::kShape, static_cast<float>(row.shape));
        Set(*effect, FadeEnvelope::kBend, row.bend);
        Set(*effect, FadeEnvelope::kAutomaticReverse, row.reverse);
        const auto gains = PlayFromStart(*effect, 20'001);
        EXPECT_EQ(gains[0], 0.0f);
        EXPECT_EQ(gains[20'000], 0.0f);
        for (int i = kFade; i <= 20'000 - kFade; ++i) ASSERT_EQ(gains[i], 1.0f) << i;
        EXPECT_NEAR(gains[kFade / 4], row.inAtQuarter, 1e-4);
        EXPECT_NEAR(gains[20'000 - kFade / 4], row.outAtQuarter, 1e-4);
        for (int i = 1; i < kFade; ++i) {
            ASSERT_GE(gains[i], gains[i - 1]) << i;
            ASSERT_LE(gains[20'000 - kFade + i], gains[20'000 - kFade + i - 1]) << i;
            if (row.shape == FadeShape::kEqualPower && row.reverse) {
                const double in = gains[i];
                const double out = gains[20'000 - kFade + i];
                ASSERT_NEAR(in * in + out * out, 1.0, 1e-6) << i;
            }
        }
    }
}

TEST(Envelope, PresetCurvesFollowTheSelectionUntilTheyAreEdited) {
    const Effect effect = Make<GainEnvelope>(1000);
    effect->SetFactoryPreset(3);  // Duck Middle -12
    const auto at = [&](std::int64_t time) {
        return effect->GetLevel(effect->GetCurve()->GetValue(time));
    };
    EXPECT_NEAR(at(500), -12.0f, 1e-5f);
    effect->SetSelectionLeft(1.0);
    EXPECT_NEAR(at(500), 0.0f, 1e-5f);
    EXPECT_NEAR(at(48'500), -12.0f, 1e-5f);
    effect->SetSampleRate(96'000.0f);
    EXPECT_NEAR(at(97'000), -12.0f, 1e-5f);
    std::vector<float> levels;
    EXPECT_EQ(effect->GetCurveData(0, 3, levels), 3u);
    EXPECT_NEAR(levels[1], -12.0f, 1e-5f);
    EXPECT_EQ(effect->GetCurveData(1, 3, levels), 0u);
    effect->GetCurve()->OffsetKeyframes(0.25f, 96'300, 98'000);
    const auto count = effect->GetCurve()->GetCount();
    effect->SetCurrentDuration(9.0);
    EXPECT_EQ(effect->GetCurve()->GetCount(), count);
    EXPECT_TRUE(effect->GetCurve()->HasKeyframeAt(96'000 + 500));
    effect->SetSampleRate(48'000.0f);
    EXPECT_TRUE(effect->GetCurve()->HasKeyframeAt(48'000 + 250));
}

TEST(Envelope, SettingsHoldTheCurve) {
    const Effect effect = Make<VolumeEnvelope>();
    effect->SetFactoryPreset(3);  // Bell Curve
    kracore::proplist::PropList list;
    kraaudiofilterhost::PresetData saved(list);
    effect->SaveSettings(saved);
    const Effect other = Make<VolumeEnvelope>();
    ASSERT_TRUE(other->LoadSettings(saved));
    EXPECT_EQ(PlayFromStart(*other, 20'000), PlayFromStart(*effect, 20'000));

    auto damaged = *saved.GetCustomData();
    damaged.Remove("Splines");
    saved.SetCustomData(damaged);
    effect->SetFactoryPreset(0);
    const auto before = effect->GetParameter(VolumeEnvelope::kSmoothCurve);
    EXPECT_FALSE(effect->LoadSettings(saved));
    EXPECT_EQ(effect->GetParameter(VolumeEnvelope::kSmoothCurve), before);
    EXPECT_TRUE(effect->GetCurve()->IsEmpty());
}

}  // namespace
}  // namespace zuc::components
