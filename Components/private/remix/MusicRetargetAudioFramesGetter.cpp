#include "Components/private/remix/MusicRetargetAudioFramesGetter.h"

#include <algorithm>
#include <cmath>

namespace zuc::components {
namespace {

constexpr int kFilterOrder = 29;
constexpr std::int64_t kReachFrames = 16;  // of the filter to either side, at the analysis rate
constexpr long kBlock = OfflineJob::kBlockFrames;

}  // namespace

MusicRetargetAudioFramesGetter::MusicRetargetAudioFramesGetter(OfflineJob::Run& run,
                                                               int rateHz,
                                                               int analysisRateHz,
                                                               std::int64_t sourceFrames)
    : run_(run),
      analysisRateHz_(analysisRateHz),
      ratio_(static_cast<double>(rateHz) / analysisRateHz),
      sourceFrames_(sourceFrames),
      channels_(run.GetChannelCount()),
      block_(static_cast<std::size_t>(std::max(1L, channels_) * kBlock)),
      mixed_(kBlock) {
    for (long c = 0; c < channels_; ++c) blockAt_.push_back(block_.data() + c * kBlock);
    resample_.SetFilterOrder(kFilterOrder);
    resample_.SetSampleRates(rateHz, analysisRateHz);
}

std::int64_t MusicRetargetAudioFramesGetter::GetFrameCount() const {
    return static_cast<std::int64_t>(static_cast<double>(sourceFrames_) / ratio_ + 0.5);
}

bool MusicRetargetAudioFramesGetter::ReadMixed(std::int64_t position, long frames) {
    if (channels_ <= 0 || !run_.Read(blockAt_.data(), channels_, position, frames)) return false;
    std::fill_n(mixed_.begin(), frames, 0.0f);
    for (const float* channel : blockAt_)
        for (long i = 0; i < frames; ++i)
            mixed_[static_cast<std::size_t>(i)] += std::isfinite(channel[i]) ? channel[i] : 0.0f;
    for (long i = 0; i < frames; ++i)
        mixed_[static_cast<std::size_t>(i)] /= static_cast<float>(channels_);
    return true;
}

std::vector<double> MusicRetargetAudioFramesGetter::GetFrames(std::int64_t first,
                                                              std::int64_t last) {
    const std::int64_t count = GetFrameCount();
    first = std::clamp<std::int64_t>(first, 0, count);
    last = std::clamp(last, first, count);
    const std::int64_t lead = std::min(first, kReachFrames);
    const auto toSource = [this](std::int64_t frame) {
        return std::min(sourceFrames_,
                        static_cast<std::int64_t>(static_cast<double>(frame) * ratio_));
    };
    std::int64_t position = toSource(first - lead);
    const std::int64_t end = toSource(last + kReachFrames);
    const auto wanted = static_cast<std::size_t>(last - first);
    std::vector<double> frames;
    frames.reserve(wanted);
    std::vector<float> out(static_cast<std::size_t>(kBlock));
    std::int64_t toDrop = lead;
    const auto take = [&](int given) {
        const auto dropped = static_cast<int>(std::min<std::int64_t>(toDrop, given));
        toDrop -= dropped;
        for (int i = dropped; i < given && frames.size() < wanted; ++i)
            frames.push_back(static_cast<double>(out[static_cast<std::size_t>(i)]));
    };
    resample_.Reset();
    while (position < end && frames.size() < wanted) {
        const auto read = static_cast<int>(std::min<std::int64_t>(kBlock, end - position));
        if (!ReadMixed(position, read)) {
            hasFailed_ = true;
            return frames;
        }
        position += read;
        for (int taken = 0; taken < read;) {
            int consumed = 0;
            take(resample_.Process(mixed_.data() + taken, read - taken, out.data(),
                                   static_cast<int>(kBlock), &consumed));
            taken += consumed;
        }
    }
    while (frames.size() < wanted) {
        const int given = resample_.Flush(out.data(), static_cast<int>(kBlock));
        if (given == 0) break;
        take(given);
    }
    return frames;
}

}  // namespace zuc::components
