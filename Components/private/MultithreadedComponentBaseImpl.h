#pragma once

#include <atomic>
#include <vector>

#include <boost/bind/bind.hpp>
#include <boost/function.hpp>

#include "Components/MultithreadedComponentBase.h"
#include "kracore/Executor.h"

namespace zuc::components {

/// One block on its way through all processors: each invocation claims one channel.
template <class T>
struct MultithreadedComponentBase<T>::ProcessFunctions {
    std::atomic<int> nextChannel{0};
    MultithreadedComponentBase* component = nullptr;
    float** in = nullptr;
    float** out = nullptr;
    int frames = 0;

    void ProcessOne(int) {
        const auto channel = static_cast<std::size_t>(nextChannel.fetch_add(1));
        component->ProcessChannel(channel, in[channel], out[channel], frames);
    }
};

template <class T>
MultithreadedComponentBase<T>::MultithreadedComponentBase(const WStr& componentID,
                                                          const WStr& displayName,
                                                          int maxChannels)
    : MultiChannelComponentBase(componentID, displayName, maxChannels) {}

template <class T>
MultithreadedComponentBase<T>::~MultithreadedComponentBase() = default;

template <class T>
void MultithreadedComponentBase<T>::SetSampleRate(float rateHz) {
    if (rateHz == GetSampleRate()) return;
    MultiChannelComponentBase::SetSampleRate(rateHz);
    for (std::size_t c = 0; c < processorCount_; ++c)
        processors_[c].SetSampleRate(static_cast<int>(GetSampleRate()));
}

template <class T>
void MultithreadedComponentBase<T>::OnNumberOfChannelsChanged(std::size_t channels) {
    std::vector<float> values;
    if (setParamsOnChannelChange_)
        for (int i = 0; i < GetParameterCount(); ++i) values.push_back(GetParameter(i));
    processorCount_ = 0;
    processors_ = std::make_unique<T[]>(channels);
    processorCount_ = channels;
    for (std::size_t i = 0; i < values.size(); ++i) SetParameter(static_cast<int>(i), values[i]);
    const int rateHz = static_cast<int>(GetSampleRate());
    if (rateHz > 0)
        for (std::size_t c = 0; c < processorCount_; ++c) processors_[c].SetSampleRate(rateHz);
}

template <class T>
void MultithreadedComponentBase<T>::Resume() {
    MultiChannelComponentBase::Resume();
    for (std::size_t c = 0; c < processorCount_; ++c) processors_[c].Reset();
}

template <class T>
void MultithreadedComponentBase<T>::Suspend() {
    MultiChannelComponentBase::Suspend();
    for (std::size_t c = 0; c < processorCount_; ++c) processors_[c].Suspend();
}

template <class T>
int MultithreadedComponentBase<T>::GetInitialDelay() const {
    return processorCount_ > 0 ? processors_[0].GetLatency() : 0;
}

template <class T>
void MultithreadedComponentBase<T>::ProcessChannel(std::size_t channel,
                                                   const float* in,
                                                   float* out,
                                                   int frames) {
    ProcessChannelGuarded(channel, in, out, frames,
                          [this, channel](const float* from, float* to, int count) {
                              processors_[channel].Process(from, to, count);
                          });
}

template <class T>
void MultithreadedComponentBase<T>::Process(float** in, float** out, int frames, Flags, Flags&) {
    if (frames >= kParallelFrames) {
        ProcessFunctions block;
        block.component = this;
        block.in = in;
        block.out = out;
        block.frames = frames;
        const boost::function<void(int)> task =
            boost::bind(&ProcessFunctions::ProcessOne, &block, boost::placeholders::_1);
        kracore::threads::ExecuteCPUBoundTaskOnAllProcessors(task,
                                                             static_cast<int>(processorCount_));
        return;
    }
    for (std::size_t c = 0; c < processorCount_; ++c) ProcessChannel(c, in[c], out[c], frames);
}

}  // namespace zuc::components
