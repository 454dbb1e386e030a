#include "kracore/FaderTranslator.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kracore::utility {
namespace {

constexpr double kLowestExponent = 3.0;
constexpr double kUnityDbPerExponent = 1.9382002601611283;  // 20 log10(1 / 0.8)

}  // namespace

template <class Float>
FaderTranslator<Float>::FaderTranslator(Float maximumDb)
    : maximumDb_(maximumDb),
      exponent_(std::max(kLowestExponent, static_cast<double>(maximumDb) / kUnityDbPerExponent)) {}

template <class Float>
Float FaderTranslator<Float>::GetDecibelValue(Float position) const {
    if (!(position > 0)) return -std::numeric_limits<Float>::infinity();
    if (position >= 1) return maximumDb_;
    return static_cast<Float>(static_cast<double>(maximumDb_) +
                              20.0 * exponent_ * std::log10(static_cast<double>(position)));
}

template <class Float>
Float FaderTranslator<Float>::GetNormalizedValue(Float decibels) const {
    if (std::isnan(decibels)) return 0;
    if (decibels >= maximumDb_) return 1;
    return static_cast<Float>(std::pow(
        10.0,
        (static_cast<double>(decibels) - static_cast<double>(maximumDb_)) / (20.0 * exponent_)));
}

template class FaderTranslator<float>;
template class FaderTranslator<double>;

}  // namespace kracore::utility
