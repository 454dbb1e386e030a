#pragma once

#include <cstdint>

#include <boost/rational.hpp>

// With C++20 the operators of Boost 1.74 that compare a ratio with a whole number call each other
// without end. These fit better and are taken instead; include this header, never Boost's own.
namespace boost {

inline bool operator==(const rational<std::int64_t>& ratio, std::int64_t whole) {
    return ratio.denominator() == 1 && ratio.numerator() == whole;
}
inline bool operator==(const rational<std::int64_t>& ratio, int whole) {
    return ratio == std::int64_t{whole};
}

}  // namespace boost

namespace kracore::utility {

/// An exact ratio, always in lowest terms with a denominator above 0.
using Ratio = boost::rational<std::int64_t>;

/// `ratio` x `factor`, truncated toward zero; exact as long as factor x denominator fits 64 bits. [any]
inline std::int64_t MultiplyAndTruncate(const Ratio& ratio, std::int64_t factor) {
    const std::int64_t whole = ratio.numerator() / ratio.denominator();
    const std::int64_t rest = ratio.numerator() % ratio.denominator();
    return whole * factor + rest * factor / ratio.denominator();
}

}  // namespace kracore::utility
