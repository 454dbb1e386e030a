#include "kracore/Localizer.h"

#include <mutex>
#include <optional>
#include <shared_mutex>
#include <stdexcept>
#include <utility>

#include "kracore/PropList.h"

namespace kracore::config {
namespace {

constexpr std::string_view kPrefix = "$$$/";
constexpr std::u16string_view kWidePrefix = u"$$$/";

/// The dictionary in force. Never destroyed, so that static objects may still ask for their names.
struct InForce {
    std::shared_mutex mutex;
    Localizer::Dictionary dictionary;
};

InForce& GetInForce() {
    static auto* const inForce = new InForce;
    return *inForce;
}

std::optional<WStr> LookUp(std::string_view path) {
    InForce& inForce = GetInForce();
    const std::shared_lock lock(inForce.mutex);
    const auto found = inForce.dictionary.find(path);
    if (found == inForce.dictionary.end()) return std::nullopt;
    return utility::FromUtf8(found->second);
}

}  // namespace

WStr Localizer::Localize(std::string_view key) {
    if (!key.starts_with(kPrefix)) return utility::FromUtf8(key);
    const std::string_view path = GetKeyPath(key);
    if (std::optional<WStr> text = LookUp(path)) return *std::move(text);
    const std::size_t equals = key.find('=');
    return utility::FromUtf8(equals == key.npos ? path : key.substr(equals + 1));
}

WStr Localizer::Localize(std::u16string_view key) {
    if (!key.starts_with(kWidePrefix)) return WStr(key);
    const std::size_t equals = key.find(u'=');
    const std::u16string_view path =
        key.substr(0, equals).substr(kWidePrefix.size());  // npos: the whole rest
    if (std::optional<WStr> text = LookUp(utility::ToUtf8(path))) return *std::move(text);
    return WStr(equals == key.npos ? path : key.substr(equals + 1));
}

void Localizer::SetDictionary(Dictionary dictionary) {
    InForce& inForce = GetInForce();
    const std::lock_guard lock(inForce.mutex);
    // The old one leaves with the argument, after the lock.
    inForce.dictionary.swap(dictionary);
}

Localizer::Dictionary Localizer::ParseDictionary(std::string_view json) {
    Dictionary dictionary;
    try {
        const proplist::PropList list = proplist::FromJson(json);
        for (const auto& [path, value] : list.GetEntries()) {
            const WStr* text = std::get_if<WStr>(&value.Get());
            if (!text) throw std::invalid_argument("at \"" + path + "\": expected a text");
            dictionary.emplace(path, utility::ToUtf8(*text));
        }
    } catch (const proplist::ParseError& error) {
        throw std::invalid_argument(error.what());
    }
    return dictionary;
}

std::string_view GetKeyPath(std::string_view key) {
    if (!key.starts_with(kPrefix)) return {};
    return key.substr(0, key.find('=')).substr(kPrefix.size());
}

std::string_view GetKeyName(std::string_view key) {
    const std::string_view path = GetKeyPath(key);
    return path.substr(path.rfind('/') + 1);  // npos + 1: the whole path
}

}  // namespace kracore::config
