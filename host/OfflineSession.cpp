#include "host/OfflineSession.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <vector>

#include "host/Error.h"
#include "kracore/WStr.h"

namespace zuc::host {
namespace {

// How often a session that waits for output looks whether somebody wants it to stop. The writer's own wait of
// 250 ms would be too long for that.
constexpr std::chrono::milliseconds kPollInterval(1);
constexpr int kPollsPerProgress = 20;

std::string GetName(const kraaudiofilterhost::AudioFilter& filter) {
    return kracore::utility::ToUtf8(filter.GetDisplayName());
}

OfflineOperations& GetOperations(kraaudiofilterhost::AudioFilter& filter) {
    auto* const operations = dynamic_cast<OfflineOperations*>(&filter);
    if (!operations)
        throw Error(ExitCode::kProcessing, GetName(filter) + " does not work on whole files");
    return *operations;
}

}  // namespace

bool WorksOffline(kraaudiofilterhost::AudioFilter& filter) {
    return filter.IsOfflineProcess() && dynamic_cast<OfflineOperations*>(&filter) != nullptr;
}

/// A source as offline effects read it. What it throws is kept for the session's thread.
class OfflineSession::SourceReader final : public OfflineIInterface {
public:
    explicit SourceReader(AudioSource& source) : source_(source) {}

    long GetChannelCount() const override { return source_.GetInfo().channels; }
    bool GetAudio(float** destination, long channels, std::int64_t position, long frames) override {
        if (channels != GetChannelCount() || position < 0 || frames < 0) return false;
        try {
            if (position != position_) source_.Seek(position);
            std::vector<float*> at(destination, destination + channels);
            long done = 0;
            while (done < frames) {
                const int count = source_.Read(at.data(), static_cast<int>(frames - done));
                if (count == 0) break;
                for (float*& channel : at) channel += count;
                done += count;
            }
            position_ = position + done;
            return done == frames;
        } catch (...) {
            position_ = -1;
            failure_ = std::current_exception();
            return false;
        }
    }
    /// Once the job is done. [host]
    void RethrowFailure() const {
        if (failure_) std::rethrow_exception(failure_);
    }

private:
    AudioSource& source_;
    std::int64_t position_ = 0;  // of the source; -1 when not known
    std::exception_ptr failure_;
};

OfflineSession::OfflineSession(boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> filter,
                               AudioSource& source,
                               std::int64_t frames,
                               long ringFrames)
    : filter_(std::move(filter)),
      run_(GetOperations(*filter_)),
      reader_(new SourceReader(source)),
      writer_(new DefaultOfflineWriter),
      frames_(frames) {
    writer_->Initialize(static_cast<long>(filter_->GetNumberOfOutputChannels()), ringFrames);
    run_.SetOfflineReader(reader_);
    run_.SetOfflineWriter(writer_);
    if (run_.WantsToHandleProgress()) run_.SetProgressHandler(&progressPercent_);
    if (run_.OfflineRun(0, frames)) return;
    Detach();
    throw Error(ExitCode::kProcessing, GetName(*filter_) + " did not start");
}

OfflineSession::~OfflineSession() {
    Cancel();
    while (!HasEnded()) std::this_thread::sleep_for(kPollInterval);
    Detach();
}

void OfflineSession::Detach() {
    run_.SetProgressHandler(nullptr);
    run_.SetOfflineReader(nullptr);
    run_.SetOfflineWriter(nullptr);
}

bool OfflineSession::HasEnded() const {
    return !writer_->IsOpenToWrite() && filter_->OfflineProcessFinished();
}

int OfflineSession::Read(float* const* out, int frames, const OfflineWatch& watch) {
    for (int polls = 0; frames > 0; ++polls) {
        if (watch.interrupted && watch.interrupted->load(std::memory_order_relaxed) != 0)
            throw Interrupted();
        if (isCancelled_.load()) return 0;
        // In this order: what was put before the end is available once the end shows.
        const bool hasEnded = HasEnded();
        if (writer_->GetAvailable() > 0) {
            const auto count = static_cast<int>(writer_->GetAudio(out, 0, frames));
            framesRead_ += count;
            if (count > 0) return count;
        } else if (hasEnded) {
            CheckEnd();
            return 0;
        } else {
            if (watch.progress && polls % kPollsPerProgress == 0) watch.progress(GetProgress());
            std::this_thread::sleep_for(kPollInterval);
        }
    }
    return 0;
}

/// An effect that keeps the duration owes every frame, any other at least one.
void OfflineSession::CheckEnd() const {
    reader_->RethrowFailure();
    const bool isComplete =
        filter_->CanChangeDuration() ? framesRead_ > 0 || frames_ == 0 : framesRead_ == frames_;
    if (!isComplete)
        throw Error(ExitCode::kProcessing,
                    GetName(*filter_) + " gave up after " + std::to_string(framesRead_) + " frames",
                    "", GetCompletionText());
}

void OfflineSession::Cancel() {
    isCancelled_.store(true);
    run_.Cancel();
    writer_->Flush();  // a job that waits for room sees it at once
}

double OfflineSession::GetProgress() const {
    if (!run_.WantsToHandleProgress()) return -1.0;
    const float percent = std::atomic_ref<float>(progressPercent_).load(std::memory_order_relaxed);
    return std::clamp(static_cast<double>(percent) / 100.0, 0.0, 1.0);
}

std::string OfflineSession::GetCompletionText() const {
    kracore::WStr text;
    run_.GetCompletionText(text);
    return kracore::utility::ToUtf8(text);
}

// ---- As a source ----

OfflineSource::OfflineSource(boost::intrusive_ptr<kraaudiofilterhost::AudioFilter> filter,
                             std::unique_ptr<AudioSource> input,
                             OfflineWatch watch)
    : input_(std::move(input)),
      watch_(std::move(watch)),
      session_(filter, *input_, input_->GetInfo().frames) {
    info_ = input_->GetInfo();
    if (filter->CanChangeDuration()) info_.frames = -1;
}

OfflineSource::~OfflineSource() = default;

int OfflineSource::Read(float* const* out, int frames) {
    std::vector<float*> at(out, out + info_.channels);
    int done = 0;
    while (done < frames) {
        const int count = session_.Read(at.data(), frames - done, watch_);
        if (count == 0) break;
        for (float*& channel : at) channel += count;
        done += count;
    }
    return done;
}

void OfflineSource::Seek(std::int64_t) {
    throw Error(ExitCode::kProcessing, "an offline effect's output has no way back");
}

}  // namespace zuc::host
