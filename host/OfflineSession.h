#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "Components/DefaultOfflineWriter.h"
#include "Components/OfflineInterfaces.h"
#include "host/AudioSource.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host {

/// Whether the effect, as it is set now, sees its whole source and delivers through a writer. [host]
bool WorksOffline(kraaudiofilterhost::AudioFilter& filter);

/// What happens while a session waits for an effect.
struct OfflineWatch {
    /// Set from outside to stop; Read then throws Interrupted.
    const std::atomic<int>* interrupted = nullptr;
    /// Called with the session's progress about every 20 ms while there is no output yet.
    std::function<void(double)> progress;
};

/// One offline run of an effect, from its start to the last frame.
///
/// Reader, writer, progress and run belong together here; when the session goes, the run is cancelled and
/// its job gone. One thread uses it; the job reads `source` on another meanwhile. However long the effect
/// works before its first frame, and however many frames come, Read is all there is to do:
///
///     OfflineSession session(filter, source, frames);
///     while (const int count = session.Read(block, blockFrames, watch)) …
class OfflineSession {
public:
    /// Starts the run over frames 0 to `frames` of the source, which must outlive the session. Throws Error
    /// (kProcessing) when the effect does not start. [host]
    OfflineSession(boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> filter,
                   AudioSource& source,
                   std::int64_t frames,
                   long ringFrames = kRingFrames);
    ~OfflineSession();
    OfflineSession(const OfflineSession&) = delete;
    OfflineSession& operator=(const OfflineSession&) = delete;

    static constexpr long kRingFrames = 32768;

    /// Takes the next frames of the output, at least one, 0 at the end. Throws Interrupted within 10 ms,
    /// whatever the job does; the source's own Error when reading it failed; Error (kProcessing) when the
    /// run ended without its output. [worker, may block]
    int Read(float* const* out, int frames, const OfflineWatch& watch = {});
    /// Ends the run early; the next Read gives 0. [any]
    void Cancel();
    /// How much of the work is done, 0 to 1; -1 for effects that do not say. [any]
    double GetProgress() const;
    /// What the effect has to say after the run; mostly nothing. [host]
    std::string GetCompletionText() const;

private:
    class SourceReader;
    bool HasEnded() const;
    void CheckEnd() const;
    void Detach();

    boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> filter_;
    OfflineOperations& run_;
    boost::intrusive_ptr<SourceReader> reader_;
    boost::intrusive_ptr<DefaultOfflineWriter> writer_;
    std::int64_t frames_;  // of the source
    std::int64_t framesRead_ = 0;
    std::atomic<bool> isCancelled_{false};
    mutable float progressPercent_ = 0.0f;  // the job writes it meanwhile
};

/// What an offline effect makes of `input`, as a source that can be read once from its start.
class OfflineSource final : public AudioSource {
public:
    /// Throws as OfflineSession. [host]
    OfflineSource(boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> filter,
                  std::unique_ptr<AudioSource> input,
                  OfflineWatch watch);
    ~OfflineSource() override;

    int Read(float* const* out, int frames) override;
    /// Throws Error (kProcessing): there is no way back. [worker]
    void Seek(std::int64_t frame) override;

    const OfflineSession& GetSession() const { return session_; }

private:
    std::unique_ptr<AudioSource> input_;
    OfflineWatch watch_;
    OfflineSession session_;  // last: it reads the input
};

}  // namespace zuc::host
