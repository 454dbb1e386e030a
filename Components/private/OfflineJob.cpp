#include "Components/private/OfflineJob.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "Components/DefaultOfflineWriter.h"
#include "Components/EffectThreadPool.h"
#include "kracore/FlushToZero.h"

namespace zuc::components {

/// What outlives the effect if need be: the job's side of a run.
struct OfflineJob::State {
    std::mutex mutex;
    std::condition_variable ended;
    Outcome outcome = Outcome::kNone;
    std::shared_ptr<Run> run;  // while it is under way

    bool IsRunning() {
        const std::lock_guard lock(mutex);
        return outcome == Outcome::kRunning;
    }
};

/// Ends the run, once it has begun, when the last copy of the posted job goes, also when it never ran.
class OfflineJob::Ticket {
public:
    Ticket(std::shared_ptr<State> state, std::shared_ptr<Run> run)
        : state_(std::move(state)), run_(std::move(run)) {}
    Ticket(const Ticket&) = delete;
    Ticket& operator=(const Ticket&) = delete;
    ~Ticket() { Finish(); }

    /// False while another run is under way.
    bool Begin() {
        {
            const std::lock_guard lock(state_->mutex);
            if (state_->outcome == Outcome::kRunning) return false;
            state_->outcome = Outcome::kRunning;
            state_->run = run_;
        }
        isFinished_ = false;
        run_->ReportProgress(0.0);
        run_->writer_->SetOpenToWrite(true);
        return true;
    }

    void DoWork(const Work& work) {
        const kracore::utility::FlushToZeroScope flushToZero;
        run_->hasBegun_.store(true);
        try {
            isComplete_ = work(*run_);
        } catch (...) {
            isComplete_ = false;  // nothing may leave a worker; the outcome says it
        }
        Finish();
    }

private:
    void Finish() {
        if (isFinished_) return;
        isFinished_ = true;
        run_->writer_->SetOpenToWrite(false);
        const Outcome cut = run_->IsCancelled() ? Outcome::kCancelled : Outcome::kFailed;
        // Notified under the lock: afterwards the effect may be gone.
        const std::lock_guard lock(state_->mutex);
        state_->run.reset();
        state_->outcome = isComplete_ ? Outcome::kDone : cut;
        state_->ended.notify_all();
    }

    std::shared_ptr<State> state_;
    std::shared_ptr<Run> run_;
    bool isComplete_ = false;
    bool isFinished_ = true;  // or has not begun
};

// ---- The work's side ----

bool OfflineJob::Run::IsCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

long OfflineJob::Run::GetChannelCount() const { return reader_ ? reader_->GetChannelCount() : 0; }

bool OfflineJob::Run::Read(float** destination, long channels, std::int64_t position, long frames) {
    return reader_ && !IsCancelled() && reader_->GetAudio(destination, channels, position, frames);
}

bool OfflineJob::Run::Write(const float* const* source, long frames, int mostRefusals) {
    using Clock = std::chrono::steady_clock;
    constexpr auto kShortestWait = std::chrono::milliseconds(1);
    int refusals = 0;
    for (long done = 0; done < frames;) {
        if (IsCancelled()) return false;
        const auto before = Clock::now();
        const long taken = writer_->PutAudio(source, 0, done, frames - done);
        done += std::clamp(taken, 0L, frames - done);
        refusals = taken > 0 ? 0 : refusals + 1;
        if (mostRefusals > 0 && refusals >= mostRefusals) return false;
        // A writer that refuses without having waited must not keep a processor busy.
        if (taken <= 0 && Clock::now() - before < kShortestWait)
            std::this_thread::sleep_for(kShortestWait);
    }
    return true;
}

void OfflineJob::Run::ReportProgress(double fraction) {
    if (!progressPercent_) return;
    // The contract's volatile promises no order; an atomic write is one that nobody sees half done.
    std::atomic_ref<float>(const_cast<float&>(*progressPercent_))
        .store(static_cast<float>(100.0 * std::clamp(fraction, 0.0, 1.0)),
               std::memory_order_relaxed);
}

// ---- The effect's side ----

OfflineJob::OfflineJob() : state_(std::make_shared<State>()) {}

OfflineJob::~OfflineJob() {
    Cancel();
    Wait();
}

bool OfflineJob::Start(Work work) {
    if (!writer_) return false;
    const auto run = std::make_shared<Run>();
    run->reader_ = reader_;
    run->writer_ = writer_;
    run->progressPercent_ = progressPercent_;
    auto ticket = std::make_shared<Ticket>(state_, run);
    if (!ticket->Begin()) return false;
    PostToEffectThreadQueue(
        [ticket = std::move(ticket), work = std::move(work)] { ticket->DoWork(work); });
    const std::lock_guard lock(state_->mutex);
    return run->hasBegun_.load() || state_->outcome == Outcome::kRunning;
}

void OfflineJob::Cancel() {
    const std::lock_guard lock(state_->mutex);
    if (state_->run) state_->run->cancelled_.store(true);
}

bool OfflineJob::IsFinished() const { return !state_->IsRunning(); }

OfflineJob::Outcome OfflineJob::GetOutcome() const {
    const std::lock_guard lock(state_->mutex);
    return state_->outcome;
}

void OfflineJob::Wait() {
    std::unique_lock lock(state_->mutex);
    state_->ended.wait(lock, [this] { return state_->outcome != Outcome::kRunning; });
}

int OfflineJob::Drain(float* const* out, int frames) {
    auto* const ring = dynamic_cast<DefaultOfflineWriter*>(writer_.get());
    return ring ? static_cast<int>(ring->GetAudio(out, 0, frames)) : 0;
}

}  // namespace zuc::components
