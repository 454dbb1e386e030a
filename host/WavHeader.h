#pragma once

#include <cstdint>
#include <string>

#include "host/AudioMetadata.h"
#include "host/SampleConversion.h"

namespace zuc::host {

/// The bytes of a WAV file around its samples.
///
/// Sizes are left open (all bits set) at first, as is customary on a stream; a file that can be sought
/// in is completed with the pieces that MakePatches gives. Files beyond 4 GB become RF64 (EBU Tech
/// 3306) in the room kept for that.
class WavHeader {
public:
    struct Patch {
        std::int64_t offset = 0;
        std::string bytes;
    };

    /// `forStream` leaves out the room for RF64. [host]
    WavHeader(
        Encoding encoding, int rateHz, int channels, const AudioMetadata& metadata, bool forStream);

    /// Everything in front of the samples. [any]
    const std::string& GetBytes() const { return bytes_; }
    /// What to put where once the length is known. An odd number of sample bytes is to be followed by
    /// a zero byte. [any]
    std::vector<Patch> MakePatches(std::int64_t frames) const;

private:
    void AddFormat(Encoding encoding, int rateHz, std::uint32_t channelMask);

    int channels_;
    std::size_t sampleBytes_;
    std::size_t factOffset_ = 0;  // of the frame count; 0 for integers, which have none
    std::string bytes_;
};

}  // namespace zuc::host
