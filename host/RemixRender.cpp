#include "host/RemixRender.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>

#include <fmt/format.h>

#include "host/Faults.h"
#include "host/Folder.h"
#include "host/OfflineSession.h"
#include "host/RemixSearch.h"
#include "host/RenderSource.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

constexpr int kBlockFrames = 8192;
constexpr long kRingFrames = 65536;
constexpr double kPreviewSeconds = 4.0;  // to either side of a join

std::int64_t ToFrames(const Ratio& seconds, int rateHz) {
    return kracore::utility::MultiplyAndTruncate(seconds, rateHz);
}

/// Frames that the plan gives: an odd fade adds one.
std::int64_t CountFrames(const RemixPlan& plan, int rateHz) {
    std::int64_t frames = 0;
    for (std::size_t i = 0; i < plan.segments.size(); ++i) {
        frames += ToFrames(plan.segments[i].duration, rateHz);
        if (i > 0) frames += ToFrames(plan.segments[i].crossfade, rateHz) % 2;
    }
    return frames;
}

/// Half a cosine from 1 to 0 over the last `fadeFrames` of `totalFrames`.
class FadeOut {
public:
    FadeOut(std::int64_t totalFrames, std::int64_t fadeFrames)
        : firstFrame_(totalFrames - fadeFrames), frames_(fadeFrames) {}

    void Apply(float* const* audio, std::size_t channels, std::int64_t position, int count) const {
        if (frames_ <= 0) return;
        for (std::int64_t i = std::max<std::int64_t>(0, firstFrame_ - position); i < count; ++i) {
            const double p = std::min(1.0, static_cast<double>(position + i - firstFrame_) /
                                               static_cast<double>(frames_));
            const auto gain = static_cast<float>(0.5 + 0.5 * std::cos(std::numbers::pi * p));
            for (std::size_t c = 0; c < channels; ++c) audio[c][i] *= gain;
        }
    }

private:
    std::int64_t firstFrame_;
    std::int64_t frames_;
};

AudioMetadata RemapMetadata(const AudioMetadata& metadata, const RemixPlan& plan, int rateHz) {
    AudioMetadata moved = metadata;
    moved.cues.clear();
    moved.instrument.reset();  // loops of a sampler point into the source
    for (const CuePoint& cue : metadata.cues) {
        std::vector<Ratio> heard;
        plan.segments.RemapTime(Ratio(cue.frame, rateHz), heard);
        for (const Ratio& seconds : heard)
            moved.cues.push_back({ToFrames(seconds, rateHz), cue.name});
    }
    std::stable_sort(moved.cues.begin(), moved.cues.end(),
                     [](const CuePoint& a, const CuePoint& b) { return a.frame < b.frame; });
    return moved;
}

AudioWriterOptions MakeWriterOptions(const AudioFileInfo& info, const RemixOutput& output) {
    AudioWriterOptions options;
    options.path = output.path;
    options.format = output.format;
    options.samples = output.samples;
    options.sourceBits = info.bits;
    options.sourceIsFloat = info.isFloat;
    options.rateHz = info.rateHz;
    options.channels = info.channels;
    options.exact = output.samples == SampleFormat::kLikeSource;
    return options;
}

void MakeFolder(const std::string& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw Error(ExitCode::kOutput, folder + ": cannot be made: " + error.message());
}

}  // namespace

void PlayPlan(const RemixPlan& plan,
              AudioSource& audio,
              const AudioFileInfo& info,
              const RemixSink& sink,
              const std::atomic<int>* interrupted) {
    const auto effect = MakeRemixEffect(info);
    effect->SetRetargetResults(plan.segments);
    effect->SetParameter(components::MusicRetarget::kPrecomputedResults, 1.0f);
    const std::int64_t total = CountFrames(plan, info.rateHz);
    const FadeOut fade(total, ToFrames(plan.fadeOut, info.rateHz));
    const auto channels = static_cast<std::size_t>(info.channels);
    AudioBlock block(channels, kBlockFrames);
    std::int64_t frames = 0;
    {
        audio.Seek(0);  // where a session expects it
        OfflineSession session(effect, audio, info.frames, kRingFrames);
        while (const int count =
                   session.Read(block.GetChannels(), kBlockFrames, {interrupted, {}})) {
            fade.Apply(block.GetChannels(), channels, frames, count);
            sink(block.GetChannels(), count);
            frames += count;
        }
    }
    kracore::WStr failure;
    effect->GetCompletionText(failure);
    if (!failure.empty())
        throw Error(ExitCode::kProcessing, info.path + ": " + kracore::utility::ToUtf8(failure));
}

