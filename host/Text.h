#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zuc::host {

/// `text` without blanks at both ends. [any]
std::string_view Trim(std::string_view text);
/// ASCII letters in lower case, everything else as it is. [any]
std::string ToLower(std::string_view text);
/// Lower case without blanks, '-' and '_': "Graphic Equalizer-10" is "graphicequalizer10". [any]
std::string Fold(std::string_view text);
bool EqualsIgnoringCase(std::string_view a, std::string_view b);
/// The parts with `separator` between them. [any]
std::string Join(const std::vector<std::string>& parts, std::string_view separator = ", ");
/// "did you mean 'x'?" for the candidate most like `word`; empty when none is close. [any]
std::string DidYouMean(std::string_view word, const std::vector<std::string>& candidates);
/// The same text within XML or HTML, also as the value of an attribute. [any]
std::string EscapeMarkup(std::string_view text);
/// Kebab case of a name in camel case: "GraphicEqualizer10" is "graphic-equalizer-10". [any]
std::string ToSlug(std::string_view name);

/// The shortest text that reads back as the same number, the same in every locale. [any]
std::string ToText(float value);
std::string ToText(double value);

}  // namespace zuc::host
