#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace kracore::proplist {

/// The types that the JSON text of a property list marks with an object of one key.
enum class Tag { kNone, kFloat, kDouble, kRatio, kBytes, kFloats, kUtf16 };

struct TagRow {
    Tag tag;
    std::string_view key;
    std::string_view expected;  // what stands behind the key, for messages
};
// clang-format off
inline constexpr std::array<TagRow, 7> kTags{{
    {Tag::kNone,   "",        ""},
    {Tag::kFloat,  "$float",  "a number in the range of a float, or 8 hexadecimal digits"},
    {Tag::kDouble, "$double", "16 hexadecimal digits"},
    {Tag::kRatio,  "$ratio",  "\"numerator/denominator\", two whole numbers of 64 bits"},
    {Tag::kBytes,  "$bytes",  "base64"},
    {Tag::kFloats, "$floats", "an array of numbers in the range of a float, or 8 hexadecimal digits each"},
    {Tag::kUtf16,  "$utf16",  "an array of whole numbers from 0 to 65535"},
}};
// clang-format on

constexpr const TagRow& Row(Tag tag) { return kTags[static_cast<std::size_t>(tag)]; }

template <class Float>
using BitsOf = std::conditional_t<sizeof(Float) == 4, std::uint32_t, std::uint64_t>;

}  // namespace kracore::proplist
