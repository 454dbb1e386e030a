#include "Components/AudioComponentZombie.h"

#include "kraaudiofilterhost/FilterCatalogue.h"

namespace zuc::components {

using kraaudiofilterhost::AudioFilterPtr;
using kraaudiofilterhost::PresetData;

AudioComponentZombie::AudioComponentZombie(const WStr& componentID,
                                           const WStr& displayName,
                                           unsigned long parameterCount,
                                           bool presetsUseChunkData)
    : AudioFilter(componentID, displayName),
      infos_(parameterCount),
      values_(parameterCount, 0.0f),
      isSet_(parameterCount, false),
      presetsUseChunkData_(presetsUseChunkData) {}

AudioComponentZombie::AudioComponentZombie(const AudioFilterPtr& filter)
    : AudioFilter(filter->GetComponentID(), filter->GetDisplayName()),
      presetsUseChunkData_(filter->DoPresetsUseChunkData()),
      filter_(filter) {
    for (const auto& bus : filter->GetInputBuses()) AddInputBus(bus);
    for (const auto& bus : filter->GetOutputBuses()) AddOutputBus(bus);
    filter->CopyHostStateTo(*this);
    for (int i = 0; i < filter->GetParameterCount(); ++i) {
        infos_.push_back(filter->GetParameterInfo(i));
        values_.push_back(filter->GetParameter(i));
    }
    isSet_.resize(values_.size(), false);
    PresetData preset(settings_);
    filter->SaveSettings(preset);
}

AudioComponentZombie::~AudioComponentZombie() = default;

void AudioComponentZombie::RequestIOConfiguration(
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) {
    using Bus = kraaudiofilterhost::AudioFilterBusDescription;
    if (filter_) return;
    ClearBusConfiguration();
    for (const auto& layout : inputs)
        AddInputBus({{}, layout, GetInputBuses().empty() ? Bus::kMain : Bus::kSideChain});
    for (const auto& layout : outputs) AddOutputBus({{}, layout, Bus::kMain});
}

int AudioComponentZombie::GetParameterCount() const { return static_cast<int>(values_.size()); }

void AudioComponentZombie::SetParameter(int index, float normalized) {
    if (IsKnown(index)) {
        values_[static_cast<std::size_t>(index)] = normalized;
        isSet_[static_cast<std::size_t>(index)] = true;
    }
    AudioFilter::SetParameter(index, normalized);
}

float AudioComponentZombie::GetParameter(int index) const {
    return IsKnown(index) ? values_[static_cast<std::size_t>(index)] : 0.0f;
}

kraaudiofilterhost::AudioFilterParameterInfoPtr AudioComponentZombie::GetParameterInfo(
    int index) const {
    return IsKnown(index) ? infos_[static_cast<std::size_t>(index)] : nullptr;
}

void AudioComponentZombie::SetParameterDisplayName(int index, const WStr& name) const {
    if (const auto info = GetParameterInfo(index)) info->SetName(name);
}

bool AudioComponentZombie::LoadSettings(const PresetData& preset) {
    PresetData(settings_).SetDataFromExistingPreset(preset);
    isSet_.assign(isSet_.size(), false);
    return true;
}

void AudioComponentZombie::SaveSettings(PresetData& preset) const {
    preset.SetDataFromExistingPreset(PresetData(settings_));
}

AudioFilterPtr AudioComponentZombie::GetReferrencedAudioFitler() const { return filter_; }

AudioFilterPtr AudioComponentZombie::CreateComponentFromZombieState() const {
    const auto filter = kraaudiofilterhost::utility::CreateAudioFilter(GetComponentID());
    if (!filter) return nullptr;
    CopyHostStateTo(*filter);
    if (!settings_.IsEmpty()) filter->LoadSettings(PresetData(settings_));
    for (std::size_t i = 0; i < values_.size(); ++i)
        if (isSet_[i]) filter->SetParameter(static_cast<int>(i), values_[i]);
    filter->SetPresetName(GetPresetName());
    filter->SetPresetDirty(IsPresetDirty());
    return filter;
}

}  // namespace zuc::components
