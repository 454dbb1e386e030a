#pragma once

#include <vector>

#include "kraaudiofilterhost/AudioFilter.h"
#include "kracore/PropList.h"

namespace zuc::components {

/// Stands in a chain for an effect that cannot be created or run. Passes audio, keeps identity, parameters
/// and settings as they are, so that they survive saving, and turns back into the effect when it can.
class ZUC_API AudioComponentZombie : public kraaudiofilterhost::AudioFilter {
public:
    using WStr = kracore::WStr;

    /// For an effect known only by its identity. [host]
    AudioComponentZombie(const WStr& componentID,
                         const WStr& displayName,
                         unsigned long parameterCount,
                         bool presetsUseChunkData);
    /// Takes over an existing filter's identity, buses, maps, sizes, preset and parameters. [host]
    explicit AudioComponentZombie(const kraaudiofilterhost::AudioFilterPtr& filter);
    ~AudioComponentZombie() override;

    /// Takes any layouts, and keeps the buses that it took over from a filter. [host]
    void RequestIOConfiguration(
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) override;
    int GetParameterCount() const override;
    /// Deliberate: unlike an effect it keeps any value, finite or not. [host]
    void SetParameter(int index, float normalized) override;
    float GetParameter(int index) const override;
    kraaudiofilterhost::AudioFilterParameterInfoPtr GetParameterInfo(int index) const override;
    bool DoPresetsUseChunkData() const override { return presetsUseChunkData_; }
    /// Keeps the whole preset for the next save; never refuses one. [host]
    bool LoadSettings(const kraaudiofilterhost::PresetData& preset) override;
    void SaveSettings(kraaudiofilterhost::PresetData& preset) const override;
    bool IsZombie() const override { return true; }
    /// The filter it was made from, or null. Deliberate: the name is spelled so in the contract. [host]
    virtual kraaudiofilterhost::AudioFilterPtr GetReferrencedAudioFitler() const;

    void SetParameterDisplayName(int index, const WStr& name) const;
    /// The real effect with the placeholder's buses, maps, preset name, settings and the parameter values
    /// that were set after the settings were loaded; null when it still cannot be created. [host]
    kraaudiofilterhost::AudioFilterPtr CreateComponentFromZombieState() const;

private:
    bool IsKnown(int index) const {
        return index >= 0 && static_cast<std::size_t>(index) < values_.size();
    }

    mutable kracore::proplist::PropList settings_;
    std::vector<kraaudiofilterhost::AudioFilterParameterInfoPtr> infos_;
    std::vector<float> values_;  // normalized
    std::vector<bool> isSet_;    // since the settings were loaded
    bool presetsUseChunkData_;
    kraaudiofilterhost::AudioFilterPtr filter_;
};

}  // namespace zuc::components
