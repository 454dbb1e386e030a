#include "host/AudioReader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>

#include "host/Error.h"
#include "host/FileFormats.h"
#include "host/Folder.h"
#include "host/SampleConversion.h"
#include "host/SoundFileMetadata.h"
#include "host/TemporaryFile.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlockBytes = std::size_t{64} << 10;
constexpr std::size_t kDecodedSamples = 4096;  // stay in the first-level cache
constexpr std::string_view kReadable = "audio: wav, rf64, w64, aiff, caf, flac, ogg, opus, mp3, au";
constexpr std::size_t kMostNames = 1000;  // of a folder, to look for similar ones

std::string Describe(int error) { return std::generic_category().message(error); }

std::string NameOf(const std::string& path) {
    return path == "-" ? "standard input" : fmt::format("'{}'", path);
}

[[noreturn]] void ThrowMissing(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    std::error_code error;
    auto names = ListFolder(folder.empty() ? "." : folder.native(), error);
    names.resize(std::min(names.size(), kMostNames));
    const std::string similar = FindSimilar(fs::path(path).filename().native(), names);
    std::string hint;
    if (!folder.empty() && !fs::is_directory(folder, error))
        hint = fmt::format("there is no folder '{}'", folder.native());
    else if (!similar.empty())
        hint = fmt::format("did you mean '{}'?", (folder / similar).native());
    throw Error(ExitCode::kInput, fmt::format("there is no file '{}'", path),
                std::string(kReadable), hint);
}

/// The file to read, at its start: a stream is stored first.
FileDescriptor OpenSource(const std::string& path) {
    FileDescriptor file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                    : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) ThrowMissing(path);
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0)
        throw Error(ExitCode::kInput,
                    fmt::format("cannot open {}: {}", NameOf(path), Describe(errno)));
    if (S_ISDIR(status.st_mode))
        throw Error(ExitCode::kInput,
                    fmt::format("{} is a folder, not an audio file", NameOf(path)),
                    std::string(kReadable), "name the files in it");
    if (isatty(file.Get()) != 0)
        throw Error(ExitCode::kInput, fmt::format("{} is a terminal, not audio", NameOf(path)), {},
                    "pipe an audio file into it, or name one");
    if (!S_ISREG(status.st_mode)) file = SpoolToTemporary(file.Get(), NameOf(path));
    if (fstat(file.Get(), &status) == 0 && status.st_size == lseek(file.Get(), 0, SEEK_CUR))
        throw Error(ExitCode::kInput, fmt::format("{} is empty", NameOf(path)),
                    std::string(kReadable));
    return file;
}

std::uint32_t NumberAt(const std::byte* bytes, bool isBigEndian) {
    std::uint32_t number = 0;
    for (int i = 0; i < 4; ++i)
        number |= std::to_integer<std::uint32_t>(bytes[i]) << 8 * (isBigEndian ? 3 - i : i);
    return number;
}

/// Whether a RIFF or AIFF file ends before its samples do. libsndfile reads what there is and does not
/// say so.
bool LacksSamples(int fd) {
    const std::int64_t start = lseek(fd, 0, SEEK_CUR);
    std::array<std::byte, 12> head{};
    struct stat status {};
    if (fstat(fd, &status) != 0 || pread(fd, head.data(), 12, start) != 12) return false;
    const bool isAiff = std::memcmp(head.data(), "FORM", 4) == 0;
    if (!isAiff && std::memcmp(head.data(), "RIFF", 4) != 0) return false;
    constexpr std::uint32_t kOpenSizes = 0x7FFF0000;  // from here on, streams mean "to the end"
    for (std::int64_t at = start + 12; pread(fd, head.data(), 8, at) == 8;) {
        const std::uint32_t bytes = NumberAt(&head[4], isAiff);
        at += 8;
        if (std::memcmp(head.data(), isAiff ? "SSND" : "data", 4) == 0)
            return bytes < kOpenSizes && at + bytes > status.st_size;
        at += bytes + bytes % 2;
    }
    return false;
}

/// How samples stand in the file, when they can be taken from there directly.
std::optional<Encoding> FindRawEncoding(SNDFILE* file, int format) {
    switch (format & SF_FORMAT_TYPEMASK) {
        case SF_FORMAT_WAV:
        case SF_FORMAT_WAVEX:
        case SF_FORMAT_RF64:
        case SF_FORMAT_W64:
            break;
        default:
            return {};
    }
    if (sf_command(file, SFC_RAW_DATA_NEEDS_ENDSWAP, nullptr, 0) == SF_TRUE) return {};
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_16:
            return Encoding::kInt16;
        case SF_FORMAT_PCM_24:
            return Encoding::kInt24;
        case SF_FORMAT_PCM_32:
            return Encoding::kInt32;
        case SF_FORMAT_FLOAT:
            return Encoding::kFloat32;
        default:
            return {};
    }
}

}  // namespace

void CloseSoundFile::operator()(sf_private_tag* file) const { sf_close(file); }

