#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include <boost/function.hpp>
#include <boost/smart_ptr/intrusive_ptr.hpp>

#include "Components/OfflineInterfaces.h"

namespace zuc::components {

/// The one offline run of an effect: reader, writer, progress and the job on the effect thread queue.
///
/// However the work ends (done, failed, thrown, cancelled, never begun because the library ended) the
/// writer is closed first and the run counts as finished after that. An effect keeps this as its last member,
/// so that the job is gone before anything it uses; the destructor cancels and waits.
class OfflineJob {
public:
    enum class Outcome { kNone, kRunning, kDone, kFailed, kCancelled };

    static constexpr long kBlockFrames = 8192;  // what jobs read and write at a time

    /// What the work sees of its run. Reader and writer stay those of the start.
    class Run {
    public:
        bool IsCancelled() const;      // [worker]
        long GetChannelCount() const;  // of the reader, 0 without one [worker]
        long GetWriterChannelCount() const { return writer_->GetChannelCount(); }  // [worker]
        /// Fills `destination` with source audio; false when the reader failed or there is none. Deliberate: a
        /// false answer must end the work, the destination is undefined. [worker]
        bool Read(float** destination, long channels, std::int64_t position, long frames);
        /// Puts all of it, however little the writer takes at a time; false when the run was cancelled, or
        /// the writer took nothing `mostRefusals` times in a row (0: it may do so for ever). [worker]
        bool Write(const float* const* source, long frames, int mostRefusals = 0);
        /// 0 to 1. [worker]
        void ReportProgress(double fraction);

    private:
        friend class OfflineJob;
        boost::intrusive_ptr<OfflineIInterface> reader_;
        boost::intrusive_ptr<OfflineOInterface> writer_;
        float volatile* progressPercent_ = nullptr;
        std::atomic<bool> cancelled_{false};
        std::atomic<bool> hasBegun_{false};
    };
    /// Returns whether the run's output is complete.
    using Work = boost::function<bool(Run&)>;

    OfflineJob();
    ~OfflineJob();
    OfflineJob(const OfflineJob&) = delete;
    OfflineJob& operator=(const OfflineJob&) = delete;

    // What the host sets; each holds for the next start. [host]
    void SetReader(boost::intrusive_ptr<OfflineIInterface> reader) { reader_ = std::move(reader); }
    void SetWriter(boost::intrusive_ptr<OfflineOInterface> writer) { writer_ = std::move(writer); }
    void SetProgressHandler(float volatile* percent) { progressPercent_ = percent; }

    /// Opens the writer and posts the work; false when a run is under way, there is no writer, or the library
    /// is not initialized. The run counts as running before this returns. [host]
    bool Start(Work work);
    void Cancel();               // [any]
    bool IsFinished() const;     // [any]
    Outcome GetOutcome() const;  // of the last run [any]
    void Wait();                 // until no run is under way [host, may block]

    /// What AudioFilter::OfflineProcess does for effects that deliver through the writer: hands over up to
    /// `frames` frames of it. 0 for writers that only take. [host, may block]
    int Drain(float* const* out, int frames);

private:
    struct State;
    class Ticket;

    boost::intrusive_ptr<OfflineIInterface> reader_;
    boost::intrusive_ptr<OfflineOInterface> writer_;
    float volatile* progressPercent_ = nullptr;
    std::shared_ptr<State> state_;
};

}  // namespace zuc::components
