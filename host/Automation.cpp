#include "host/Automation.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Components/EnvelopeBase.h"
#include "host/Faults.h"
#include "host/Text.h"
#include "host/Units.h"
#include "kracore/Numbers.h"

namespace zuc::host {
namespace {

constexpr std::string_view kCurveName = "curve";

/// Lines in the parameter's own unit between normalized values.
class ParameterCurve final : public KeyframeContainer {
public:
    explicit ParameterCurve(const Parameter& parameter)
        : info_(parameter.info), jumps_(!parameter.entries.empty()) {}

    float InterpolateValue(const Keyframe& a,
                           const Keyframe& b,
                           const std::int64_t& time) const override {
        if (jumps_) return a.value;
        const Keyframe from{info_->FromNormalized(a.value), a.time};
        const Keyframe to{info_->FromNormalized(b.value), b.time};
        const float normalized =
            info_->ToNormalized(KeyframeContainer::InterpolateValue(from, to, time));
        // Where the range has an infinite end there is no line.
        return std::isfinite(normalized) ? std::clamp(normalized, 0.0f, 1.0f) : a.value;
    }

private:
    kraaudiofilterhost::AudioFilterParameterInfoPtr info_;
    bool jumps_;
};

std::int64_t ToFrame(double seconds, float rateHz) {
    return std::llround(seconds * static_cast<double>(rateHz));
}

/// The level of an envelope: "-6 dB", "-6", "-inf", "50%".
float ParseLevel(const components::EnvelopeBase& envelope,
                 std::string_view text,
                 const std::string& slug) {
    const std::string_view unit = envelope.GetLevelUnit();
    std::string_view number = Trim(text);
    if (number.size() >= unit.size() &&
        EqualsIgnoringCase(number.substr(number.size() - unit.size()), unit))
        number = Trim(number.substr(0, number.size() - unit.size()));
    if (EqualsIgnoringCase(number, "-inf")) return -std::numeric_limits<float>::infinity();
    const auto value = kracore::utility::StringToNumber(number);
    if (!value)
        throw Error(ExitCode::kUsage,
                    slug + ": curve cannot be '" + std::string(text) + "': that is no level",
                    "numbers in " + std::string(unit));
    const auto level = static_cast<float>(*value);
    const float highest = envelope.GetLevel(1.0f);
    if (level > highest + 1e-4f)
        throw Error(
            ExitCode::kUsage, slug + ": curve cannot be '" + std::string(text) + "': out of range",
            "up to " + ToText(std::round(highest * 1000.0f) / 1000.0f) + " " + std::string(unit));
    return level;
}

}  // namespace

Automation::Automation(const std::vector<CurveText>& curves,
                       const std::string& slug,
                       AudioFilter& filter,
                       float rateHz)
    : filter_(filter) {
    Faults faults;
    for (const CurveText& text : curves)
        faults.Try([&] {
            const bool isEnvelope = dynamic_cast<components::EnvelopeBase*>(&filter) != nullptr;
            if (isEnvelope && Fold(text.parameter) == kCurveName)
                AddEnvelope(text, slug, rateHz);
            else
                AddTrack(text, slug, rateHz);
        });
    faults.ThrowIfAny();
}

void Automation::AddTrack(const CurveText& text, const std::string& slug, float rateHz) {
    const std::vector<Parameter> parameters = GetParameters(filter_);
    CurveText resolved{text.parameter, {}};
    for (const Parameter* parameter : FindParameters(parameters, text.parameter, slug)) {
        if (!parameter->isAutomatable)
            throw Error(ExitCode::kUsage, slug + ": " + parameter->slug + " cannot be automated");
        resolved.points.clear();
        KeyframeContainerPtr curve(new ParameterCurve(*parameter));
        for (const CurvePoint& point : text.points) {
            const float normalized = ParseValue(*parameter, point.value, slug);
            curve->InsertKeyframe(ToFrame(point.seconds, rateHz), normalized, point.hold, false);
            resolved.points.push_back(
                {point.seconds, FormatValue(*parameter, normalized), point.hold});
        }
        tracks_.push_back({*parameter, std::move(curve)});
    }
    resolved_.push_back(std::move(resolved));
}

void Automation::AddEnvelope(const CurveText& text, const std::string& slug, float rateHz) {
    auto& envelope = dynamic_cast<components::EnvelopeBase&>(filter_);
    KeyframeSet keyframes;
    for (const CurvePoint& point : text.points)
        keyframes.insert({envelope.ToCurveValue(ParseLevel(envelope, point.value, slug)),
                          ToFrame(point.seconds, rateHz), point.hold});
    envelope.GetCurve()->SetKeyframes(keyframes, true);
    resolved_.push_back({std::string(kCurveName), text.points});
}

void Automation::Set(std::int64_t position) {
    for (Track& track : tracks_) {
        const float value = track.curve->GetValue(position);
        if (value == track.last) continue;
        track.last = value;
        filter_.SetParameter(track.parameter.index, value);
    }
}

void Automation::Start(std::int64_t position) {
    for (Track& track : tracks_) track.last = -1.0f;
    Set(position);
}

int Automation::Advance(std::int64_t position, int frames) {
    if (tracks_.empty()) return frames;
    const std::int64_t done = ((position % kStepFrames) + kStepFrames) % kStepFrames;
    const bool isPoint = std::any_of(tracks_.begin(), tracks_.end(), [&](const Track& track) {
        return track.curve->HasKeyframeAt(position);
    });
    if (done == 0 || isPoint) Set(position);
    std::int64_t next = position + kStepFrames - done;
    for (const Track& track : tracks_) {
        Keyframe point;
        if (track.curve->GetNextKeyframe(position, point)) next = std::min(next, point.time);
    }
    return static_cast<int>(std::min<std::int64_t>(frames, next - position));
}

}  // namespace zuc::host
