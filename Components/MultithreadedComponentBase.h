#pragma once

#include <cstddef>
#include <memory>

#include "Components/MultiChannelComponentBase.h"

namespace zuc::components {

/// Base of effects that run one independent kernel for each channel. Blocks of 2048 frames or more are
/// spread over the processors while the audio thread waits; shorter ones run on the audio thread, channel
/// after channel. The output is the same either way.
///
/// A kernel `T` is default-constructible and has
///
///     void Process(const float* in, float* out, int frames)   [audio], in place allowed
///     void Reset()                                            [audio]
///     void Suspend()                                          [audio]
///     void SetSampleRate(int rateHz)                          [host]
///     int GetLatency() const                                  frames
///
/// and shares only read-only data with the kernels of other channels. Members are defined in
/// Components/private/MultithreadedComponentBaseImpl.h and instantiated where T is known.
template <class T>
class MultithreadedComponentBase : public MultiChannelComponentBase {
public:
    /// From this block length on channels run in parallel. The length decides, not the channel count.
    static constexpr int kParallelFrames = 2048;

    ~MultithreadedComponentBase() override;

    void SetSampleRate(float rateHz) override;  // [host]
    void Process(
        float** in, float** out, int frames, Flags inFlags, Flags& outFlags) override;  // [audio]
    void Suspend() override;                                                            // [audio]
    void Resume() override;                                                             // [audio]
    int GetInitialDelay() const override;  // [host]; the first kernel's, 0 while there is none

protected:
    /// No kernels exist until OnNumberOfChannelsChanged; effects call it in their constructor.
    MultithreadedComponentBase(const WStr& componentID, const WStr& displayName, int maxChannels);

    /// Rebuilds the kernels; with SetParamsOnChannelChange(true) sets every parameter again, so that it
    /// reaches the new kernels, then their rate. [host]
    void OnNumberOfChannelsChanged(std::size_t channels) override;
    void SetParamsOnChannelChange(bool on) { setParamsOnChannelChange_ = on; }

    T* GetProcessors() { return processors_.get(); }
    const T* GetProcessors() const { return processors_.get(); }
    std::size_t GetProcessorCount() const { return processorCount_; }

private:
    struct ProcessFunctions;
    void ProcessChannel(std::size_t channel, const float* in, float* out, int frames);

    std::unique_ptr<T[]> processors_;
    std::size_t processorCount_ = 0;
    bool setParamsOnChannelChange_ = false;
};

}  // namespace zuc::components
