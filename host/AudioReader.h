#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/AudioSource.h"
#include "host/SampleConversion.h"

struct sf_private_tag;  // a file of libsndfile

namespace zuc::host {

inline constexpr int kMaxChannels = 32;
inline constexpr int kHighestRateHz = 768000;

struct CloseSoundFile {
    void operator()(sf_private_tag* file) const;
};
using SoundFilePtr = std::unique_ptr<sf_private_tag, CloseSoundFile>;

/// Reads audio files of every kind that libsndfile knows, a block at a time.
///
/// Standard input, and every other source that cannot be sought in, is first stored in an unlinked
/// file below $TMPDIR (or /tmp), because several formats cannot be read from a stream at all. Channels
/// of Ogg files come in the order of WAV files (left, right, centre, low frequency, ...).
class AudioReader final : public AudioSource {
public:
    /// Opens `path`, or standard input for "-". [host]
    ///
    /// Throws Error(kInput) for what is missing, unreadable, a folder, empty, not audio, has more than
    /// kMaxChannels channels or a rate above kHighestRateHz; Error(kOutput) when a stream cannot be stored.
    static std::unique_ptr<AudioReader> Open(const std::string& path);
    ~AudioReader() override;

    /// Reads the next frames into `out[channel][0 .. frames)`, full scale +-1; integers of b bits are
    /// divided by 2^(b-1), floats come as they are, also infinite and not-a-number ones. Returns how
    /// many frames there were, less than `frames` only at the end, 0 behind it. Throws Error(kInput)
    /// when the device fails. [worker]
    int Read(float* const* out, int frames) override;

    /// Makes `frame`, at most the number of frames, the next one to be read. Throws Error(kInput).
    /// [worker]
    void Seek(std::int64_t frame) override;

private:
    AudioReader() = default;
    void Identify(int format);
    bool ReadBlock();
    const float* DecodeNext(int& count);

    SoundFilePtr file_;
    bool isRaw_ = false;                      // block_ holds the bytes of the file, else floats
    Encoding encoding_ = Encoding::kFloat32;  // of block_
    std::size_t frameBytes_ = 0;              // in block_
    const int* channelOrder_ = nullptr;       // place of each channel in a frame; null: as they are
    std::int64_t framesRead_ = 0;             // position of the caller
    std::vector<float> block_;                // of the file, in its own encoding
    std::vector<float> decoded_;              // a piece of it as floats
    int blockFrames_ = 0;                     // of a full block
    int blockBegin_ = 0;                      // first frame of the block not yet given out
    int blockEnd_ = 0;                        // behind the last one
};

}  // namespace zuc::host
