#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kracore/Export.h"

namespace kracore::utility {

/// The base64 text of RFC 4648, section 4, with its padding. [any, may block]
ZUC_API std::string ToBase64(std::span<const std::uint8_t> bytes);
/// The reverse; nothing for any other text, also one whose unused bits are not zero. [any, may block]
std::optional<std::vector<std::uint8_t>> FromBase64(std::string_view text);

}  // namespace kracore::utility
