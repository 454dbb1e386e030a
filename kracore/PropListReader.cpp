#include "kracore/PropList.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <set>

#include <nlohmann/json.hpp>

#include "kracore/Base64.h"
#include "kracore/Numbers.h"
#include "kracore/PropListTags.h"

namespace kracore::proplist {
namespace {

/// Hands the parser the text and counts what it took, so that a fault can be placed.
class CountingIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, const char*& reached) : at_(at), reached_(&reached) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        *reached_ = ++at_;
        return *this;
    }
    CountingIterator operator++(int) { return {at_++, *reached_}; }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }

private:
    const char* at_;
    const char** reached_;
};

/// A number as it stood, for a float must not be rounded twice.
struct Decimal {
    double value;
    std::string_view text;
};
using Scalar = std::variant<bool, std::int64_t, Decimal, std::string_view>;

template <class Number>
std::optional<Number> ReadWhole(std::string_view text, auto... format) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, format...);
    if (rest != end || error != std::errc{}) return std::nullopt;
    return number;
}

template <class Float>
std::optional<Float> ReadBits(std::string_view text) {
    if (text.size() != 2 * sizeof(Float)) return std::nullopt;
    const auto bits = ReadWhole<BitsOf<Float>>(text, 16);
    if (!bits) return std::nullopt;
    return std::bit_cast<Float>(*bits);
}

std::optional<float> ReadFloat(const Scalar& scalar) {
    if (const auto* text = std::get_if<std::string_view>(&scalar)) return ReadBits<float>(*text);
    if (const auto* whole = std::get_if<std::int64_t>(&scalar)) return static_cast<float>(*whole);
    const auto* decimal = std::get_if<Decimal>(&scalar);
    if (!decimal) return std::nullopt;
    if (const auto direct = ReadWhole<float>(decimal->text)) return direct;
    // Out of range: too large, or so small that it rounds to zero.
    if (std::abs(decimal->value) >= 1.0) return std::nullopt;
    return std::copysign(0.0f, static_cast<float>(decimal->value));
}

std::optional<Ratio64> ReadRatio(std::string_view text) {
    const std::size_t slash = text.find('/');
    if (slash == text.npos) return std::nullopt;
    const auto numerator = ReadWhole<std::int64_t>(text.substr(0, slash));
    const auto denominator = ReadWhole<std::int64_t>(text.substr(slash + 1));
    if (!numerator || !denominator) return std::nullopt;
    return Ratio64{*numerator, *denominator};
}

}  // namespace

/// Builds the list while the parser walks the text, so that nothing is built that is not kept.
class Reader {
public:
    Reader(std::string_view json, const ReadLimits& limits)
        : json_(json), limits_(limits), reached_(json.data()) {}

    PropList Read() {
        const char* const end = json_.data() + json_.size();
        nlohmann::json::sax_parse(CountingIterator(json_.data(), reached_),
                                  CountingIterator(end, reached_), this);
        return std::move(result_);
    }

    // What the parser calls; the names are its own.
    // NOLINTBEGIN(readability-identifier-naming)
    bool null() { Fail("null is no value"); }
    bool boolean(bool value) { return Take(value); }
    bool number_integer(std::int64_t value) { return Take(value); }
    bool number_unsigned(std::uint64_t value) {
        if (value > std::numeric_limits<std::int64_t>::max()) FailWhole();
        return Take(static_cast<std::int64_t>(value));
    }
    bool number_float(double /*value*/, const std::string& token);
    bool string(std::string& text) { return Take(std::string_view(text)); }
    bool binary(nlohmann::json::binary_t& /*bytes*/) { Fail("expected JSON"); }
    bool start_object(std::size_t /*count*/);
    bool key(std::string& text);
    bool end_object();
    bool start_array(std::size_t /*count*/);
    bool end_array();
    bool parse_error(std::size_t, const std::string&, const nlohmann::json::exception& error);
    // NOLINTEND(readability-identifier-naming)

private:
    /// An object that has begun.
    struct Frame {
        std::string key = {};  // the last one
        Tag tag = Tag::kNone;
        std::optional<Value> typed = {};  // the value behind the tag
        PropList list = {};
        std::set<std::string, std::less<>> keys = {};  // of the list
    };

    [[noreturn]] void Fail(std::string_view what) const;
    [[noreturn]] void FailWhole() const { Fail("expected a whole number of 64 bits"); }
    [[noreturn]] void FailTag(Tag tag) const {
        Fail("behind " + std::string(Row(tag).key) + " expected " + std::string(Row(tag).expected));
    }
    void CountEntry();
    void CheckDepth() const;
    bool Take(const Scalar& scalar);
    void TakeElement(Tag tag, const Scalar& scalar);
    void Append(Value value);

    std::string_view json_;
    ReadLimits limits_;
    const char* reached_;
    std::size_t entries_ = 0;
    std::vector<Frame> frames_;
    bool inArray_ = false;       // of the innermost object
    std::vector<float> floats_;  // its elements
    WStr units_;
    PropList result_;
};

namespace {

/// A text of any length and content, made fit for a message.
std::string Excerpt(std::string_view text) {
    constexpr std::size_t kLongest = 160;
    if (text.size() <= kLongest) return utility::ToUtf8(utility::FromUtf8(text));
    return utility::ToUtf8(utility::FromUtf8(text.substr(0, kLongest))) + "...";
}

Value PlainValue(const Scalar& scalar) {
    if (const auto* text = std::get_if<std::string_view>(&scalar)) return utility::FromUtf8(*text);
    if (const auto* decimal = std::get_if<Decimal>(&scalar)) return decimal->value;
    if (const auto* whole = std::get_if<std::int64_t>(&scalar)) return *whole;
    return std::get<bool>(scalar);
}

std::optional<Value> TypedValue(Tag tag, const Scalar& scalar) {
    if (tag == Tag::kFloat) return ReadFloat(scalar);
    const auto* text = std::get_if<std::string_view>(&scalar);
    if (!text) return std::nullopt;
    if (tag == Tag::kDouble) return ReadBits<double>(*text);
    if (tag == Tag::kRatio) return ReadRatio(*text);
    if (tag == Tag::kBytes) return utility::FromBase64(*text);
    return std::nullopt;  // an array is expected
}

}  // namespace

