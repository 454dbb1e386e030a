#pragma once

#include "kracore/Export.h"

namespace kracore::utility {

/// The curve of a level fader: position 0 is silence (-infinity dB), position 1 the maximum.
///
/// Above the knee the decibels are linear in the position; below it the gain falls to zero as a power
/// of the position so that value and slope join at the knee. Monotone, with an exact inverse.
template <class Float>
class ZUC_API FaderTranslator {
public:
    /// `maximumDb` is the level at position 1.
    explicit FaderTranslator(Float maximumDb = Float(15)) : maximumDb_(maximumDb) {}

    /// dB at `position`; clamped to [0, 1]; -infinity at 0. [any]
    Float GetDecibelValue(Float position) const;
    /// Position of `decibels`, clamped to [0, 1]. [any]
    Float GetNormalizedValue(Float decibels) const;

private:
    Float maximumDb_;
};

extern template class FaderTranslator<float>;
extern template class FaderTranslator<double>;

}  // namespace kracore::utility
