#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/Error.h"

// The original collects a value's children in a vector before it destroys them, and so needs memory where
// nothing may fail; nor does it expect a value whose own memory could not be had. Values here are not nested
// deeply; they can destroy each other in turn.
template <>
inline void nlohmann::ordered_json::json_value::destroy(nlohmann::detail::value_t type) {
    const auto free = [](auto* value) {
        if (!value) return;
        std::destroy_at(value);
        std::allocator<std::remove_pointer_t<decltype(value)>>().deallocate(value, 1);
    };
    if (type == nlohmann::detail::value_t::object) free(object);
    if (type == nlohmann::detail::value_t::array) free(array);
    if (type == nlohmann::detail::value_t::string) free(string);
    if (type == nlohmann::detail::value_t::binary) free(binary);
}

namespace zuc::host {

using Json = nlohmann::ordered_json;

/// Parses JSON text of at most `maximumDepth` nested values. Repeated keys and everything that is no
/// JSON throw Error (kUsage) with line and column, beginning with `source`. [any]
Json ParseJson(std::string_view text, std::string_view source, int maximumDepth = 16);

/// The text of each element of the list under `key` of an object, byte for byte. `json` must be such an
/// object and have been parsed without fault. [any]
std::vector<std::string> GetElementTexts(std::string_view json, std::string_view key);

/// One value of a parsed text together with its place ("chain.json: effects[1].settings"), so that
/// faults say where they are. Every operation throws Error (kUsage) when the value is not like that.
class JsonValue {
public:
    JsonValue(const Json& json, std::string place) : json_(json), place_(std::move(place)) {}

    /// The member `key` of this object.
    JsonValue Require(std::string_view key) const;
    bool Has(std::string_view key) const { return json_.contains(std::string(key)); }
    /// That this is an object without keys other than `allowed`.
    void RequireKeys(const std::vector<std::string>& allowed) const;
    void RequireObject() const;
    std::vector<JsonValue> GetElements() const;
    std::string GetText() const;
    double GetNumber(double lo, double hi) const;
    /// A whole number.
    int GetInteger(int lo, int hi) const;

    const Json& Get() const { return json_; }
    [[noreturn]] void Refuse(const std::string& what, const std::string& allowed = {}) const;

private:
    const Json& json_;
    std::string place_;
};

}  // namespace zuc::host
