// Audio files: refused, or read from the start and from the middle within what they announce, and what they say
// besides audio goes into the header of a WAV file. What the libraries decode need not be finite.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "host/AudioReader.h"
#include "host/RenderSource.h"
#include "host/TemporaryFile.h"
#include "host/WavHeader.h"
#include "tests/fuzz/Fuzz.h"

namespace zuc::fuzz {
namespace {

constexpr int kBlockFrames = 1000;  // no divisor of the reader's own block
constexpr int kMostBlocks = 32;

/// A file in memory, by the name that the system gives it.
class MemoryFile {
public:
    explicit MemoryFile(std::string_view bytes) : file_(memfd_create("fuzz", MFD_CLOEXEC)) {
        Require(file_.IsOpen() && write(file_.Get(), bytes.data(), bytes.size()) ==
                                      static_cast<ssize_t>(bytes.size()));
    }
    std::string GetPath() const { return "/proc/self/fd/" + std::to_string(file_.Get()); }

private:
    host::FileDescriptor file_;
};

std::int64_t ReadAll(host::AudioReader& reader) {
    host::AudioBlock audio(static_cast<std::size_t>(reader.GetInfo().channels), kBlockFrames);
    std::int64_t frames = 0;
    for (int block = 0; block < kMostBlocks; ++block) {
        const int given = reader.Read(audio.GetChannels(), kBlockFrames);
        Require(given >= 0 && given <= kBlockFrames);
        frames += given;
        if (given < kBlockFrames) break;
    }
    return frames;
}

}  // namespace

void Run(std::string_view input) {
    const MemoryFile file(input);
    const auto reader = host::AudioReader::Open(file.GetPath());
    const host::AudioFileInfo& info = reader->GetInfo();
    Require(info.channels >= 1 && info.channels <= host::kMaxChannels && info.rateHz >= 1 &&
            info.rateHz <= host::kHighestRateHz);
    const std::int64_t frames = ReadAll(*reader);
    if (info.frames >= 0)
        Try([&] {
            reader->Seek(std::min(frames, info.frames) / 2);
            ReadAll(*reader);
        });
    host::AudioMetadata metadata = reader->GetMetadata();
    metadata.ChangeRate(info.rateHz, 48000);
    const host::WavHeader header(host::Encoding::kInt16, 48000, info.channels, metadata, false);
    header.MakePatches(frames);
}

}  // namespace zuc::fuzz
