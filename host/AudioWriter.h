#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/AudioMetadata.h"
#include "host/AudioReader.h"

namespace zuc::host {

/// How samples are stored.
enum class SampleFormat { kLikeSource, kInt8, kInt16, kInt24, kInt32, kFloat32 };

/// "8", "16", "24", "32", "float" or "32f". Throws Error(kUsage) for anything else. [any]
SampleFormat ParseSampleFormat(const std::string& text);

/// What to write, and where.
struct AudioWriterOptions {
    std::string path;    // "-" for standard output
    std::string format;  // "wav", "flac", ...; empty: from the extension of path, "wav" for streams
    SampleFormat samples = SampleFormat::kLikeSource;
    /// Bit depth of the source, for kLikeSource. 0 (lossy, or none) asks for 24 bits. A container that
    /// lacks the depth gets the next one it has: float becomes 24 bits in FLAC.
    int sourceBits = 0;
    bool sourceIsFloat = false;
    int rateHz = 0;
    int channels = 0;
    /// The samples come unchanged from a source of the same depth: no dither, and the integers of the
    /// source come back bit by bit (up to 24 bits).
    bool exact = false;
    bool dither = true;      // when 16 bits or fewer are written and `exact` is off
    std::uint64_t seed = 1;  // of the dither; the same seed gives the same bytes
    double quality = -1.0;   // of lossy formats, 0 to 1; negative: the encoder's own choice
};

/// Samples beyond full scale, which integers cut off.
struct Overs {
    std::int64_t count = 0;     // samples with |x| > 1, over all channels; infinite ones count
    double firstSeconds = 0.0;  // where the first one is
    int firstChannel = 0;       // and in which channel, from 0
    float peak = 0.0f;          // largest finite |x|, also when nothing exceeds 1

    /// The gain that brings the peak to full scale; 0 when nothing exceeds it. [any]
    float GetGainToAvoidDb() const;
};

/// Writes one audio file so that it appears whole or not at all (see OutputFile).
///
/// WAV files are written here, with sizes beyond 4 GB as RF64 and with sizes left open on a stream;
/// the other formats by libsndfile. Formats that have to go back in the file are stored below $TMPDIR
/// first when the target is a stream. Integers are rounded to the nearest value after scaling by
/// 2^(bits-1); samples beyond full scale are cut off, never wrapped, and not-a-number becomes 0. Up to
/// 16 bits, triangular dither of 2 LSB peak to peak, independent for every sample, is added first. The
/// bytes do not depend on the block sizes. Channels are expected in the order of WAV files.
class AudioWriter {
public:
    /// [host] Throws Error(kUsage) for a format, depth or path that cannot be written, Error(kOutput)
    /// when the format takes neither this rate nor so many channels, or the target cannot be made.
    AudioWriter(const AudioWriterOptions& options, const AudioMetadata& metadata);
    /// Discards what was written unless it was committed. [host]
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    /// Adds `in[channel][0 .. frames)`. Throws Error(kOutput) when the device refuses. [worker]
    void Write(const float* const* in, int frames);
    /// Completes the file and puts it in its place, once. Throws Error(kOutput); the old file then
    /// stays as it was. [worker]
    void Commit();

    /// What is being written: format, encoding, bits, and the frames so far. [worker]
    const AudioFileInfo& GetInfo() const { return info_; }
    const Overs& GetOvers() const { return overs_; }  // [worker]
    /// What the metadata held and this container cannot, as people read it: "cue points (3)". [any]
    const std::vector<std::string>& GetLostMetadata() const { return lostMetadata_; }

private:
    struct State;
    void CountOvers(const float* const* in, int frames);

    AudioFileInfo info_;
    Overs overs_;
    std::vector<std::string> lostMetadata_;
    std::unique_ptr<State> state_;
};

/// Names of the formats that can be written, as shown in errors: "wav, flac, ...". [any]
std::string ListWritableFormats();

}  // namespace zuc::host
