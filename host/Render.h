#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/AudioSource.h"
#include "host/AudioWriter.h"
#include "host/ChainProcessor.h"
#include "host/Error.h"
#include "host/TimeRange.h"

namespace zuc::host {

/// What happens to samples beyond full scale.
enum class OnClip {
    kWarn,      // they are counted; integers cut them off
    kError,     // the job fails and leaves no output
    kLimit,     // a look-ahead limiter keeps them at full scale
    kNormalize  // the whole output becomes quieter, so that its peak is at full scale
};

/// How long the output goes on behind the input.
struct Tail {
    enum class Kind { kAuto, kNone, kSeconds } kind = Kind::kAuto;  // kAuto: as the effects report
    double seconds = 0.0;
    bool operator==(const Tail&) const = default;
};
/// Reads "auto", "none" or a time. Throws Error (kUsage). [any]
Tail ParseTail(std::string_view text);

/// How loud a finished output is (ITU-R BS.1770-4).
struct MeasuredLoudness {
    double integratedLufs = 0.0;  // -infinity for silence and less than 400 ms
    float truePeak = 0.0f;        // linear
};

/// Ceiling of the true peaks where an output is brought to a loudness.
inline constexpr float kLoudnessCeilingDb = -1.0f;

/// The longest tail that kAuto gives; feedback at 100 % reports one without end.
inline constexpr double kMaximumAutoTailSeconds = 60.0;

struct RenderProgress {
    std::int64_t framesDone = 0;    // of the output
    std::int64_t framesTotal = -1;  // -1 when not known
    std::int64_t overs = 0;
    int pass = 1;
    int passCount = 1;
    double workDone =
        -1.0;  // of the offline effect that feeds the pass, 0 to 1; -1 when there is none
};

struct RenderOptions {
    TimeRange range;
    Tail tail;
    OnClip onClip = OnClip::kWarn;
    /// Integrated loudness that the output gets, by one gain for all of it; peaks above kLoudnessCeilingDb
    /// are limited. Takes one more pass over the input, two to four more where there is something to limit. Not together with
    /// kNormalize.
    std::optional<double> loudnessLufs;
    bool measuresLoudness = false;  // for the report; always done with loudnessLufs
    /// Feeds the side chain of the effects that have one, from the same time on and at any rate; silent
    /// behind its end. The chain must have been made for its channels.
    AudioSource* sideChain = nullptr;
    /// Path, format, samples, dither and quality; the rest follows from the source.
    AudioWriterOptions output;
    /// Called after every block, and every 20 ms while an offline effect has no output yet.
    std::function<void(const RenderProgress&)> progress;
    /// Set from outside to stop; Render then throws Interrupted.
    const std::atomic<int>* interrupted = nullptr;
};

struct RenderReport {
    AudioFileInfo input;
    AudioFileInfo output;
    std::int64_t framesIn = 0;
    std::int64_t framesOut = 0;
    std::int64_t latencyFrames = 0;  // of the chain; removed from the output
    std::int64_t tailFrames = 0;
    bool isTailCut = false;  // the effects report more than kMaximumAutoTailSeconds
    Overs overs;
    float normalizeGainDb = 0.0f;  // that kNormalize or a loudness took
    std::optional<MeasuredLoudness> loudness;
    std::optional<double> loudnessTargetLufs;  // that was asked for
    float limiterLowestGainDb = 0.0f;
    std::int64_t nonFiniteSamplesIn = 0;
    std::vector<std::string> lostMetadata;
    std::vector<std::string> completionTexts;  // what offline effects had to say
    bool isInputTruncated = false;
    double seconds = 0.0;     // of work
    double GetSpeed() const;  // seconds of audio per second of work
};

/// Runs `reader` through `chain` into a new file.
///
/// The chain's rate may differ from the reader's; the input is resampled first. The output begins with
/// the first frame of the range, whatever the chain's latency, and is as long as the range plus the
/// tail. It appears whole or, after any failure, not at all. An empty chain of the same rate writes the
/// samples bit for bit as they were. Results do not depend on the chain's block length. Before an offline
/// effect the audio is stored in a temporary file, tail included. Throws Error or Interrupted. [worker]
RenderReport Render(AudioSource& reader,
                    ChainProcessor& chain,
                    int chainRateHz,
                    const RenderOptions& options);

}  // namespace zuc::host
