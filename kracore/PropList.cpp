#include "kracore/PropList.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace kracore::proplist {
namespace {

template <class T>
bool IsSame(const T& left, const T& right) {
    return left == right;
}
bool IsSame(float left, float right) {
    return std::bit_cast<std::uint32_t>(left) == std::bit_cast<std::uint32_t>(right);
}
bool IsSame(double left, double right) {
    return std::bit_cast<std::uint64_t>(left) == std::bit_cast<std::uint64_t>(right);
}
bool IsSame(const std::vector<float>& left, const std::vector<float>& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](float l, float r) { return IsSame(l, r); });
}
bool IsSame(const std::unique_ptr<PropList>& left, const std::unique_ptr<PropList>& right) {
    return left && right ? *left == *right : left == right;
}

auto FindEntry(auto& entries, std::string_view key) {
    return std::find_if(entries.begin(), entries.end(),
                        [&](const auto& entry) { return entry.first == key; });
}

Value::Variant Copy(const Value::Variant& variant) {
    return std::visit(
        [](const auto& held) -> Value::Variant {
            if constexpr (std::is_same_v<decltype(held), const std::unique_ptr<PropList>&>)
                return held ? std::make_unique<PropList>(*held) : nullptr;
            else
                return held;
        },
        variant);
}

}  // namespace

Value::Value(PropList list) : variant_(std::make_unique<PropList>(std::move(list))) {}
Value::Value(const Value& other) : variant_(Copy(other.variant_)) {}
Value& Value::operator=(const Value& other) {
    variant_ = Copy(other.variant_);
    return *this;
}
Value::~Value() = default;

bool Value::operator==(const Value& other) const {
    return variant_.index() == other.variant_.index() &&
           std::visit(
               [&](const auto& held) {
                   return IsSame(held,
                                 std::get<std::remove_cvref_t<decltype(held)>>(other.variant_));
               },
               variant_);
}

const Value* PropList::Find(std::string_view key) const {
    const auto found = FindEntry(entries_, key);
    return found == entries_.end() ? nullptr : &found->second;
}

const PropList* PropList::FindList(std::string_view key) const {
    const auto* list = Find<std::unique_ptr<PropList>>(key);
    return list ? list->get() : nullptr;
}

void PropList::Set(std::string_view key, Value value) {
    if (const auto found = FindEntry(entries_, key); found != entries_.end()) {
        found->second = std::move(value);
        return;
    }
    if (utility::ToUtf8(utility::FromUtf8(key)) != key)
        throw std::invalid_argument("property list: a key is not UTF-8");
    entries_.emplace_back(key, std::move(value));
}

void PropList::Remove(std::string_view key) {
    std::erase_if(entries_, [&](const Entry& entry) { return entry.first == key; });
}

namespace utils {

void WriteRatio64(PropList& list, std::string_view key, Ratio64 ratio) { list.Set(key, ratio); }

bool ReadRatio64(const PropList& list, std::string_view key, Ratio64& ratio) {
    const auto* found = list.Find<Ratio64>(key);
    if (found) ratio = *found;
    return found != nullptr;
}

}  // namespace utils
}  // namespace kracore::proplist
