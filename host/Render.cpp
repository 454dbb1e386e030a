#include "host/Render.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

#include "host/Error.h"
#include "host/PeakLimiter.h"
#include "host/RenderSource.h"
#include "host/Text.h"
#include "kracore/FlushToZero.h"

namespace zuc::host {
namespace {

constexpr float kFullScale = 1.0f;

float ToDb(float gain) { return 20.0f * std::log10(gain); }

/// Positions of the metadata count from the start of the range, at the rate of the output.
AudioMetadata MoveMetadata(
    AudioMetadata metadata, std::int64_t begin, std::int64_t end, int fromHz, int toHz) {
    std::erase_if(metadata.cues, [&](const CuePoint& cue) {
        return cue.frame < begin || (end >= 0 && cue.frame > end);
    });
    for (CuePoint& cue : metadata.cues) cue.frame -= begin;
    if (metadata.instrument) {
        auto& loops = metadata.instrument->loops;
        std::erase_if(loops, [&](const Instrument::Loop& loop) {
            return loop.startFrame < begin || (end >= 0 && loop.endFrame > end);
        });
        for (Instrument::Loop& loop : loops) {
            loop.startFrame -= begin;
            loop.endFrame -= begin;
        }
    }
    if (metadata.broadcast)
        metadata.broadcast->timeReferenceFrames += static_cast<std::uint64_t>(begin);
    if (fromHz != toHz) metadata.ChangeRate(fromHz, toHz);
    return metadata;
}

/// One render from open files to a committed output.
class Job {
public:
    Job(AudioReader& reader, ChainProcessor& chain, int rateHz, const RenderOptions& options)
        : reader_(reader),
          chain_(chain),
          rateHz_(rateHz),
          options_(options),
          source_(reader, options.range, rateHz, chain.GetMaximumBlockFrames()),
          block_(chain.GetChannelCount(), chain.GetMaximumBlockFrames()) {
        if (!options.sideChain) return;
        side_.emplace(*options.sideChain, options.range, rateHz, chain.GetMaximumBlockFrames());
        sideBlock_.emplace(static_cast<std::size_t>(options.sideChain->GetInfo().channels),
                           chain.GetMaximumBlockFrames());
    }

    RenderReport Run() {
        const kracore::utility::FlushToZeroScope flushToZero;
        const auto start = std::chrono::steady_clock::now();
        report_.input = reader_.GetInfo();
        if (options_.onClip == OnClip::kNormalize) MeasureGain();
        AudioWriter writer(MakeWriterOptions(), MakeMetadata());
        RunPass([&](float* const* audio, int frames) {
            writer.Write(audio, frames);
            overs_ = writer.GetOvers().count;
        });
        report_.overs = writer.GetOvers();
        if (options_.onClip == OnClip::kError && report_.overs.count > 0) FailOnOvers();
        writer.Commit();
        report_.output = writer.GetInfo();
        report_.lostMetadata = writer.GetLostMetadata();
        report_.framesIn = source_.GetFramesRead();
        report_.nonFiniteSamplesIn = source_.GetNonFiniteSamples();
        report_.isInputTruncated = reader_.IsTruncated();
        report_.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return report_;
    }

private:
    /// The pass before the real one finds the peak, and with it the gain.
    void MeasureGain() {
        passCount_ = 2;
        float peak = 0.0f;
        RunPass([&](float* const* audio, int frames) {
            for (std::size_t c = 0; c < chain_.GetChannelCount(); ++c)
                for (int i = 0; i < frames; ++i) {
                    const float level = std::abs(audio[c][i]);
                    if (level > peak && std::isfinite(level)) peak = level;
                }
        });
        pass_ = 2;
        if (peak <= kFullScale) return;
        gain_ = kFullScale / peak;
        while (gain_ * peak > kFullScale) gain_ = std::nextafter(gain_, 0.0f);
        report_.normalizeGainDb = ToDb(gain_);
    }

    bool LeavesSamplesAlone() const {
        return chain_.GetFilters().empty() && rateHz_ == reader_.GetInfo().rateHz &&
               gain_ == 1.0f && options_.onClip != OnClip::kLimit;
    }

    AudioWriterOptions MakeWriterOptions() const {
        const AudioFileInfo& info = reader_.GetInfo();
        AudioWriterOptions options = options_.output;
        options.sourceBits = info.bits;
        options.sourceIsFloat = info.isFloat;
        options.rateHz = rateHz_;
        options.channels = static_cast<int>(chain_.GetChannelCount());
        options.exact = LeavesSamplesAlone() && options.samples == SampleFormat::kLikeSource;
        return options;
    }

    AudioMetadata MakeMetadata() const {
        const int fileRateHz = reader_.GetInfo().rateHz;
        const double end = options_.range.endSeconds;
        return MoveMetadata(reader_.GetMetadata(), source_.GetBeginFrame(),
                            std::isfinite(end) ? std::llround(end * fileRateHz) : -1, fileRateHz,
                            rateHz_);
    }

    std::int64_t CountTailFrames() {
        const auto toFrames = [&](double seconds) { return std::llround(seconds * rateHz_); };
        switch (options_.tail.kind) {
            case Tail::Kind::kNone:
                return 0;
            case Tail::Kind::kSeconds:
                return toFrames(options_.tail.seconds);
            case Tail::Kind::kAuto:
                break;
        }
        const std::int64_t most = toFrames(kMaximumAutoTailSeconds);
        report_.isTailCut = chain_.GetTailFrames() > most;
        return std::min<std::int64_t>(chain_.GetTailFrames(), most);
    }

