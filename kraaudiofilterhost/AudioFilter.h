#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "kraaudiofilterhost/AudioFilterBusDescription.h"
#include "kraaudiofilterhost/AudioFilterDescriptor.h"
#include "kraaudiofilterhost/AudioFilterParameterInfo.h"
#include "kraaudiofilterhost/IAudioFilterHost.h"
#include "kraaudiofilterhost/PresetData.h"
#include "kracore/Export.h"
#include "kracore/Flags.h"
#include "kracore/PropList.h"
#include "kracore/RefCounted.h"
#include "kracore/WStr.h"
#include "kramediatypes/AudioChannels.h"

namespace kraaudiofilterhost {

using Flags = kracore::utility::Flags<unsigned long>;

/// What the host is processing for.
enum class RenderingContext { kRealTime, kPreview, kOffline };

/// For each channel of the filter the channel of the host that feeds or takes it; -1 is none.
using ChannelMap = std::vector<int>;
enum class ChannelMapDirection { kInput, kOutput };

/// An audio effect as a host holds it: operations 0 to 62 in the contract's order.
///
/// Audio is planar 32-bit float, `in[c][i]` with c below the channels of all input buses together and
/// i below `frames`; in[c] and out[c] may be the same buffer, no other overlap is allowed. Parameters
/// are numbered from 0 and cross the contract normalized to [0, 1]. Unknown indices are ignored and
/// answered with null, empty or 0. Objects are held by boost::intrusive_ptr.
///
/// Order of calls: construct, SetSampleRate, SetBlockSize, RequestIOConfiguration [host]; Resume,
/// any number of Process, Suspend [audio]. Rate, block size and layout change only while suspended.
/// Each operation says what this base does.
class ZUC_API AudioFilter : public virtual kracore::utility::RefCountedObject {
public:
    // ---- The operations of the contract. Their order is fixed; a test compares it. ----
    ~AudioFilter() override;  // 0

