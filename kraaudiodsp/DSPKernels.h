#pragma once

#include <cstddef>

namespace dsp {

/// A kernel that changes audio. Made by name through the kernel factory.
class DSPProcess {
public:
    virtual ~DSPProcess() = default;
    virtual void Reset() = 0;  // [audio]
    virtual void Process(const float* const* in,
                         float* const* out,
                         std::size_t frames) = 0;  // [audio]
};

/// A kernel that learns from audio, such as the capture of a noise print.
class DSPAnalyzer {
public:
    virtual ~DSPAnalyzer() = default;
    virtual void Reset() = 0;                                              // [worker]
    virtual void Analyze(const float* const* in, std::size_t frames) = 0;  // [worker]
};

}  // namespace dsp
