#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/AudioMetadata.h"
#include "host/FileFormats.h"
#include "host/SampleConversion.h"

namespace zuc::host {

class OutputFile;

/// How AudioWriter stores samples: one implementation per library that writes.
class SampleSink {
public:
    /// What a sink is made for.
    struct Setup {
        const FormatRow* row = nullptr;
        Encoding encoding = Encoding::kInt16;  // of formats that keep samples
        int rateHz = 0;
        int channels = 0;
        double quality = -1.0;       // of lossy formats; negative: the encoder's own choice
        const int* order = nullptr;  // as for Interleave
        Dither* dither = nullptr;    // null: none
    };

    /// What `lost` receives is told in WriteMetadata. Throws Error(kOutput). [host]
    static std::unique_ptr<SampleSink> Make(const Setup& setup,
                                            OutputFile& output,
                                            const AudioMetadata& metadata,
                                            std::vector<std::string>& lost);
    virtual ~SampleSink() = default;
    SampleSink(const SampleSink&) = delete;
    SampleSink& operator=(const SampleSink&) = delete;

    /// Stores `in[channel][first .. first + frames)`, at most kMostSamples / channels frames. [worker]
    virtual void Write(const float* const* in, int first, int frames) = 0;
    /// Completes the file after `frames` frames in all. [worker]
    virtual void Finish(std::int64_t frames) = 0;

    /// Small enough for the caches, and for encoders that keep a block on the stack.
    static constexpr int kMostSamples = 4096;

protected:
    explicit SampleSink(const Setup& setup) : setup_(setup) {}
    std::size_t CountSamples(int frames) const {
        return static_cast<std::size_t>(frames) * static_cast<std::size_t>(setup_.channels);
    }
    /// Fills interleaved_.
    void MakeFloats(const float* const* in, int first, int frames);
    /// Fills integers_, dithered as set up.
    void MakeIntegers(const float* const* in, int first, int frames);

    Setup setup_;
    std::array<float, kMostSamples> interleaved_{};
    std::array<std::int32_t, kMostSamples> integers_{};

private:
    std::array<float, kMostSamples> noise_{};
};

int GetBits(Encoding encoding);  // [any]

}  // namespace zuc::host
