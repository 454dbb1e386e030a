#include "kraaudiofilterhost/AudioFilter.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "kraaudiofilterhost/FilterCatalogue.h"

namespace kraaudiofilterhost {
namespace {

std::size_t CountChannels(const std::vector<AudioFilterBusDescription>& buses) {
    return std::accumulate(
        buses.begin(), buses.end(), std::size_t{0},
        [](std::size_t sum, const auto& bus) { return sum + bus.GetChannelCount(); });
}

void CopyOrClear(
    float** in, std::size_t inChannels, float** out, std::size_t outChannels, int frames) {
    for (std::size_t c = 0; c < outChannels; ++c) {
        if (c >= inChannels)
            std::fill_n(out[c], frames, 0.0f);
        else if (out[c] != in[c])
            std::copy_n(in[c], frames, out[c]);
    }
}

}  // namespace

AudioFilter::AudioFilter(const WStr& componentID, const WStr& displayName)
    : componentID_(componentID), displayName_(displayName) {}

AudioFilter::~AudioFilter() = default;

// ---- Preparation ----

void AudioFilter::SetAudioFilterHost(IAudioFilterHost* host) { host_ = host; }

void AudioFilter::SetSampleRate(float rateHz) {
    if (std::isfinite(rateHz) && rateHz > 0.0f) sampleRateHz_ = rateHz;
}

void AudioFilter::SetBlockSize(int frames) {
    blockFrames_ = std::max(1, frames);
    PrepareMapping();
}

int AudioFilter::GetMaxProcessingBlockSize() const { return blockFrames_; }

void AudioFilter::RequestIOConfiguration(
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>&,
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>&) {}

void AudioFilter::GetBusConfiguration(std::vector<AudioFilterBusDescription>& inputs,
                                      std::vector<AudioFilterBusDescription>& outputs) const {
    inputs = inputBuses_;
    outputs = outputBuses_;
}

void AudioFilter::AddInputBus(const AudioFilterBusDescription& bus) {
    inputBuses_.push_back(bus);
    PrepareMapping();
}

void AudioFilter::AddOutputBus(const AudioFilterBusDescription& bus) {
    outputBuses_.push_back(bus);
    PrepareMapping();
}

void AudioFilter::ClearBusConfiguration() {
    inputBuses_.clear();
    outputBuses_.clear();
}

std::size_t AudioFilter::GetNumberOfInputChannels() const { return CountChannels(inputBuses_); }

std::size_t AudioFilter::GetNumberOfOutputChannels() const { return CountChannels(outputBuses_); }

void AudioFilter::SetChannelMap(ChannelMapDirection direction,
                                const ChannelMap& map,
                                std::size_t hostChannels) {
    (direction == ChannelMapDirection::kInput ? inputMap_ : outputMap_) = map;
    mappedHostChannels_ = hostChannels;
    PrepareMapping();
}

void AudioFilter::PrepareMapping() {
    if (mappedHostChannels_ == 0) return;
    const auto blockFrames = static_cast<std::size_t>(blockFrames_);
    mappedIn_.resize(GetNumberOfInputChannels());
    mappedOut_.resize(GetNumberOfOutputChannels());
    mappedInput_.resize(mappedIn_.size() * blockFrames);
    unmappedOutput_.resize(blockFrames);
}

const ChannelMap& AudioFilter::GetChannelMap(ChannelMapDirection direction) const {
    return direction == ChannelMapDirection::kInput ? inputMap_ : outputMap_;
}

// ---- Processing ----

void AudioFilter::SetCurrentOffset(std::int64_t frames) { currentOffset_ = frames; }

void AudioFilter::Process(float** in, float** out, int frames, Flags, Flags&) {
    CopyOrClear(in, GetNumberOfInputChannels(), out, GetNumberOfOutputChannels(), frames);
}

void AudioFilter::ProcessWithMapping(
    float** in, float** out, int frames, Flags inFlags, Flags& outFlags) {
    if (!useChannelMaps_ || mappedHostChannels_ == 0) {
        Process(in, out, frames, inFlags, outFlags);
        return;
    }
    const auto hostChannel = [this](const ChannelMap& map, std::size_t c) {
        const int host = c < map.size() ? map[c] : -1;
        return host < static_cast<int>(mappedHostChannels_) ? host : -1;
    };
    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, blockFrames_);
        for (std::size_t c = 0; c < mappedIn_.size(); ++c) {
            const int host = hostChannel(inputMap_, c);
            mappedIn_[c] = mappedInput_.data() + c * static_cast<std::size_t>(blockFrames_);
            if (host < 0)
                std::fill_n(mappedIn_[c], count, 0.0f);
            else
                std::copy_n(in[host] + done, count, mappedIn_[c]);
        }
        for (std::size_t c = 0; c < mappedOut_.size(); ++c) {
            const int host = hostChannel(outputMap_, c);
            mappedOut_[c] = host < 0 ? unmappedOutput_.data() : out[host] + done;
        }
        Process(mappedIn_.data(), mappedOut_.data(), count, inFlags, outFlags);
        done += count;
    }
    for (std::size_t host = 0; host < mappedHostChannels_; ++host) {
        const bool mapped = std::find(outputMap_.begin(), outputMap_.end(),
                                      static_cast<int>(host)) != outputMap_.end();
        if (!mapped && out[host] != in[host]) std::copy_n(in[host], frames, out[host]);
    }
}

