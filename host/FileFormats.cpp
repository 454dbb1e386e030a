#include "host/FileFormats.h"

#include <fmt/format.h>
#include <sndfile.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "host/AudioReader.h"
#include "host/AudioWriter.h"
#include "host/Error.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

constexpr std::array kOpusRatesHz{8000, 12000, 16000, 24000, 48000};
constexpr std::array kMp3RatesHz{8000, 11025, 12000, 16000, 22050, 24000, 32000, 44100, 48000};
constexpr int kMax = kMaxChannels;

// Tags by letter: T title, A artist, B album, N track number, D date, G genre, C comment, R copyright,
// L license, S software. What libsndfile 1.2 writes and reads back. AIFF without 8 bits: an odd number
// of such samples comes out one longer.
// clang-format off
constexpr std::array<FormatRow, 9> kFormats{{
    // name   extensions   container        lossy encoding            streams 8     16     24     32     float  channels rates  tags
    {"wav",  "wav wave",  0,               0,                        true,  true,  true,  true,  true,  true,  kMax, {},           "TABNDGCRS"},
    {"flac", "flac",      SF_FORMAT_FLAC,  0,                        false, true,  true,  true,  false, false, 8,    {},           "TABNDGCRLS"},
    {"aiff", "aiff aif aifc", SF_FORMAT_AIFF, 0,                     false, false, true,  true,  true,  true,  kMax, {},           "TACRS"},
    {"caf",  "caf",       SF_FORMAT_CAF,   0,                        false, true,  true,  true,  true,  true,  kMax, {},           "TABNDGCRLS"},
    {"ogg",  "ogg oga",   SF_FORMAT_OGG,   SF_FORMAT_VORBIS,         true,  false, false, false, false, false, kMax, {},           "TABNDGCRLS"},
    {"opus", "opus",      SF_FORMAT_OGG,   SF_FORMAT_OPUS,           true,  false, false, false, false, false, 8,    kOpusRatesHz, "TABNDGCRLS"},
    {"mp3",  "mp3",       SF_FORMAT_MPEG,  SF_FORMAT_MPEG_LAYER_III, false, false, false, false, false, false, 2,    kMp3RatesHz,  "TABNDGC"},
    {"au",   "au snd",    SF_FORMAT_AU,    0,                        false, true,  true,  true,  true,  true,  kMax, {},           ""},
    {"w64",  "w64",       SF_FORMAT_W64,   0,                        false, true,  true,  true,  true,  true,  kMax, {},           ""},
}};

/// What people ask for and cannot have.
struct Refusal {
    std::string_view name;
    std::string_view hint;
};
constexpr std::array kRefusals{
    Refusal{"raw",  "samples without a header say neither rate nor channels; write wav"},
    Refusal{"pcm",  "samples without a header say neither rate nor channels; write wav"},
    Refusal{"alac", "for lossless compression write flac"},
    Refusal{"m4a",  "for lossless compression write flac, for small files opus or ogg"},
    Refusal{"aac",  "for small files write opus or ogg"},
};

struct NameRow {
    int soundFileFormat;
    std::string_view name;
};
constexpr std::array kReadableNames{
    NameRow{SF_FORMAT_WAV, "wav"},   NameRow{SF_FORMAT_WAVEX, "wav"}, NameRow{SF_FORMAT_RF64, "rf64"},
    NameRow{SF_FORMAT_AIFF, "aiff"}, NameRow{SF_FORMAT_AU, "au"},     NameRow{SF_FORMAT_CAF, "caf"},
    NameRow{SF_FORMAT_FLAC, "flac"}, NameRow{SF_FORMAT_OGG, "ogg"},   NameRow{SF_FORMAT_W64, "w64"},
    NameRow{SF_FORMAT_MPEG, "mp3"},
};

struct EncodingRow {
    int subtype;
    std::string_view name;
    int bits;
    bool isFloat;
};
constexpr std::array kEncodings{
    EncodingRow{SF_FORMAT_PCM_S8, "8-bit PCM", 8, false},
    EncodingRow{SF_FORMAT_PCM_U8, "8-bit PCM", 8, false},
    EncodingRow{SF_FORMAT_PCM_16, "16-bit PCM", 16, false},
    EncodingRow{SF_FORMAT_PCM_24, "24-bit PCM", 24, false},
    EncodingRow{SF_FORMAT_PCM_32, "32-bit PCM", 32, false},
    EncodingRow{SF_FORMAT_FLOAT, "32-bit float", 32, true},
    EncodingRow{SF_FORMAT_DOUBLE, "64-bit float", 64, true},
    EncodingRow{SF_FORMAT_ALAC_16, "16-bit ALAC", 16, false},
    EncodingRow{SF_FORMAT_ALAC_20, "20-bit ALAC", 20, false},
    EncodingRow{SF_FORMAT_ALAC_24, "24-bit ALAC", 24, false},
    EncodingRow{SF_FORMAT_ALAC_32, "32-bit ALAC", 32, false},
    EncodingRow{SF_FORMAT_VORBIS, "Vorbis", 0, false},
    EncodingRow{SF_FORMAT_OPUS, "Opus", 0, false},
    EncodingRow{SF_FORMAT_MPEG_LAYER_I, "MPEG layer I", 0, false},
    EncodingRow{SF_FORMAT_MPEG_LAYER_II, "MPEG layer II", 0, false},
    EncodingRow{SF_FORMAT_MPEG_LAYER_III, "MPEG layer III", 0, false},
};

