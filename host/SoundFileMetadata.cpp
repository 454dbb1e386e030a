#include "host/SoundFileMetadata.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <boost/locale/utf.hpp>
#include <cstring>

namespace zuc::host {
namespace {

struct TagRow {
    Tag tag;
    int soundFileString;
};
constexpr std::array<TagRow, kTagCount> kTags{{
    {Tag::kTitle, SF_STR_TITLE},
    {Tag::kArtist, SF_STR_ARTIST},
    {Tag::kAlbum, SF_STR_ALBUM},
    {Tag::kTrack, SF_STR_TRACKNUMBER},
    {Tag::kDate, SF_STR_DATE},
    {Tag::kGenre, SF_STR_GENRE},
    {Tag::kComment, SF_STR_COMMENT},
    {Tag::kCopyright, SF_STR_COPYRIGHT},
    {Tag::kLicense, SF_STR_LICENSE},
    {Tag::kSoftware, SF_STR_SOFTWARE},
}};

// The bits of a WAV channel mask, lowest first.
constexpr std::array<int, 18> kSpeakers{
    SF_CHANNEL_MAP_LEFT,
    SF_CHANNEL_MAP_RIGHT,
    SF_CHANNEL_MAP_CENTER,
    SF_CHANNEL_MAP_LFE,
    SF_CHANNEL_MAP_REAR_LEFT,
    SF_CHANNEL_MAP_REAR_RIGHT,
    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
    SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
    SF_CHANNEL_MAP_REAR_CENTER,
    SF_CHANNEL_MAP_SIDE_LEFT,
    SF_CHANNEL_MAP_SIDE_RIGHT,
    SF_CHANNEL_MAP_TOP_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_LEFT,
    SF_CHANNEL_MAP_TOP_FRONT_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
    SF_CHANNEL_MAP_TOP_REAR_LEFT,
    SF_CHANNEL_MAP_TOP_REAR_CENTER,
    SF_CHANNEL_MAP_TOP_REAR_RIGHT,
};

constexpr std::array<const char*, 5> kOpaqueIds{"cart", "iXML", "axml", "acid", "inst"};
constexpr std::size_t kLongestOpaqueBytes = std::size_t{16} << 20;
constexpr std::uint32_t kMostCues = 1000;

using BroadcastInfo = SF_BROADCAST_INFO_VAR(16 * 1024);
struct Cues {
    std::uint32_t count;
    std::array<SF_CUE_POINT, kMostCues> points;
};

template <std::size_t kBytes>
std::string TextOf(const char (&field)[kBytes]) {
    return {field, strnlen(field, kBytes)};
}

std::optional<BroadcastExtension> ReadBroadcast(SNDFILE* file) {
    const auto info = std::make_unique<BroadcastInfo>();
    if (sf_command(file, SFC_GET_BROADCAST_INFO, info.get(), sizeof *info) != SF_TRUE) return {};
    BroadcastExtension broadcast;
    broadcast.description = TextOf(info->description);
    broadcast.originator = TextOf(info->originator);
    broadcast.originatorReference = TextOf(info->originator_reference);
    broadcast.originationDate = TextOf(info->origination_date);
    broadcast.originationTime = TextOf(info->origination_time);
    broadcast.timeReferenceFrames =
        std::uint64_t{info->time_reference_high} << 32 | info->time_reference_low;
    broadcast.version = info->version;
    broadcast.umid.assign(info->umid, sizeof info->umid);
    broadcast.umid.erase(broadcast.umid.find_last_not_of('\0') + 1);
    broadcast.loudness = {info->loudness_value, info->loudness_range, info->max_true_peak_level,
                          info->max_momentary_loudness, info->max_shortterm_loudness};
    const std::size_t historyBytes =
        std::min<std::size_t>(info->coding_history_size, sizeof info->coding_history);
    broadcast.codingHistory.assign(info->coding_history,
                                   strnlen(info->coding_history, historyBytes));
    return broadcast;
}

std::vector<CuePoint> ReadCues(SNDFILE* file) {
    std::uint32_t count = 0;
    sf_command(file, SFC_GET_CUE_COUNT, &count, sizeof count);
    if (count == 0) return {};
    const auto read = std::make_unique<Cues>();
    if (sf_command(file, SFC_GET_CUE, read.get(), sizeof *read) != SF_TRUE) return {};
    std::vector<CuePoint> cues;
    for (std::uint32_t i = 0; i < std::min(read->count, kMostCues); ++i)
        cues.push_back({read->points[i].sample_offset, TextOf(read->points[i].name)});
    return cues;
}

std::optional<Instrument> ReadInstrument(SNDFILE* file) {
    SF_INSTRUMENT read{};
    if (sf_command(file, SFC_GET_INSTRUMENT, &read, sizeof read) != SF_TRUE) return {};
    Instrument instrument{read.basenote, read.detune, {}};
    for (int i = 0; i < std::clamp(read.loop_count, 0, 16); ++i) {
        const auto& loop = read.loops[i];
        const auto mode = loop.mode == SF_LOOP_BACKWARD      ? Instrument::LoopMode::kBackward
                          : loop.mode == SF_LOOP_ALTERNATING ? Instrument::LoopMode::kAlternating
                                                             : Instrument::LoopMode::kForward;
        instrument.loops.push_back({mode, loop.start, loop.end, loop.count});
    }
    return instrument;
}

std::uint32_t ReadChannelMask(SNDFILE* file, int channels) {
    std::vector<int> map(static_cast<std::size_t>(channels));
    const int bytes = static_cast<int>(map.size() * sizeof(int));
    if (sf_command(file, SFC_GET_CHANNEL_MAP_INFO, map.data(), bytes) != SF_TRUE) return 0;
    std::uint32_t mask = 0;
    for (const int position : map) {
        const auto* const found = std::find(kSpeakers.begin(), kSpeakers.end(), position);
        const std::uint32_t bit = found == kSpeakers.end() ? 0 : 1u << (found - kSpeakers.begin());
        if (bit <= mask) return 0;  // unknown, or not in rising order
        mask |= bit;
    }
    return mask;
}

std::vector<OpaqueChunk> ReadChunks(SNDFILE* file) {
    std::vector<OpaqueChunk> chunks;
    for (const char* const id : kOpaqueIds) {
        SF_CHUNK_INFO info{};
        std::memcpy(info.id, id, 4);
        info.id_size = 4;
        SF_CHUNK_ITERATOR* const at = sf_get_chunk_iterator(file, &info);
        if (at == nullptr || sf_get_chunk_size(at, &info) != SF_ERR_NO_ERROR ||
            info.datalen > kLongestOpaqueBytes)
            continue;
        OpaqueChunk chunk{id, std::string(info.datalen, '\0')};
        info.data = chunk.bytes.data();
        if (sf_get_chunk_data(at, &info) == SF_ERR_NO_ERROR) chunks.push_back(std::move(chunk));
    }
    return chunks;
}

bool IsUtf8(const std::string& text) {
    namespace utf = boost::locale::utf;
    for (auto at = text.begin(); at != text.end();) {
        const utf::code_point point = utf::utf_traits<char>::decode(at, text.end());
        if (point == utf::illegal || point == utf::incomplete) return false;
    }
    return true;
}

std::string FromLatin1(std::string_view latin) {
    std::string text;
    for (const char letter : latin) {
        const auto byte = static_cast<unsigned char>(letter);
        if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
        text += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3F) : byte);
    }
    return text;
}

