#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/Automation.h"
#include "host/Chain.h"
#include "host/EffectCatalogue.h"
#include "host/SideChainFeed.h"
#include "host/UserPresets.h"

namespace zuc::host {

/// A chain that processes: its effects, created, set and ready for one rate and channel count.
///
/// Audio is planar 32-bit float, as in AudioFilter. All effects that have a side chain share one.
class ChainProcessor {
public:
    /// Creates every effect, applies its preset (factory or saved by the user) and then its settings in
    /// order. With side-chain channels there must be an effect that takes them. Throws Error, or an
    /// ErrorList with every fault of the chain. [host]
    ChainProcessor(const Chain& chain,
                   const EffectCatalogue& catalogue,
                   const UserPresets& presets,
                   float rateHz,
                   std::size_t channels,
                   int maximumBlockFrames,
                   std::size_t sideChannels = 0);

    /// The part of the source that is processed, in frames; -1 for a length that is not known. Times of
    /// curves count from frame 0 of the source. [host]
    void SetSelection(std::int64_t beginFrame, std::int64_t frames);

    /// Begins at the start of the selection. [audio]
    void Resume();
    /// Processes `frames` (at most the block length) frames in place, `audio[c][i]`.
    /// `side[k][i]` are the side-chain channels at the same time as the audio; null is silence. [audio]
    void Process(float** audio, int frames, const float* const* side = nullptr);
    void Suspend();  // [audio]

    // Offline effects divide the chain: what stands between two of them is a stretch of effects that run block
    // by block. Processing, latency and tail are those of the selected stretch, at first stretch 0.
    std::size_t GetStretchCount() const { return stretches_.size(); }
    void SelectStretch(std::size_t index) { stretch_ = stretches_.at(index); }  // [host]
    /// The offline effect behind the selected stretch; null behind the last one.
    AudioFilterPtr GetOfflineEffect() const;
    /// Throws Error (kUsage) when there is an offline effect: no picture can be made of what depends on the
    /// whole source at once. [host]
    void RequireBlockwise() const;

    /// Sums over the effects. The tail of a loop that never ends is std::numeric_limits<int>::max().
    std::int64_t GetLatencyFrames() const;  // [host]
    std::int64_t GetTailFrames() const;     // [host]

    /// The chain with every name and value in its usual form, as it is saved. [host]
    const Chain& GetResolvedChain() const { return resolved_; }
    const std::vector<AudioFilterPtr>& GetFilters() const { return filters_; }
    /// The curves of each filter. [host]
    const std::vector<Automation>& GetAutomation() const { return automation_; }
    std::size_t GetChannelCount() const { return channelCount_; }
    int GetMaximumBlockFrames() const { return maximumBlockFrames_; }

private:
    /// Filters that run block by block one after the other.
    struct Stretch {
        std::size_t begin = 0;
        std::size_t end = 0;
    };
    void AddPlaceholder(const ChainStep& step);
    void FindStretches();
    void ProcessFilter(std::size_t index, float** audio, int frames);

    std::size_t channelCount_;
    int maximumBlockFrames_;
    float rateHz_;
    std::int64_t beginFrame_ = 0;            // of the selection
    std::int64_t position_ = 0;              // frame of the source that comes next
    std::vector<Automation> automation_;     // of each filter
    std::vector<std::int64_t> delayFrames_;  // by which the audio comes late to each filter
    std::vector<float*> spanIn_;
    std::vector<float*> spanOut_;
    std::vector<AudioFilterPtr> filters_;
    std::vector<Stretch> stretches_;
    Stretch stretch_;
    Chain resolved_;
    std::vector<float> silence_;             // one block
    std::vector<float*> inputs_;             // main channels, then side-chain channels
    std::vector<SideChainFeed> sideChains_;  // of each filter
};

/// Applies preset and settings of `step` to `filter`, an effect called `slug`. Returns the step with
/// names and values in their usual form. Throws Error or ErrorList. [host]
ChainStep ApplyStep(const ChainStep& step,
                    const std::string& slug,
                    const UserPresets& presets,
                    AudioFilter& filter);

}  // namespace zuc::host