RemixReport WriteRemix(const RemixPlan& plan, RemixSource& source, const RemixOutput& output) {
    const AudioFileInfo& info = source.GetInfo();
    AudioWriter writer(MakeWriterOptions(info, output),
                       RemapMetadata(source.GetMetadata(), plan, info.rateHz));
    const auto total = static_cast<double>(CountFrames(plan, info.rateHz));
    std::int64_t frames = 0;
    PlayPlan(
        plan, source.GetAudio(), info,
        [&](float* const* audio, int count) {
            writer.Write(audio, count);
            if (output.copy) output.copy->Append(audio, count);
            frames += count;
            if (output.progress) output.progress(static_cast<double>(frames) / total);
        },
        output.interrupted);
    writer.Commit();
    return {writer.GetInfo(), writer.GetOvers(), writer.GetLostMetadata()};
}

std::vector<std::string> WriteStems(const RemixPlan& plan,
                                    const std::string& folder,
                                    const std::string& outputFolder,
                                    const std::atomic<int>* interrupted) {
    std::error_code error;
    std::vector<fs::path> paths;
    const auto names = ListFolder(folder, error);
    if (error) throw Error(ExitCode::kInput, folder + ": " + error.message());
    // Hidden ones are nobody's stems: what a killed process left of its output, or an editor of its own.
    for (const std::string& name : names)
        if (!name.starts_with('.') && fs::is_regular_file(fs::path(folder) / name, error))
            paths.push_back(fs::path(folder) / name);
    if (paths.empty()) throw Error(ExitCode::kInput, folder + ": there are no files");
    if (fs::equivalent(folder, outputFolder, error))
        throw Error(ExitCode::kUsage, "--stems: the results would replace the stems");
    // All are looked at before the first is written.
    Faults faults;
    for (const fs::path& path : paths)
        faults.Try([&] {
            const auto reader = AudioReader::Open(path.string());
            const AudioFileInfo& info = reader->GetInfo();
            if (plan.sourceRateHz > 0 && info.rateHz != plan.sourceRateHz)
                throw Error(ExitCode::kInput,
                            fmt::format("{}: the sample rate is {} Hz", path.string(), info.rateHz),
                            fmt::format("that of the song, {} Hz", plan.sourceRateHz));
            if (info.frames >= 0) CheckPlan(plan, info.rateHz, info.frames, path.string());
        });
    faults.ThrowIfAny();
    MakeFolder(outputFolder);
    std::vector<std::string> written;
    for (const fs::path& path : paths) {
        RemixSource stem(path.string(), interrupted);
        CheckPlan(plan, stem.GetInfo().rateHz, stem.GetInfo().frames, path.string());
        RemixOutput output;
        output.interrupted = interrupted;
        fs::path target = fs::path(outputFolder) / path.filename();
        const auto writable = {".wav", ".flac", ".aiff", ".aif", ".ogg", ".au", ".w64", ".opus"};
        const std::string extension = ToLower(target.extension().string());
        if (std::find(writable.begin(), writable.end(), extension) == writable.end())
            target.replace_extension(".wav");
        output.path = target.string();
        WriteRemix(plan, stem, output);
        written.push_back(output.path);
    }
    return written;
}

std::vector<RemixPreview> GetPreviews(const RemixPlan& plan) {
    const std::vector<double> starts = plan.GetStarts();
    std::vector<RemixPreview> previews;
    for (std::size_t i = 1; i < plan.segments.size(); ++i) {
        const double reach = std::max(kPreviewSeconds, 2 * ToSeconds(plan.segments[i].crossfade));
        previews.push_back({std::max(0.0, starts[i] - reach), starts[i],
                            std::min(starts.back(), starts[i] + reach)});
    }
    return previews;
}

std::vector<std::string> WritePreviews(const RemixPlan& plan,
                                       SpooledAudio& remix,
                                       const std::string& folder) {
    MakeFolder(folder);
    const AudioFileInfo& info = remix.GetInfo();
    std::vector<std::string> paths;
    for (const RemixPreview& preview : GetPreviews(plan)) {
        RemixOutput output;
        output.samples = SampleFormat::kInt16;
        output.path = (fs::path(folder) / fmt::format("join-{:02}.wav", paths.size() + 1)).string();
        AudioWriter writer(MakeWriterOptions(info, output), {});
        AudioBlock block(static_cast<std::size_t>(info.channels), kBlockFrames);
        auto left = std::llround((preview.endSeconds - preview.beginSeconds) * info.rateHz);
        remix.Seek(std::llround(preview.beginSeconds * info.rateHz));
        while (left > 0) {
            const int count = remix.Read(block.GetChannels(),
                                         static_cast<int>(std::min<long long>(left, kBlockFrames)));
            if (count == 0) break;
            writer.Write(block.GetChannels(), count);
            left -= count;
        }
        writer.Commit();
        paths.push_back(output.path);
    }
    return paths;
}

}  // namespace zuc::host