std::unique_ptr<AudioReader> AudioReader::Open(const std::string& path) {
    FileDescriptor source = OpenSource(path);
    std::unique_ptr<AudioReader> reader(new AudioReader);
    reader->isTruncated_ = LacksSamples(source.Get());
    SF_INFO info{};
    reader->file_.reset(sf_open_fd(source.Get(), SFM_READ, &info, SF_TRUE));
    if (!reader->file_)
        throw Error(ExitCode::kInput,
                    fmt::format("{} is not an audio file that can be read: {}", NameOf(path),
                                sf_strerror(nullptr)),
                    std::string(kReadable));
    source.Release();
    if (info.channels < 1 || info.channels > kMaxChannels)
        throw Error(ExitCode::kInput,
                    fmt::format("{} has {} channels", NameOf(path), info.channels),
                    fmt::format("1 to {} channels", kMaxChannels), "split it into several files");
    if (info.samplerate < 1 || info.samplerate > kHighestRateHz)
        throw Error(ExitCode::kInput,
                    fmt::format("{} says that its rate is {} Hz", NameOf(path), info.samplerate),
                    fmt::format("1 to {} Hz", kHighestRateHz));
    reader->info_.path = path;
    reader->info_.rateHz = info.samplerate;
    reader->info_.channels = info.channels;
    reader->info_.frames = info.frames < SF_COUNT_MAX ? info.frames : -1;
    reader->Identify(info.format);
    return reader;
}

AudioReader::~AudioReader() = default;

void AudioReader::Identify(int format) {
    const EncodingInfo encoding = GetEncodingInfo(format);
    info_.format = GetFormatName(format);
    info_.encoding = encoding.name;
    info_.bits = encoding.bits;
    info_.isFloat = encoding.isFloat;
    metadata_ = ReadMetadata(file_.get(), info_.channels);
    const int container = format & SF_FORMAT_TYPEMASK;
    if (container == SF_FORMAT_OGG || container == SF_FORMAT_FLAC)
        metadata_.channelMask = GetCustomaryChannelMask(info_.channels);
    channelOrder_ = GetOggChannelOrder(format, info_.channels);

    const auto raw = FindRawEncoding(file_.get(), format);
    isRaw_ = raw.has_value();
    encoding_ = raw.value_or(Encoding::kFloat32);
    const auto channels = static_cast<std::size_t>(info_.channels);
    frameBytes_ = GetSampleBytes(encoding_) * channels;
    blockFrames_ = static_cast<int>(kBlockBytes / frameBytes_);
    block_.resize(kBlockBytes / sizeof(float) + 1);  // Decode reads one byte further
    if (encoding_ != Encoding::kFloat32) decoded_.resize(kDecodedSamples);
}

/// Refills block_; false at the end.
bool AudioReader::ReadBlock() {
    const auto frameBytes = static_cast<sf_count_t>(frameBytes_);
    const sf_count_t frames =
        isRaw_ ? sf_read_raw(file_.get(), block_.data(), frameBytes * blockFrames_) / frameBytes
               : sf_readf_float(file_.get(), block_.data(), blockFrames_);
    if (frames < blockFrames_ && sf_error(file_.get()) == SF_ERR_SYSTEM)
        throw Error(ExitCode::kInput, fmt::format("cannot read {}: {}", NameOf(info_.path),
                                                  sf_strerror(file_.get())));
    blockBegin_ = 0;
    blockEnd_ = static_cast<int>(std::max<sf_count_t>(frames, 0));
    return blockEnd_ > 0;
}

/// The next frames of block_ as floats, at most `count`, which becomes how many there are.
const float* AudioReader::DecodeNext(int& count) {
    const auto channels = static_cast<std::size_t>(info_.channels);
    const auto begin = static_cast<std::size_t>(blockBegin_);
    count = std::min(count, blockEnd_ - blockBegin_);
    if (encoding_ == Encoding::kFloat32) return &block_[begin * channels];
    count = std::min(count, static_cast<int>(kDecodedSamples / channels));
    const auto* const bytes = reinterpret_cast<const std::byte*>(block_.data());
    Decode(encoding_, bytes + begin * frameBytes_, decoded_.data(),
           static_cast<std::size_t>(count) * channels);
    return decoded_.data();
}

int AudioReader::Read(float* const* out, int frames) {
    std::array<float*, kMaxChannels> at{};
    int done = 0;
    while (done < frames) {
        if (blockBegin_ == blockEnd_ && !ReadBlock()) {
            if (framesRead_ + done < info_.frames) isTruncated_ = true;
            break;
        }
        int count = frames - done;
        const float* const interleaved = DecodeNext(count);
        for (int c = 0; c < info_.channels; ++c) at[static_cast<std::size_t>(c)] = out[c] + done;
        Deinterleave(interleaved, at.data(), info_.channels, count, channelOrder_);
        blockBegin_ += count;
        done += count;
    }
    framesRead_ += done;
    return done;
}

void AudioReader::Seek(std::int64_t frame) {
    if (sf_seek(file_.get(), frame, SEEK_SET) != frame)
        throw Error(ExitCode::kInput,
                    fmt::format("cannot go to frame {} of {}", frame, NameOf(info_.path)));
    framesRead_ = frame;
    blockBegin_ = blockEnd_ = 0;
}

}  // namespace zuc::host
