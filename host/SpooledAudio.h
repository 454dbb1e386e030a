#pragma once

#include <cstdint>
#include <vector>

#include "host/AudioSource.h"
#include "host/TemporaryFile.h"

namespace zuc::host {

/// Audio between two stages of a job, 32-bit float in an unlinked file below $TMPDIR (or /tmp).
class SpooledAudio final : public AudioSource {
public:
    /// Throws Error (kOutput). [host]
    SpooledAudio(int rateHz, int channels);

    /// Adds frames `audio[c][0 .. frames)` at the end. Throws Error (kOutput). [worker]
    void Append(const float* const* audio, int frames);

    int Read(float* const* out, int frames) override;
    void Seek(std::int64_t frame) override { position_ = frame; }

private:
    FileDescriptor file_;
    std::int64_t position_ = 0;
    std::vector<float> interleaved_;
};

}  // namespace zuc::host
