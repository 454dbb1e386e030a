#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <string_view>
#include <thread>
#include <vector>

#include <boost/lockfree/spsc_queue.hpp>

#include "host/AudioReader.h"
#include "host/ChainProcessor.h"
#include "host/RenderSource.h"
#include "host/TimeRange.h"

namespace zuc::host {

/// A file through a chain, for a sound device that asks for one block after the other.
///
/// A thread reads the file ahead into a lock-free queue of a second; the device's thread takes from it and
/// runs the chain. Both meet in the queue and in atomics. Settings may be changed meanwhile; they reach
/// the effects as from any host. What comes out is later than the file by the latency of the chain.
class Playback {
public:
    struct Options {
        TimeRange range;
        bool loops = false;  // from the end of the range to its beginning without a gap
    };
    struct Status {
        double seconds = 0.0;         // played
        std::int64_t lateBlocks = 0;  // for which the file did not come in time; partly silent
        bool hasEnded = false;
    };

    /// The chain was made for the file's channels and for `rateHz`, to which the file is resampled.
    /// `reader` and `chain` outlive this. Throws Error (kUsage) when the range is behind the end. [host]
    Playback(AudioReader& reader, ChainProcessor& chain, int rateHz, const Options& options);
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /// Begins to read, and returns when the queue is filled. Throws Error (kInput). [host]
    void Start();
    /// The next frames into `out[c][0 .. frames)` for every channel of the chain; behind the end of the file
    /// comes what the effects still have to give, at most kMaximumAutoTailSeconds. False once everything
    /// has been played; `out` is silent then. [audio]
    bool Fill(float* const* out, int frames);

    /// Sets what "echo.decay-left 40%" says, also "echo#2.decay-left=40%" and "echo.preset Spooky".
    /// Returns the step's names and values in their usual form. Throws Error (kUsage). [host]
    ChainStep Set(const EffectCatalogue& catalogue,
                  const UserPresets& presets,
                  std::string_view command);

    Status GetStatus() const;  // [any]
    /// Throws what ended the reading before its time: Error (kInput). [host]
    void ThrowIfReadingFailed() const;

private:
    void ReadAhead();
    int TakeFromQueue(float* const* out, int frames);
    void FillPiece(float** out, int frames);
    void UpdateTail();

    RenderSource source_;
    ChainProcessor& chain_;
    std::size_t channels_;
    int rateHz_;
    bool loops_;
    boost::lockfree::spsc_queue<float> queue_;  // frame after frame
    AudioBlock readBlock_;
    std::vector<float> readFrames_;  // the same, frame after frame
    std::vector<float> takenFrames_;
    std::vector<float*> piece_;
    std::thread thread_;
    std::atomic<bool> stops_{false};
    std::atomic<bool> isAtEnd_{false};  // everything that there is, is in the queue
    std::exception_ptr failure_;        // written before isAtEnd_
    std::atomic<std::int64_t> framesPlayed_{0};
    std::atomic<std::int64_t> lateBlocks_{0};
    std::atomic<std::int64_t> tailFrames_{0};
    std::atomic<bool> hasEnded_{false};
    std::int64_t tailPlayed_ = 0;  // of the device's thread
};

}  // namespace zuc::host
