#pragma once

#include "kracore/Export.h"

namespace kracore::utility {

/// The curve of a level fader: position 0 is silence (-infinity dB), position 1 the maximum.
///
/// Above the knee at 0.4 the decibels are linear in the position, 75 dB over the whole way; below it
/// the gain falls to zero as a power of the position so that value and slope join at the knee. With
/// the maximum m in dB:
///
///     p >= 0.4: m - 75 (1 - p)          p < 0.4: m - 45 + 30 ln(p / 0.4)
///
/// Strictly monotone, with an exact inverse, but for the rounding of Float. With the default maximum
/// 0 dB is at position 0.8.
template <class Float>
class ZUC_API FaderTranslator {
public:
    /// `maximumDb` is the level at position 1; finite.
    explicit FaderTranslator(Float maximumDb = Float(15)) : maximumDb_(maximumDb) {}

    /// dB at `position`; clamped to [0, 1]; -infinity at 0 and for not-a-number. [any]
    Float GetDecibelValue(Float position) const;
    /// Position of `decibels`, clamped to [0, 1]; 0 for not-a-number. [any]
    Float GetNormalizedValue(Float decibels) const;

private:
    Float maximumDb_;
};

extern template class FaderTranslator<float>;
extern template class FaderTranslator<double>;

}  // namespace kracore::utility
