#include "Components/FadeEnvelope.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "kraaudiodsp/LogFade.h"
#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/CurveOps.h"
#include "kraaudiodsp/vector/VectorOps.h"

namespace zuc::components {
namespace {

/// Fades are taken up anew at multiples of so many frames.
constexpr std::int64_t kLineFrames = 256;
constexpr float kStraightBend = 1e-4f;  // of the logarithmic shape; 1e-5 from the line at most
constexpr auto kDefaultBend = static_cast<float>(dsp::kEqualPowerFadeShapeValue);
constexpr unsigned long kCurveType = 1;

// clang-format off
constexpr std::array kShapes{
    EnumEntry{"$$$/Effects/FadeEnvelope/Linear=Linear"},
    EnumEntry{"$$$/Effects/FadeEnvelope/Logarithmic=Logarithmic"},
    EnumEntry{"$$$/Effects/FadeEnvelope/Cosine=Cosine"},
    EnumEntry{"$$$/Effects/FadeEnvelope/EqualPower=Equal Power"},
};
constexpr std::array kParameters{
    //           index                           name key                                                      unit  kind           lo     hi     initial       auto
    ParameterRow{FadeEnvelope::kShape,            "$$$/Effects/FadeEnvelope/Shape=Shape",                       "",   Kind::kEnum,   0,     3,     1,            true, Role::kControl, kShapes},
    ParameterRow{FadeEnvelope::kBend,             "$$$/Effects/FadeEnvelope/Bend=Bend",                         "",   Kind::kLinear, 0.05f, 0.95f, kDefaultBend, true},
    ParameterRow{FadeEnvelope::kFadeInMs,         "$$$/Effects/FadeEnvelope/FadeIn=Fade In",                    "ms", Kind::kLinear, 0,     60000, 0,            true},
    ParameterRow{FadeEnvelope::kFadeOutMs,        "$$$/Effects/FadeEnvelope/FadeOut=Fade Out",                  "ms", Kind::kLinear, 0,     60000, 0,            true},
    ParameterRow{FadeEnvelope::kSmoothCurve,      "$$$/Effects/FadeEnvelope/SmoothCurve=Smooth Curve",          "",   Kind::kBool,   0,     1,     0,            false},
    ParameterRow{FadeEnvelope::kAutomaticReverse, "$$$/Effects/FadeEnvelope/AutomaticReverse=Automatic Reverse", "",  Kind::kBool,   0,     1,     1,            true},
};
constexpr std::array kPresets{
    //        name key                                                                    shape bend          in    out   smooth reverse
    PresetRow("$$$/AudioComponents/DefaultPresetName=(Default)",                          1,    kDefaultBend, 0,    0,    0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/Short=Short In/Out 10 ms",         1,    kDefaultBend, 10,   10,   0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/SmoothIn=Smooth In 1 s",           2,    kDefaultBend, 1000, 0,    0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/SmoothOut=Smooth Out 3 s",         2,    kDefaultBend, 0,    3000, 0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/RadioOut=Radio Out 5 s",           1,    0.3f,         0,    5000, 0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/CrossfadeOut=Crossfade Out",       3,    kDefaultBend, 0,    500,  0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/CrossfadeIn=Crossfade In",         3,    kDefaultBend, 500,  0,    0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/ExponentialIn=Exponential In",     1,    0.2f,         2000, 0,    0,     1),
    PresetRow("$$$/AudioComponents/FadeEnvelopePresets/DipInTheMiddle=Dip in the Middle", 2,    kDefaultBend, 0,    0,    0,     1),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/FadeEnvelopeTitle=Fade Envelope", kParameters,
                               kPresets};
static_assert(IsWellFormed(kTables));

/// The shape at way p, in [0, 1].
double ShapeAt(FadeShape shape, double bend, double p) {
    switch (shape) {
        case FadeShape::kLinear:
            return p;
        case FadeShape::kLogarithmic:
            return dsp::CalculateLogFadeValue(p, bend);
        case FadeShape::kCosine:
            return 0.5 - 0.5 * std::cos(std::numbers::pi * p);
        case FadeShape::kEqualPower:
            return std::sin(0.5 * std::numbers::pi * p);
    }
    return p;
}

}  // namespace

/// The curve of amplitudes. The shape's parts are atomics, so that SetParameter need not take the lock.
class FadeEnvelope::Curve final : public KeyframeContainer {
public:
    Curve() : KeyframeContainer(1.0f) { SetType(kCurveType); }

    void SetShape(FadeShape shape, double bend, bool reverses) {
        shape_.store(shape, std::memory_order_relaxed);
        bend_.store(bend, std::memory_order_relaxed);
        reverses_.store(reverses, std::memory_order_relaxed);
    }

