#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/AudioMetadata.h"

namespace zuc::host {

/// A container that can be written.
struct FormatRow {
    std::string_view name;
    std::string_view extensions;  // separated by blanks, the customary one first
    int soundFileFormat;          // SF_FORMAT_* of the container; 0 for WAV, which is written here
    int lossySubtype;             // SF_FORMAT_* of the encoding; 0 when samples are kept
    bool streams;                 // can be written without going back
    bool has8, has16, has24, has32, hasFloat;
    int maxChannels;
    std::span<const int> ratesHz;  // empty: any
    std::string_view tags;         // first letters of what it carries: see CarriesTag
};

/// [any]
std::span<const FormatRow> GetFormatTable();

/// The row of a name ("flac") or, when that is empty, of the extension of `path`; "wav" for streams and
/// devices. Throws Error(kUsage) that names what can be written. [host]
const FormatRow& FindFormat(const std::string& name, const std::string& path);

/// Whether the container keeps a tag. [any]
bool CarriesTag(const FormatRow& row, Tag tag);

/// The SF_FORMAT_* encoding of integers of `bits` bits in that container. [any]
int GetIntegerSubtype(const FormatRow& row, int bits);

/// "wav" for SF_FORMAT_WAV, and so on, of any format that can be read. [any]
std::string GetFormatName(int soundFileFormat);

/// What a SF_FORMAT_* encoding is.
struct EncodingInfo {
    std::string name;  // "16-bit PCM"
    int bits = 0;      // 0 for lossy ones
    bool isFloat = false;
};
EncodingInfo GetEncodingInfo(int soundFileFormat);  // [any]

/// Speaker positions, as in AudioMetadata::channelMask, that FLAC and Ogg files imply for a number of
/// channels; 0 for none. [any]
std::uint32_t GetCustomaryChannelMask(int channels);

/// The place of each channel within a frame of an Ogg file, whose order is not that of WAV files
/// (Vorbis I, section 4.3.9); null when it is. [any]
const int* GetOggChannelOrder(int soundFileFormat, int channels);

}  // namespace zuc::host
