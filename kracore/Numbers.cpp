#include "kracore/Numbers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string>

namespace kracore::utility {
namespace {

// 2^-1074, the smallest double, has that many digits behind the point; no double has more.
constexpr std::size_t kExactDecimals = 1074;
constexpr std::size_t kLongestText = 1 + 309 + 1 + kExactDecimals + 8;
constexpr std::string_view kBlanks = " \t\n\v\f\r";

/// Every digit of `value` >= 0: "0.1000000000000000055…" or "1.000…e-01".
std::string ExactText(double value, std::chars_format format) {
    std::array<char, kLongestText> text;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value, format,
                                            static_cast<int>(kExactDecimals));
    return {text.data(), end};
}

/// Rounds digits with a point half away from zero to `most` digits behind it, then drops or adds
/// zeros to leave at least `least`. The point goes with the last digit behind it. A carry may add a
/// digit in front.
std::string RoundDigits(std::string digits, std::size_t least, std::size_t most) {
    const std::size_t cut =
        std::min(digits.find('.') + 1 + std::min(most, kExactDecimals), digits.size());
    bool carry = cut < digits.size() && digits[cut] >= '5';
    digits.resize(cut);
    for (auto digit = digits.rbegin(); carry && digit != digits.rend(); ++digit) {
        if (*digit == '.') continue;
        carry = *digit == '9';
        *digit = carry ? '0' : static_cast<char>(*digit + 1);
    }
    if (carry) digits.insert(0, 1, '1');
    const std::size_t shortest = digits.find('.') + 1 + least;
    while (digits.size() > shortest && digits.back() == '0') digits.pop_back();
    digits.resize(std::max(digits.size(), shortest), '0');
    if (digits.back() == '.') digits.pop_back();
    return digits;
}

std::string FixedText(double value, std::size_t least, std::size_t most) {
    return RoundDigits(ExactText(value, std::chars_format::fixed), least, most);
}

/// With as many of the digits as `length` characters hold, but at least one.
std::string ScientificText(double value, std::size_t least, std::size_t most, std::size_t length) {
    const std::string exact = ExactText(value, std::chars_format::scientific);
    const std::size_t split = exact.find('e');
    const char* const exponentText = exact.data() + split + (exact[split + 1] == '+' ? 2 : 1);
    int exponent = 0;
    std::from_chars(exponentText, exact.data() + exact.size(), exponent);
    // Beside the decimals stand one digit, the point and "e+08" or "e+308".
    const std::size_t beside = 2 + exact.size() - split;
    const std::size_t room = length > beside ? length - beside : 0;
    std::string text =
        RoundDigits(exact.substr(0, split), std::min(least, room), std::min(most, room));
    if (text.starts_with("10")) {  // 9.99 rounded up
        text.erase(1, 1);
        ++exponent;
    }
    const std::string exponentDigits = std::to_string(std::abs(exponent));
    text += exponent < 0 ? "e-" : "e+";
    if (exponentDigits.size() < 2) text += '0';
    return text + exponentDigits;
}

/// Whether a decimal number beyond the range of double is too small rather than too large.
bool IsTiny(std::string_view text) {
    const std::size_t split = std::min(text.find_first_of("eE"), text.size());
    const std::string_view mantissa = text.substr(0, split);
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t firstDigit = mantissa.find_first_of("123456789");
    if (split == text.size()) return firstDigit > point;
    std::string_view exponentText = text.substr(split + 1);
    if (exponentText.starts_with('+')) exponentText.remove_prefix(1);
    long long exponent = 0;
    const auto [end, error] =
        std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);
    // Beyond long long the exponent outweighs any mantissa that fits into memory.
    if (error != std::errc{}) return exponentText.starts_with('-');
    return exponent + static_cast<long long>(point) - static_cast<long long>(firstDigit) < 0;
}

}  // namespace

WStr NumberToString(double value,
                    std::size_t minimumDecimals,
                    std::size_t maximumDecimals,
                    Flags<unsigned long> /*flags*/,
                    std::size_t maximumLength) {
    if (std::isnan(value)) return u"nan";
    if (std::isinf(value)) return value < 0 ? u"-inf" : u"inf";
    const std::size_t most = std::max(minimumDecimals, maximumDecimals);
    const double size = std::abs(value);
    std::string text;
    // A text of more decimals than characters is not even tried: the count may be absurd.
    if (minimumDecimals < maximumLength) text = FixedText(size, minimumDecimals, most);
    const bool isZero = !text.empty() && text.find_first_not_of("0.") == text.npos;
    const std::size_t signLength = value < 0 && !isZero ? 1 : 0;
    if (text.empty() || text.size() + signLength > maximumLength) {
        const std::size_t length = maximumLength - std::min(signLength, maximumLength);
        text = ScientificText(size, minimumDecimals, most, length);
    }
    if (signLength > 0) text.insert(0, 1, '-');
    return {text.begin(), text.end()};
}

std::optional<double> StringToNumber(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    // The parser takes a minus but no plus; "+-1" stays refused.
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    double value = 0.0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (rest != end || error == std::errc::invalid_argument) return std::nullopt;
    if (error == std::errc::result_out_of_range) {
        if (!IsTiny(text)) return std::nullopt;
        return text.starts_with('-') ? -0.0 : 0.0;
    }
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

std::optional<double> StringToNumber(std::u16string_view text) {
    std::string narrow(text.size(), '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] > 0x7F) return std::nullopt;
        narrow[i] = static_cast<char>(text[i]);
    }
    return StringToNumber(std::string_view(narrow));
}

}  // namespace kracore::utility
