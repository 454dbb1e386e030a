#include <fmt/format.h>

#include "Commands.h"
#include "Console.h"
#include "Signals.h"
#include "host/BeatAnalysis.h"
#include "host/TemporaryFile.h"

namespace zuc::cli {

int RunBeats(const BeatsOptions& options) {
    const InterruptibleJob job;
    const components::SongAnalysis song =
        host::AnalyseBeats(options.input, options.noCache ? host::SongCache("") : host::SongCache(),
                           [](double) { return GetInterruption() == 0; });
    if (!options.labels.empty())
        host::WriteFileAtomically(options.labels, host::BeatsToLabels(song));
    if (!options.click.empty()) host::WriteClicks(options.input, options.click, song);
    if (options.json)
        Print(host::BeatsToJson(song));
    else
        Print(fmt::format("{:.2f} s, {:.2f} beats a minute, {} beats, confidence {:.2f}\n",
                          song.durationSeconds, song.GetBpm(), song.beatTimes.size(),
                          song.confidence));
    if (song.beatTimes.size() < 2) SayWarning("no pulse found: there are no beats to count");
    return static_cast<int>(host::ExitCode::kDone);
}

}  // namespace zuc::cli
