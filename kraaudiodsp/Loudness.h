#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace dsp {

/// Loudness of a programme in LUFS (ITU-R BS.1770-4, EBU R 128).
///
/// Each channel goes through the K-weighting - a shelf of 4 dB above 1.7 kHz and a high-pass at 38 Hz, both
/// for any rate from their analog prototypes - and
///
///     loudness = -0.691 + 10 log10(sum over channels of weight mean(y^2))
///
/// over the last 400 ms (momentary) or 3 s (short-term). Integrated is the mean over all blocks of 400 ms, one
/// every 100 ms, that are above -70 LUFS and not more than 10 LU below the mean of those. Blocks are counted
/// in steps of 0.01 LU with their exact power, so memory and time do not grow with the programme.
/// Coefficients for any rate: B. De Man, Evaluation of Implementations of the EBU R128 Loudness Measurement,
/// AES 145, 2018.
class Loudness {
public:
    /// One weight per channel: 1, 1.41 for surround channels, 0 for low-frequency effects. [host]
    void Prepare(double rateHz, std::span<const double> weights);
    void Reset();  // nothing heard yet [audio]
    /// `in[c]` for all channels, finite; any number of frames. [audio]
    void Process(const float* const* in, std::size_t frames);

    /// -infinity until enough was heard, or when all of it is silence. [audio]
    double GetMomentaryLufs() const { return GetLatestLufs(kMomentarySteps); }
    double GetShortTermLufs() const { return GetLatestLufs(kShortTermSteps); }
    double GetIntegratedLufs() const;

private:
    static constexpr std::size_t kMomentarySteps = 4;  // of 100 ms
    static constexpr std::size_t kShortTermSteps = 30;
    static constexpr std::size_t kBinsPerLu = 100;
    static constexpr double kLowestLufs = -70.0;
    static constexpr std::size_t kBins = 100 * kBinsPerLu;  // up to 30 LUFS

    /// Coefficients of one filter, a0 = 1.
    struct Filter {
        double b0, b1, b2, a1, a2;
    };
    /// Two channels side by side.
    struct Pair {
        std::array<std::array<double, 2>, 4> state{};  // of both filters
        std::array<double, 2> sum{};                   // of squares in this step
    };
    struct Bin {
        double power = 0.0;
        double count = 0.0;
    };
    void FilterPair(Pair& pair, const float* first, const float* second, std::size_t frames) const;
    void FinishStep();
    double GetLatestLufs(std::size_t steps) const;
    double GetLatestPower(std::size_t steps) const;

    Filter shelf_{};
    Filter highPass_{};
    std::vector<double> weights_;
    std::vector<Pair> pairs_;
    std::size_t stepFrames_ = 1;
    std::size_t framesLeft_ = 1;                    // of this step
    std::array<double, kShortTermSteps> powers_{};  // of the last steps
    std::size_t stepCount_ = 0;
    std::vector<Bin> bins_;
};

}  // namespace dsp
