#pragma once

#include <array>
#include <cstddef>

namespace dsp {

/// The colour of noise as the slope of its power density over frequency, in dB per octave.
enum class NoiseColor {
    kWhite,   // 0
    kPink,    // -3.01
    kBrown,   // -6.02
    kBlue,    // +3.01
    kViolet,  // +6.02
    kGrey,    // the inverse of A-weighting (IEC 61672-1), level below 15 Hz
    kCustom   // as given
};

/// The filter that turns white noise into coloured noise of the same power.
///
/// A ladder of first-order sections, their centres two an octave from 2.5 Hz up, puts a pole and a zero
/// symmetrically about each centre; their distance is the slope there (J. O. Smith III and H. F. Smith,
/// "Closed form fractional integration and differentiation via real exponentially spaced pole-zero pairs",
/// 2016). The distances are refined until the slope at every centre, seen through the bilinear transform, is
/// the one asked for, so that it holds up to 0.45 of the sample rate. It runs as a sum of one-pole filters:
///
///     H(z) = 1 + sum over i of residue[i] / (z - pole[i])
///
/// The band is limited by Linkwitz-Riley filters of order 8 (-6 dB at the limits).
class NoiseColoring {
public:
    static constexpr std::size_t kMaxSections = 48;
    static constexpr std::size_t kMaxBiquads = 8;

    struct Biquad {
        double b0, b1, b2, a1, a2;  // a0 is 1
    };
    struct Spec {
        NoiseColor color = NoiseColor::kPink;
        double slopeDbPerOctave = 0.0;  // of kCustom
        double lowHz = 0.0;             // 0: no lower limit
        double highHz = 1e9;            // 0.49 of the rate and more: no upper limit
        bool operator==(const Spec&) const = default;
    };

    /// Limits in the wrong order are swapped. Never allocates. [audio]
    void Design(const Spec& spec, double rateHz);

    /// |H| at a frequency, the gain to unit power included. [any]
    double GetMagnitude(double frequencyHz) const;
    /// Brings noise of unit power back to unit power. [any]
    double GetGain() const { return gain_; }

    std::size_t GetSectionCount() const { return sectionCount_; }  // a multiple of kLanes
    std::size_t GetBiquadCount() const { return biquadCount_; }
    const std::array<double, kMaxSections>& GetPoles() const { return poles_; }
    const std::array<double, kMaxSections>& GetResidues() const { return residues_; }
    const std::array<Biquad, kMaxBiquads>& GetBiquads() const { return biquads_; }

    /// Sections run in groups of this many.
    static constexpr std::size_t kLanes = 8;

private:
    void PlaceLadder(const Spec& spec);
    void FindResidues();
    void AddLimit(double frequencyHz, bool isHighPass);
    double GetPower(double warped) const;
    double IntegratePower() const;

    double rateHz_ = 48000.0;
    double gain_ = 1.0;
    std::size_t centreCount_ = 0;
    std::size_t sectionCount_ = 0;
    std::size_t biquadCount_ = 0;
    double warpedLow_ = 0.0;   // of the limits; 0 when there is none
    double warpedHigh_ = 0.0;  // 0 when there is none
    std::array<double, kMaxSections> warpedPoles_{};
    std::array<double, kMaxSections> warpedZeros_{};
    std::array<double, kMaxSections> poles_{};
    std::array<double, kMaxSections> residues_{};
    std::array<Biquad, kMaxBiquads> biquads_{};
};

}  // namespace dsp
