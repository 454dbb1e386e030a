#include "Components/MultiChannelComponentBase.h"

#include <string_view>

#include "kraaudiodsp/vector/VectorOps.h"
#include "kracore/Localizer.h"
#include "kracore/Numbers.h"

namespace zuc::components {
namespace {

using kraaudiofilterhost::AudioFilterBusDescription;
using kracore::config::Localizer;

constexpr std::string_view kStereoIn = "$$$/Effects/StereoIn=Stereo In";
constexpr std::string_view kStereoOut = "$$$/Effects/StereoOut=Stereo Out";

struct BusNames {
    std::string_view in;
    std::string_view out;
};

BusNames NamesFor(std::size_t channels) {
    switch (channels) {
        case 1:
            return {"$$$/Effects/MonoIn=Mono In", "$$$/Effects/MonoOut=Mono Out"};
        case 2:
            return {kStereoIn, kStereoOut};
        case 6:
            return {"$$$/Effects/Surround51In=Surround 5.1 In",
                    "$$$/Effects/Surround51Out=Surround 5.1 Out"};
        default:
            return {"$$$/Effects/MultiIn=Multichannel In", "$$$/Effects/MultiOut=Multichannel Out"};
    }
}

}  // namespace

AudioParamInterface::~AudioParamInterface() = default;

bool AudioParamInterface::GetKeyFrameParameter(unsigned long, float&) { return false; }

MultiChannelComponentBase::MultiChannelComponentBase(const WStr& componentID,
                                                     const WStr& displayName,
                                                     int maxChannels)
    : AudioFilter(componentID, displayName), maxChannels_(maxChannels) {
    AddInputBus(AudioFilterBusDescription::CreateStereo(Localizer::Localize(kStereoIn),
                                                        AudioFilterBusDescription::kMain));
    AddOutputBus(AudioFilterBusDescription::CreateStereo(Localizer::Localize(kStereoOut),
                                                         AudioFilterBusDescription::kMain));
    PrepareGuard();
}

MultiChannelComponentBase::~MultiChannelComponentBase() { ClearParameterInfos(); }

// ---- Parameter descriptions ----

void MultiChannelComponentBase::AddParameterInfo(std::size_t index,
                                                 AudioFilterParameterInfoPtr info) {
    parameterInfos_.emplace(index, std::move(info));
}

void MultiChannelComponentBase::ClearParameterInfos() { parameterInfos_.clear(); }

AudioFilterParameterInfoPtr MultiChannelComponentBase::GetParameterInfo(int index) const {
    const auto found = parameterInfos_.find(static_cast<std::size_t>(index));
    return found == parameterInfos_.end() ? nullptr : found->second;
}

WStr MultiChannelComponentBase::GetParameterString(int index) const {
    const auto info = GetParameterInfo(index);
    if (!info) return {};
    return kracore::utility::NumberToString(info->FromNormalized(GetParameter(index)), 1, 2, {},
                                            31);
}

bool MultiChannelComponentBase::GetKeyFrameParameter(unsigned long index, float& value) {
    return keyframeSource_ && keyframeSource_->GetKeyFrameParameter(index, value);
}

// ---- Buses ----

void MultiChannelComponentBase::RequestIOConfiguration(
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
    const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) {
    if (inputs.size() != 1 || outputs.size() != 1) return;
    const auto& proposed = inputs.front();
    const auto isPresent = [](const std::vector<AudioFilterBusDescription>& buses,
                              const kramediatypes::AudioChannelLayout& layout) {
        return buses.size() == 1 && buses.front().GetLayout() == layout;
    };
    if (isPresent(GetInputBuses(), proposed) && isPresent(GetOutputBuses(), outputs.front()))
        return;
    if (proposed.size() != outputs.front().size() || proposed.empty()) return;

    const bool tooWide = proposed.size() > static_cast<std::size_t>(maxChannels_);
    const auto layout = tooWide ? kramediatypes::MonoLayout() : proposed;
    const BusNames names = NamesFor(layout.size());
    ClearBusConfiguration();
    AddInputBus({Localizer::Localize(names.in), layout, AudioFilterBusDescription::kMain});
    AddOutputBus({Localizer::Localize(names.out), layout, AudioFilterBusDescription::kMain});
    PrepareGuard();
    OnNumberOfChannelsChanged(layout.size());
    if (auto* host = GetAudioFilterHost()) host->OnBusConfigurationChanged(*this);
}

// ---- Guarded processing ----

void MultiChannelComponentBase::PrepareGuard() {
    guardedIn_.assign(GetNumberOfInputChannels(), nullptr);
    guardedOut_.assign(GetNumberOfOutputChannels(), nullptr);
    cleaned_.resize(guardedIn_.size() * kMaxPieceFrames);
}

const float* MultiChannelComponentBase::CleanPiece(std::size_t channel,
                                                   const float* in,
                                                   int frames) {
    const auto count = static_cast<std::size_t>(frames);
    const std::size_t bad = dsp::vector::CountNonFinite(in, count);
    if (bad == 0) return in;
    CountNonFiniteSamples(bad);
    float* const clean = cleaned_.data() + channel * kMaxPieceFrames;
    dsp::vector::CopyFinite(clean, in, count);
    return clean;
}

MultiChannelComponentBase::GuardedPiece MultiChannelComponentBase::GuardPiece(float** in,
                                                                              float** out,
                                                                              int firstFrame,
                                                                              int frames) {
    for (std::size_t c = 0; c < guardedIn_.size(); ++c)
        guardedIn_[c] = CleanPiece(c, in[c] + firstFrame, frames);
    for (std::size_t c = 0; c < guardedOut_.size(); ++c) guardedOut_[c] = out[c] + firstFrame;
    return {guardedIn_.data(), guardedOut_.data()};
}

}  // namespace zuc::components
