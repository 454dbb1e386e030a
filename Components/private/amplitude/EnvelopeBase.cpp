#include "Components/EnvelopeBase.h"

#include <algorithm>
#include <cmath>

#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/CurveOps.h"
#include "kraaudiodsp/vector/VectorOps.h"
#include "kraaudiofilterhost/PresetData.h"

namespace zuc::components {
namespace {

constexpr double kChangeRampMs = 10.0;
constexpr std::string_view kRateKey = "SampleRate";

}  // namespace

EnvelopeBase::EnvelopeBase(const EffectTables& tables,
                           const WStr& componentID,
                           KeyframeContainerPtr curve,
                           std::span<const CurvePreset> curvePresets,
                           const CurveReader& reader)
    : TableDriven(tables, componentID, kMaxChannelCount),
      curve_(std::move(curve)),
      curvePresets_(curvePresets),
      reader_(reader) {
    RegisterParameterInfos();
}

EnvelopeBase::~EnvelopeBase() { curve_->Dispose(); }

void EnvelopeBase::OnNumberOfChannelsChanged(std::size_t channels) { channelCount_ = channels; }

// ---- The curve's place ----

std::int64_t EnvelopeBase::GetSelectionFrame() const {
    return std::llround(GetSelectionLeft() * static_cast<double>(GetSampleRate()));
}

std::int64_t EnvelopeBase::GetSelectionFrames() const {
    if (GetSampleRate() <= 0.0f) return 0;
    return std::llround(GetCurrentDuration() * static_cast<double>(GetSampleRate()));
}

void EnvelopeBase::UpdateSelection() {
    const bool followsPreset = presetCurve_ >= 0 && !curve_->IsModified();
    curve_->SetSampleRange(GetSelectionFrame(), GetSelectionFrames());
    if (followsPreset) MakePresetCurve();
    MarkSettingsDirty();
}

void EnvelopeBase::MakePresetCurve() {
    const std::int64_t left = GetSelectionFrame();
    const auto width = static_cast<double>(GetSelectionFrames());
    KeyframeSet keyframes;
    for (const CurvePoint& point : curvePresets_[static_cast<std::size_t>(presetCurve_)]) {
        const double unit = point.isInSeconds ? static_cast<double>(GetSampleRate()) : width;
        if (width > 0.0)
            keyframes.insert(
                {ToCurveValue(point.level), left + std::llround(point.at * unit), point.hold});
    }
    curve_->SetKeyframes(keyframes, true);
    curve_->SetModified(false);
}

void EnvelopeBase::MoveKeyframes(double factor) {
    KeyframeSet keyframes;
    KeyframeSet moved;
    curve_->GetKeyframes(keyframes);
    for (Keyframe keyframe : keyframes) {
        keyframe.time = std::llround(static_cast<double>(keyframe.time) * factor);
        moved.insert(keyframe);
    }
    const bool wasModified = curve_->IsModified();
    curve_->SetKeyframes(moved, true);
    curve_->SetModified(wasModified);
}

void EnvelopeBase::SetSampleRate(float rateHz) {
    const float before = GetSampleRate();
    TableDriven::SetSampleRate(rateHz);
    const float rate = GetSampleRate();
    changeFrames_ = std::max(1, dsp::MsToFrames(kChangeRampMs, rate));
    if (before > 0.0f && rate != before && !curve_->IsEmpty())
        MoveKeyframes(static_cast<double>(rate) / static_cast<double>(before));
    UpdateSelection();
}

void EnvelopeBase::SetSelectionLeft(double seconds) {
    TableDriven::SetSelectionLeft(seconds);
    UpdateSelection();
}

void EnvelopeBase::SetCurrentDuration(double seconds) {
    TableDriven::SetCurrentDuration(seconds);
    UpdateSelection();
}

void EnvelopeBase::SetCurrentOffset(std::int64_t frames) {
    TableDriven::SetCurrentOffset(frames);
    if (frames == position_) return;
    position_ = frames;
    reader_.Reset();
    hasLastGain_ = false;
    rampPosition_ = rampFrames_ = 0;
}

std::size_t EnvelopeBase::GetCurveData(int curve, std::size_t points, std::vector<float>& levels) {
    levels.clear();
    if (curve != 0 || points == 0) return 0;
    const auto left = static_cast<double>(GetSelectionFrame());
    const auto width = static_cast<double>(GetSelectionFrames());
    const double step = points > 1 ? width / static_cast<double>(points - 1) : 0.0;
    for (std::size_t i = 0; i < points; ++i)
        levels.push_back(
            GetLevel(curve_->GetValue(std::llround(left + step * static_cast<double>(i)))));
    return points;
}

// ---- Presets and settings ----

void EnvelopeBase::SetFactoryPreset(int preset) {
    if (preset < 0 || preset >= GetNumFactoryPresets()) return;
    TableDriven::SetFactoryPreset(preset);
    presetCurve_ = preset;
    MakePresetCurve();
}

bool EnvelopeBase::LoadSettings(const kraaudiofilterhost::PresetData& preset) {
    // A damaged curve refuses the settings before anything of them is taken.
    const auto* custom = preset.GetCustomData();
    const KeyframeContainerPtr trial(new KeyframeContainer);
    return (!custom || trial->Load(*custom)) && TableDriven::LoadSettings(preset);
}

void EnvelopeBase::SaveSettings(kraaudiofilterhost::PresetData& preset) const {
    TableDriven::SaveSettings(preset);
    kracore::proplist::PropList custom;
    curve_->Save(custom);
    custom.Set(kRateKey, GetSampleRate());
    preset.SetCustomData(custom);
}

bool EnvelopeBase::LoadCustomData(const kraaudiofilterhost::PresetData& preset) {
    presetCurve_ = -1;
    const auto* custom = preset.GetCustomData();
    const bool smooth = curve_->AreSplinesEnabled();
    if (!custom) {
        curve_->Clear();
        return true;
    }
    if (!curve_->Load(*custom)) return false;
    curve_->EnableSplines(smooth);
    const float* rate = custom->Find<float>(kRateKey);
    if (rate && *rate > 0.0f && GetSampleRate() > 0.0f && *rate != GetSampleRate())
        MoveKeyframes(static_cast<double>(GetSampleRate()) / static_cast<double>(*rate));
    return true;
}

// ---- Processing ----

void EnvelopeBase::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    TakeSettings();
    settingsChanged_ = hasLastGain_ = false;
    rampPosition_ = rampFrames_ = 0;
    position_ = GetCurrentOffset();
    reader_.Reset();
}

