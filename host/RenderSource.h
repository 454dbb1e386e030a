#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "host/AudioSource.h"
#include "host/Resampler.h"
#include "host/TimeRange.h"

namespace zuc::host {

/// Channels × frames of planar audio.
class AudioBlock {
public:
    AudioBlock(std::size_t channels, int frames);

    float** GetChannels() { return channels_.data(); }
    std::size_t GetChannelCount() const { return channels_.size(); }
    /// The channels from frame `first` on; valid until the next call.
    float** GetChannelsFrom(int first);
    void Clear(int frames);

private:
    std::size_t frames_;
    std::vector<float> samples_;
    std::vector<float*> channels_;
    std::vector<float*> shifted_;
};

/// A part of a file at another rate.
class RenderSource {
public:
    /// Throws Error (kUsage) when the range begins behind the end of the file. [host]
    RenderSource(AudioSource& reader, const TimeRange& range, int toRateHz, int blockFrames);

    /// Begins anew at the start of the range. Throws Error (kInput). [worker]
    void Rewind();
    /// Fills `out` with the next frames; fewer than `frames` only at the end. [worker]
    int Read(float* const* out, int frames);

    /// Frames that Read gives altogether; -1 when the file does not say.
    std::int64_t GetTotalFrames() const;
    std::int64_t GetBeginFrame() const { return beginFrame_; }  // at the file's rate
    std::int64_t GetFramesRead() const { return framesRead_; }  // at the file's rate
    std::int64_t GetNonFiniteSamples() const { return nonFiniteSamples_; }

private:
    int ReadFile(float* const* out, int frames);
    void CountNonFinite(float* const* audio, int frames);

    AudioSource& reader_;
    int toRateHz_;
    int blockFrames_;
    std::int64_t beginFrame_ = 0;
    std::int64_t endFrame_ = -1;  // -1: the end of the file
    std::int64_t framesRead_ = 0;
    std::int64_t nonFiniteSamples_ = 0;
    std::unique_ptr<Resampler> resampler_;  // null when the rates are equal
    AudioBlock fileBlock_;                  // what the resampler has not taken yet
    int fileBlockBegin_ = 0;
    int fileBlockEnd_ = 0;
};

}  // namespace zuc::host
