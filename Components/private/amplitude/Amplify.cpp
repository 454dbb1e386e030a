#include "Components/Amplify.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

#include "Components/ParameterInfos.h"
#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/VectorOps.h"
#include "kracore/Localizer.h"
#include "kracore/WStr.h"

namespace zuc::components {
namespace {

constexpr float kRampSeconds = 0.01f;
constexpr std::string_view kGainKey = "$$$/Effects/Amplify/Gain=Gain";

// clang-format off
constexpr std::array kHead{
    //           index                  name key                                             unit  kind           lo hi                         initial auto   role
    ParameterRow{Amplify::kChannelCount, "$$$/Effects/Amplify/ChannelCount=Channel Count",   "",   Kind::kLinear, 0, Amplify::kMaxChannelCount, 2,      false, Role::kFollowsLayout, {}, {}, {}, 1, 6},
    ParameterRow{Amplify::kLinkSliders,  "$$$/Effects/Amplify/LinkSliders=Link Sliders",     "",   Kind::kLinear, 0, 1,                         1,      false, Role::kLink,          {}, {}, {}, 1, 6},
};
constexpr ParameterRow kGain{Amplify::kFirstGain, kGainKey,                                  "dB", Kind::kLinear, -96, 48,                    0};
// clang-format on

constexpr auto kParameters = [] {
    std::array<ParameterRow, Amplify::kParameterCount> rows{};
    std::copy(kHead.begin(), kHead.end(), rows.begin());
    for (int c = 0; c < Amplify::kMaxChannelCount; ++c) {
        ParameterRow& row = rows[static_cast<std::size_t>(Amplify::kFirstGain + c)];
        row = kGain;
        row.index = Amplify::kFirstGain + c;
        row.element = c + 1;
    }
    return rows;
}();

/// Two channels, linked, the same gain everywhere.
constexpr PresetRow AllChannels(std::string_view nameKey, float gainDb) {
    PresetRow row(nameKey, 2, 1);
    row.count = kParameters.size();
    std::fill_n(row.values.begin() + Amplify::kFirstGain, Amplify::kMaxChannelCount, gainDb);
    return row;
}

// clang-format off
constexpr std::array kPresets{
    //          name key                                                   gain dB
    AllChannels("$$$/AudioComponents/DefaultPresetName=(Default)",           0),
    AllChannels("$$$/AudioComponents/AmplifyPresets/10dBBoost=+10dB Boost", 10),
    AllChannels("$$$/AudioComponents/AmplifyPresets/1dBBoost=+1dB Boost",    1),
    AllChannels("$$$/AudioComponents/AmplifyPresets/3dBBoost=+3dB Boost",    3),
    AllChannels("$$$/AudioComponents/AmplifyPresets/6dBBoost=+6dB Boost",    6),
    AllChannels("$$$/AudioComponents/AmplifyPresets/10dBCut=-10dB Cut",    -10),
    AllChannels("$$$/AudioComponents/AmplifyPresets/1dBCut=-1dB Cut",       -1),
    AllChannels("$$$/AudioComponents/AmplifyPresets/3dBCut=-3dB Cut",       -3),
    AllChannels("$$$/AudioComponents/AmplifyPresets/6dBCut=-6dB Cut",       -6),
};
// clang-format on
constexpr EffectTables kTables{"$$$/AudioComponents/AmplifyTitle=Amplify", kParameters, kPresets};
static_assert(IsWellFormed(kTables));

}  // namespace

Amplify::Amplify()
    : TableDriven(kTables, kAmplifyComponentID, kMaxChannelCount),
      channelCount_(GetNumberOfOutputChannels()) {
    SetupParameterInfos();
    target_ = DeriveSettings();
}

Amplify::~Amplify() = default;

// ---- Parameters ----

WStr Amplify::GainName(std::size_t channel) const {
    if (channelCount_ == 1) return kracore::config::Localizer::Localize(kGainKey);
    const auto label = GetInputBuses().front().GetLayout()[channel].label;
    if (label == kramediatypes::AudioChannelLabel::kNone)
        return kracore::utility::FromUtf8(std::to_string(channel + 1));
    return kramediatypes::AudioChannelLabelDescription(label, false);
}

void Amplify::SetupParameterInfos() {
    ClearParameterInfos();
    boost::intrusive_ptr<GenericParameterInfo> count(
        static_cast<GenericParameterInfo*>(MakeParameterInfo(kParameters[kChannelCount]).detach()),
        false);
    count->SetLoBound(1.0f);
    count->SetHiBound(static_cast<float>(channelCount_));
    AddParameterInfo(kChannelCount, count);
    AddParameterInfo(kLinkSliders, MakeParameterInfo(kParameters[kLinkSliders]));
    for (std::size_t c = 0; c < channelCount_; ++c) {
        const auto info = MakeParameterInfo(kParameters[kFirstGain + c]);
        info->SetName(GainName(c));
        AddParameterInfo(kFirstGain + c, info);
    }
}

bool Amplify::IsPresentGain(int index) const {
    return index >= kFirstGain && index < kFirstGain + static_cast<int>(channelCount_);
}

void Amplify::SetParameter(int index, float normalized) {
    if (!std::isfinite(normalized)) return;
    if (IsPresentGain(index)) {
        const float gainDb = GetParameterInfo(index)->FromNormalized(normalized);
        const bool movesAll = IsOn(kLinkSliders) && isEditing_[static_cast<std::size_t>(index)] &&
                              !IsLoadingSettings();
        if (gainDb != Value(index)) {
            const int first = movesAll ? static_cast<int>(kFirstGain) : index;
            const int last = movesAll ? kParameterCount - 1 : index;
            for (int i = first; i <= last; ++i) SetValue(i, gainDb);
        }
    } else if (index == kLinkSliders) {
        SetValue(kLinkSliders, normalized >= 0.5f ? 1.0f : 0.0f);
    }
    AudioFilter::SetParameter(index, normalized);  // NOLINT(bugprone-parent-virtual-call)
}

float Amplify::GetParameter(int index) const {
    if (index == kChannelCount) return static_cast<float>(channelCount_) / kMaxChannelCount;
    if (index < kFirstGain || index >= kParameterCount) return IsOn(kLinkSliders) ? 1.0f : 0.0f;
    const bool hasValue = IsPresentGain(index) || IsOn(kLinkSliders);
    return GetParameterInfo(kFirstGain)->ToNormalized(hasValue ? Value(index) : 0.0f);
}

void Amplify::BeginEditing(int index) {
    if (index >= 0 && index < kParameterCount) isEditing_[static_cast<std::size_t>(index)] = true;
    TableDriven::BeginEditing(index);
}

void Amplify::EndEditing(int index) {
    if (index >= 0 && index < kParameterCount) isEditing_[static_cast<std::size_t>(index)] = false;
    TableDriven::EndEditing(index);
}

Amplify::Settings Amplify::DeriveSettings() const {
    Settings settings;
    for (std::size_t c = 0; c < kMaxChannelCount; ++c) {
        // Targets are kept as they were set; what sounds stays within the range.
        const float gainDb =
            std::clamp(Value(kFirstGain + static_cast<int>(c)), kGain.lo, kGain.hi);
        // Most gains stand still while one moves, and a power costs as much as ramping twenty frames.
        const bool isKnown = gainDb == target_.gainDb[c] && target_.gain[c] != 0.0f;
        settings.gainDb[c] = gainDb;
        settings.gain[c] = isKnown ? target_.gain[c] : dsp::DbToGain(gainDb);
    }
    return settings;
}

// ---- Preparation ----

void Amplify::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    TableDriven::SetSampleRate(rateHz);
    rampFrames_ = std::max(1, static_cast<int>(kRampSeconds * GetSampleRate() + 0.5f));
    MarkSettingsDirty();
}

