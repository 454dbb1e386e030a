#pragma once

#include <string>
#include <string_view>

namespace zuc::lv2 {

inline constexpr std::string_view kProjectUri = "urn:zuc:project";
inline constexpr std::string_view kMaintainerUri = "urn:zuc:maintainer";
inline constexpr std::string_view kLicenseUri = "https://spdx.org/licenses/MIT.html";

/// The prefixes that the texts use.
std::string GetPrefixes();
/// A text as a Turtle string.
std::string Quote(std::string_view text);
/// The shortest decimal that reads back as the same float.
std::string Number(float value);

}  // namespace zuc::lv2
