#include "host/AudioWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <optional>

#include "host/Error.h"
#include "host/FileFormats.h"
#include "host/SampleConversion.h"
#include "host/SampleSink.h"
#include "host/TemporaryFile.h"

namespace zuc::host {
namespace {

struct SampleFormatRow {
    SampleFormat format;
    std::string_view names;
    Encoding encoding;
    bool FormatRow::*isAllowed;
};
constexpr std::array kSampleFormats{
    SampleFormatRow{SampleFormat::kInt8, "8", Encoding::kUnsigned8, &FormatRow::has8},
    SampleFormatRow{SampleFormat::kInt16, "16", Encoding::kInt16, &FormatRow::has16},
    SampleFormatRow{SampleFormat::kInt24, "24", Encoding::kInt24, &FormatRow::has24},
    SampleFormatRow{SampleFormat::kInt32, "32", Encoding::kInt32, &FormatRow::has32},
    SampleFormatRow{SampleFormat::kFloat32, "float", Encoding::kFloat32, &FormatRow::hasFloat},
};

const SampleFormatRow& RowOf(SampleFormat format) {
    return *std::find_if(kSampleFormats.begin(), kSampleFormats.end(),
                         [=](const SampleFormatRow& row) { return row.format == format; });
}

SampleFormat LikeSource(const AudioWriterOptions& options) {
    if (options.sourceIsFloat) return SampleFormat::kFloat32;
    if (options.sourceBits == 0) return SampleFormat::kInt24;
    if (options.sourceBits <= 8) return SampleFormat::kInt8;
    if (options.sourceBits <= 16) return SampleFormat::kInt16;
    return options.sourceBits <= 24 ? SampleFormat::kInt24 : SampleFormat::kInt32;
}

/// The encoding to write; its value means nothing for lossy formats.
Encoding ChooseEncoding(const FormatRow& row, const AudioWriterOptions& options) {
    const bool isAutomatic = options.samples == SampleFormat::kLikeSource;
    if (row.lossySubtype != 0) {
        if (isAutomatic) return Encoding::kFloat32;
        throw Error(ExitCode::kUsage, fmt::format("{} is lossy and has no bit depth", row.name), {},
                    "leave the bit depth out, or write wav or flac");
    }
    const SampleFormatRow& wanted = RowOf(isAutomatic ? LikeSource(options) : options.samples);
    if (row.*wanted.isAllowed) return wanted.encoding;
    if (isAutomatic) return Encoding::kInt24;  // which every lossless format has
    std::string allowed;
    for (const SampleFormatRow& other : kSampleFormats)
        if (row.*other.isAllowed)
            allowed += (allowed.empty() ? "" : ", ") + std::string(other.names);
    throw Error(ExitCode::kUsage,
                fmt::format("{} has no samples of the kind '{}'", row.name, wanted.names),
                fmt::format("{}: {}", row.name, allowed), "wav has all of them");
}

void CheckLayout(const FormatRow& row, const AudioWriterOptions& options) {
    if (options.channels < 1 || options.channels > row.maxChannels)
        throw Error(ExitCode::kOutput,
                    fmt::format("{} cannot hold {} channels", row.name, options.channels),
                    fmt::format("1 to {} channels in {}", row.maxChannels, row.name),
                    options.channels > kMaxChannels ? "" : "wav holds up to 32 channels");
    if (row.ratesHz.empty() ? options.rateHz > 0
                            : std::ranges::find(row.ratesHz, options.rateHz) != row.ratesHz.end())
        return;
    throw Error(ExitCode::kOutput, fmt::format("{} cannot hold {} Hz", row.name, options.rateHz),
                row.ratesHz.empty() ? "rates from 1 Hz on"
                                    : fmt::format("rates in Hz: {}", fmt::join(row.ratesHz, ", ")),
                row.ratesHz.empty() ? "" : "change the sample rate, or write another format");
}

}  // namespace

SampleFormat ParseSampleFormat(const std::string& text) {
    if (text == "32f") return SampleFormat::kFloat32;
    for (const SampleFormatRow& row : kSampleFormats)
        if (row.names == text) return row.format;
    throw Error(ExitCode::kUsage, fmt::format("'{}' is no bit depth", text),
                "bit depths: 8, 16, 24, 32, float");
}

float Overs::GetGainToAvoidDb() const { return peak > 1.0f ? -20.0f * std::log10(peak) : 0.0f; }

/// What is not for the header to show.
struct AudioWriter::State {
    explicit State(const AudioWriterOptions& options, const FormatRow& row)
        : dither(options.seed),
          output(options.path,
                 row.streams ? OutputFile::Access::kSequential : OutputFile::Access::kRandom) {}

    Dither dither;
    OutputFile output;
    std::unique_ptr<SampleSink> sink;  // writes to the two above
};

AudioWriter::AudioWriter(const AudioWriterOptions& options, const AudioMetadata& metadata) {
    const FormatRow& row = FindFormat(options.format, options.path);
    const Encoding encoding = ChooseEncoding(row, options);
    CheckLayout(row, options);

    const bool isLossy = row.lossySubtype != 0;
    const bool isFloat = !isLossy && encoding == Encoding::kFloat32;
    const int bits = isLossy ? 0 : GetBits(encoding);
    info_.path = options.path;
    info_.rateHz = options.rateHz;
    info_.channels = options.channels;
    info_.frames = 0;
    info_.format = row.name;
    info_.encoding = isLossy   ? GetEncodingInfo(row.lossySubtype).name
                     : isFloat ? "32-bit float"
                               : fmt::format("{}-bit PCM", bits);
    info_.bits = bits;
    info_.isFloat = isFloat;

    state_ = std::make_unique<State>(options, row);
    SampleSink::Setup setup{&row,
                            encoding,
                            options.rateHz,
                            options.channels,
                            options.quality,
                            GetOggChannelOrder(row.soundFileFormat, options.channels)};
    if (options.dither && !options.exact && bits > 0 && bits <= 16) setup.dither = &state_->dither;
    state_->sink = SampleSink::Make(setup, state_->output, metadata, lostMetadata_);
}

AudioWriter::~AudioWriter() = default;

void AudioWriter::Write(const float* const* in, int frames) {
    const int channels = info_.channels;
    CountOvers(in, frames);
    const int mostFrames = SampleSink::kMostSamples / channels;
    for (int first = 0; first < frames; first += mostFrames)
        state_->sink->Write(in, first, std::min(mostFrames, frames - first));
    info_.frames += frames;
}

void AudioWriter::CountOvers(const float* const* in, int frames) {
    float peak = 0.0f;
    bool isFinite = true;
    for (int c = 0; c < info_.channels; ++c) {
        const float channelPeak = PeakOf(in[c], static_cast<std::size_t>(frames));
        isFinite = isFinite && std::isfinite(channelPeak);
        peak = std::max(peak, channelPeak);
    }
    if (isFinite && peak <= 1.0f) {
        overs_.peak = std::max(overs_.peak, peak);
        return;
    }
    for (int i = 0; i < frames; ++i) {
        for (int c = 0; c < info_.channels; ++c) {
            const float magnitude = std::fabs(in[c][i]);
            if (std::isfinite(magnitude)) overs_.peak = std::max(overs_.peak, magnitude);
            if (!(magnitude > 1.0f)) continue;
            if (overs_.count++ > 0) continue;
            overs_.firstSeconds = static_cast<double>(info_.frames + i) / info_.rateHz;
            overs_.firstChannel = c;
        }
    }
}

void AudioWriter::Commit() {
    state_->sink->Finish(info_.frames);
    state_->output.Commit();
}

}  // namespace zuc::host
