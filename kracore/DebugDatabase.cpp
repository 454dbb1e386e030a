#include "kracore/DebugDatabase.h"

#include <charconv>
#include <mutex>
#include <string>
#include <utility>

namespace kracore::debug {
namespace {

struct Database {
    std::mutex mutex;
    std::map<WStr, WStr> values;
};

Database& GetDatabase() {
    static auto* const database = new Database;
    return *database;
}

}  // namespace

void DebugDatabase::Set(const WStr& name, WStr value) {
    Database& database = GetDatabase();
    const std::lock_guard lock(database.mutex);
    database.values.insert_or_assign(name, std::move(value));
}

void DebugDatabase::Remove(const WStr& name) {
    Database& database = GetDatabase();
    const std::lock_guard lock(database.mutex);
    database.values.erase(name);
}

std::optional<WStr> DebugDatabase::Get(const WStr& name) {
    Database& database = GetDatabase();
    const std::lock_guard lock(database.mutex);
    const auto found = database.values.find(name);
    if (found == database.values.end()) return std::nullopt;
    return found->second;
}

std::optional<long> DebugDatabase::GetInteger(const WStr& name) {
    const auto value = Get(name);
    if (!value) return std::nullopt;
    const std::string text = utility::ToUtf8(*value);
    long number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

std::optional<bool> DebugDatabase::GetBool(const WStr& name) {
    const auto value = Get(name);
    if (!value) return std::nullopt;
    for (const std::u16string_view on : {u"true", u"1", u"on", u"yes"})
        if (*value == on) return true;
    for (const std::u16string_view off : {u"false", u"0", u"off", u"no"})
        if (*value == off) return false;
    return std::nullopt;
}

std::map<WStr, WStr> DebugDatabase::GetAll() {
    Database& database = GetDatabase();
    const std::lock_guard lock(database.mutex);
    return database.values;
}

ScopedDebugValue::ScopedDebugValue(WStr name, WStr value)
    : name_(std::move(name)), before_(DebugDatabase::Get(name_)) {
    DebugDatabase::Set(name_, std::move(value));
}

ScopedDebugValue::~ScopedDebugValue() {
    if (before_)
        DebugDatabase::Set(name_, std::move(*before_));
    else
        DebugDatabase::Remove(name_);
}

}  // namespace kracore::debug