/// UTF-8 as ISO 8859-1; nothing when that lacks a letter.
std::optional<std::string> ToLatin1(std::string_view text) {
    std::string latin;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            latin += text[i];
            continue;
        }
        // Two bytes, 110000ab 10cdefgh, are the letters that exist there.
        if ((byte != 0xC2 && byte != 0xC3) || i + 1 == text.size()) return {};
        latin +=
            static_cast<char>((byte & 3) << 6 | (static_cast<unsigned char>(text[++i]) & 0x3F));
    }
    return latin;
}

/// False when the container cannot hold that text.
bool WriteTag(SNDFILE* file, const FormatRow& row, const TagRow& tag, const std::string& text) {
    if (!CarriesTag(row, tag.tag)) return false;
    if (file == nullptr) return true;
    // The library takes texts of MP3 files for ISO 8859-1.
    const std::optional<std::string> bytes =
        row.soundFileFormat == SF_FORMAT_MPEG ? ToLatin1(text) : text;
    return bytes && sf_set_string(file, tag.soundFileString, bytes->c_str()) == SF_ERR_NO_ERROR;
}

bool WriteChannelMap(SNDFILE* file, int channels, std::uint32_t mask) {
    std::vector<int> map;
    for (std::size_t bit = 0; bit < kSpeakers.size(); ++bit)
        if (mask >> bit & 1) map.push_back(kSpeakers[bit]);
    const int bytes = static_cast<int>(map.size() * sizeof(int));
    return static_cast<int>(map.size()) == channels &&
           sf_command(file, SFC_SET_CHANNEL_MAP_INFO, map.data(), bytes) == SF_TRUE;
}

}  // namespace

