#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "Components/MusicRetargetResults.h"
#include "Components/private/OfflineJob.h"

namespace zuc::components {

/// Plays the ranges of a remix from a run's reader into its writer, in blocks of 8192 frames with two buffers
/// whatever their length. All operations are [worker].
class MusicRetargetRenderer {
public:
    MusicRetargetRenderer(OfflineJob::Run& run, int rateHz);

    /// `progress` is told the share of ranges that are done. False when the run was cancelled, a read
    /// failed, or the writer took nothing 100 times in a row.
    bool Play(const MusicRetargetResults& results, const std::function<void(double)>& progress);

private:
    /// A join in frames: both sides are read from the fade's first frame on.
    struct Fade {
        std::int64_t from;  // the range that follows
        std::int64_t previous;
        std::int64_t frames;
    };
    bool PlayFade(Fade fade);
    bool Copy(std::int64_t position, std::int64_t frames);
    bool Read(std::vector<float*>& block, std::int64_t position, std::int64_t frames);

    OfflineJob::Run& run_;
    int rateHz_;
    long channels_;
    double fadeBend_;
    std::vector<float> samples_;
    std::vector<float*> incoming_;
    std::vector<float*> previous_;
};

}  // namespace zuc::components
