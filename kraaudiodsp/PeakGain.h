#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace dsp {

/// From the attenuation that each sample needs to one that moves smoothly and is there in time.
///
///     held[n]     = max(needed[n - L] .. needed[n]),  L = look-ahead
///     released[n] = max(held[n], fast[n], slow[n])
///     out[n]      = released, averaged over two boxes in a row, together L + 2 frames long
///
/// All in dB of attenuation, at least 0. Every average only holds values that are no smaller than what sample
/// n - L needs, so out[n] is enough for that sample. The fast branch falls back to `held` with the
/// release time as time constant; the slow one takes eight times as long and is charged only while more
/// than 1 dB has been held for 50 ms, so that single peaks recover fast and sustained ones do not pump. The
/// sums are integers and thus exact: where nothing is needed the attenuation is exactly 0.
/// Sources: D. Lemire, Streaming Maximum-Minimum Filter, Nordic Journal of Computing 13-4, 2006;
/// P. Hamalainen, Smoothing of the Control Signal Without Clipped Output in Digital Peak Limiters, DAFx-02;
/// D. Giannoulis, M. Massberg and J. Reiss, Digital Dynamic Range Compressor Design, JAES 60-6, 2012.
class PeakGain {
public:
    /// Room for look-aheads of up to `maxLookAheadFrames`. [host]
    void Prepare(int maxLookAheadFrames, double rateHz);
    /// No attenuation, and a look-ahead of at least 2 frames from now on. [audio]
    void Reset(int lookAheadFrames);
    /// `releaseFrames` until 1/e of the attenuation is left; `isAuto` adds the slow branch. [audio]
    void SetRelease(double releaseFrames, bool isAuto);
    /// Takes what the next samples need and gives, in its place, what to lower by. Returns whether any of it
    /// is above 0. [audio]
    bool Process(float* attenuationDb, std::size_t frames);

private:
    struct Held {
        std::int64_t frame;
        float attenuationDb;
    };
    float SlideMaximum(float needed);
    float Release(float held);
    bool IsAtRest() const;

    int lookAheadFrames_ = 2;
    std::int64_t frame_ = 0;   // frames processed
    std::vector<Held> queue_;  // ring of falling maxima above 0, oldest first
    std::size_t queueBegin_ = 0;
    std::size_t queueCount_ = 0;

    bool isAuto_ = true;
    float fastKeep_ = 0.0f;  // of the distance to `held`, per frame
    float slowKeep_ = 0.0f;
    float slowCharge_ = 0.0f;  // share of the distance to the fast branch, per frame
    int chargeFrames_ = 1;     // until the slow branch is charged
    int chargedFrames_ = 0;    // with much held, less those without; within twice that
    float fastDb_ = 0.0f;
    float slowDb_ = 0.0f;

    std::vector<std::int64_t> first_;   // last released values, one box long
    std::vector<std::int64_t> second_;  // last sums of the first box, one box long
    std::size_t firstCount_ = 2;
    std::size_t secondCount_ = 2;
    std::size_t firstIndex_ = 0;
    std::size_t secondIndex_ = 0;
    std::int64_t firstSum_ = 0;
    std::int64_t secondSum_ = 0;
    double toDb_ = 0.0;  // of the second sum
};

}  // namespace dsp
