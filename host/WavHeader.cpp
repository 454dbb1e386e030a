#include "host/WavHeader.h"

#include <algorithm>
#include <string_view>

namespace zuc::host {
namespace {

constexpr std::uint32_t kOpen = 0xFFFFFFFF;  // a size not known yet, or kept in ds64
constexpr std::size_t kReservedOffset = 12;  // where JUNK becomes ds64
constexpr std::uint32_t kReservedBytes = 28;
constexpr int kPcm = 1, kIeeeFloat = 3, kExtensible = 0xFFFE;
// The rest of a format identifier behind its two-byte code (KSDATAFORMAT_SUBTYPE_*).
constexpr std::string_view kGuidTail("\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71",
                                     14);

struct InfoRow {
    Tag tag;
    std::string_view id;
};
constexpr std::array kInfoIds{
    InfoRow{Tag::kTitle, "INAM"},    InfoRow{Tag::kArtist, "IART"},
    InfoRow{Tag::kAlbum, "IPRD"},    InfoRow{Tag::kTrack, "ITRK"},
    InfoRow{Tag::kDate, "ICRD"},     InfoRow{Tag::kGenre, "IGNR"},
    InfoRow{Tag::kComment, "ICMT"},  InfoRow{Tag::kCopyright, "ICOP"},
    InfoRow{Tag::kSoftware, "ISFT"},
};

/// Appends `value`, lowest byte first.
template <typename Value>
void Put(std::string& bytes, Value value, std::size_t count = sizeof(Value)) {
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF);
}

void PutU16(std::string& bytes, std::int64_t value) { Put(bytes, value, 2); }
void PutU32(std::string& bytes, std::int64_t value) { Put(bytes, value, 4); }

/// `text` cut or filled with zeros to `count` bytes.
void PutField(std::string& bytes, std::string_view text, std::size_t count) {
    const std::string_view kept = text.substr(0, count);
    bytes.append(kept).append(count - kept.size(), '\0');
}

void PutChunk(std::string& bytes, std::string_view id, std::string_view content) {
    bytes += id;
    PutU32(bytes, static_cast<std::int64_t>(content.size()));
    bytes += content;
    if (content.size() % 2 != 0) bytes += '\0';
}

std::string MakeBroadcast(const BroadcastExtension& broadcast) {
    std::string bytes;
    PutField(bytes, broadcast.description, 256);
    PutField(bytes, broadcast.originator, 32);
    PutField(bytes, broadcast.originatorReference, 32);
    PutField(bytes, broadcast.originationDate, 10);
    PutField(bytes, broadcast.originationTime, 8);
    Put(bytes, broadcast.timeReferenceFrames);
    PutU16(bytes, broadcast.version);
    PutField(bytes, broadcast.umid, 64);
    for (const std::int16_t value : broadcast.loudness) PutU16(bytes, value);
    PutField(bytes, {}, 180);
    return bytes + broadcast.codingHistory;
}

std::string MakeInfoList(const AudioMetadata& metadata) {
    std::string list = "INFO";
    for (const InfoRow& row : kInfoIds)
        if (!metadata[row.tag].empty()) PutChunk(list, row.id, metadata[row.tag] + '\0');
    return list;
}

std::string MakeCues(const std::vector<CuePoint>& cues) {
    std::string bytes;
    PutU32(bytes, static_cast<std::int64_t>(cues.size()));
    for (std::size_t i = 0; i < cues.size(); ++i) {
        const std::int64_t frame = std::clamp<std::int64_t>(cues[i].frame, 0, kOpen);
        PutU32(bytes, static_cast<std::int64_t>(i + 1));  // the number that a label refers to
        PutU32(bytes, frame);
        bytes += "data";
        PutU32(bytes, 0);
        PutU32(bytes, 0);
        PutU32(bytes, frame);
    }
    return bytes;
}

std::string MakeCueNames(const std::vector<CuePoint>& cues) {
    std::string list = "adtl";
    for (std::size_t i = 0; i < cues.size(); ++i) {
        if (cues[i].name.empty()) continue;
        std::string label;
        PutU32(label, static_cast<std::int64_t>(i + 1));
        PutChunk(list, "labl", label + cues[i].name + '\0');
    }
    return list;
}

std::string MakeSampler(const Instrument& instrument, int rateHz) {
    std::string bytes;
    PutU32(bytes, 0);                       // manufacturer
    PutU32(bytes, 0);                       // product
    PutU32(bytes, 1'000'000'000 / rateHz);  // nanoseconds per frame
    // The fraction counts upwards only, in 2^-32 semitones.
    const bool below = instrument.detuneCents < 0;
    const std::int64_t cents = instrument.detuneCents + (below ? 100 : 0);
    PutU32(bytes, instrument.baseNote - (below ? 1 : 0));
    PutU32(bytes, (cents << 32) / 100);
    PutU32(bytes, 0);  // time code format
    PutU32(bytes, 0);  // time code offset
    PutU32(bytes, static_cast<std::int64_t>(instrument.loops.size()));
    PutU32(bytes, 0);  // bytes of data behind the loops
    for (std::size_t i = 0; i < instrument.loops.size(); ++i) {
        const Instrument::Loop& loop = instrument.loops[i];
        PutU32(bytes, static_cast<std::int64_t>(i));
        PutU32(bytes, loop.mode == Instrument::LoopMode::kForward    ? 0
                      : loop.mode == Instrument::LoopMode::kBackward ? 2
                                                                     : 1);
        PutU32(bytes, loop.startFrame);
        PutU32(bytes,
               std::max<std::int64_t>(loop.endFrame - 1, 0));  // the file names the last frame
        PutU32(bytes, 0);                                      // fraction
        PutU32(bytes, loop.count);
    }
    return bytes;
}

/// A chunk with its content made even by a zero, because libsndfile does not skip the pad bytes of
/// chunks that it does not know in RF64 files.
void PutEvenChunk(std::string& bytes, std::string_view id, std::string content) {
    content.append(content.size() % 2, '\0');
    PutChunk(bytes, id, content);
}

void PutMetadata(std::string& bytes, const AudioMetadata& metadata, int rateHz) {
    if (metadata.broadcast) PutEvenChunk(bytes, "bext", MakeBroadcast(*metadata.broadcast));
    for (const OpaqueChunk& chunk : metadata.chunks) PutEvenChunk(bytes, chunk.id, chunk.bytes);
    if (std::string list = MakeInfoList(metadata); list.size() > 4)
        PutEvenChunk(bytes, "LIST", std::move(list));
    if (!metadata.cues.empty()) PutEvenChunk(bytes, "cue ", MakeCues(metadata.cues));
    if (std::string list = MakeCueNames(metadata.cues); list.size() > 4)
        PutEvenChunk(bytes, "LIST", std::move(list));
    if (metadata.instrument) PutEvenChunk(bytes, "smpl", MakeSampler(*metadata.instrument, rateHz));
}

}  // namespace

WavHeader::WavHeader(
    Encoding encoding, int rateHz, int channels, const AudioMetadata& metadata, bool forStream)
    : channels_(channels), sampleBytes_(GetSampleBytes(encoding)) {
    bytes_ = "RIFF";
    PutU32(bytes_, kOpen);
    bytes_ += "WAVE";
    if (!forStream) PutChunk(bytes_, "JUNK", std::string(kReservedBytes, '\0'));
    AddFormat(encoding, rateHz, metadata.channelMask);
    if (encoding == Encoding::kFloat32) {
        PutChunk(bytes_, "fact", std::string(4, '\xFF'));
        factOffset_ = bytes_.size() - 4;
    }
    PutMetadata(bytes_, metadata, rateHz);
    bytes_ += "data";
    PutU32(bytes_, kOpen);
}

void WavHeader::AddFormat(Encoding encoding, int rateHz, std::uint32_t channelMask) {
    const bool isFloat = encoding == Encoding::kFloat32;
    const auto sampleBytes = static_cast<std::int64_t>(sampleBytes_);
    const bool isExtensible = channels_ > 2 || channelMask != 0 || (sampleBytes > 2 && !isFloat);
    const int code = isFloat ? kIeeeFloat : kPcm;
    std::string format;
    PutU16(format, isExtensible ? kExtensible : code);
    PutU16(format, channels_);
    PutU32(format, rateHz);
    PutU32(format, rateHz * sampleBytes * channels_);
    PutU16(format, sampleBytes * channels_);
    PutU16(format, 8 * sampleBytes);
    if (isExtensible) {
        PutU16(format, 22);  // bytes that follow
        PutU16(format, 8 * sampleBytes);
        PutU32(format, channelMask);
        PutU16(format, code);
        format += kGuidTail;
    } else if (isFloat) {
        PutU16(format, 0);
    }
    PutChunk(bytes_, "fmt ", format);
}

std::vector<WavHeader::Patch> WavHeader::MakePatches(std::int64_t frames) const {
    const std::int64_t dataBytes = frames * channels_ * static_cast<std::int64_t>(sampleBytes_);
    const auto headerBytes = static_cast<std::int64_t>(bytes_.size());
    const std::int64_t riffBytes = headerBytes + dataBytes + dataBytes % 2 - 8;
    const auto u32 = [](std::int64_t value) {
        std::string bytes;
        PutU32(bytes, value);
        return bytes;
    };
    const auto factOffset = static_cast<std::int64_t>(factOffset_);
    std::vector<Patch> patches;
    if (riffBytes < kOpen) {
        patches = {{4, u32(riffBytes)}, {headerBytes - 4, u32(dataBytes)}};
        if (factOffset > 0) patches.push_back({factOffset, u32(frames)});
        return patches;
    }
    std::string sizes = "ds64";
    PutU32(sizes, kReservedBytes);
    Put(sizes, riffBytes);
    Put(sizes, dataBytes);
    Put(sizes, frames);
    PutU32(sizes, 0);  // no other chunk is that long
    if (bytes_.compare(kReservedOffset, 4, "JUNK") == 0)
        patches = {{0, "RF64"}, {kReservedOffset, sizes}};
    return patches;  // without the room, the sizes stay open
}

}  // namespace zuc::host
