#pragma once

#include "kracore/Export.h"

namespace kracore::utility {

/// The curve of a level fader: position 0 is silence (-infinity dB), position 1 the maximum m in dB,
/// and the gain between a power of the position:
///
///     gain = 10^(m / 20) position^k      k = max(3, m / (20 log10(1 / 0.8)))
///
/// so that 0 dB is at position 0.8 for maxima from 5.8 dB, and a little above for lower ones; with 6 dB
/// this is the audio taper of a mixing desk, where straight moves of the fader sound even. Strictly
/// monotone, with an exact inverse, but for the rounding of Float.
template <class Float>
class ZUC_API FaderTranslator {
public:
    /// `maximumDb` is the level at position 1; finite.
    explicit FaderTranslator(Float maximumDb = Float(6));

    /// dB at `position`; clamped to [0, 1]; -infinity at 0 and for not-a-number. [any]
    Float GetDecibelValue(Float position) const;
    /// Position of `decibels`, clamped to [0, 1]; 0 for not-a-number. [any]
    Float GetNormalizedValue(Float decibels) const;
    /// The power k. [any]
    double GetExponent() const { return exponent_; }

private:
    Float maximumDb_;
    double exponent_;
};

extern template class FaderTranslator<float>;
extern template class FaderTranslator<double>;

}  // namespace kracore::utility
