#include "kracore/Base64.h"

#include <algorithm>
#include <cstddef>

namespace kracore::utility {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string ToBase64(std::span<const std::uint8_t> bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        std::uint32_t group = 0;  // 24 bits, filled up with zeros
        for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (i < count ? bytes[at + i] : 0u);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= count ? kDigits[group >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> FromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(padding);
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3 + 2);
    std::uint32_t pending = 0;
    int pendingBits = 0;
    for (const char character : text) {
        const std::size_t digit = kDigits.find(character);
        if (digit == kDigits.npos) return std::nullopt;
        pending = pending << 6 | static_cast<std::uint32_t>(digit);
        pendingBits += 6;
        if (pendingBits < 8) continue;
        pendingBits -= 8;
        bytes.push_back(static_cast<std::uint8_t>(pending >> pendingBits));
        pending &= (1u << pendingBits) - 1;
    }
    if (pending != 0) return std::nullopt;
    return bytes;
}

}  // namespace kracore::utility
