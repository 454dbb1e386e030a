#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kracore::proplist {

class PropList;

/// A ratio as it was written: not reduced, so that it reads back bit for bit.
struct Ratio64 {
    std::int64_t numerator = 0;
    std::int64_t denominator = 1;
    bool operator==(const Ratio64&) const = default;
};

using Bytes = std::vector<std::uint8_t>;

/// One value. Children are lists of their own, held by value.
class ZUC_API Value {
public:
    using Variant = std::variant<bool,
                                 std::int64_t,
                                 float,
                                 double,
                                 Ratio64,
                                 WStr,
                                 Bytes,
                                 std::vector<float>,
                                 std::unique_ptr<PropList>>;

    // clang-format off
    template <class T>
        requires(!std::is_same_v<std::remove_cvref_t<T>, Value> &&
                 !std::is_same_v<std::remove_cvref_t<T>, PropList> &&
                 std::is_constructible_v<Variant, T>)
    // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
    Value(T&& value) : variant_(std::forward<T>(value)) {}
    // clang-format on
    Value(PropList list);  // NOLINT(google-explicit-constructor)
    Value(const Value& other);
    Value(Value&&) noexcept = default;
    Value& operator=(const Value& other);
    // NOLINTNEXTLINE(bugprone-exception-escape): every alternative moves without one
    Value& operator=(Value&&) noexcept = default;
    ~Value();

    const Variant& Get() const { return variant_; }

    /// Same type and same bits: not-a-number equals itself, -0.0 and 0.0 differ.
    bool operator==(const Value& other) const;

private:
    Variant variant_;
};

/// Named, typed values in the order in which they were first set; a key stands at most once. Used
/// for settings, presets and saved results. Value semantics; not thread-safe. [host]
class ZUC_API PropList {
public:
    using Entry = std::pair<std::string, Value>;  // key in UTF-8

    bool IsEmpty() const { return entries_.empty(); }
    std::size_t GetCount() const { return entries_.size(); }
    const std::vector<Entry>& GetEntries() const { return entries_; }

    bool Has(std::string_view key) const { return Find(key) != nullptr; }
    const Value* Find(std::string_view key) const;
    /// The value under `key` when it has exactly the type T, else null.
    template <class T>
    const T* Find(std::string_view key) const {
        const Value* value = Find(key);
        return value ? std::get_if<T>(&value->Get()) : nullptr;
    }
    /// The child list under `key`, else null.
    const PropList* FindList(std::string_view key) const;

    /// Sets or replaces; a replaced value keeps its place in the order. Throws std::invalid_argument
    /// for a key that is not UTF-8.
    void Set(std::string_view key, Value value);
    void Remove(std::string_view key);
    void Clear() { entries_.clear(); }

    bool operator==(const PropList&) const = default;

private:
    friend class Reader;  // appends without searching: it knows the keys it has read

    std::vector<Entry> entries_;
};

namespace utils {

/// Writes and reads a ratio of 64-bit integers under `key`. Reading leaves the target as it is and
/// returns false when there is none. [host]
ZUC_API void WriteRatio64(PropList& list, std::string_view key, Ratio64 ratio);
ZUC_API bool ReadRatio64(const PropList& list, std::string_view key, Ratio64& ratio);

}  // namespace utils

/// What a reader accepts; texts beyond it are refused whole.
struct ReadLimits {
    std::size_t bytes = 64u << 20;    // of the text
    std::size_t depth = 64;           // lists within lists, the outermost included
    std::size_t entries = 1'000'000;  // values in all lists together, array elements included
};

/// Thrown for a text that is no property list; says where and what was expected.
class ZUC_API ParseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ~ParseError() override;
};

/// JSON text that reads back equal, bit for bit and in the same order. [host]
///
/// Booleans, whole numbers, doubles, texts and child lists are plain JSON; a double shows a point or
/// an exponent. The other types, and what plain JSON cannot carry, are objects with one key:
///
///     {"$float": 0.1}        a float; eight hexadecimal digits of its bits when it is not finite
///     {"$double": "7ff0…"}   a double that is not finite: sixteen hexadecimal digits of its bits
///     {"$ratio": "1/44100"}  numerator and denominator as they are
///     {"$bytes": "AAEC"}     base64
///     {"$floats": [0, 0.1]}  elements as of $float
///     {"$utf16": [55296]}    code units of a text with unpaired surrogates
///
/// A key that begins with "$" is written with one more.
ZUC_API std::string ToJson(const PropList& list);
/// The reverse. Throws ParseError for anything else (null, an array elsewhere, a whole number beyond
/// 64 bits), a repeated key, or a text beyond the limits, which hold while reading. [host]
ZUC_API PropList FromJson(std::string_view json, const ReadLimits& limits = {});

}  // namespace kracore::proplist
