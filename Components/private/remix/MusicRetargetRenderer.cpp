#include "Components/private/remix/MusicRetargetRenderer.h"

#include <algorithm>

#include "kraaudiodsp/LogFade.h"
#include "kracore/Debug.h"

namespace zuc::components {
namespace {

constexpr long kBlock = OfflineJob::kBlockFrames;
constexpr int kMostRefusals = 100;
constexpr int kTraceLevel = 5;

}  // namespace

MusicRetargetRenderer::MusicRetargetRenderer(OfflineJob::Run& run, int rateHz)
    : run_(run),
      rateHz_(rateHz),
      channels_(run.GetChannelCount()),
      fadeBend_(dsp::GetLogVerticalModifier(dsp::kDefaultFadeShapeValue)),
      samples_(static_cast<std::size_t>(2 * channels_ * kBlock)) {
    for (long c = 0; c < channels_; ++c) {
        incoming_.push_back(samples_.data() + c * kBlock);
        previous_.push_back(samples_.data() + (channels_ + c) * kBlock);
    }
}

bool MusicRetargetRenderer::Play(const MusicRetargetResults& results,
                                 const std::function<void(double)>& progress) {
    if (channels_ <= 0 || run_.GetWriterChannelCount() > channels_) return false;
    const auto toFrames = [this](const Ratio& seconds) {
        return kracore::utility::MultiplyAndTruncate(seconds, rateHz_);
    };
    for (std::size_t i = 0; i < results.size(); ++i) {
        const RetargetSegment& segment = results[i];
        std::int64_t position = toFrames(segment.offset);
        std::int64_t frames = toFrames(segment.duration);
        // Half of each fade belongs to the range on either side.
        if (i + 1 < results.size()) frames -= toFrames(results[i + 1].crossfade) / 2;
        if (i > 0) {
            const std::int64_t fade = toFrames(segment.crossfade);
            if (position < fade / 2) {
                kracore::debug::Trace(
                    "MusicRetargeting", kTraceLevel,
                    "Provided fadelength insufficient. Shifting content to fill crossfade.");
                position = fade / 2;
            }
            position -= fade / 2;
            frames -= fade / 2;
            const Ratio previousEnd = results[i - 1].offset + results[i - 1].duration;
            if (!PlayFade({position, toFrames(previousEnd) - fade / 2, fade})) return false;
            position += fade;
        }
        if (!Copy(position, frames)) return false;
        progress(static_cast<double>(i + 1) / static_cast<double>(results.size()));
    }
    return true;
}

bool MusicRetargetRenderer::PlayFade(Fade fade) {
    for (std::int64_t done = 0; done < fade.frames;) {
        const std::int64_t count = std::min<std::int64_t>(kBlock, fade.frames - done);
        if (!Read(incoming_, fade.from + done, count) ||
            !Read(previous_, fade.previous + done, count))
            return false;
        for (std::int64_t j = 0; j < count; ++j) {
            const double p = static_cast<double>(done + j) / static_cast<double>(fade.frames);
            const auto in = static_cast<float>(dsp::CalculateLogFadeValue(p, fadeBend_));
            const auto out = static_cast<float>(dsp::CalculateLogFadeValue(1.0 - p, fadeBend_));
            for (std::size_t c = 0; c < incoming_.size(); ++c)
                incoming_[c][j] = in * incoming_[c][j] + out * previous_[c][j];
        }
        if (!run_.Write(incoming_.data(), static_cast<long>(count), kMostRefusals)) return false;
        done += count;
    }
    return true;
}

bool MusicRetargetRenderer::Copy(std::int64_t position, std::int64_t frames) {
    for (std::int64_t done = 0; done < frames;) {
        const std::int64_t count = std::min<std::int64_t>(kBlock, frames - done);
        if (!Read(incoming_, position + done, count) ||
            !run_.Write(incoming_.data(), static_cast<long>(count), kMostRefusals))
            return false;
        done += count;
    }
    return true;
}

bool MusicRetargetRenderer::Read(std::vector<float*>& block,
                                 std::int64_t position,
                                 std::int64_t frames) {
    return run_.Read(block.data(), channels_, position, static_cast<long>(frames));
}

}  // namespace zuc::components
