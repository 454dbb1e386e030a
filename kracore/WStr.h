#pragma once

#include <string>
#include <string_view>

#include "kracore/Export.h"
#include "kracore/SmallBlockAllocator.h"

namespace kracore {

/// The string of the host contract: UTF-16 code units in small pooled blocks. u"" literals convert.
using WStr = std::basic_string<char16_t,
                               std::char_traits<char16_t>,
                               utility::SmallBlockAllocator::STLAllocator<char16_t>>;

namespace utility {

/// UTF-8 to UTF-16. Each byte that is part of no valid sequence becomes U+FFFD; never throws for
/// bad input. [any, may block]
ZUC_API WStr FromUtf8(std::string_view text);
/// UTF-16 to UTF-8. Unpaired surrogates become U+FFFD. [any, may block]
ZUC_API std::string ToUtf8(std::u16string_view text);

}  // namespace utility
}  // namespace kracore
