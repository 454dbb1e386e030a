#include <algorithm>
#include <chrono>

#include "Components/AudioOfflineComponent.h"
#include "Components/DefaultOfflineWriter.h"

namespace zuc {

using std::chrono::milliseconds;

namespace {

constexpr milliseconds kSpaceWait{50};
constexpr milliseconds kDataWait{250};

}  // namespace

OfflineIInterface::~OfflineIInterface() = default;
OfflineOInterface::~OfflineOInterface() = default;

// ---- Defaults ----

OfflineOperations::~OfflineOperations() = default;
void OfflineOperations::Cancel() {}
void OfflineOperations::GetCompletionText(kracore::WStr& text) const { text.clear(); }
bool OfflineOperations::OfflineRun(std::int64_t, std::int64_t) { return true; }
// NOLINTBEGIN(performance-unnecessary-value-param): effects keep what they are given
void OfflineOperations::SetOfflineReader(boost::intrusive_ptr<OfflineIInterface>) {}
void OfflineOperations::SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface>) {}
// NOLINTEND(performance-unnecessary-value-param)
void OfflineOperations::SetProgressHandler(float volatile*) {}
bool OfflineOperations::WantsToHandleProgress() const { return false; }

AudioOfflineComponent::AudioOfflineComponent(const kracore::WStr& componentID,
                                             const kracore::WStr& displayName)
    : AudioFilter(componentID, displayName) {}
AudioOfflineComponent::~AudioOfflineComponent() = default;

components::MultiChannelOfflineComponent::MultiChannelOfflineComponent(const WStr& componentID,
                                                                       const WStr& displayName,
                                                                       int maxChannels)
    : MultiChannelComponentBase(componentID, displayName, maxChannels) {}
components::MultiChannelOfflineComponent::~MultiChannelOfflineComponent() = default;

// ---- The ring ----

DefaultOfflineWriter::DefaultOfflineWriter() = default;
DefaultOfflineWriter::~DefaultOfflineWriter() = default;

long DefaultOfflineWriter::GetChannelCount() const {
    const std::lock_guard lock(mutex_);
    return static_cast<long>(channels_.size());
}

long DefaultOfflineWriter::GetAvailable() const {
    const std::lock_guard lock(mutex_);
    return available_;
}

void DefaultOfflineWriter::SetStartAdjust(std::int64_t frames) { startAdjust_.store(frames); }

std::int64_t DefaultOfflineWriter::GetStartAdjust() const { return startAdjust_.load(); }

void DefaultOfflineWriter::Reset() {
    available_ = readIndex_ = writeIndex_ = 0;
    spaceGate_.Open();
    if (open_.load()) dataGate_.Close();
}

void DefaultOfflineWriter::Initialize(long channels, long capacityFrames) {
    const std::lock_guard lock(mutex_);
    if (channels > static_cast<long>(channels_.size()) || capacityFrames > capacity_) {
        capacity_ = std::max(0L, capacityFrames);
        channels_.assign(static_cast<std::size_t>(std::max(0L, channels)),
                         std::vector<float>(static_cast<std::size_t>(capacity_)));
    }
    startAdjust_.store(0);
    Reset();
    dataGate_.Close();
}

void DefaultOfflineWriter::Flush() {
    const std::lock_guard lock(mutex_);
    Reset();
}

void DefaultOfflineWriter::SetOpenToWrite(bool open) {
    const std::lock_guard lock(mutex_);
    open_.store(open);
    if (!open)
        dataGate_.Open();
    else if (available_ == 0)
        dataGate_.Close();
}

long DefaultOfflineWriter::PutAudio(const float* const* source,
                                    long,
                                    std::int64_t offset,
                                    long frames) {
    if (!open_.load() || frames <= 0 || !spaceGate_.WaitFor(kSpaceWait)) return 0;
    long count = 0;
    bool becameFull = false;
    {
        const std::lock_guard lock(mutex_);
        count = std::min(frames, capacity_ - available_);
        if (count <= 0) return 0;
        const long first = std::min(count, capacity_ - writeIndex_);
        for (std::size_t c = 0; c < channels_.size(); ++c) {
            const float* const from = source[c] + offset;
            std::copy_n(from, first, channels_[c].begin() + writeIndex_);
            std::copy_n(from + first, count - first, channels_[c].begin());
        }
        available_ += count;
        writeIndex_ = (writeIndex_ + count) % capacity_;
        becameFull = available_ == capacity_;
        if (becameFull) spaceGate_.Close();
        dataGate_.Open();
    }
    if (becameFull) mediaReady_();
    return count;
}

long DefaultOfflineWriter::GetAudio(float* const* destination, long, long frames) {
    if (frames <= 0 || (!open_.load() && GetAvailable() == 0)) return 0;
    if (!dataGate_.WaitFor(kDataWait)) return 0;
    const std::lock_guard lock(mutex_);
    const long count = std::min(frames, available_);
    if (count == 0) return 0;
    const long first = std::min(count, capacity_ - readIndex_);
    for (std::size_t c = 0; c < channels_.size(); ++c) {
        const auto from = channels_[c].begin();
        std::copy_n(from + readIndex_, first, destination[c]);
        std::copy_n(from, count - first, destination[c] + first);
    }
    readIndex_ = (readIndex_ + count) % capacity_;
    available_ -= count;
    if (available_ == 0 && open_.load()) dataGate_.Close();
    spaceGate_.Open();
    return count;
}

}  // namespace zuc
