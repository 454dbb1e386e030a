#include "host/RemixPicture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

#include "host/FigureAxis.h"
#include "host/RemixRender.h"
#include "host/RemixSource.h"
#include "host/RenderSource.h"
#include "host/TemporaryFile.h"

namespace zuc::host {
namespace {

// Pixels.
constexpr double kWidth = 1100;
constexpr double kHeight = 460;
constexpr double kLeft = 72;
constexpr double kRight = 20;
constexpr double kSongTop = 74;
constexpr double kWaveHeight = 100;
constexpr double kRibbonTop = kSongTop + kWaveHeight;
constexpr double kRibbonBottom = 300;
constexpr double kRemixTop = kRibbonBottom;
constexpr double kAxisGap = 14;
constexpr double kTextSize = 12;
constexpr std::size_t kColumns = 1000;  // of a waveform
constexpr int kCurvePoints = 24;        // of a ribbon's edge
constexpr int kBlockFrames = 8192;
constexpr double kPngScale = 2;

constexpr CanvasColor kInk{0.13, 0.13, 0.15};
constexpr CanvasColor kGrey{0.42, 0.42, 0.45};
constexpr CanvasColor kBeat{0.55, 0.55, 0.6, 0.45};
constexpr CanvasColor kWave{0.25, 0.28, 0.33};
constexpr CanvasColor kJoin{0.80, 0.15, 0.10};
// Okabe and Ito's colours, which colour-blind readers can tell apart.
constexpr std::array kRangeColors{CanvasColor{0.00, 0.45, 0.70}, CanvasColor{0.90, 0.62, 0.00},
                                  CanvasColor{0.00, 0.62, 0.45}, CanvasColor{0.80, 0.47, 0.65},
                                  CanvasColor{0.34, 0.71, 0.91}, CanvasColor{0.84, 0.37, 0.00}};

CanvasColor RangeColor(std::size_t index, double opacity) {
    CanvasColor color = kRangeColors[index % kRangeColors.size()];
    color.opacity = opacity;
    return color;
}

std::vector<FigurePoint> Rectangle(double left, double top, double right, double bottom) {
    return {{left, top}, {right, top}, {right, bottom}, {left, bottom}};
}

/// An S from (x0, ribbon's top) to (x1, ribbon's bottom), as seen from the top.
void AppendCurve(std::vector<FigurePoint>& points, double x0, double x1, bool isUpwards) {
    for (int k = 0; k <= kCurvePoints; ++k) {
        const double share = static_cast<double>(isUpwards ? kCurvePoints - k : k) / kCurvePoints;
        const double bend = share * share * (3 - 2 * share);
        points.push_back(
            {x0 + bend * (x1 - x0), kRibbonTop + share * (kRibbonBottom - kRibbonTop)});
    }
}

double SecondsOf(const AudioSource& audio) {
    return static_cast<double>(audio.GetInfo().frames) / audio.GetInfo().rateHz;
}

}  // namespace

RemixPicture::RemixPicture(const RemixPlan& plan,
                           AudioSource& song,
                           AudioSource& remix,
                           std::vector<double> beats,
                           std::string title)
    : plan_(plan),
      beats_(std::move(beats)),
      title_(std::move(title)),
      songSeconds_(SecondsOf(song)),
      remixSeconds_(SecondsOf(remix)),
      songPeaks_(Measure(song)),
      remixPeaks_(Measure(remix)) {}

RemixPicture::Peaks RemixPicture::Measure(AudioSource& audio) const {
    const AudioFileInfo& info = audio.GetInfo();
    Peaks peaks(kColumns);
    AudioBlock block(static_cast<std::size_t>(info.channels), kBlockFrames);
    audio.Seek(0);
    std::int64_t frame = 0;
    const std::int64_t total = std::max<std::int64_t>(1, info.frames);
    while (const int count = audio.Read(block.GetChannels(), kBlockFrames)) {
        for (int c = 0; c < info.channels; ++c)
            for (int i = 0; i < count; ++i) {
                const double x = static_cast<double>(block.GetChannels()[c][i]);
                if (!std::isfinite(x)) continue;
                const auto at = static_cast<std::size_t>((frame + i) * kColumns / total);
                Peak& peak = peaks[std::min(at, kColumns - 1)];
                peak.lo = std::min(peak.lo, x);
                peak.hi = std::max(peak.hi, x);
            }
        frame += count;
    }
    return peaks;
}

double RemixPicture::ToX(double seconds) const { return GetX(seconds) * kWidth; }

double RemixPicture::GetX(double seconds) const {
    const double longest = std::max({songSeconds_, remixSeconds_, 1e-3});
    return (kLeft + (kWidth - kLeft - kRight) * seconds / longest) / kWidth;
}

double RemixPicture::GetRemixTop() { return kRemixTop / kHeight; }
double RemixPicture::GetRemixHeight() { return kWaveHeight / kHeight; }

void RemixPicture::DrawAxis(Canvas& canvas, double y, double seconds, bool isAbove) const {
    canvas.DrawLine({{ToX(0), y}, {ToX(seconds), y}}, kGrey, 1, false);
    const Axis axis{"", 0, seconds, AxisUnit::kSeconds};
    const double share = seconds / std::max(songSeconds_, remixSeconds_);
    for (const AxisTick& tick : MakeTicks(axis, std::max(2, static_cast<int>(12 * share)))) {
        if (tick.text.empty()) continue;
        const double x = ToX(tick.value);
        canvas.DrawLine({{x, y}, {x, y + (isAbove ? -5 : 5)}}, kGrey, 1, false);
        canvas.DrawText(
            {tick.text, {x, y + (isAbove ? -9 : 18)}, kTextSize, kInk, TextAnchor::kMiddle});
    }
}

void RemixPicture::DrawWave(Canvas& canvas, const Peaks& peaks, double seconds, double top) const {
    double highest = 1e-3;
    for (const Peak& peak : peaks) highest = std::max({highest, peak.hi, -peak.lo});
    const double middle = top + kWaveHeight / 2;
    const double scale = (kWaveHeight / 2 - 4) / highest;
    std::vector<FigurePoint> outline;
    const auto x = [&](std::size_t k) {
        return ToX(seconds * (static_cast<double>(k) + 0.5) / static_cast<double>(peaks.size()));
    };
    for (std::size_t k = 0; k < peaks.size(); ++k)
        outline.push_back({x(k), middle - std::max(peaks[k].hi * scale, 0.4)});
    for (std::size_t k = peaks.size(); k-- > 0;)
        outline.push_back({x(k), middle - std::min(peaks[k].lo * scale, -0.4)});
    canvas.FillPolygon(outline, kWave);
}

void RemixPicture::DrawBeats(Canvas& canvas) const {
    for (const double beat : beats_)
        if (beat >= 0 && beat <= songSeconds_)
            canvas.DrawLine({{ToX(beat), kSongTop}, {ToX(beat), kSongTop + kWaveHeight}}, kBeat,
                            0.7, false);
}

void RemixPicture::DrawRanges(Canvas& canvas) const {
    const std::vector<double> starts = plan_.GetStarts();
    for (std::size_t i = 0; i < plan_.segments.size(); ++i) {
        const double offset = ToSeconds(plan_.segments[i].offset);
        const double end = offset + ToSeconds(plan_.segments[i].duration);
        std::vector<FigurePoint> ribbon;
        AppendCurve(ribbon, ToX(offset), ToX(starts[i]), false);
        AppendCurve(ribbon, ToX(end), ToX(starts[i + 1]), true);
        canvas.FillPolygon(ribbon, RangeColor(i, 0.45));
        canvas.FillPolygon(Rectangle(ToX(offset), kSongTop, ToX(end), kSongTop + kWaveHeight),
                           RangeColor(i, 0.18));
        canvas.FillPolygon(
            Rectangle(ToX(starts[i]), kRemixTop, ToX(starts[i + 1]), kRemixTop + kWaveHeight),
            RangeColor(i, 0.3));
    }
}

void RemixPicture::Draw(Canvas& canvas) const {
    canvas.FillPolygon(Rectangle(0, 0, kWidth, kHeight), {1, 1, 1});
    canvas.DrawText({title_, {kLeft, 26}, 15, kInk, TextAnchor::kStart, true});
    DrawRanges(canvas);
    DrawBeats(canvas);
    DrawWave(canvas, songPeaks_, songSeconds_, kSongTop);
    DrawWave(canvas, remixPeaks_, remixSeconds_, kRemixTop);
    const std::vector<double> starts = plan_.GetStarts();
    for (std::size_t i = 1; i < plan_.segments.size(); ++i) {
        const double x = ToX(starts[i]);
        canvas.DrawLine({{x, kRemixTop}, {x, kRemixTop + kWaveHeight}}, kJoin, 1.5, false);
        canvas.DrawText({std::to_string(i),
                         {x, kRemixTop + kWaveHeight + kTextSize},
                         kTextSize,
                         kJoin,
                         TextAnchor::kMiddle,
                         true});
    }
    DrawAxis(canvas, kSongTop - 2, songSeconds_, true);
    DrawAxis(canvas, kRemixTop + kWaveHeight + kAxisGap + 4, remixSeconds_, false);
    canvas.DrawText(
        {"song", {kLeft - 10, kSongTop + kWaveHeight / 2 + 4}, 13, kInk, TextAnchor::kEnd});
    canvas.DrawText(
        {"remix", {kLeft - 10, kRemixTop + kWaveHeight / 2 + 4}, 13, kInk, TextAnchor::kEnd});
}

std::string RemixPicture::ToSvg() const {
    const auto canvas = MakeSvgCanvas(kWidth, kHeight, title_);
    Draw(*canvas);
    return canvas->Finish();
}

void RemixPicture::Save(const std::string& path) const {
    if (path.ends_with(".svg")) return WriteFileAtomically(path, ToSvg());
    if (!path.ends_with(".png"))
        throw Error(ExitCode::kUsage, fmt::format("'{}' does not say what kind of picture", path),
                    "names that end in .svg or .png");
    const auto canvas = MakePngCanvas(kWidth, kHeight, kPngScale);
    Draw(*canvas);
    WriteFileAtomically(path, canvas->Finish());
}

RemixPicture PlotRemix(const std::string& songPath,
                       const std::string& planPath,
                       const std::atomic<int>* interrupted) {
    const RemixPlan plan = ReadPlanFile(planPath);
    RemixSource source(songPath, interrupted);
    const AudioFileInfo& info = source.GetInfo();
    CheckPlan(plan, info.rateHz, info.frames, planPath);
    SpooledAudio remix(info.rateHz, info.channels);
    PlayPlan(
        plan, source.GetAudio(), info,
        [&](float* const* audio, int frames) { remix.Append(audio, frames); }, interrupted);
    const auto* song = source.FindAnalysis(SongCache());
    return {plan, source.GetAudio(), remix, song ? song->beatTimes : std::vector<double>{},
            MakeRemixTitle(plan, songPath)};
}

}  // namespace zuc::host
