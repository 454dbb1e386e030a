#pragma once

#include <cstdint>
#include <vector>

#include "Components/Song.h"
#include "Components/private/OfflineJob.h"
#include "kraaudiodsp/Resample.h"

namespace zuc::components {

/// Analysis input read from an offline run's reader: mixed to mono and brought to the analysis rate. Frames
/// that the reader fails to give are missing; `HasFailed` tells.
class MusicRetargetAudioFramesGetter final : public IAudioFramesGetter {
public:
    /// `run` must outlive this object. [worker]
    MusicRetargetAudioFramesGetter(OfflineJob::Run& run,
                                   int rateHz,
                                   int analysisRateHz,
                                   std::int64_t sourceFrames);

    /// The same frames whatever ranges they are asked in: what lies around a range is read too, as far as
    /// the converter looks. [worker]
    std::vector<double> GetFrames(std::int64_t first, std::int64_t last) override;
    int GetSampleRate() const override { return analysisRateHz_; }
    std::int64_t GetFrameCount() const override;
    bool HasFailed() const { return hasFailed_; }

private:
    bool ReadMixed(std::int64_t position, long frames);

    OfflineJob::Run& run_;
    int analysisRateHz_;
    double ratio_;  // host rate / analysis rate
    std::int64_t sourceFrames_;
    long channels_;
    dsp::Resample resample_;
    std::vector<float> block_;
    std::vector<float*> blockAt_;
    std::vector<float> mixed_;
    bool hasFailed_ = false;
};

}  // namespace zuc::components
