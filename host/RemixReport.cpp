#include "host/RemixReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <span>

#include <fmt/format.h>

#include "host/RemixPicture.h"
#include "host/RemixRender.h"
#include "host/RemixSearch.h"
#include "host/RenderSource.h"
#include "host/Resampler.h"
#include "host/Text.h"
#include "kracore/Base64.h"

namespace zuc::host {
namespace {

constexpr int kBlockFrames = 8192;
constexpr int kPreviewRateHz = 22050;  // keeps a page with a dozen joins below 10 MB
constexpr double kPreviewSeconds = 3;  // to either side of a join
constexpr int kMostPreviewChannels = 2;

// Nothing may be loaded from anywhere.
constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy"
 content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'; media-src data:; img-src data:">
<link rel="icon" href="data:,">
<style>
body { font: 16px/1.45 system-ui, "DejaVu Sans", sans-serif; color: #222; background: #fff;
       max-width: 1140px; margin: 2rem auto; padding: 0 1rem; }
h1 { font-size: 1.5rem; margin: 0 0 .3rem; }
h2 { font-size: 1.15rem; margin: 1.6rem 0 .4rem; }
.figure { position: relative; overflow: hidden; border: 1px solid #ddd; border-radius: 6px; }
.figure svg { display: block; width: 100%; height: auto; }
.join { position: absolute; width: 22px; margin-left: -11px; padding: 0; border: 0; background: transparent;
        cursor: pointer; }
.join:hover, .join.on { background: rgba(204, 38, 26, .22); }
:focus-visible { outline: 3px solid #0072b2; outline-offset: 1px; }
#head { position: absolute; width: 2px; background: #cc261a; display: none; pointer-events: none; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1.2rem; margin: .6rem 0; }
dt { color: #555; } dd { margin: 0; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; padding: .3rem .7rem; border-bottom: 1px solid #e4e4e4;
         font-variant-numeric: tabular-nums; }
tr.on { background: #fdecea; }
audio { height: 34px; width: 260px; vertical-align: middle; }
p.hint { color: #555; font-size: .9rem; }
kbd { border: 1px solid #bbb; border-radius: 3px; padding: 0 .3em; background: #f6f6f6; }
</style>
)";

constexpr const char* kScript = R"(<script>
'use strict';
const players = [...document.querySelectorAll('audio')];
const marks = [...document.querySelectorAll('.join')];
const head = document.getElementById('head');
const figure = document.querySelector('.figure');
const left = Number(figure.dataset.left), scale = Number(figure.dataset.scale);
function mark(index, on) {
  players[index].closest('tr').classList.toggle('on', on);
  marks[index].classList.toggle('on', on);
}
function toggle(index) {
  const player = players[index];
  if (!player) return;
  if (player.paused) { player.currentTime = 0; player.play(); } else player.pause();
}
players.forEach((player, index) => {
  player.addEventListener('play', () => {
    players.forEach((other) => { if (other !== player) other.pause(); });
    mark(index, true);
    head.style.display = 'block';
    const follow = () => {
      if (player.paused) return;
      head.style.left = 100 * (left + scale * (Number(player.dataset.begin) + player.currentTime)) + '%';
      requestAnimationFrame(follow);
    };
    follow();
  });
  player.addEventListener('pause', () => {
    mark(index, false);
    if (players.every((other) => other.paused)) head.style.display = 'none';
  });
  marks[index].addEventListener('click', () => toggle(index));
});
document.addEventListener('keydown', (event) => {
  if (event.ctrlKey || event.altKey || event.metaKey) return;
  if (event.key >= '1' && event.key <= '9') toggle(Number(event.key) - 1);
  if (event.key === 'Escape') players.forEach((player) => player.pause());
});
</script>
)";

void AppendNumber(std::vector<std::uint8_t>& bytes, std::uint32_t value, int count) {
    for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

/// A 16-bit WAV file of these channels, interleaved.
std::vector<std::uint8_t> MakeWav(const std::vector<float>& samples, int channels, int rateHz) {
    std::vector<std::uint8_t> bytes;
    const auto text = [&](std::string_view id) { bytes.insert(bytes.end(), id.begin(), id.end()); };
    const auto size = static_cast<std::uint32_t>(2 * samples.size());
    text("RIFF");
    AppendNumber(bytes, size + 36, 4);
    text("WAVEfmt ");
    AppendNumber(bytes, 16, 4);
    AppendNumber(bytes, 1, 2);  // PCM
    AppendNumber(bytes, static_cast<std::uint32_t>(channels), 2);
    AppendNumber(bytes, static_cast<std::uint32_t>(rateHz), 4);
    AppendNumber(bytes, static_cast<std::uint32_t>(2 * channels * rateHz), 4);
    AppendNumber(bytes, static_cast<std::uint32_t>(2 * channels), 2);
    AppendNumber(bytes, 16, 2);
    text("data");
    AppendNumber(bytes, size, 4);
    for (const float sample : samples) {
        const float clean = std::isfinite(sample) ? std::clamp(sample, -1.0f, 1.0f) : 0.0f;
        AppendNumber(bytes, static_cast<std::uint32_t>(std::lround(clean * 32767.0f)), 2);
    }
    return bytes;
}

/// A part of the remix as a WAV file in a data address.
std::string MakePreview(SpooledAudio& remix, double beginSeconds, double endSeconds) {
    const AudioFileInfo& info = remix.GetInfo();
    const int channels = std::min(info.channels, kMostPreviewChannels);
    const int rateHz = std::min(info.rateHz, kPreviewRateHz);
    Resampler resampler(info.rateHz, rateHz, channels);
    AudioBlock in(static_cast<std::size_t>(info.channels), kBlockFrames);
    AudioBlock out(static_cast<std::size_t>(channels), kBlockFrames);
    std::vector<float> samples;
    const auto take = [&](int count) {
        for (int i = 0; i < count; ++i)
            for (int c = 0; c < channels; ++c) samples.push_back(out.GetChannels()[c][i]);
    };
    auto left = std::llround((endSeconds - beginSeconds) * info.rateHz);
    remix.Seek(std::llround(beginSeconds * info.rateHz));
    while (left > 0) {
        const int count =
            remix.Read(in.GetChannels(), static_cast<int>(std::min<long long>(left, kBlockFrames)));
        if (count == 0) break;
        left -= count;
        for (int done = 0; done < count;) {
            const auto step = resampler.Process(in.GetChannelsFrom(done), count - done,
                                                out.GetChannels(), kBlockFrames);
            done += step.consumed;
            take(step.produced);
        }
    }
    while (const int count = resampler.Drain(out.GetChannels(), kBlockFrames)) take(count);
    return "data:audio/wav;base64," +
           kracore::utility::ToBase64(MakeWav(samples, channels, rateHz));
}

/// "+16 beats" where they are known, seconds otherwise.
std::string JumpText(double fromSeconds, double toSeconds, const components::SongAnalysis* song) {
    if (!song || song->beatTimes.empty()) return fmt::format("{:+.2f} s", toSeconds - fromSeconds);
    const auto& beats = song->beatTimes;
    const auto nearest = [&](double seconds) {
        const auto next = std::lower_bound(beats.begin(), beats.end(), seconds);
        if (next == beats.begin()) return std::ptrdiff_t{0};
        const bool isLast = next == beats.end();
        const bool isBefore = isLast || seconds - *(next - 1) < *next - seconds;
        return next - beats.begin() - (isBefore ? 1 : 0);
    };
    return fmt::format("{:+} beats", nearest(toSeconds) - nearest(fromSeconds));
}

std::string MakeFigure(const RemixPlan& plan, const RemixPicture& picture) {
    const std::vector<double> starts = plan.GetStarts();
    const double left = picture.GetX(0);
    std::string html =
        fmt::format("<div class=\"figure\" data-left=\"{:.6f}\" data-scale=\"{:.9f}\">\n", left,
                    picture.GetX(1) - left) +
        picture.ToSvg();
    const std::string place =
        fmt::format("top:{:.3f}%;height:{:.3f}%", 100 * RemixPicture::GetRemixTop(),
                    100 * RemixPicture::GetRemixHeight());
    for (std::size_t i = 1; i < plan.segments.size(); ++i)
        html += fmt::format(
            "<button class=\"join\" style=\"left:{:.3f}%;{}\" aria-label=\"Play join {} at "
            "{}\"></button>\n",
            100 * picture.GetX(starts[i]), place, i, FormatTime(starts[i]));
    return html + fmt::format("<div id=\"head\" style=\"{}\"></div>\n</div>\n", place);
}

std::string MakeJoins(const RemixPlan& plan,
                      SpooledAudio& remix,
                      const components::SongAnalysis* song) {
    if (plan.GetJoinCount() == 0)
        return "<p>There are no joins: one range is played as it is.</p>\n";
    std::string html =
        "<table>\n<thead><tr><th>Join</th><th>At</th><th>Song leaves</th><th>Song "
        "enters</th><th>Jump</th>"
        "<th>Alike</th><th>Fade</th><th>Listen</th></tr></thead>\n<tbody>\n";
    const std::vector<double> starts = plan.GetStarts();
    for (std::size_t i = 1; i < plan.segments.size(); ++i) {
        const auto& before = plan.segments[i - 1];
        const double from = ToSeconds(before.offset + before.duration);
        const double to = ToSeconds(plan.segments[i].offset);
        const double begin = std::max(0.0, starts[i] - kPreviewSeconds);
        const double end = std::min(starts.back(), starts[i] + kPreviewSeconds);
        html += fmt::format(
            "<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{:.2f} "
            "s</td>"
            "<td><audio controls preload=\"metadata\" data-begin=\"{:.4f}\" aria-label=\"Join {}\" "
            "src=\"{}\"></audio>"
            "</td></tr>\n",
            i, FormatTime(starts[i]), FormatTime(from), FormatTime(to), JumpText(from, to, song),
            plan.joinCosts.empty()
                ? std::string("-")
                : fmt::format("{:.0f} %", 100 * GetLikeness(plan.joinCosts[i - 1])),
            ToSeconds(plan.segments[i].crossfade), begin, i, MakePreview(remix, begin, end));
    }
    return html +
           "</tbody>\n</table>\n"
           "<p class=\"hint\">Each preview plays three seconds before and after its join. Keys: "
           "<kbd>1</kbd> to <kbd>9</kbd> play or stop a join, <kbd>Esc</kbd> stops, <kbd>Tab</kbd> "
           "goes "
           "through all.</p>\n";
}

std::string MakeFacts(const RemixPlan& plan,
                      const components::SongAnalysis* song,
                      double songSeconds) {
    std::string html = "<dl>\n";
    const auto add = [&](const char* name, const std::string& value) {
        html += fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, EscapeMarkup(value));
    };
    const double seconds = ToSeconds(plan.GetDuration());
    add("Song", fmt::format("{}, {}", std::filesystem::path(plan.sourcePath).filename().string(),
                            FormatTime(songSeconds)));
    if (song)
        add("Beats",
            fmt::format("{:.1f} a minute, {} beats", song->GetBpm(), song->beatTimes.size()));
    if (plan.targetSeconds > 0)
        add("Target", fmt::format("{}, {:+.2f} s off", FormatTime(plan.targetSeconds),
                                  seconds - plan.targetSeconds));
    add("Remix", fmt::format("{}, {} ranges, {} joins", FormatTime(seconds), plan.segments.size(),
                             plan.GetJoinCount()));
    if (!plan.joinCosts.empty())
        add("Worst join", fmt::format("{:.0f} % alike",
                                      100 * GetLikeness(*std::max_element(plan.joinCosts.begin(),
                                                                          plan.joinCosts.end()))));
    return html + "</dl>\n";
}

}  // namespace

std::string MakeRemixReport(const RemixPlan& plan,
                            RemixSource& source,
                            SpooledAudio& remix,
                            const components::SongAnalysis* song) {
    const std::string title = MakeRemixTitle(plan, source.GetInfo().path);
    const RemixPicture picture(plan, source.GetAudio(), remix,
                               song ? song->beatTimes : std::vector<double>{}, title);
    return std::string(kHead) + "<title>" + EscapeMarkup(title) +
           "</title>\n</head>\n<body>\n<h1>" + EscapeMarkup(title) + "</h1>\n" +
           MakeFacts(plan, song, source.GetSeconds()) + MakeFigure(plan, picture) +
           "<h2>Joins</h2>\n" + MakeJoins(plan, remix, song) + kScript + "</body>\n</html>\n";
}

}  // namespace zuc::host