    /// All the input and then silence through the chain; `sink` gets the output, aligned.
    template <class Sink>
    void RunPass(const Sink& sink) {
        source_.Rewind();
        if (side_) side_->Rewind();
        chain_.SetSelection(std::llround(static_cast<double>(source_.GetBeginFrame()) * rateHz_ /
                                         reader_.GetInfo().rateHz),
                            source_.GetTotalFrames());
        chain_.Resume();
        limiter_.reset();
        if (options_.onClip == OnClip::kLimit && pass_ == passCount_)
            limiter_ = std::make_unique<PeakLimiter>(
                rateHz_, static_cast<int>(chain_.GetChannelCount()), kFullScale);
        report_.latencyFrames = chain_.GetLatencyFrames();
        report_.tailFrames = CountTailFrames();
        const std::int64_t total = source_.GetTotalFrames();
        framesTotal_ = total < 0 ? -1 : total + report_.tailFrames;
        framesToDrop_ = report_.latencyFrames + (limiter_ ? limiter_->GetLatencyFrames() : 0);
        report_.framesOut = 0;

        const int blockFrames = chain_.GetMaximumBlockFrames();
        std::int64_t silence = framesToDrop_ + report_.tailFrames;
        while (const int frames = source_.Read(block_.GetChannels(), blockFrames))
            ProcessBlock(frames, sink);
        while (silence > 0) {
            const int frames = static_cast<int>(std::min<std::int64_t>(silence, blockFrames));
            block_.Clear(frames);
            ProcessBlock(frames, sink);
            silence -= frames;
        }
        chain_.Suspend();
        if (limiter_) report_.limiterLowestGainDb = ToDb(limiter_->GetLowestGain());
    }

    template <class Sink>
    void ProcessBlock(int frames, const Sink& sink) {
        if (options_.interrupted && options_.interrupted->load(std::memory_order_relaxed) != 0)
            throw Interrupted();
        float** audio = block_.GetChannels();
        chain_.Process(audio, frames, ReadSideChain(frames));
        if (gain_ != 1.0f)
            for (std::size_t c = 0; c < chain_.GetChannelCount(); ++c)
                for (int i = 0; i < frames; ++i) audio[c][i] *= gain_;
        if (limiter_) limiter_->Process(audio, frames);
        const int dropped = static_cast<int>(std::min<std::int64_t>(framesToDrop_, frames));
        framesToDrop_ -= dropped;
        if (dropped < frames) sink(block_.GetChannelsFrom(dropped), frames - dropped);
        report_.framesOut += frames - dropped;
        if (options_.progress)
            options_.progress({report_.framesOut, framesTotal_, overs_, pass_, passCount_});
    }

    /// The next frames of the side chain, or null when there is none.
    float** ReadSideChain(int frames) {
        if (!side_) return nullptr;
        sideBlock_->Clear(frames);
        side_->Read(sideBlock_->GetChannels(), frames);
        return sideBlock_->GetChannels();
    }

    [[noreturn]] void FailOnOvers() const {
        const Overs& overs = report_.overs;
        throw Error(ExitCode::kClippedOrFaulty,
                    std::to_string(overs.count) + " samples exceed full scale, the first at " +
                        ToText(static_cast<float>(overs.firstSeconds)) + " s in channel " +
                        std::to_string(overs.firstChannel + 1) + "; nothing was written",
                    "samples from -1 to 1",
                    "lower the level by " + ToText(std::ceil(-overs.GetGainToAvoidDb() * 10) / 10) +
                        " dB, or use --on-clip limit or normalize");
    }

    AudioReader& reader_;
    ChainProcessor& chain_;
    int rateHz_;
    const RenderOptions& options_;
    RenderSource source_;
    AudioBlock block_;
    std::optional<RenderSource> side_;
    std::optional<AudioBlock> sideBlock_;
    std::unique_ptr<PeakLimiter> limiter_;
    float gain_ = 1.0f;
    int pass_ = 1;
    int passCount_ = 1;
    std::int64_t overs_ = 0;
    std::int64_t framesTotal_ = -1;
    std::int64_t framesToDrop_ = 0;
    RenderReport report_;
};

}  // namespace

Tail ParseTail(std::string_view text) {
    const std::string word = ToLower(Trim(text));
    if (word == "auto") return {};
    if (word == "none") return {Tail::Kind::kNone, 0.0};
    try {
        return {Tail::Kind::kSeconds, ParseTime(text)};
    } catch (const Error&) {
        throw Error(ExitCode::kUsage, "--tail cannot be '" + std::string(text) + "'",
                    "auto, none or a time", "for example --tail 2.5");
    }
}

double RenderReport::GetSpeed() const {
    return seconds > 0.0 && output.rateHz > 0
               ? static_cast<double>(framesOut) / output.rateHz / seconds
               : 0.0;
}

RenderReport Render(AudioReader& reader,
                    ChainProcessor& chain,
                    int chainRateHz,
                    const RenderOptions& options) {
    return Job(reader, chain, chainRateHz, options).Run();
}

}  // namespace zuc::host
