#include "host/RenderSource.h"

#include <algorithm>
#include <cmath>

#include "host/Error.h"
#include "host/Text.h"

namespace zuc::host {

AudioBlock::AudioBlock(std::size_t channels, int frames)
    : frames_(static_cast<std::size_t>(frames)),
      samples_(channels * frames_),
      channels_(channels),
      shifted_(channels) {
    for (std::size_t c = 0; c < channels; ++c) channels_[c] = samples_.data() + c * frames_;
}

float** AudioBlock::GetChannelsFrom(int first) {
    for (std::size_t c = 0; c < channels_.size(); ++c) shifted_[c] = channels_[c] + first;
    return shifted_.data();
}

void AudioBlock::Clear(int frames) {
    for (float* channel : channels_) std::fill_n(channel, frames, 0.0f);
}

RenderSource::RenderSource(AudioSource& reader,
                           const TimeRange& range,
                           int toRateHz,
                           int blockFrames)
    : reader_(reader),
      toRateHz_(toRateHz),
      blockFrames_(blockFrames),
      fileBlock_(static_cast<std::size_t>(reader.GetInfo().channels), blockFrames) {
    const AudioFileInfo& info = reader.GetInfo();
    beginFrame_ = std::llround(range.beginSeconds * info.rateHz);
    if (std::isfinite(range.endSeconds)) endFrame_ = std::llround(range.endSeconds * info.rateHz);
    if (info.frames < 0) return;
    endFrame_ = endFrame_ < 0 ? info.frames : std::min(endFrame_, info.frames);
    if (beginFrame_ >= endFrame_ && beginFrame_ > 0)
        throw Error(ExitCode::kUsage, info.path + ": the range begins behind the end",
                    "0 … " + ToText(static_cast<double>(info.frames) / info.rateHz) + " s");
}

void RenderSource::Rewind() {
    if (beginFrame_ > 0 || framesRead_ > 0) reader_.Seek(beginFrame_);
    framesRead_ = 0;
    nonFiniteSamples_ = 0;
    fileBlockBegin_ = 0;
    fileBlockEnd_ = 0;
    const AudioFileInfo& info = reader_.GetInfo();
    if (toRateHz_ != info.rateHz)
        resampler_ = std::make_unique<Resampler>(info.rateHz, toRateHz_, info.channels);
}

std::int64_t RenderSource::GetTotalFrames() const {
    if (endFrame_ < 0) return -1;
    return Resampler::GetOutputFrames(endFrame_ - beginFrame_, reader_.GetInfo().rateHz, toRateHz_);
}

int RenderSource::Read(float* const* out, int frames) {
    if (!resampler_) return ReadFile(out, frames);
    std::vector<float*> at(out, out + fileBlock_.GetChannelCount());
    int done = 0;
    while (done < frames) {
        if (fileBlockBegin_ == fileBlockEnd_) {
            fileBlockBegin_ = 0;
            fileBlockEnd_ = ReadFile(fileBlock_.GetChannels(), blockFrames_);
        }
        int produced = 0;
        if (fileBlockEnd_ == 0) {
            produced = resampler_->Drain(at.data(), frames - done);
            if (produced == 0) break;
        } else {
            const auto progress =
                resampler_->Process(fileBlock_.GetChannelsFrom(fileBlockBegin_),
                                    fileBlockEnd_ - fileBlockBegin_, at.data(), frames - done);
            fileBlockBegin_ += progress.consumed;
            produced = progress.produced;
        }
        for (float*& channel : at) channel += produced;
        done += produced;
    }
    return done;
}

int RenderSource::ReadFile(float* const* out, int frames) {
    if (endFrame_ >= 0)
        frames =
            static_cast<int>(std::min<std::int64_t>(frames, endFrame_ - beginFrame_ - framesRead_));
    const int count = frames > 0 ? reader_.Read(out, frames) : 0;
    framesRead_ += count;
    if (reader_.GetInfo().isFloat) CountNonFinite(out, count);
    return count;
}

void RenderSource::CountNonFinite(float* const* audio, int frames) {
    for (std::size_t c = 0; c < fileBlock_.GetChannelCount(); ++c) {
        int count = 0;
        // x - x is 0 for every finite x and not-a-number otherwise; the loop runs in vectors.
        for (int i = 0; i < frames; ++i) count += audio[c][i] - audio[c][i] != 0.0f ? 1 : 0;
        nonFiniteSamples_ += count;
    }
}

}  // namespace zuc::host
