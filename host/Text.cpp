#include "host/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "host/Error.h"

namespace zuc::host {
namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsLower(char c) { return c >= 'a' && c <= 'z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
char Lower(char c) { return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }

/// Whether a new word begins at `i`: at a capital after a small letter or digit, at the last capital
/// of an abbreviation that a small letter follows ("EQGain"), and at a digit after a letter.
bool BeginsWord(std::string_view name, std::size_t i) {
    const char before = name[i - 1];
    if (IsDigit(name[i])) return IsUpper(before) || IsLower(before);
    if (!IsUpper(name[i])) return false;
    return IsLower(before) || IsDigit(before) ||
           (IsUpper(before) && i + 1 < name.size() && IsLower(name[i + 1]));
}

template <class Number>
std::string ShortestText(Number value) {
    std::array<char, 64> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

}  // namespace

std::string_view Trim(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string ToLower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

std::string Fold(std::string_view text) {
    std::string folded = ToLower(text);
    std::erase_if(folded, [](char c) { return IsBlank(c) || c == '-' || c == '_'; });
    return folded;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string Join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string text;
    for (const std::string& part : parts) {
        if (!text.empty()) text += separator;
        text += part;
    }
    return text;
}

std::string DidYouMean(std::string_view word, const std::vector<std::string>& candidates) {
    const std::string similar = FindSimilar(word, candidates);
    return similar.empty() ? "" : "did you mean '" + similar + "'?";
}

std::string EscapeMarkup(std::string_view text) {
    std::string escaped;
    for (const char c : text) switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
        }
    return escaped;
}

std::string ToSlug(std::string_view name) {
    std::string slug;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isWordCharacter = IsUpper(name[i]) || IsLower(name[i]) || IsDigit(name[i]);
        const bool separates = !isWordCharacter || (i > 0 && BeginsWord(name, i));
        if (separates && !slug.empty() && slug.back() != '-') slug += '-';
        if (isWordCharacter) slug += Lower(name[i]);
    }
    if (!slug.empty() && slug.back() == '-') slug.pop_back();
    return slug;
}

std::string ToText(float value) { return ShortestText(value); }
std::string ToText(double value) { return ShortestText(value); }

}  // namespace zuc::host