    /// Installs who is told of changes; not owned, may be null. [host]
    virtual void SetAudioFilterHost(IAudioFilterHost* host);  // 1
    /// Hz; values that are not positive and finite are ignored. [host]
    virtual void SetSampleRate(float rateHz);  // 2
    /// Largest block the host means to send, in frames; at least 1. [host]
    virtual void SetBlockSize(int frames);          // 3
    virtual int GetMaxProcessingBlockSize() const;  // 4
    /// Position of the next block in the source, in frames; stored. [audio]
    virtual void SetCurrentOffset(std::int64_t frames);  // 5
    /// Copies input to output; output channels without an input become silent. [audio]
    virtual void Process(float** in, float** out, int frames, Flags inFlags, Flags& outFlags);  // 6
    /// Process through the channel maps. `in` and `out` are the host's channels; host channels that
    /// no output map names pass unchanged. Without maps in use the same as Process. [audio]
    virtual void ProcessWithMapping(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags);  // 7
    virtual bool IsOfflineProcess() const;                                     // 8: false
    virtual bool CanChangeDuration() const;                                    // 9: false
    virtual bool IsGenerator() const;                                          // 10: false
    /// Selection start and length in seconds; stored. [host]
    virtual void SetSelectionLeft(double seconds);                      // 11
    virtual double GetSelectionLeft() const;                            // 12
    virtual void SetCurrentDuration(double seconds);                    // 13
    virtual double GetCurrentDuration() const;                          // 14
    virtual double GetProcessedDuration() const;                        // 15: current
    virtual double GetProcessedPosition(double originalSeconds) const;  // 16: the same
    virtual double GetOriginalPosition(double processedSeconds) const;  // 17: the same
    virtual double GetProcessedScale() const;                           // 18: 1
    /// Most frames one offline call yields for that many input frames. [host]
    virtual int GetMaxOutputBlockSize(int inputFrames) const;  // 19: the same
    /// How long the output goes on after the input ended, in frames. [host]
    virtual int GetTail() const;                                         // 20: 0
    virtual int OfflineProcess(float** in, float** out, int, int, int);  // 21: 0
    virtual bool OfflineProcessFinished();                               // 22: true
    virtual void Suspend();                                              // 23
    virtual void Resume();                                               // 24
    virtual void SetRenderingContext(RenderingContext context);          // 25
    virtual void SetDoSpectral(bool on);                                 // 26
    virtual void SetPreviewMode(bool on);                                // 27
    virtual int GetParameterCount() const;                               // 28: 0
    /// SetParameter, then tells the host of the change. [host]
    virtual void SetParameterAutomated(int index, float normalized);  // 29
    /// Keeps the value as given; values that are not finite are refused and the old one stays. [host]
    virtual void SetParameter(int index, float normalized);                 // 30
    virtual float GetParameter(int index) const;                            // 31
    virtual AudioFilterParameterInfoPtr GetParameterInfo(int index) const;  // 32: null
    virtual WStr GetParameterString(int index) const;                       // 33: by its info
    /// Samples of curve `curve` at `points` even steps; returns how many were written. [host]
    virtual std::size_t GetCurveData(int curve,
                                     std::size_t points,
                                     std::vector<float>& samples);  // 34
    virtual float GetCurrentPresetVersion() const;                  // 35: 1
    virtual bool DoPresetsUseChunkData() const;                     // 36: false
    /// One preset for each factory preset, made on a clone so that this filter stays as it is. [host]
    virtual void GetFactoryDefaultPresets(PresetList& presets) const;  // 37
    virtual int GetNumFactoryPresets() const;                          // 38: 0
    virtual WStr GetFactoryPresetName(int preset) const;               // 39: empty
    virtual void SetFactoryPreset(int preset);                         // 40
    /// Applies saved settings between StartLoadingSettings and FinishLoadingSettings. Settings of a
    /// newer version, with a wrong parameter count or a value that is not finite are refused whole:
    /// false, nothing changed. Unknown keys are kept and saved again. [host]
    virtual bool LoadSettings(const PresetData& preset);    // 41
    virtual void SaveSettings(PresetData& preset) const;    // 42
    virtual bool LoadChunkData(const PresetData& preset);   // 43: false
    virtual bool SaveChunkData(PresetData& preset) const;   // 44: false
    virtual bool LoadCustomData(const PresetData& preset);  // 45: true
    virtual bool ArePresetsSafeForPlayback() const;         // 46: true
    /// Latency in frames with the present settings. [host]
    virtual int GetInitialDelay() const;  // 47: 0
    /// Proposes one layout per input bus and one per output bus. [host]
    virtual void RequestIOConfiguration(
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>&
            outputs);                                                      // 48: nothing
    virtual bool CanUseSideChaining() const;                               // 49: false
    virtual bool HasCustomEditor() const;                                  // 50: false
    virtual boost::intrusive_ptr<AudioFilterEditor> CreateCustomEditor();  // 51: null
    /// A new filter of the same kind with the same rate, buses, maps, parameters and settings; null
    /// when the catalogue does not know this one. [host]
    virtual boost::intrusive_ptr<AudioFilter> Clone() const;  // 52
    virtual bool IsZombie() const;                            // 53: false
    virtual void BeginEditing(int index);                     // 54: tells the host
    virtual void EndEditing(int index);                       // 55: tells the host
    virtual void StartLoadingSettings();                      // 56
    virtual void FinishLoadingSettings(bool loaded);          // 57
    virtual boost::intrusive_ptr<AudioFilterDescriptor> CreateFilterDescriptor(
        const PluginLocator& locator);  // 58

protected:
    virtual bool LoadParams(const PresetData& preset);        // 59
    virtual void SaveParams(std::list<float>& values) const;  // 60
    virtual bool ValidatePresetVersion(float version) const;  // 61
    virtual bool ValidateParamCount(int count) const;         // 62

public:
    // ---- What the host also asks. ----
    const WStr& GetComponentID() const { return componentID_; }
    const WStr& GetDisplayName() const { return displayName_; }
    float GetSampleRate() const { return sampleRateHz_; }  // Hz; -1 until it is set
    bool IsLoadingSettings() const { return loadingDepth_ > 0; }
    std::int64_t GetCurrentOffset() const { return currentOffset_; }
    RenderingContext GetRenderingContext() const { return renderingContext_; }
    bool IsPreviewMode() const { return previewMode_; }

