#include "kracore/FaderTranslator.h"

#include <cmath>
#include <limits>

namespace kracore::utility {
namespace {

constexpr double kDbPerPosition = 75.0;  // above the knee: 15 dB in the top fifth of the way
constexpr double kKneePosition = 0.4;
constexpr double kKneeBelowMaximumDb = kDbPerPosition * (1.0 - kKneePosition);
// Below the knee, per factor of e in the position: the slope at the knee is the one above it.
constexpr double kDbPerFactor = kDbPerPosition * kKneePosition;

}  // namespace

template <class Float>
Float FaderTranslator<Float>::GetDecibelValue(Float position) const {
    const double maximumDb = maximumDb_;
    if (!(position > 0)) return -std::numeric_limits<Float>::infinity();
    if (position >= 1) return maximumDb_;
    const double way = position;
    return static_cast<Float>(way >= kKneePosition
                                  ? maximumDb - kDbPerPosition * (1.0 - way)
                                  : maximumDb - kKneeBelowMaximumDb +
                                        kDbPerFactor * std::log(way / kKneePosition));
}

template <class Float>
Float FaderTranslator<Float>::GetNormalizedValue(Float decibels) const {
    if (std::isnan(decibels)) return 0;
    if (decibels >= maximumDb_) return 1;
    const double belowMaximumDb = static_cast<double>(maximumDb_) - decibels;
    return static_cast<Float>(
        belowMaximumDb <= kKneeBelowMaximumDb
            ? 1.0 - belowMaximumDb / kDbPerPosition
            : kKneePosition * std::exp((kKneeBelowMaximumDb - belowMaximumDb) / kDbPerFactor));
}

template class FaderTranslator<float>;
template class FaderTranslator<double>;

}  // namespace kracore::utility
