#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include <boost/signals2/signal.hpp>

#include "Components/OfflineInterfaces.h"
#include "kracore/Export.h"
#include "kracore/Gate.h"

namespace zuc {

/// A bounded ring in memory between an offline effect's job, which puts, and the host, which gets. One
/// thread on either side. The waits are bounded: 50 ms for room, 250 ms for data.
class ZUC_API DefaultOfflineWriter : public OfflineOInterface {
public:
    DefaultOfflineWriter();
    ~DefaultOfflineWriter() override;

    long GetChannelCount() const override;
    /// Closing wakes a waiting consumer at once. Before Initialize the writer is closed.
    void SetOpenToWrite(bool open) override;
    void Flush() override;
    /// Returns 0 when the writer is closed or stayed full for 50 ms. [worker]
    long PutAudio(const float* const* source, long, std::int64_t offset, long frames) override;

    /// Sizes the ring in channels and frames and empties it. Deliberate: a smaller request never shrinks
    /// it; when either size grows both are taken as given. [host]
    virtual void Initialize(long channels, long capacityFrames);
    /// Fills up to `frames` frames of each destination channel and returns how many. 0 is the end when the
    /// writer is closed, and otherwise says that nothing came for 250 ms. The second argument is ignored.
    /// [host, may block]
    virtual long GetAudio(float* const* destination, long, long frames);
    /// Where the output starts, in frames; the producer's note to the consumer.
    virtual void SetStartAdjust(std::int64_t frames);
    virtual std::int64_t GetStartAdjust() const;

    bool IsOpenToWrite() const { return open_.load(); }
    long GetAvailable() const;
    /// Fired by the producer's thread each time the ring becomes full.
    boost::signals2::signal<void()>& GetMediaReadySignal() { return mediaReady_; }

private:
    void Reset();

    mutable std::mutex mutex_;  // guards the ring; held only while samples and indices are copied
    std::vector<std::vector<float>> channels_;
    long capacity_ = 0;
    long available_ = 0;
    long readIndex_ = 0;
    long writeIndex_ = 0;
    std::atomic<std::int64_t> startAdjust_{0};
    std::atomic<bool> open_{false};
    kracore::threads::Gate dataGate_;   // open while there is data, or once nothing more comes
    kracore::threads::Gate spaceGate_;  // open while there is room
    boost::signals2::signal<void()> mediaReady_;
};

}  // namespace zuc
