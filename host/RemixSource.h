#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "Components/Song.h"
#include "host/AudioReader.h"
#include "host/AudioSource.h"
#include "host/SongCache.h"

namespace zuc::host {

/// A piece of music as a remix needs it: audio that any part of can be read quickly, and its beats.
///
/// Compressed files are decoded once, into a temporary file; what a song cache knows is not analysed again.
class RemixSource {
public:
    /// Opens the file. Throws Error(kInput, kOutput) or, once `interrupted` is set, Interrupted. [worker]
    explicit RemixSource(const std::string& path, const std::atomic<int>* interrupted = nullptr);

    AudioSource& GetAudio() { return *audio_; }
    const AudioFileInfo& GetInfo() const { return info_; }  // of the file; `frames` is exact
    const AudioMetadata& GetMetadata() const { return file_->GetMetadata(); }
    double GetSeconds() const { return static_cast<double>(info_.frames) / info_.rateHz; }

    /// The song's beats, from the cache or analysed now. `progress` gets 0 to 1. Throws Error (kInput) for
    /// less than two seconds, or Interrupted. [worker]
    const components::SongAnalysis& Analyse(const SongCache& cache,
                                            const components::ProgressCallback& progress);
    /// What Analyse found, or what the cache knows without an analysis; null otherwise. [worker]
    const components::SongAnalysis* FindAnalysis(const SongCache& cache);

private:
    void Decode();
    bool IsInterrupted() const { return interrupted_ && interrupted_->load() != 0; }

    const std::atomic<int>* interrupted_;
    std::unique_ptr<AudioReader> file_;
    std::unique_ptr<AudioSource> decoded_;  // null: the file itself is read
    AudioSource* audio_ = nullptr;
    AudioFileInfo info_;
    std::shared_ptr<components::SongAnalysis> song_;
};

}  // namespace zuc::host
