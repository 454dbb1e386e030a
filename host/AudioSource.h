#pragma once

#include <cstdint>
#include <string>

#include "host/AudioMetadata.h"

namespace zuc::host {

/// What a stretch of audio is: a file, or something that plays like one.
struct AudioFileInfo {
    std::string path;          // as given; "-" for the standard streams
    int rateHz = 0;            // sample rate
    int channels = 0;          // 1 to kMaxChannels
    std::int64_t frames = -1;  // samples per channel; -1 when not known
    std::string format;  // "wav", "rf64", "flac", "ogg", "opus", "mp3", "aiff", "caf", "au", "w64"
    std::string encoding;  // "16-bit PCM", "32-bit float", "Vorbis"
    int bits = 0;          // per sample: 8, 16, 24, 32 or 64; 0 for lossy encodings
    bool isFloat = false;
};

/// Audio that can be read from any frame on.
class AudioSource {
public:
    virtual ~AudioSource() = default;

    const AudioFileInfo& GetInfo() const { return info_; }          // [any]
    const AudioMetadata& GetMetadata() const { return metadata_; }  // [any]
    /// Whether it ends before what it announces. Some files show it only when the end has been read. What
    /// there is, is read. [worker]
    bool IsTruncated() const { return isTruncated_; }

    /// Reads the next frames into `out[channel][0 .. frames)`. Returns how many there were, less than
    /// `frames` only at the end, 0 behind it. Throws Error. [worker]
    virtual int Read(float* const* out, int frames) = 0;
    /// Makes `frame`, at most the number of frames, the next one to be read. Throws Error. [worker]
    virtual void Seek(std::int64_t frame) = 0;

protected:
    AudioSource() = default;
    AudioSource(const AudioSource&) = delete;
    AudioSource& operator=(const AudioSource&) = delete;

    AudioFileInfo info_;
    AudioMetadata metadata_;
    bool isTruncated_ = false;
};

/// Silence of a length, for what generates its own sound.
class SilentSource final : public AudioSource {
public:
    SilentSource(int rateHz, int channels, std::int64_t frames);
    int Read(float* const* out, int frames) override;
    void Seek(std::int64_t frame) override { position_ = frame; }

private:
    std::int64_t position_ = 0;
};

}  // namespace zuc::host
