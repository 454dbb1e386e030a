#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zuc::host {

/// The texts a file can carry about its content. Bytes are passed as they are, as a rule UTF-8.
enum class Tag {
    kTitle,
    kArtist,
    kAlbum,
    kTrack,
    kDate,
    kGenre,
    kComment,
    kCopyright,
    kLicense,
    kSoftware,
};
inline constexpr std::size_t kTagCount = 10;

/// "title", "artist", ... as people read it. [any]
std::string_view GetTagName(Tag tag);

/// The broadcast extension of WAV files (EBU Tech 3285, version 2). Texts longer than their field
/// are cut when written.
struct BroadcastExtension {
    std::string description;                // up to 256 bytes
    std::string originator;                 // up to 32 bytes
    std::string originatorReference;        // up to 32 bytes
    std::string originationDate;            // "2024-01-31"
    std::string originationTime;            // "12:30:00"
    std::uint64_t timeReferenceFrames = 0;  // since midnight
    int version = 1;
    std::string umid;  // up to 64 bytes, not a text
    // Loudness in hundredths of LUFS, LU, dBTP, LUFS, LUFS; from version 2 on.
    std::array<std::int16_t, 5> loudness{};
    std::string codingHistory;
};

/// A named place in the audio.
struct CuePoint {
    std::int64_t frame = 0;
    std::string name;  // empty: none
};

/// How a sampler plays the audio.
struct Instrument {
    enum class LoopMode { kForward, kBackward, kAlternating };
    struct Loop {
        LoopMode mode = LoopMode::kForward;
        std::int64_t startFrame = 0;
        std::int64_t endFrame = 0;  // behind the last frame of the loop
        std::uint32_t count = 0;    // 0: for ever
    };
    int baseNote = 60;    // MIDI number
    int detuneCents = 0;  // -50 to 50
    std::vector<Loop> loops;
};

/// A part of a WAV file that is carried from WAV to WAV without being understood.
struct OpaqueChunk {
    std::string id;     // four characters: "cart", "iXML", "axml", "acid" or "inst"
    std::string bytes;  // its content, without the pad byte
};

/// What a file says besides its audio. Filled by AudioReader, written by AudioWriter as far as the
/// container carries it. Pictures and tags outside the list above are not read.
struct AudioMetadata {
    std::array<std::string, kTagCount> tags;
    std::optional<BroadcastExtension> broadcast;
    std::vector<CuePoint> cues;
    std::optional<Instrument> instrument;
    /// Speaker positions in the bits of the WAV format, lowest bit first; 0 when the file names none
    /// or in an order that these bits cannot say.
    std::uint32_t channelMask = 0;
    std::vector<OpaqueChunk> chunks;

    std::string& operator[](Tag tag) { return tags[static_cast<std::size_t>(tag)]; }
    const std::string& operator[](Tag tag) const { return tags[static_cast<std::size_t>(tag)]; }

    /// Moves every position to another sample rate. [host]
    void ChangeRate(int fromHz, int toHz);
};

}  // namespace zuc::host