AudioMetadata ReadMetadata(SNDFILE* file, int channels) {
    AudioMetadata metadata;
    SF_INFO info{};
    sf_command(file, SFC_GET_CURRENT_SF_INFO, &info, sizeof info);
    const bool isMp3 = (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
    for (const TagRow& row : kTags) {
        const char* const bytes = sf_get_string(file, row.soundFileString);
        if (bytes == nullptr) continue;
        std::string& text = metadata[row.tag];
        text = bytes;
        // Old tags of MP3 files are ISO 8859-1, and the library passes them as they are.
        if (isMp3 && !IsUtf8(text)) text = FromLatin1(bytes);
    }
    metadata.broadcast = ReadBroadcast(file);
    metadata.cues = ReadCues(file);
    metadata.instrument = ReadInstrument(file);
    metadata.channelMask = ReadChannelMask(file, channels);
    metadata.chunks = ReadChunks(file);
    return metadata;
}

std::vector<std::string> WriteMetadata(SNDFILE* file,
                                       const FormatRow& row,
                                       int channels,
                                       const AudioMetadata& metadata) {
    std::vector<std::string> lost;
    for (const TagRow& tag : kTags) {
        const std::string& text = metadata[tag.tag];
        if (!text.empty() && !WriteTag(file, row, tag, text))
            lost.emplace_back(GetTagName(tag.tag));
    }
    const std::uint32_t mask = metadata.channelMask;
    const bool matches = std::popcount(mask) == channels;
    if (file == nullptr) {
        if (mask != 0 && !matches) lost.emplace_back("speaker positions");
        return lost;
    }
    const bool isStereoOrMono = mask == 0x3 || mask == 0x4;
    const bool isImplied = matches &&
                           (isStereoOrMono || mask == GetCustomaryChannelMask(channels)) &&
                           (row.soundFileFormat == SF_FORMAT_FLAC ||
                            row.soundFileFormat == SF_FORMAT_OGG || channels < 3);
    if (mask != 0 && !isImplied && !WriteChannelMap(file, channels, mask))
        lost.emplace_back("speaker positions");
    if (metadata.broadcast) lost.emplace_back("broadcast extension");
    if (!metadata.cues.empty())
        lost.push_back(fmt::format("cue points ({})", metadata.cues.size()));
    if (metadata.instrument) lost.emplace_back("instrument");
    for (const OpaqueChunk& chunk : metadata.chunks)
        lost.push_back(fmt::format("'{}' chunk", chunk.id));
    return lost;
}

}  // namespace zuc::host
