#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <vector>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "Components/AudioParamInterface.h"
#include "kraaudiofilterhost/AudioFilter.h"
#include "kracore/Export.h"
#include "kracore/FlushToZero.h"
#include "kracore/WStr.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::components {

using kraaudiofilterhost::AudioFilterParameterInfo;
using kraaudiofilterhost::AudioFilterParameterInfoPtr;
using kraaudiofilterhost::Flags;
using kracore::WStr;

/// Base of the effects: N channels in, N channels out, N from 1 to a maximum given at construction.
///
/// Keeps the parameter descriptions, answers the host's layout proposals, and guards processing
/// (ProcessGuarded). A new component is stereo; effects prepare for two channels in their constructor
/// and again whenever OnNumberOfChannelsChanged says otherwise.
class ZUC_API MultiChannelComponentBase : public kraaudiofilterhost::AudioFilter {
public:
    using ParameterInfos = std::map<std::size_t, AudioFilterParameterInfoPtr>;

    ~MultiChannelComponentBase() override;

    /// The description registered under `index`, or null. [host]
    AudioFilterParameterInfoPtr GetParameterInfo(int index) const override;
    /// The value in the parameter's own unit with one to two decimals, without the unit; empty for an
    /// index without description. [host]
    WStr GetParameterString(int index) const override;
    /// Rebuilds both buses for one proposed input and output layout of the same width; the input
    /// layout serves both. Anything else, the present layout and a layout without channels change
    /// nothing. Deliberate: more channels than the maximum give a mono bus, not an error. [host]
    void RequestIOConfiguration(
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& inputs,
        const std::vector<std::vector<kramediatypes::AudioChannelDescription>>& outputs) override;

    /// Installs who knows automated values; null removes it. Not owned. [host]
    void SetAudioParamInterface(AudioParamInterface* source) { keyframeSource_ = source; }
    /// Asks that source; false, and `value` untouched, without one. [audio]
    virtual bool GetKeyFrameParameter(unsigned long index, float& value);

protected:
    MultiChannelComponentBase(const WStr& componentID, const WStr& displayName, int maxChannels);

    /// The buses now have `channels` channels: size per-channel state, and re-register the parameters
    /// where they depend on the count. Never called while processing. [host]
    virtual void OnNumberOfChannelsChanged(std::size_t channels) = 0;

    /// Deliberate: the first description of an index stays, later ones are dropped. [host]
    void AddParameterInfo(std::size_t index, AudioFilterParameterInfoPtr info);
    void ClearParameterInfos();
    const ParameterInfos& GetParameterInfos() const { return parameterInfos_; }

    int GetMaxChannels() const { return maxChannels_; }

    /// Most frames that ProcessGuarded hands over at once, whatever the host's block length: the size
    /// of every per-block buffer of an effect.
    static constexpr int kMaxPieceFrames = 1024;

    /// Runs `body(in, out, frames)` over the block in pieces of at most kMaxPieceFrames, with
    /// denormals flushed to zero and with input that is not finite replaced by 0 and counted.
    /// `in` is `const float* const*` with all input channels, `out` is `float* const*`. [audio]
    template <class Body>
    void ProcessGuarded(float** in, float** out, int frames, Body&& body) {
        const kracore::utility::FlushToZeroScope flushToZero;
        for (int done = 0; done < frames;) {
            const int count = std::min(frames - done, kMaxPieceFrames);
            const GuardedPiece piece = GuardPiece(in, out, done, count);
            body(piece.in, piece.out, count);
            done += count;
        }
    }
    /// The same for one channel apart from the others, for effects with one kernel a channel. Different
    /// channels may run on different threads at once. `body` gets (const float* in, float* out, frames).
    template <class Body>
    void ProcessChannelGuarded(
        std::size_t channel, const float* in, float* out, int frames, Body&& body) {
        const kracore::utility::FlushToZeroScope flushToZero;
        for (int done = 0; done < frames;) {
            const int count = std::min(frames - done, kMaxPieceFrames);
            body(CleanPiece(channel, in + done, count), out + done, count);
            done += count;
        }
    }
    /// Sizes what ProcessGuarded works on; called after the base's own bus changes, and by effects
    /// that add buses. [host]
    void PrepareGuard();

private:
    struct GuardedPiece {
        const float* const* in;
        float* const* out;
    };
    GuardedPiece GuardPiece(float** in, float** out, int firstFrame, int frames);
    const float* CleanPiece(std::size_t channel, const float* in, int frames);

    ParameterInfos parameterInfos_;
    int maxChannels_;
    AudioParamInterface* keyframeSource_ = nullptr;

    std::vector<const float*> guardedIn_;
    std::vector<float*> guardedOut_;
    std::vector<float> cleaned_;  // kMaxPieceFrames per input channel
};

}  // namespace zuc::components