void AudioFilter::Suspend() {}
void AudioFilter::Resume() {}
void AudioFilter::SetRenderingContext(RenderingContext context) { renderingContext_ = context; }
void AudioFilter::SetDoSpectral(bool on) { doSpectral_ = on; }
void AudioFilter::SetPreviewMode(bool on) { previewMode_ = on; }
int AudioFilter::GetTail() const { return 0; }
int AudioFilter::GetInitialDelay() const { return 0; }

// ---- Offline processing and duration ----

bool AudioFilter::IsOfflineProcess() const { return false; }
bool AudioFilter::CanChangeDuration() const { return false; }
bool AudioFilter::IsGenerator() const { return false; }
void AudioFilter::SetSelectionLeft(double seconds) { selectionLeftSeconds_ = seconds; }
double AudioFilter::GetSelectionLeft() const { return selectionLeftSeconds_; }
void AudioFilter::SetCurrentDuration(double seconds) { currentDurationSeconds_ = seconds; }
double AudioFilter::GetCurrentDuration() const { return currentDurationSeconds_; }
double AudioFilter::GetProcessedDuration() const { return currentDurationSeconds_; }
double AudioFilter::GetProcessedPosition(double originalSeconds) const { return originalSeconds; }
double AudioFilter::GetOriginalPosition(double processedSeconds) const { return processedSeconds; }
double AudioFilter::GetProcessedScale() const { return 1.0; }
int AudioFilter::GetMaxOutputBlockSize(int inputFrames) const { return inputFrames; }
int AudioFilter::OfflineProcess(float**, float**, int, int, int) { return 0; }
bool AudioFilter::OfflineProcessFinished() { return true; }

// ---- Parameters ----

int AudioFilter::GetParameterCount() const { return 0; }

void AudioFilter::SetParameterAutomated(int index, float normalized) {
    if (!std::isfinite(normalized) || index < 0 || index >= GetParameterCount()) return;
    SetParameter(index, normalized);
    presetDirty_ = true;
    if (host_) host_->OnParameterAutomated(*this, index, normalized);
}

void AudioFilter::SetParameter(int index, float normalized) {
    if (!std::isfinite(normalized) || index < 0 || index >= GetParameterCount()) return;
    if (static_cast<std::size_t>(index) >= parameters_.size())
        ReserveParameters(static_cast<std::size_t>(GetParameterCount()));
    parameters_[static_cast<std::size_t>(index)] = normalized;
}

float AudioFilter::GetParameter(int index) const {
    const bool known = index >= 0 && static_cast<std::size_t>(index) < parameters_.size();
    return known ? parameters_[static_cast<std::size_t>(index)] : 0.0f;
}

AudioFilterParameterInfoPtr AudioFilter::GetParameterInfo(int) const { return nullptr; }

WStr AudioFilter::GetParameterString(int index) const {
    const auto info = GetParameterInfo(index);
    return info ? info->GetParameterString(GetParameter(index)) : WStr();
}

std::size_t AudioFilter::GetCurveData(int, std::size_t, std::vector<float>& samples) {
    samples.clear();
    return 0;
}

void AudioFilter::BeginEditing(int index) {
    if (host_) host_->OnBeginEditing(*this, index);
}

void AudioFilter::EndEditing(int index) {
    if (host_) host_->OnEndEditing(*this, index);
}

// ---- Presets and settings ----

float AudioFilter::GetCurrentPresetVersion() const { return 1.0f; }
bool AudioFilter::DoPresetsUseChunkData() const { return false; }
int AudioFilter::GetNumFactoryPresets() const { return 0; }
WStr AudioFilter::GetFactoryPresetName(int) const { return {}; }
void AudioFilter::SetFactoryPreset(int) {}
bool AudioFilter::LoadChunkData(const PresetData&) { return false; }
bool AudioFilter::SaveChunkData(PresetData&) const { return false; }
bool AudioFilter::LoadCustomData(const PresetData&) { return true; }
bool AudioFilter::ArePresetsSafeForPlayback() const { return true; }

void AudioFilter::GetFactoryDefaultPresets(PresetList& presets) const {
    presets.clear();
    const auto model = Clone();
    if (!model) return;
    for (int p = 0; p < GetNumFactoryPresets(); ++p) {
        model->SetFactoryPreset(p);
        kracore::proplist::PropList& list = presets.emplace_back();
        PresetData preset(list);
        model->SaveSettings(preset);
        preset.SetName(GetFactoryPresetName(p));
    }
}

void AudioFilter::StartLoadingSettings() { ++loadingDepth_; }

