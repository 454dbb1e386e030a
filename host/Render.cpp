#include "host/Render.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

#include "host/Error.h"
#include "host/OfflineSession.h"
#include "host/OutputStage.h"
#include "host/RenderSource.h"
#include "host/SpooledAudio.h"
#include "host/Text.h"
#include "kracore/FlushToZero.h"

namespace zuc::host {
namespace {

constexpr float kFullScale = 1.0f;
constexpr int kMostLoudnessCorrections = 3;
constexpr double kLoudnessTolerance = 0.05;  // LU

float ToDb(float gain) { return 20.0f * std::log10(gain); }
float FromDb(double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); }

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
    Job(AudioSource& reader, ChainProcessor& chain, int rateHz, const RenderOptions& options)
        : reader_(reader),
          chain_(chain),
          rateHz_(rateHz),
          options_(options),
          fileSource_(reader, options.range, rateHz, chain.GetMaximumBlockFrames()),
          finish_(rateHz, chain.GetChannelCount(), chain.GetMaximumBlockFrames()),
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
        report_.loudnessTargetLufs = options_.loudnessLufs;
        passCount_ = static_cast<int>(chain_.GetStretchCount());
        if (ReadsTwice()) ++passCount_;
        for (std::size_t i = 0; i + 1 < chain_.GetStretchCount(); ++i) RunOfflineEffect(i);
        chain_.SelectStretch(chain_.GetStretchCount() - 1);
        if (options_.onClip == OnClip::kLimit) finish_.UseLimiter(0.0f, false);
        if (options_.onClip == OnClip::kNormalize) NormalizePeak();
        if (options_.loudnessLufs) NormalizeLoudness(*options_.loudnessLufs);
        AudioWriter writer(MakeWriterOptions(), MakeMetadata());
        const bool measures = options_.measuresLoudness || options_.loudnessLufs.has_value();
        finish_.Measure(measures);
        RunPass([&](float* const* audio, int frames) {
            finish_.Take(audio, frames);
            writer.Write(audio, frames);
            overs_ = writer.GetOvers().count;
        });
        report_.limiterLowestGainDb = finish_.GetLowestGainDb();
        if (measures) report_.loudness = finish_.GetLoudness();
        TakeCompletionText();
        report_.overs = writer.GetOvers();
        if (options_.onClip == OnClip::kError && report_.overs.count > 0) FailOnOvers();
        writer.Commit();
        report_.output = writer.GetInfo();
        report_.lostMetadata = writer.GetLostMetadata();
        report_.framesIn = fileSource_.GetFramesRead();
        report_.nonFiniteSamplesIn = fileSource_.GetNonFiniteSamples();
        report_.isInputTruncated = reader_.IsTruncated();
        report_.seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        return report_;
    }