    void GetBusConfiguration(std::vector<AudioFilterBusDescription>& inputs,
                             std::vector<AudioFilterBusDescription>& outputs) const;
    const std::vector<AudioFilterBusDescription>& GetInputBuses() const { return inputBuses_; }
    const std::vector<AudioFilterBusDescription>& GetOutputBuses() const { return outputBuses_; }
    /// Channels of all buses together.
    std::size_t GetNumberOfInputChannels() const;
    std::size_t GetNumberOfOutputChannels() const;

    /// `hostChannels` is the number of host channels that ProcessWithMapping will be given. [host]
    void SetChannelMap(ChannelMapDirection direction,
                       const ChannelMap& map,
                       std::size_t hostChannels);
    const ChannelMap& GetChannelMap(ChannelMapDirection direction) const;
    std::size_t GetMappedHostChannels() const { return mappedHostChannels_; }
    void SetUseChannelMaps(bool use) { useChannelMaps_ = use; }
    bool AreChannelMapsUsed() const { return useChannelMaps_; }

    /// Name of a factory preset in files and scripts, whatever the language: the last part of its text
    /// key ("10dBBoost"). Empty when it has none. [host]
    std::string GetFactoryPresetIdentifier(int preset) const {
        const bool isKnown = preset >= 0 && preset < static_cast<int>(presetIdentifiers_.size());
        return isKnown ? presetIdentifiers_[static_cast<std::size_t>(preset)] : std::string();
    }

    const WStr& GetPresetName() const { return presetName_; }
    void SetPresetName(const WStr& name) { presetName_ = name; }
    bool IsPresetDirty() const { return presetDirty_; }
    void SetPresetDirty(bool dirty) { presetDirty_ = dirty; }

    /// Copies what a clone or a stand-in shares with this filter besides its parameters. [host]
    void CopyHostStateTo(AudioFilter& other) const;

    /// Input samples so far that were not finite; they count as 0. [any]
    std::uint64_t GetNonFiniteSampleCount() const {
        return nonFiniteSamples_.load(std::memory_order_relaxed);
    }

protected:
    AudioFilter(const WStr& componentID, const WStr& displayName);

    IAudioFilterHost* GetAudioFilterHost() const { return host_; }
    void AddInputBus(const AudioFilterBusDescription& bus);
    void AddOutputBus(const AudioFilterBusDescription& bus);
    void ClearBusConfiguration();
    /// One for each factory preset. [host]
    void SetFactoryPresetIdentifiers(std::vector<std::string> identifiers) {
        presetIdentifiers_ = std::move(identifiers);
    }
    /// Makes room for `count` values, so that SetParameter allocates nothing. [host]
    void ReserveParameters(std::size_t count) { parameters_.resize(count, 0.0f); }
    void CountNonFiniteSamples(std::uint64_t count) {
        nonFiniteSamples_.fetch_add(count, std::memory_order_relaxed);
    }

private:
    WStr componentID_;
    WStr displayName_;
    IAudioFilterHost* host_ = nullptr;
    float sampleRateHz_ = -1.0f;
    int blockFrames_ = 1024;
    std::int64_t currentOffset_ = 0;
    double selectionLeftSeconds_ = 0.0;
    double currentDurationSeconds_ = 0.0;
    RenderingContext renderingContext_ = RenderingContext::kRealTime;
    bool doSpectral_ = false;
    bool previewMode_ = false;
    int loadingDepth_ = 0;
    std::vector<float> parameters_;  // normalized
    std::vector<AudioFilterBusDescription> inputBuses_;
    std::vector<AudioFilterBusDescription> outputBuses_;

    ChannelMap inputMap_;
    ChannelMap outputMap_;
    std::size_t mappedHostChannels_ = 0;
    bool useChannelMaps_ = false;
    void PrepareMapping();
    std::vector<float> mappedInput_;  // one block per channel: maps may cross, so inputs are copied
    std::vector<float> unmappedOutput_;
    std::vector<float*> mappedIn_;
    std::vector<float*> mappedOut_;

    std::vector<std::string> presetIdentifiers_;
    WStr presetName_;
    bool presetDirty_ = false;
    kracore::proplist::PropList unknownSettings_;
    std::atomic<std::uint64_t> nonFiniteSamples_{0};
};

using AudioFilterPtr = boost::intrusive_ptr<AudioFilter>;

}  // namespace kraaudiofilterhost
