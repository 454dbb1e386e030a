#include "host/RemixSource.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "host/Error.h"
#include "host/RenderSource.h"
#include "host/SpooledAudio.h"

namespace zuc::host {
namespace {

constexpr int kBlockFrames = 8192;
constexpr double kMinSeconds = 2;
constexpr double kAnalysisBlockSeconds = 60;
constexpr double kReadShare = 0.3;  // of the progress
/// Formats whose samples stand in the file as they are, so that reading anywhere costs nothing.
constexpr std::array kPlainFormats{"wav", "rf64", "aiff", "caf", "au", "w64"};

bool IsPlain(const AudioFileInfo& info) {
    return info.bits > 0 && info.frames >= 0 &&
           std::find(kPlainFormats.begin(), kPlainFormats.end(), info.format) !=
               kPlainFormats.end();
}

}  // namespace

RemixSource::RemixSource(const std::string& path, const std::atomic<int>* interrupted)
    : interrupted_(interrupted), file_(AudioReader::Open(path)), info_(file_->GetInfo()) {
    audio_ = file_.get();
    if (!IsPlain(info_) || file_->IsTruncated()) Decode();
}

void RemixSource::Decode() {
    auto spool = std::make_unique<SpooledAudio>(info_.rateHz, info_.channels);
    AudioBlock block(static_cast<std::size_t>(info_.channels), kBlockFrames);
    info_.frames = 0;
    while (const int given = file_->Read(block.GetChannels(), kBlockFrames)) {
        if (IsInterrupted()) throw Interrupted();
        spool->Append(block.GetChannels(), given);
        info_.frames += given;
    }
    decoded_ = std::move(spool);
    audio_ = decoded_.get();
}

const components::SongAnalysis* RemixSource::FindAnalysis(const SongCache& cache) {
    if (!song_)
        if (auto known = cache.Find(SongCache::MakeKey(info_.path)))
            song_ = std::make_shared<components::SongAnalysis>(std::move(*known));
    return song_.get();
}

const components::SongAnalysis& RemixSource::Analyse(const SongCache& cache,
                                                     const components::ProgressCallback& progress) {
    if (const auto* known = FindAnalysis(cache)) return *known;
    if (GetSeconds() < kMinSeconds)
        throw Error(ExitCode::kInput, fmt::format("'{}' is too short for beats", info_.path),
                    fmt::format("at least {} s", kMinSeconds));
    const auto report = [&](double fraction) {
        return !IsInterrupted() && (!progress || progress(fraction));
    };
    const auto input = std::make_shared<components::AnalysisInput>(info_.rateHz, info_.channels);
    AudioBlock block(static_cast<std::size_t>(info_.channels), kBlockFrames);
    audio_->Seek(0);
    std::int64_t frames = 0;
    while (const int given = audio_->Read(block.GetChannels(), kBlockFrames)) {
        input->Append(block.GetChannels(), given);
        frames += given;
        if (!report(kReadShare * static_cast<double>(frames) / static_cast<double>(info_.frames)))
            throw Interrupted();
    }
    input->Finish();
    components::Song song(input, input->GetSampleRate());
    if (!song.Analyse(kAnalysisBlockSeconds, true, [&](double fraction) {
            return report(kReadShare + (1 - kReadShare) * fraction);
        }))
        throw Interrupted();
    cache.Store(SongCache::MakeKey(info_.path), song.GetAnalysis());
    song_ = std::make_shared<components::SongAnalysis>(song.GetAnalysis());
    return *song_;
}

}  // namespace zuc::host