void AudioFilter::FinishLoadingSettings(bool loaded) {
    if (loadingDepth_ > 0) --loadingDepth_;
    if (loaded && host_) host_->OnSettingsLoaded(*this);
}

bool AudioFilter::LoadSettings(const PresetData& preset) {
    const WStr identifier = preset.GetComponentID();
    if (!identifier.empty() && identifier != componentID_) return false;
    if (preset.HasVersion() && !ValidatePresetVersion(preset.GetVersion())) return false;

    StartLoadingSettings();
    const bool loaded = (DoPresetsUseChunkData() ? LoadChunkData(preset) : LoadParams(preset)) &&
                        LoadCustomData(preset);
    if (loaded) {
        presetName_ = preset.GetName();
        presetDirty_ = false;
        unknownSettings_.Clear();
        for (const auto& [key, value] : preset.GetList().GetEntries())
            if (!PresetData::IsKnownKey(key)) unknownSettings_.Set(key, value);
    }
    FinishLoadingSettings(loaded);
    return loaded;
}

void AudioFilter::SaveSettings(PresetData& preset) const {
    preset.SetComponentID(componentID_);
    preset.SetName(presetName_);
    preset.SetVersion(GetCurrentPresetVersion());
    std::list<float> values;
    SaveParams(values);
    preset.SetParams(values);
    if (DoPresetsUseChunkData()) SaveChunkData(preset);
    for (const auto& [key, value] : unknownSettings_.GetEntries()) preset.GetList().Set(key, value);
}

bool AudioFilter::LoadParams(const PresetData& preset) {
    std::list<float> values;
    if (!preset.GetParams(values) || !ValidateParamCount(static_cast<int>(values.size())))
        return false;
    if (!std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); }))
        return false;
    int index = 0;
    for (const float value : values) SetParameterAutomated(index++, value);
    return true;
}

void AudioFilter::SaveParams(std::list<float>& values) const {
    values.clear();
    for (int i = 0; i < GetParameterCount(); ++i) values.push_back(GetParameter(i));
}

bool AudioFilter::ValidatePresetVersion(float version) const {
    return std::isfinite(version) && version <= GetCurrentPresetVersion();
}

bool AudioFilter::ValidateParamCount(int count) const { return count == GetParameterCount(); }

// ---- Editors, copies, descriptors ----

bool AudioFilter::CanUseSideChaining() const { return false; }
bool AudioFilter::HasCustomEditor() const { return false; }
boost::intrusive_ptr<AudioFilterEditor> AudioFilter::CreateCustomEditor() { return nullptr; }
bool AudioFilter::IsZombie() const { return false; }

boost::intrusive_ptr<AudioFilter> AudioFilter::Clone() const {
    auto copy = utility::CreateAudioFilter(componentID_);
    if (!copy) return nullptr;
    CopyHostStateTo(*copy);
    kracore::proplist::PropList settings;
    PresetData preset(settings);
    SaveSettings(preset);
    copy->LoadSettings(preset);
    copy->presetDirty_ = presetDirty_;
    return copy;
}

void AudioFilter::CopyHostStateTo(AudioFilter& other) const {
    if (sampleRateHz_ > 0.0f) other.SetSampleRate(sampleRateHz_);
    other.SetBlockSize(blockFrames_);
    const auto layouts = [](const std::vector<AudioFilterBusDescription>& buses) {
        std::vector<kramediatypes::AudioChannelLayout> result;
        for (const auto& bus : buses) result.push_back(bus.GetLayout());
        return result;
    };
    other.RequestIOConfiguration(layouts(inputBuses_), layouts(outputBuses_));
    other.SetChannelMap(ChannelMapDirection::kInput, inputMap_, mappedHostChannels_);
    other.SetChannelMap(ChannelMapDirection::kOutput, outputMap_, mappedHostChannels_);
    other.useChannelMaps_ = useChannelMaps_;
    other.presetName_ = presetName_;
    other.presetDirty_ = presetDirty_;
}

boost::intrusive_ptr<AudioFilterDescriptor> AudioFilter::CreateFilterDescriptor(
    const PluginLocator& locator) {
    boost::intrusive_ptr<AudioFilterDescriptor> descriptor(new AudioFilterDescriptor);
    descriptor->locator = locator;
    descriptor->identifier = componentID_;
    descriptor->displayName = displayName_;
    descriptor->parameterCount = static_cast<std::size_t>(std::max(0, GetParameterCount()));
    descriptor->inputChannelCount = GetNumberOfInputChannels();
    descriptor->outputChannelCount = GetNumberOfOutputChannels();
    descriptor->presetVersion = GetCurrentPresetVersion();
    descriptor->isOffline = IsOfflineProcess();
    descriptor->isGenerator = IsGenerator();
    descriptor->canChangeDuration = CanChangeDuration();
    descriptor->canUseSideChaining = CanUseSideChaining();
    descriptor->hasCustomEditor = HasCustomEditor();
    return descriptor;
}

}  // namespace kraaudiofilterhost
