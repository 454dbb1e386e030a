#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "host/AudioWriter.h"
#include "host/RemixPlan.h"
#include "host/RemixSource.h"
#include "host/SpooledAudio.h"

namespace zuc::host {

/// Takes the next frames of a remix; `audio[channel][0 .. frames)`, which it may change.
using RemixSink = std::function<void(float* const* audio, int frames)>;

/// Plays the plan from audio of that format into `sink`, with the fade at its end. The plan must have been
/// checked. Throws Error, or Interrupted. [worker, may block]
void PlayPlan(const RemixPlan& plan,
              AudioSource& audio,
              const AudioFileInfo& info,
              const RemixSink& sink,
              const std::atomic<int>* interrupted);

/// What a remix's file is like besides its path; the rest follows from the source.
struct RemixOutput {
    std::string path;
    std::string format;
    SampleFormat samples = SampleFormat::kLikeSource;
    /// Gets what is written, for reports and previews; may be null.
    SpooledAudio* copy = nullptr;
    /// 0 to 1.
    std::function<void(double)> progress;
    const std::atomic<int>* interrupted = nullptr;
};

struct RemixReport {
    AudioFileInfo output;
    Overs overs;
    std::vector<std::string> lostMetadata;
};

/// Makes a remix's file. What the fades do not touch comes out bit by bit as it was; cue points move with
/// the music. It appears whole or not at all. Throws Error, or Interrupted. [worker, may block]
RemixReport WriteRemix(const RemixPlan& plan, RemixSource& source, const RemixOutput& output);

/// Applies the plan to every audio file of `folder` and writes the results under the same names, ending in
/// the same format where it can be written and ".wav" otherwise, to `outputFolder`, which is made. The files
/// must have the plan's rate and be long enough. Returns the paths. Throws Error, or Interrupted.
/// [worker, may block]
std::vector<std::string> WriteStems(const RemixPlan& plan,
                                    const std::string& folder,
                                    const std::string& outputFolder,
                                    const std::atomic<int>* interrupted);

/// Where the fade of a join is and what is played around it, in seconds of the remix.
struct RemixPreview {
    double beginSeconds = 0.0;
    double joinSeconds = 0.0;
    double endSeconds = 0.0;
};
/// Four seconds to both sides of each join, within the remix. [any]
std::vector<RemixPreview> GetPreviews(const RemixPlan& plan);

/// Writes the previews of a remix as "join-01.wav", ... to `folder`, which is made. Returns the paths. Throws
/// Error. [worker]
std::vector<std::string> WritePreviews(const RemixPlan& plan,
                                       SpooledAudio& remix,
                                       const std::string& folder);

}  // namespace zuc::host
