#include "host/SpooledAudio.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/Error.h"

namespace zuc::host {
namespace {

/// Moves all the bytes, however few the system takes at a time. `move(bytes, count, offset)` is pread or pwrite.
template <class Move>
void MoveAll(char* bytes, std::size_t count, std::int64_t offset, const Move& move) {
    while (count > 0) {
        const ssize_t moved = move(bytes, count, static_cast<off_t>(offset));
        if (moved < 0 && errno == EINTR) continue;
        if (moved <= 0)
            throw Error(
                ExitCode::kOutput,
                "temporary file: " + std::system_category().message(moved < 0 ? errno : EIO), "",
                "TMPDIR names the folder for it");
        bytes += moved;
        count -= static_cast<std::size_t>(moved);
        offset += moved;
    }
}

}  // namespace

SpooledAudio::SpooledAudio(int rateHz, int channels) : file_(OpenUnlinkedTemporary()) {
    info_.rateHz = rateHz;
    info_.channels = channels;
    info_.frames = 0;
    info_.format = "none";
    info_.encoding = "32-bit float";
    info_.bits = 32;
    info_.isFloat = true;
}

void SpooledAudio::Append(const float* const* audio, int frames) {
    const auto channels = static_cast<std::size_t>(info_.channels);
    interleaved_.resize(channels * static_cast<std::size_t>(frames));
    for (std::size_t c = 0; c < channels; ++c)
        for (int i = 0; i < frames; ++i)
            interleaved_[static_cast<std::size_t>(i) * channels + c] = audio[c][i];
    const std::size_t frameBytes = channels * sizeof(float);
    MoveAll(reinterpret_cast<char*>(interleaved_.data()), interleaved_.size() * sizeof(float),
            info_.frames * static_cast<std::int64_t>(frameBytes),
            [this](const char* bytes, std::size_t count, off_t offset) {
                return ::pwrite(file_.Get(), bytes, count, offset);
            });
    info_.frames += frames;
}

int SpooledAudio::Read(float* const* out, int frames) {
    const auto channels = static_cast<std::size_t>(info_.channels);
    const auto count = static_cast<int>(
        std::clamp<std::int64_t>(info_.frames - position_, 0, static_cast<std::int64_t>(frames)));
    interleaved_.resize(channels * static_cast<std::size_t>(count));
    MoveAll(reinterpret_cast<char*>(interleaved_.data()), interleaved_.size() * sizeof(float),
            position_ * static_cast<std::int64_t>(channels * sizeof(float)),
            [this](char* bytes, std::size_t size, off_t offset) {
                return ::pread(file_.Get(), bytes, size, offset);
            });
    for (std::size_t c = 0; c < channels; ++c)
        for (int i = 0; i < count; ++i)
            out[c][i] = interleaved_[static_cast<std::size_t>(i) * channels + c];
    position_ += count;
    return count;
}

}  // namespace zuc::host