private:
    /// Brings the audio through the effects before an offline effect and through that. What follows reads
    /// from the effect as it works, unless it will read twice.
    void RunOfflineEffect(std::size_t stretch) {
        chain_.SelectStretch(stretch);
        const AudioFilterPtr effect = chain_.GetOfflineEffect();
        std::unique_ptr<AudioSource> input;
        if (NeedsInput(*effect)) {
            input = Store([this](const auto& sink) { RunPass(sink); });
            ++pass_;
        } else {
            --passCount_;
            input = std::make_unique<SilentSource>(
                rateHz_, static_cast<int>(chain_.GetChannelCount()), source_->GetTotalFrames());
        }
        TakeCompletionText();
        offline_ = nullptr;
        if (input->GetInfo().frames > 0) {
            const auto showProgress = [this](double) { ShowProgress(); };
            auto output = std::make_unique<OfflineSource>(
                effect, std::move(input), OfflineWatch{options_.interrupted, showProgress});
            offline_ = &output->GetSession();
            input = std::move(output);
        }
        stage_ = std::move(input);
        if (ReadsTwice()) StoreStage();
        stageSource_.emplace(*stage_, TimeRange{}, rateHz_, chain_.GetMaximumBlockFrames());
        source_ = &*stageSource_;
    }

    /// A generator needs to know only how long its input is.
    bool NeedsInput(const AudioFilter& effect) const {
        return !effect.IsGenerator() || source_->GetTotalFrames() < 0;
    }

    void StoreStage() {
        auto stored = Store([this](const auto& sink) {
            while (const int count =
                       stage_->Read(block_.GetChannels(), chain_.GetMaximumBlockFrames()))
                sink(block_.GetChannels(), count);
        });
        TakeCompletionText();
        offline_ = nullptr;
        stage_ = std::move(stored);
    }

    void TakeCompletionText() {
        if (!offline_) return;
        if (std::string text = offline_->GetCompletionText(); !text.empty())
            report_.completionTexts.push_back(std::move(text));
    }

    /// What `produce(sink)` hands to its sink, as a source.
    template <class Produce>
    std::unique_ptr<AudioSource> Store(const Produce& produce) {
        auto stored =
            std::make_unique<SpooledAudio>(rateHz_, static_cast<int>(chain_.GetChannelCount()));
        produce([&](float* const* audio, int frames) { stored->Append(audio, frames); });
        return stored;
    }

    /// Whether the last stretch runs for the measurement of its output before it runs for the file.
    bool ReadsTwice() const {
        return options_.onClip == OnClip::kNormalize || options_.loudnessLufs.has_value();
    }

    /// A pass that only measures.
    template <class Sink>
    void RunMeasurement(const Sink& sink) {
        passCount_ = pass_ + 1;
        isMeasuring_ = true;
        RunPass(sink);
        isMeasuring_ = false;
        ++pass_;
    }

    void NormalizePeak() {
        float peak = 0.0f;
        RunMeasurement([&](float* const* audio, int frames) {
            for (std::size_t c = 0; c < chain_.GetChannelCount(); ++c)
                for (int i = 0; i < frames; ++i) {
                    const float level = std::abs(audio[c][i]);
                    if (level > peak && std::isfinite(level)) peak = level;
                }
        });
        if (peak <= kFullScale) return;
        float gain = kFullScale / peak;
        while (gain * peak > kFullScale) gain = std::nextafter(gain, 0.0f);
        TakeGain(gain);
    }

    /// One pass finds the gain. Where it lifts peaks above the ceiling, more of them through the limiter find
    /// what that takes off the loudness, which changes with the gain.
    void NormalizeLoudness(double lufs) {
        const MeasuredLoudness before = MeasureLoudness();
        if (!std::isfinite(before.integratedLufs)) return;  // nothing to hear
        double gainDb = lufs - before.integratedLufs;
        TakeGain(FromDb(gainDb));
        if (FromDb(gainDb) * before.truePeak <= FromDb(kLoudnessCeilingDb)) return;
        finish_.UseLimiter(kLoudnessCeilingDb, true);
        for (int k = 0; k < kMostLoudnessCorrections; ++k) {
            const double missing = lufs - MeasureLoudness().integratedLufs;
            if (std::abs(missing) < kLoudnessTolerance) return;
            gainDb += missing;
            TakeGain(FromDb(gainDb));
        }
    }

    MeasuredLoudness MeasureLoudness() {
        finish_.Measure(true);
        RunMeasurement([&](float* const* audio, int frames) { finish_.Take(audio, frames); });
        return finish_.GetLoudness();
    }

    void TakeGain(float gain) {
        gain_ = gain;
        finish_.SetGain(gain);
        report_.normalizeGainDb = ToDb(gain);
    }

    bool LeavesSamplesAlone() const {
        return chain_.GetFilters().empty() && rateHz_ == reader_.GetInfo().rateHz &&
               gain_ == 1.0f && options_.onClip != OnClip::kLimit && !options_.loudnessLufs;
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
        AudioMetadata metadata = reader_.GetMetadata();
        const auto& filters = chain_.GetFilters();
        if (std::any_of(filters.begin(), filters.end(),
                        [](const AudioFilterPtr& f) { return f->CanChangeDuration(); })) {
            metadata.cues.clear();  // nobody knows where their places are now
            metadata.instrument.reset();
        }
        return MoveMetadata(std::move(metadata), fileSource_.GetBeginFrame(),
                            std::isfinite(end) ? std::llround(end * fileRateHz) : -1, fileRateHz,
                            rateHz_);
    }

    std::int64_t CountTailFrames() {
        const auto toFrames = [&](double seconds) { return std::llround(seconds * rateHz_); };
        switch (options_.tail.kind) {
            case Tail::Kind::kNone:
                return 0;
            case Tail::Kind::kSeconds:  // once, behind everything
                return chain_.GetOfflineEffect() ? 0 : toFrames(options_.tail.seconds);
            case Tail::Kind::kAuto:
                break;
        }
        const std::int64_t most = toFrames(kMaximumAutoTailSeconds);
        report_.isTailCut = report_.isTailCut || chain_.GetTailFrames() > most;
        return std::min<std::int64_t>(chain_.GetTailFrames(), most);
    }

    /// All the input and then silence through the chain; `sink` gets the output, aligned.
    template <class Sink>
    void RunPass(const Sink& sink) {
        source_->Rewind();
        if (side_) side_->Rewind();
        chain_.SetSelection(std::llround(static_cast<double>(fileSource_.GetBeginFrame()) *
                                         rateHz_ / reader_.GetInfo().rateHz),
                            source_->GetTotalFrames());
        chain_.Resume();
        finish_.Start();
        const std::int64_t latencyFrames = chain_.GetLatencyFrames();
        const std::int64_t tailFrames = CountTailFrames();
        if (!isMeasuring_) {
            report_.latencyFrames += latencyFrames;
            report_.tailFrames += tailFrames;
        }
        const std::int64_t total = source_->GetTotalFrames();
        framesTotal_ = total < 0 ? -1 : total + tailFrames;
        framesToDrop_ = latencyFrames + finish_.GetLatencyFrames();
        report_.framesOut = 0;

        const int blockFrames = chain_.GetMaximumBlockFrames();
        std::int64_t silence = framesToDrop_ + tailFrames;
        while (const int frames = source_->Read(block_.GetChannels(), blockFrames))
            ProcessBlock(frames, sink);
        while (silence > 0) {
            const int frames = static_cast<int>(std::min<std::int64_t>(silence, blockFrames));
            block_.Clear(frames);
            ProcessBlock(frames, sink);
            silence -= frames;
        }
        chain_.Suspend();
    }

    template <class Sink>
    void ProcessBlock(int frames, const Sink& sink) {
        if (options_.interrupted && options_.interrupted->load(std::memory_order_relaxed) != 0)
            throw Interrupted();
        float** audio = block_.GetChannels();
        chain_.Process(audio, frames, ReadSideChain(frames));
        finish_.Process(audio, frames);
        const int dropped = static_cast<int>(std::min<std::int64_t>(framesToDrop_, frames));
        framesToDrop_ -= dropped;
        if (dropped < frames) sink(block_.GetChannelsFrom(dropped), frames - dropped);
        report_.framesOut += frames - dropped;
        ShowProgress();
    }

    void ShowProgress() const {
        if (!options_.progress) return;
        const double workDone = offline_ ? offline_->GetProgress() : -1.0;
        options_.progress({report_.framesOut, framesTotal_, overs_, pass_, passCount_, workDone});
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

    AudioSource& reader_;
    ChainProcessor& chain_;
    int rateHz_;
    const RenderOptions& options_;
    RenderSource fileSource_;
    std::unique_ptr<AudioSource> stage_;       // what an offline effect makes
    const OfflineSession* offline_ = nullptr;  // that makes it; null when it is done
    std::optional<RenderSource> stageSource_;
    RenderSource* source_ = &fileSource_;  // of the present stretch
    OutputStage finish_;                   // of the last one
    AudioBlock block_;
    std::optional<RenderSource> side_;
    std::optional<AudioBlock> sideBlock_;
    float gain_ = 1.0f;
    int pass_ = 1;
    int passCount_ = 1;
    bool isMeasuring_ = false;
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

RenderReport Render(AudioSource& reader,
                    ChainProcessor& chain,
                    int chainRateHz,
                    const RenderOptions& options) {
    return Job(reader, chain, chainRateHz, options).Run();
}

}  // namespace zuc::host