void Reader::Fail(std::string_view what) const {
    std::string path;
    for (const Frame& frame : frames_) path += (path.empty() ? "" : "/") + frame.key;
    std::string text = "byte " + std::to_string(reached_ - json_.data());
    if (!path.empty()) text += ", at " + Excerpt(path);
    throw ParseError(text.append(": ").append(what));
}

void Reader::CountEntry() {
    if (++entries_ > limits_.entries)
        Fail("more than " + std::to_string(limits_.entries) + " values");
}

void Reader::CheckDepth() const {
    if (frames_.size() > limits_.depth)
        Fail("more than " + std::to_string(limits_.depth) + " lists within lists");
}

bool Reader::number_float(double /*value*/, const std::string& token) {
    // The parser puts the point of the C locale in force.
    std::string text = token;
    const auto isPoint = [](char c) { return std::string_view("0123456789+-eE").find(c) > 14; };
    std::replace_if(text.begin(), text.end(), isPoint, '.');
    if (text.find_first_of(".eE") == text.npos) FailWhole();
    // The parser refuses numbers that are not finite, so there is a value.
    return Take(Decimal{utility::StringToNumber(text).value(), text});
}

bool Reader::start_object(std::size_t /*count*/) {
    if (!frames_.empty() && frames_.back().tag != Tag::kNone) FailTag(frames_.back().tag);
    frames_.emplace_back();
    return true;
}

bool Reader::key(std::string& text) {
    Frame& frame = frames_.back();
    frame.key = text;
    if (frame.tag != Tag::kNone) Fail("expected no second key behind a typed value");
    if (text.starts_with('$') && !text.starts_with("$$")) {
        const auto row = std::find_if(kTags.begin(), kTags.end(),
                                      [&](const TagRow& r) { return r.key == text; });
        if (row == kTags.end() || frames_.size() < 2 || !frame.list.IsEmpty())
            Fail("expected \"$$\" at the start of a key, or the only key of a typed value");
        frame.tag = row->tag;
        return true;
    }
    CheckDepth();
    if (text.starts_with('$')) frame.key.erase(0, 1);
    if (!frame.keys.insert(frame.key).second) Fail("the key stands twice");
    return true;
}

bool Reader::end_object() {
    Frame frame = std::move(frames_.back());
    if (frame.tag == Tag::kNone) CheckDepth();
    frames_.pop_back();
    if (frames_.empty())
        result_ = std::move(frame.list);
    else
        Append(frame.typed ? *std::move(frame.typed) : Value(std::move(frame.list)));
    return true;
}

bool Reader::start_array(std::size_t /*count*/) {
    const Tag tag = frames_.empty() ? Tag::kNone : frames_.back().tag;
    if (tag == Tag::kNone) Fail("expected no array outside of \"$floats\" and \"$utf16\"");
    if (inArray_ || (tag != Tag::kFloats && tag != Tag::kUtf16)) FailTag(tag);
    inArray_ = true;
    return true;
}

bool Reader::end_array() {
    Frame& frame = frames_.back();
    if (frame.tag == Tag::kFloats)
        frame.typed = std::exchange(floats_, {});
    else
        frame.typed = std::exchange(units_, {});
    inArray_ = false;
    return true;
}

bool Reader::parse_error(std::size_t /*position*/,
                         const std::string& /*token*/,
                         const nlohmann::json::exception& error) {
    // "[name of the exception] parse error at line 1, column 2: what is wrong; what was expected"
    std::string_view what = error.what();
    what.remove_prefix(what.find("] ") + 2);
    if (what.starts_with("parse error at ")) what.remove_prefix(what.find(": ") + 2);
    Fail(Excerpt(what));
}

bool Reader::Take(const Scalar& scalar) {
    if (frames_.empty()) Fail("expected an object");
    Frame& frame = frames_.back();
    if (frame.tag == Tag::kNone)
        Append(PlainValue(scalar));
    else if (inArray_)
        TakeElement(frame.tag, scalar);
    else if (!(frame.typed = TypedValue(frame.tag, scalar)))
        FailTag(frame.tag);
    return true;
}

void Reader::TakeElement(Tag tag, const Scalar& scalar) {
    CountEntry();
    if (tag == Tag::kFloats) {
        const std::optional<float> value = ReadFloat(scalar);
        if (!value) FailTag(tag);
        floats_.push_back(*value);
        return;
    }
    const auto* unit = std::get_if<std::int64_t>(&scalar);
    if (!unit || *unit < 0 || *unit > 0xFFFF) FailTag(tag);
    units_.push_back(static_cast<char16_t>(*unit));
}

void Reader::Append(Value value) {
    CountEntry();
    Frame& frame = frames_.back();
    frame.list.entries_.emplace_back(frame.key, std::move(value));
}

ParseError::~ParseError() = default;

PropList FromJson(std::string_view json, const ReadLimits& limits) {
    if (json.size() > limits.bytes)
        throw ParseError("the text is longer than " + std::to_string(limits.bytes) + " bytes");
    return Reader(json, limits).Read();
}

}  // namespace kracore::proplist
