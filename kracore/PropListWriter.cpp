#include "kracore/PropList.h"

#include <array>
#include <bit>
#include <charconv>
#include <cmath>

#include <nlohmann/json.hpp>

#include "kracore/Base64.h"
#include "kracore/PropListTags.h"

namespace kracore::proplist {
namespace {

template <class Number>
std::string NumberText(Number value, auto... format) {
    std::array<char, 40> text;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    return {text.data(),
            std::to_chars(text.data(), text.data() + text.size(), value, format...).ptr};
}

/// The shortest decimal number that reads back equal, marked as no whole number.
template <class Float>
std::string FiniteText(Float value) {
    std::string text = NumberText(value);
    if (text.find_first_of(".e") == text.npos) text += ".0";
    return text;
}

template <class Float>
std::string BitsText(Float value) {
    std::string digits = NumberText(std::bit_cast<BitsOf<Float>>(value), 16);
    digits.insert(0, 2 * sizeof(Float) - digits.size(), '0');
    return '"' + digits + '"';
}

std::string FloatText(float value) {
    return std::isfinite(value) ? FiniteText(value) : BitsText(value);
}

/// The elements of `range` as texts, with commas between.
std::string Joined(const auto& range, const auto& toText) {
    std::string text;
    for (const auto& element : range) {
        if (!text.empty()) text += ',';
        text += toText(element);
    }
    return text;
}

std::string Quoted(std::string_view text) { return nlohmann::json(text).dump(); }

std::string Tagged(Tag tag, std::string_view json) {
    std::string text = "{\"";
    return text.append(Row(tag).key).append("\":").append(json).append("}");
}

/// The JSON text of one value, by its type.
struct Writer {
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(std::int64_t value) const { return NumberText(value); }
    std::string operator()(float value) const { return Tagged(Tag::kFloat, FloatText(value)); }
    std::string operator()(double value) const {
        return std::isfinite(value) ? FiniteText(value) : Tagged(Tag::kDouble, BitsText(value));
    }
    std::string operator()(const Ratio64& value) const {
        return Tagged(Tag::kRatio, '"' + NumberText(value.numerator) + '/' +
                                       NumberText(value.denominator) + '"');
    }
    std::string operator()(const WStr& value) const {
        std::string text = utility::ToUtf8(value);
        if (utility::FromUtf8(text) == value) return Quoted(text);
        return Tagged(Tag::kUtf16, '[' + Joined(value, [](char16_t unit) {
                                       return NumberText(std::uint16_t{unit});
                                   }) + ']');
    }
    std::string operator()(const Bytes& value) const {
        return Tagged(Tag::kBytes, '"' + utility::ToBase64(value) + '"');
    }
    std::string operator()(const std::vector<float>& value) const {
        return Tagged(Tag::kFloats, '[' + Joined(value, FloatText) + ']');
    }
    std::string operator()(const std::unique_ptr<PropList>& value) const {
        return value ? ToJson(*value) : "{}";
    }
};

}  // namespace

std::string ToJson(const PropList& list) {
    return '{' +
           Joined(list.GetEntries(),
                  [](const PropList::Entry& entry) {
                      const auto& [key, value] = entry;
                      return Quoted(key.starts_with('$') ? '$' + key : key) + ':' +
                             std::visit(Writer{}, value.Get());
                  }) +
           '}';
}

}  // namespace kracore::proplist
