#include "host/AudioMetadata.h"

#include "host/Resampler.h"

namespace zuc::host {
namespace {

constexpr std::array<std::string_view, kTagCount> kTagNames{
    "title", "artist",  "album",     "track number", "date",
    "genre", "comment", "copyright", "license",      "software",
};

}  // namespace

std::string_view GetTagName(Tag tag) { return kTagNames[static_cast<std::size_t>(tag)]; }

void AudioMetadata::ChangeRate(int fromHz, int toHz) {
    const auto move = [=](std::int64_t frame) {
        return Resampler::GetOutputFrames(frame, fromHz, toHz);
    };
    if (broadcast)
        broadcast->timeReferenceFrames = static_cast<std::uint64_t>(
            move(static_cast<std::int64_t>(broadcast->timeReferenceFrames)));
    for (CuePoint& cue : cues) cue.frame = move(cue.frame);
    if (!instrument) return;
    for (Instrument::Loop& loop : instrument->loops) {
        loop.startFrame = move(loop.startFrame);
        loop.endFrame = move(loop.endFrame);
    }
}

}  // namespace zuc::host
