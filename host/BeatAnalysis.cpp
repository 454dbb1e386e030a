#include "host/BeatAnalysis.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>

#include <fmt/format.h>

#include "host/AudioReader.h"
#include "host/AudioWriter.h"
#include "host/Error.h"
#include "host/JsonReader.h"
#include "host/Render.h"
#include "host/RenderSource.h"

namespace zuc::host {
namespace {

constexpr int kBlockFrames = 8192;
constexpr double kMinSeconds = 2;
constexpr double kAnalysisBlockSeconds = 60;
constexpr double kReadShare = 0.3;  // of the progress
constexpr double kClickSeconds = 0.03;
constexpr double kClickHz = 1000;
constexpr double kClickGain = 0.5;

std::shared_ptr<components::AnalysisInput> ReadInput(AudioReader& reader,
                                                     const components::ProgressCallback& progress) {
    const AudioFileInfo& info = reader.GetInfo();
    auto input = std::make_shared<components::AnalysisInput>(info.rateHz, info.channels);
    AudioBlock block(static_cast<std::size_t>(info.channels), kBlockFrames);
    std::int64_t frames = 0;
    while (const int given = reader.Read(block.GetChannels(), kBlockFrames)) {
        input->Append(block.GetChannels(), given);
        frames += given;
        const double done =
            info.frames > 0 ? static_cast<double>(frames) / static_cast<double>(info.frames) : 0;
        if (progress && !progress(kReadShare * std::min(done, 1.0))) throw Interrupted();
    }
    input->Finish();
    return input;
}

double Rounded(double value, double steps) { return std::round(value * steps) / steps; }

/// One tick that fades within kClickSeconds; 0 outside.
float ClickAt(double seconds) {
    if (seconds < 0 || seconds >= kClickSeconds) return 0;
    const double fade = 1 - seconds / kClickSeconds;
    return static_cast<float>(kClickGain * fade * fade *
                              std::sin(2 * std::numbers::pi * kClickHz * seconds));
}

}  // namespace

components::SongAnalysis AnalyseBeats(const std::string& path,
                                      const SongCache& cache,
                                      const components::ProgressCallback& progress) {
    const std::string key = SongCache::MakeKey(path);
    if (auto known = cache.Find(key)) return *known;
    const auto reader = AudioReader::Open(path);
    const auto input = ReadInput(*reader, progress);
    if (static_cast<double>(input->GetFrameCount()) < kMinSeconds * input->GetSampleRate())
        throw Error(ExitCode::kInput, fmt::format("'{}' is too short for beats", path),
                    fmt::format("at least {} s", kMinSeconds));
    components::Song song(input, input->GetSampleRate());
    const bool isDone = song.Analyse(kAnalysisBlockSeconds, true, [&](double fraction) {
        return !progress || progress(kReadShare + (1 - kReadShare) * fraction);
    });
    if (!isDone) throw Interrupted();
    cache.Store(key, song.GetAnalysis());
    return song.GetAnalysis();
}

std::string BeatsToJson(const components::SongAnalysis& song) {
    Json json;
    json["duration"] = Rounded(song.durationSeconds, 1e6);
    json["bpm"] = Rounded(song.GetBpm(), 1e3);
    json["beat_period"] = Rounded(song.beatPeriodSeconds, 1e6);
    json["beats"] = Json::array();
    for (const double beat : song.beatTimes) json["beats"].push_back(Rounded(beat, 1e6));
    json["confidence"] = Rounded(song.confidence, 1e3);
    return json.dump() + "\n";
}

std::string BeatsToLabels(const components::SongAnalysis& song) {
    std::string text;
    for (std::size_t i = 0; i < song.beatTimes.size(); ++i)
        text += fmt::format("{0:.6f}\t{0:.6f}\t{1}\n", song.beatTimes[i], i + 1);
    return text;
}

void WriteClicks(const std::string& inputPath,
                 const std::string& outputPath,
                 const components::SongAnalysis& song) {
    std::error_code ignored;
    if (std::filesystem::equivalent(inputPath, outputPath, ignored))
        throw Error(ExitCode::kUsage, "--click would replace the song", "another file");
    const auto reader = AudioReader::Open(inputPath);
    const AudioFileInfo& info = reader->GetInfo();
    AudioWriterOptions options;
    options.path = outputPath;
    options.sourceBits = info.bits;
    options.sourceIsFloat = info.isFloat;
    options.rateHz = info.rateHz;
    options.channels = info.channels;
    AudioWriter writer(options, {});
    AudioBlock block(static_cast<std::size_t>(info.channels), kBlockFrames);
    std::int64_t first = 0;
    std::size_t beat = 0;
    while (const int given = reader->Read(block.GetChannels(), kBlockFrames)) {
        for (int i = 0; i < given; ++i) {
            const double at = static_cast<double>(first + i) / info.rateHz;
            while (beat + 1 < song.beatTimes.size() && song.beatTimes[beat + 1] <= at) ++beat;
            const float click = song.beatTimes.empty() ? 0.0f : ClickAt(at - song.beatTimes[beat]);
            // Half the music leaves room for the ticks.
            for (int c = 0; c < info.channels; ++c)
                block.GetChannels()[c][i] = 0.5f * block.GetChannels()[c][i] + click;
        }
        writer.Write(block.GetChannels(), given);
        first += given;
    }
    writer.Commit();
}

}  // namespace zuc::host