// Three to eight channels, from the layouts both formats name.
constexpr std::array<std::uint32_t, 9> kCustomaryMasks{0, 0, 0, 0x7, 0x33, 0x37, 0x3F, 0x70F, 0x63F};
constexpr std::array<int, 3> kOgg3{0, 2, 1};
constexpr std::array<int, 5> kOgg5{0, 2, 1, 3, 4};
constexpr std::array<int, 6> kOgg6{0, 2, 1, 5, 3, 4};
constexpr std::array<int, 7> kOgg7{0, 2, 1, 6, 5, 3, 4};
constexpr std::array<int, 8> kOgg8{0, 2, 1, 7, 5, 6, 3, 4};
constexpr std::array<const int*, 9> kOggOrders{
    nullptr, nullptr, nullptr, kOgg3.data(), nullptr, kOgg5.data(), kOgg6.data(), kOgg7.data(), kOgg8.data()};
// clang-format on

bool HasWord(std::string_view words, std::string_view word) {
    return fmt::format(" {} ", words).find(fmt::format(" {} ", word)) != std::string::npos;
}

/// Pipes and devices, which have no extension to tell their format.
bool IsStream(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return path == "-" || path.starts_with("/dev/") || path.starts_with("/proc/") ||
           (exists(status) && !is_regular_file(status) && !is_directory(status));
}

[[noreturn]] void Refuse(const std::string& message, const std::string& name) {
    const auto* const refusal = std::find_if(kRefusals.begin(), kRefusals.end(),
                                             [&](const Refusal& r) { return r.name == name; });
    std::vector<std::string> names;
    names.reserve(kFormats.size());
    for (const FormatRow& row : kFormats) names.emplace_back(row.name);
    std::string hint;
    if (refusal != kRefusals.end())
        hint = refusal->hint;
    else if (const std::string similar = FindSimilar(name, names); !similar.empty())
        hint = fmt::format("did you mean '{}'?", similar);
    throw Error(ExitCode::kUsage, message, "formats: " + ListWritableFormats(), hint);
}

}  // namespace

std::span<const FormatRow> GetFormatTable() { return kFormats; }

std::string ListWritableFormats() {
    std::string list;
    for (const FormatRow& row : kFormats)
        list += fmt::format("{}{}", list.empty() ? "" : ", ", row.name);
    return list;
}

const FormatRow& FindFormat(const std::string& name, const std::string& path) {
    std::string wanted = ToLower(name);
    if (wanted.starts_with('.')) wanted.erase(0, 1);
    if (wanted.empty() && !IsStream(path)) {
        wanted = ToLower(std::filesystem::path(path).extension().native());
        if (wanted.size() < 2)
            Refuse(fmt::format("the name '{}' has no extension that tells the format", path), {});
        wanted.erase(0, 1);
    }
    if (wanted.empty()) return kFormats.front();
    for (const FormatRow& row : kFormats)
        if (row.name == wanted || HasWord(row.extensions, wanted)) return row;
    Refuse(fmt::format("cannot write the format '{}'", wanted), wanted);
}

bool CarriesTag(const FormatRow& row, Tag tag) {
    constexpr std::string_view kLetters = "TABNDGCRLS";  // in the order of Tag
    static_assert(kLetters.size() == kTagCount);
    return row.tags.find(kLetters[static_cast<std::size_t>(tag)]) != std::string_view::npos;
}

int GetIntegerSubtype(const FormatRow& row, int bits) {
    if (bits == 8)
        return row.soundFileFormat == SF_FORMAT_W64 ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_S8;
    if (bits == 16) return SF_FORMAT_PCM_16;
    return bits == 24 ? SF_FORMAT_PCM_24 : SF_FORMAT_PCM_32;
}

std::string GetFormatName(int soundFileFormat) {
    const int container = soundFileFormat & SF_FORMAT_TYPEMASK;
    if ((soundFileFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) return "opus";
    for (const NameRow& row : kReadableNames)
        if (row.soundFileFormat == container) return std::string(row.name);
    SF_FORMAT_INFO info{};
    info.format = container;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) != 0) return "unknown";
    return ToLower(info.extension);
}

EncodingInfo GetEncodingInfo(int soundFileFormat) {
    const int subtype = soundFileFormat & SF_FORMAT_SUBMASK;
    for (const EncodingRow& row : kEncodings)
        if (row.subtype == subtype) return {std::string(row.name), row.bits, row.isFloat};
    SF_FORMAT_INFO info{};
    info.format = subtype;
    if (sf_command(nullptr, SFC_GET_FORMAT_INFO, &info, sizeof info) != 0) return {"unknown"};
    return {info.name};
}

std::uint32_t GetCustomaryChannelMask(int channels) {
    const auto index = static_cast<std::size_t>(channels);
    return index < kCustomaryMasks.size() ? kCustomaryMasks[index] : 0;
}

const int* GetOggChannelOrder(int soundFileFormat, int channels) {
    const auto index = static_cast<std::size_t>(channels);
    if ((soundFileFormat & SF_FORMAT_TYPEMASK) != SF_FORMAT_OGG || index >= kOggOrders.size())
        return nullptr;
    return kOggOrders[index];
}

}  // namespace zuc::host
