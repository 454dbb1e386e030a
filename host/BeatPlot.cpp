#include <algorithm>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

#include "host/AudioReader.h"
#include "host/BeatAnalysis.h"
#include "host/RenderSource.h"

namespace zuc::host {
namespace {

constexpr std::size_t kColumns = 900;  // of the waveform and the onset curve
constexpr int kBlockFrames = 8192;
constexpr float kAlike = 0.6f;          // cosine from which two beats are drawn as alike
constexpr std::size_t kMostCells = 60;  // beats are joined so that the map stays this fine

/// Lowest and highest sample of each column, over all channels.
std::vector<FigureBand> MeasureWaveform(const std::string& path, double seconds) {
    const auto reader = AudioReader::Open(path);
    const int channels = reader->GetInfo().channels;
    const double perColumn = seconds * reader->GetInfo().rateHz / kColumns;
    std::vector<FigureBand> band(kColumns);
    for (std::size_t k = 0; k < kColumns; ++k)
        band[k] = {(static_cast<double>(k) + 0.5) * seconds / kColumns, 0, 0};
    AudioBlock block(static_cast<std::size_t>(channels), kBlockFrames);
    std::int64_t frame = 0;
    while (const int given = reader->Read(block.GetChannels(), kBlockFrames))
        for (int i = 0; i < given; ++i, ++frame) {
            auto& column = band[std::min(
                kColumns - 1, static_cast<std::size_t>(static_cast<double>(frame) / perColumn))];
            for (int c = 0; c < channels; ++c) {
                const double x = block.GetChannels()[c][i];
                if (!std::isfinite(x)) continue;
                column.lo = std::min(column.lo, x);
                column.hi = std::max(column.hi, x);
            }
        }
    return band;
}

std::vector<FigurePoint> MeasureOnsets(const components::SongAnalysis& song) {
    std::vector<FigurePoint> points;
    const auto step = std::max<std::size_t>(1, song.onsets.size() / (2 * kColumns));
    for (std::size_t k = 0; k < song.onsets.size(); k += step) {
        const std::size_t end = std::min(song.onsets.size(), k + step);
        float most = song.onsets[k];
        for (std::size_t j = k; j < end; ++j) most = std::max(most, song.onsets[j]);
        points.push_back(
            {static_cast<double>(k) / song.onsetRateHz, static_cast<double>(std::max(most, 0.0f))});
    }
    return points;
}

/// Pairs of moments that sound alike, strong and weak ones apart.
void AddSimilarity(FigurePanel& panel, const components::SongAnalysis& song) {
    const std::vector<float> timbre = components::CosinesOfBeats(song.timbre);
    const std::vector<float> chroma = components::CosinesOfBeats(song.chroma);
    const std::size_t count = song.beatTimes.size();
    const std::size_t step = std::max<std::size_t>(1, (count + kMostCells - 1) / kMostCells);
    struct Level {
        float from = 0.0f;
        const char* name = nullptr;
        FigureStyle style;
    };
    const Level levels[] = {{kAlike - 0.2f, "rather alike", {FigureStyle::kGrey, 1.5, false, 0.5}},
                            {kAlike, "alike", {5, 2.0, false, 0.8}},
                            {kAlike + 0.2f, "the same", {0, 2.5, false, 1.0}}};
    std::vector<std::vector<FigurePoint>> points(std::size(levels));
    for (std::size_t a = 0; a < count; a += step)
        for (std::size_t b = 0; b < count; b += step) {
            float most = -1;
            for (std::size_t i = a; i < std::min(count, a + step); ++i)
                for (std::size_t j = b; j < std::min(count, b + step); ++j)
                    most = std::max(most, 0.5f * (timbre[i * count + j] + chroma[i * count + j]));
            for (std::size_t k = std::size(levels); k-- > 0;)
                if (most >= levels[k].from) {
                    points[k].push_back({song.beatTimes[a], song.beatTimes[b]});
                    break;
                }
        }
    for (std::size_t k = 0; k < std::size(levels); ++k)
        panel.AddPoints(std::move(points[k]), levels[k].name, levels[k].style);
}

}  // namespace

Figure PlotBeats(const std::string& path, const components::SongAnalysis& song) {
    const double seconds = song.durationSeconds;
    Figure figure(fmt::format("Beats of {}: {:.1f} a minute, {} beats",
                              std::filesystem::path(path).filename().string(), song.GetBpm(),
                              song.beatTimes.size()),
                  {"Time (s)", 0, seconds, AxisUnit::kSeconds}, 1000, 1150);
    FigurePanel& wave = figure.AddPanel({"Waveform", -1, 1}, 1.0);
    wave.AddVerticals(song.beatTimes, "beats", {1, 0.6, false, 0.7});
    wave.AddBand(MeasureWaveform(path, seconds), "", {0, 1.0, false, 0.9});
    const auto onsets = MeasureOnsets(song);
    double most = 1;
    for (const FigurePoint& point : onsets) most = std::max(most, point.y);
    FigurePanel& panel = figure.AddPanel({"Onset strength (sd)", 0, most}, 1.0);
    panel.AddVerticals(song.beatTimes, "", {1, 0.6, false, 0.7});
    panel.AddLine(onsets, "", {0, 1.0});
    FigurePanel& alike = figure.AddPanel({"Sounds like (s)", 0, seconds, AxisUnit::kSeconds}, 3.6);
    AddSimilarity(alike, song);
    return figure;
}

}  // namespace zuc::host
