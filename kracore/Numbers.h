#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "kracore/Export.h"
#include "kracore/Flags.h"
#include "kracore/WStr.h"

namespace kracore::utility {

/// Decimal text of `value`, the same in every locale. [any, may block]
///
/// Shows at least `minimumDecimals` and at most `maximumDecimals` digits behind the point; the
/// minimum wins when it is larger. Rounds half away from zero on the exact binary value, drops
/// trailing zeros down to the minimum, and never writes "-0". Not-a-number gives "nan", infinities
/// "inf" and "-inf". A text longer than `maximumLength` characters is given in scientific form
/// instead ("1.5e+300"), its digits behind the point by the same rules but no more than fit; one
/// digit and the exponent always stand. No flags are defined yet.
ZUC_API WStr NumberToString(double value,
                            std::size_t minimumDecimals,
                            std::size_t maximumDecimals,
                            Flags<unsigned long> flags = {},
                            std::size_t maximumLength = 31);

/// Reads a decimal number ("-12.5", "+3", "1e3", surrounded by blanks) in every locale alike.
/// Rounds to the nearest double, so that a number too small for one gives zero. Nothing when the text
/// holds anything else, hexadecimal, or a value that is not finite. [any, may block]
ZUC_API std::optional<double> StringToNumber(std::u16string_view text);
ZUC_API std::optional<double> StringToNumber(std::string_view text);

}  // namespace kracore::utility