void EnvelopeBase::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (TakeSettingsDirty()) {
        TakeSettings();
        settingsChanged_ = true;
    }
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        for (int done = 0; done < count;) done += ProcessPiece(from, to, done, count - done);
    });
}

int EnvelopeBase::ProcessPiece(const float* const* in, float* const* out, int first, int frames) {
    const CurveReader::Piece piece = reader_.Read(*curve_, position_, frames, gains_.data());
    bool isLevel = MakeGains(position_, piece.isLevel, gains_.data(), piece.frames);
    if (settingsChanged_ || piece.join == CurveReader::Join::kEdited)
        StartRamp(changeFrames_, gains_[0]);
    else if (piece.join == CurveReader::Join::kStep)
        StartRamp(GetEdgeFrames(), gains_[0]);
    settingsChanged_ = false;
    isLevel = AddRamp(isLevel, piece.frames);

    const auto count = static_cast<std::size_t>(piece.frames);
    for (std::size_t c = 0; c < channelCount_; ++c) {
        if (isLevel)
            dsp::vector::Multiply(out[c] + first, in[c] + first, gains_[0], count);
        else
            dsp::vector::MultiplyBy(out[c] + first, in[c] + first, gains_.data(), count);
    }
    lastGain_ = gains_[isLevel ? 0 : count - 1];
    hasLastGain_ = true;
    position_ += piece.frames;
    return piece.frames;
}

/// Lets the gain go on from the frame before: what it lacks to `gain` fades away over the ramp.
void EnvelopeBase::StartRamp(int frames, float gain) {
    rampDifference_ = lastGain_ - gain;
    rampFrames_ = hasLastGain_ && rampDifference_ != 0.0f ? frames : 0;
    rampPosition_ = 0;
}

/// Adds what is left of the ramp; answers whether one gain still holds for all frames.
bool EnvelopeBase::AddRamp(bool isLevel, int frames) {
    const int count = std::min(frames, rampFrames_ - rampPosition_);
    if (count <= 0) return isLevel;
    if (isLevel) std::fill_n(gains_.data(), frames, gains_[0]);
    for (int i = 0; i < count; ++i) {
        const auto left = static_cast<float>(rampFrames_ - rampPosition_ - i);
        gains_[static_cast<std::size_t>(i)] +=
            rampDifference_ * (left / static_cast<float>(rampFrames_));
    }
    rampPosition_ += count;
    return false;
}

}  // namespace zuc::components