    float InterpolateValue(const Keyframe& a,
                           const Keyframe& b,
                           const std::int64_t& time) const override {
        const double p = static_cast<double>(time - a.time) / static_cast<double>(b.time - a.time);
        const bool isMirrored = b.value < a.value && reverses_.load(std::memory_order_relaxed);
        const FadeShape shape = shape_.load(std::memory_order_relaxed);
        const double bend = bend_.load(std::memory_order_relaxed);
        const double way =
            isMirrored ? 1.0 - ShapeAt(shape, bend, 1.0 - p) : ShapeAt(shape, bend, p);
        return static_cast<float>(a.value + (static_cast<double>(b.value) - a.value) * way);
    }

private:
    std::atomic<FadeShape> shape_{FadeShape::kLinear};
    std::atomic<double> bend_{0.0};
    std::atomic<bool> reverses_{true};
};

/// The presets' curves, in percent.
struct FadeEnvelope::Curves {
    // clang-format off
    static constexpr std::array<CurvePoint, 6> kDip{{{0.0, 100.0f}, {0.3, 100.0f}, {0.4, 20.0f}, {0.6, 20.0f}, {0.7, 100.0f}, {1.0, 100.0f}}};
    static constexpr std::array<CurvePreset, kPresets.size()> kAll{{{}, {}, {}, {}, {}, {}, {}, {}, kDip}};
    // clang-format on
};

FadeEnvelope::FadeEnvelope()
    : EnvelopeBase(
          kTables, kFadeEnvelopeComponentID, new Curve, Curves::kAll, CurveReader(1.0f, true)) {
    SetParameter(kShape, GetParameter(kShape));
    TakeSettings();
}

FadeEnvelope::~FadeEnvelope() = default;

void FadeEnvelope::SetParameter(int index, float normalized) {
    EnvelopeBase::SetParameter(index, normalized);
    if (index == kSmoothCurve) GetCurve()->EnableSplines(IsOn(kSmoothCurve));
    static_cast<Curve&>(*GetCurve())
        .SetShape(static_cast<FadeShape>(Choice(kShape)), dsp::GetLogVerticalModifier(Value(kBend)),
                  IsOn(kAutomaticReverse));
}

float FadeEnvelope::ToCurveValue(float level) const {
    return std::clamp(level / 100.0f, 0.0f, 1.0f);
}

FadeEnvelope::Settings FadeEnvelope::DeriveSettings() const {
    const float rate = GetSampleRate();
    const std::int64_t left = GetSelectionFrame();
    const std::int64_t width = GetSelectionFrames();
    Settings settings;
    settings.shape = static_cast<FadeShape>(Choice(kShape));
    settings.bend = dsp::GetLogVerticalModifier(Value(kBend));
    settings.in = {left, dsp::MsToFrames(Value(kFadeInMs), rate), 1, false};
    // Without reverse the fade goes down as the fade-in goes up: 1 - s(p), p from the other end.
    settings.out = {left + width, width > 0 ? dsp::MsToFrames(Value(kFadeOutMs), rate) : 0, -1,
                    !IsOn(kAutomaticReverse)};
    return settings;
}

void FadeEnvelope::TakeSettings() { settings_ = DeriveSettings(); }

// ---- Processing ----

/// way[i] becomes the shape at way[i], or its mirror 1 - s(1 - way[i]).
void FadeEnvelope::ShapeWay(bool mirrored, float* way, std::size_t count) const {
    // Steep beginnings lose digits; the mirror of a flat one is the same shape.
    const bool isSteep = settings_.shape == FadeShape::kLogarithmic && settings_.bend < 0.0;
    const auto bend =
        static_cast<float>(isSteep ? -settings_.bend / (1.0 + settings_.bend) : settings_.bend);
    const bool flips = mirrored != isSteep;
    const auto flip = [&] {
        for (std::size_t i = 0; flips && i < count; ++i) way[i] = 1.0f - way[i];
    };
    flip();
    switch (settings_.shape) {
        case FadeShape::kLinear:
            break;
        case FadeShape::kLogarithmic:
            if (bend >= kStraightBend) dsp::vector::LogShape(way, way, bend, count);
            break;
        case FadeShape::kCosine:
            dsp::vector::SineShape(way, way, count);
            dsp::vector::MultiplyBy(way, way, way, count);
            break;
        case FadeShape::kEqualPower:
            dsp::vector::SineShape(way, way, count);
            break;
    }
    flip();
}

bool FadeEnvelope::ApplyFade(
    const Fade& fade, std::int64_t first, bool isLevel, float* gains, int frames) {
    const std::int64_t start = (first - fade.silentFrame) * fade.direction;
    const std::int64_t end = start + static_cast<std::int64_t>(frames - 1) * fade.direction;
    if (fade.frames == 0 || (start >= fade.frames && end >= fade.frames)) return isLevel;
    const auto count = static_cast<std::size_t>(frames);
    if (isLevel) std::fill_n(gains, count, gains[0]);
    const double perFrame = static_cast<double>(fade.direction) / static_cast<double>(fade.frames);
    for (std::size_t i = 0; i < count;) {
        const std::int64_t frame = first + static_cast<std::int64_t>(i);
        const std::int64_t done = (frame % kLineFrames + kLineFrames) % kLineFrames;
        const auto run = std::min(count - i, static_cast<std::size_t>(kLineFrames - done));
        const auto base = static_cast<double>(frame - done - fade.silentFrame) * perFrame;
        dsp::vector::Line(&way_[i], static_cast<float>(base), static_cast<float>(perFrame),
                          static_cast<int>(done), run);
        i += run;
    }
    for (std::size_t i = 0; i < count; ++i) way_[i] = std::min(std::max(way_[i], 0.0f), 1.0f);
    ShapeWay(fade.mirrored, way_.data(), count);
    // Rounding must not leave a trace at the ends and outside of the fade.
    const bool hasEnd = std::min(start, end) <= 0 || std::max(start, end) >= fade.frames;
    for (std::size_t i = 0; hasEnd && i < count; ++i) {
        const std::int64_t distance = start + static_cast<std::int64_t>(i) * fade.direction;
        if (distance <= 0) way_[i] = 0.0f;
        if (distance >= fade.frames) way_[i] = 1.0f;
    }
    dsp::vector::MultiplyBy(gains, gains, way_.data(), count);
    return false;
}

bool FadeEnvelope::MakeGains(std::int64_t first, bool isLevel, float* gains, int frames) {
    isLevel = ApplyFade(settings_.in, first, isLevel, gains, frames);
    return ApplyFade(settings_.out, first, isLevel, gains, frames);
}

}  // namespace zuc::components