void Amplify::OnNumberOfChannelsChanged(std::size_t channels) {
    channelCount_ = channels;
    MarkSettingsDirty();
    SetupParameterInfos();
}

void Amplify::Suspend() { TableDriven::Suspend(); }

void Amplify::Resume() {
    TableDriven::Resume();
    TakeSettingsDirty();
    target_ = DeriveSettings();
    rampLength_ = rampPosition_ = 0;
}

// ---- Processing ----

float Amplify::CurrentGain(std::size_t channel) const {
    if (rampPosition_ == rampLength_) return target_.gain[channel];
    return rampStart_[channel] + rampStep_[channel] * static_cast<float>(rampPosition_);
}

void Amplify::StartRamp() {
    const Settings settings = DeriveSettings();
    unsigned changed = 0;
    for (std::size_t c = 0; c < kMaxChannelCount; ++c) {
        const float current = CurrentGain(c);
        changed |= current != settings.gain[c] ? 1u : 0u;
        rampStart_[c] = current;
        rampStep_[c] = (settings.gain[c] - current) / static_cast<float>(rampFrames_);
    }
    target_ = settings;
    rampLength_ = changed != 0 ? rampFrames_ : 0;
    rampPosition_ = 0;
}

void Amplify::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (TakeSettingsDirty()) StartRamp();
    ProcessGuarded(in, out, frames, [this](const float* const* from, float* const* to, int count) {
        ProcessPiece(from, to, count);
    });
}

void Amplify::ProcessPiece(const float* const* in, float* const* out, int frames) {
    const int rampCount = std::min(frames, rampLength_ - rampPosition_);
    const auto rampDone = static_cast<std::size_t>(rampPosition_);
    for (std::size_t c = 0; c < channelCount_; ++c) {
        // Each gain of a ramp comes from its frame number, not from the gain before, so that neither
        // block borders nor rounding leave a trace.
        dsp::vector::MultiplyRamp(out[c], in[c], rampStart_[c], rampStep_[c], rampDone,
                                  static_cast<std::size_t>(rampCount));
        dsp::vector::Multiply(out[c] + rampCount, in[c] + rampCount, target_.gain[c],
                              static_cast<std::size_t>(frames - rampCount));
    }
    rampPosition_ += rampCount;
}

}  // namespace zuc::components
