#include "host/Playback.h"

#include <algorithm>
#include <chrono>

#include "host/AudioThread.h"
#include "host/Error.h"
#include "host/Render.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

constexpr int kReadFrames = 1024;
constexpr double kQueueSeconds = 1.0;
constexpr std::chrono::milliseconds kFullQueueWait{5};

}  // namespace

Playback::Playback(AudioReader& reader, ChainProcessor& chain, int rateHz, const Options& options)
    : source_(reader, options.range, rateHz, kReadFrames),
      chain_(chain),
      channels_(chain.GetChannelCount()),
      rateHz_(rateHz),
      loops_(options.loops),
      queue_(channels_ * std::max<std::size_t>(std::size_t{4} * kReadFrames,
                                               static_cast<std::size_t>(kQueueSeconds * rateHz))),
      readBlock_(channels_, kReadFrames),
      readFrames_(channels_ * kReadFrames),
      takenFrames_(channels_ * static_cast<std::size_t>(chain.GetMaximumBlockFrames())),
      piece_(channels_) {
    source_.Rewind();
    for (const AudioFilterPtr& filter : chain.GetFilters())
        filter->SetRenderingContext(kraaudiofilterhost::RenderingContext::kPreview);
    chain.SetSelection(source_.GetBeginFrame() * rateHz / reader.GetInfo().rateHz,
                       loops_ ? -1 : source_.GetTotalFrames());
    UpdateTail();
    chain.Resume();
}

Playback::~Playback() {
    stops_.store(true);
    if (thread_.joinable()) thread_.join();
    chain_.Suspend();
}

void Playback::UpdateTail() {
    const std::int64_t longest =
        static_cast<std::int64_t>(kMaximumAutoTailSeconds * static_cast<double>(rateHz_));
    tailFrames_.store(chain_.GetLatencyFrames() + std::min(chain_.GetTailFrames(), longest));
}

// ---- The reading thread ----

void Playback::Start() {
    thread_ = std::thread([this] {
        try {
            ReadAhead();
        } catch (...) {
            failure_ = std::current_exception();
        }
        isAtEnd_.store(true, std::memory_order_release);
    });
    while (!isAtEnd_.load(std::memory_order_acquire) &&
           queue_.write_available() >= channels_ * kReadFrames)
        std::this_thread::sleep_for(kFullQueueWait);
    ThrowIfReadingFailed();
}

void Playback::ReadAhead() {
    bool isEmpty = true;  // so far in this pass, so that an empty file does not loop for ever
    while (!stops_.load()) {
        if (queue_.write_available() < channels_ * kReadFrames) {
            std::this_thread::sleep_for(kFullQueueWait);
            continue;
        }
        const int frames = source_.Read(readBlock_.GetChannels(), kReadFrames);
        for (std::size_t c = 0; c < channels_; ++c)
            for (int i = 0; i < frames; ++i)
                readFrames_[static_cast<std::size_t>(i) * channels_ + c] =
                    readBlock_.GetChannels()[c][i];
        queue_.push(readFrames_.data(), static_cast<std::size_t>(frames) * channels_);
        isEmpty = isEmpty && frames == 0;
        if (frames == kReadFrames) continue;
        if (!loops_ || isEmpty) return;
        source_.Rewind();
        isEmpty = true;
    }
}

void Playback::ThrowIfReadingFailed() const {
    if (isAtEnd_.load(std::memory_order_acquire) && failure_) std::rethrow_exception(failure_);
}

// ---- The device's thread ----

int Playback::TakeFromQueue(float* const* out, int frames) {
    const std::size_t there = queue_.read_available() / channels_;
    const int taken = static_cast<int>(std::min(static_cast<std::size_t>(frames), there));
    queue_.pop(takenFrames_.data(), static_cast<std::size_t>(taken) * channels_);
    for (std::size_t c = 0; c < channels_; ++c)
        for (int i = 0; i < taken; ++i)
            out[c][i] = takenFrames_[static_cast<std::size_t>(i) * channels_ + c];
    return taken;
}

void Playback::FillPiece(float** out, int frames) {
    // Before the queue is looked at: what is not in it now never comes.
    const bool isAtEnd = isAtEnd_.load(std::memory_order_acquire);
    const int taken = TakeFromQueue(out, frames);
    for (std::size_t c = 0; c < channels_; ++c) std::fill(out[c] + taken, out[c] + frames, 0.0f);
    if (taken < frames && isAtEnd) tailPlayed_ += frames - taken;
    if (taken < frames && !isAtEnd) lateBlocks_.fetch_add(1, std::memory_order_relaxed);
    chain_.Process(out, frames);
}

bool Playback::Fill(float* const* out, int frames) {
    const AudioThreadScope audioThread;
    for (int done = 0; done < frames;) {
        const int count = std::min(frames - done, chain_.GetMaximumBlockFrames());
        for (std::size_t c = 0; c < channels_; ++c) piece_[c] = out[c] + done;
        if (hasEnded_.load(std::memory_order_relaxed))
            for (float* const channel : piece_) std::fill_n(channel, count, 0.0f);
        else
            FillPiece(piece_.data(), count);
        if (tailPlayed_ > tailFrames_.load(std::memory_order_relaxed))
            hasEnded_.store(true, std::memory_order_relaxed);
        done += count;
    }
    framesPlayed_.fetch_add(frames, std::memory_order_relaxed);
    return !hasEnded_.load(std::memory_order_relaxed);
}

// ---- Settings and status ----

ChainStep Playback::Set(const EffectCatalogue& catalogue,
                        const UserPresets& presets,
                        std::string_view command) {
    command = Trim(command);
    const std::size_t end = std::min(command.find_first_of(" \t="), command.size());
    const std::size_t dot = command.substr(0, end).find('.');
    const std::string_view value = Trim(command.substr(std::min(end + 1, command.size())));
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == end || value.empty())
        throw Error(ExitCode::kUsage, "'" + std::string(command) + "' sets nothing",
                    "EFFECT.PARAMETER VALUE", "for example echo.decay-left 40%");
    const Chain& chain = chain_.GetResolvedChain();
    const std::size_t place = FindStep(chain, catalogue, command.substr(0, dot));
    ChainStep step{chain[place].effect, {}, {}};
    const std::string name(command.substr(dot + 1, end - dot - 1));
    if (name == "preset")
        step.preset = value;
    else
        step.settings.push_back({name, std::string(value)});
    ChainStep resolved = ApplyStep(step, step.effect, presets, *chain_.GetFilters()[place]);
    UpdateTail();
    return resolved;
}

Playback::Status Playback::GetStatus() const {
    return {static_cast<double>(framesPlayed_.load(std::memory_order_relaxed)) / rateHz_,
            lateBlocks_.load(std::memory_order_relaxed), hasEnded_.load(std::memory_order_relaxed)};
}

}  // namespace zuc::host
