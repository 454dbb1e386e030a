#include "host/JsonReader.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "host/Text.h"

namespace zuc::host {
namespace {

/// "line 3, column 7" of the byte at `position`.
std::string DescribePosition(std::string_view text, std::size_t position) {
    const std::string_view before = text.substr(0, std::min(position, text.size()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.find_last_of('\n') + 1;  // npos + 1 is 0
    return "line " + std::to_string(line) + ", column " +
           std::to_string(before.size() - lineStart + 1);
}

/// The library's message after its own prefix ("[json.exception…] parse error at line 1, column 2: ").
std::string ShortMessage(std::string_view message) {
    const std::size_t prefix = message.find(": ");
    return std::string(prefix == std::string_view::npos ? message : message.substr(prefix + 2));
}

}  // namespace

Json ParseJson(std::string_view text, std::string_view source, int maximumDepth) {
    std::vector<std::set<std::string>> keys(1);
    std::string fault;
    const auto check = [&](int depth, Json::parse_event_t event, Json& parsed) {
        if (!fault.empty()) return false;
        if (event == Json::parse_event_t::object_start ||
            event == Json::parse_event_t::array_start) {
            if (depth >= maximumDepth) fault = "nested too deeply";
            keys.emplace_back();
        } else if (event == Json::parse_event_t::object_end ||
                   event == Json::parse_event_t::array_end) {
            keys.pop_back();
        } else if (event == Json::parse_event_t::key) {
            const auto& key = parsed.get_ref<const std::string&>();
            if (!keys.back().insert(key).second) fault = "the key '" + key + "' stands twice";
        }
        return true;
    };
    try {
        Json json = Json::parse(text.begin(), text.end(), check);
        if (fault.empty()) return json;
    } catch (const Json::parse_error& error) {
        if (fault.empty())
            fault = DescribePosition(text, error.byte == 0 ? 0 : error.byte - 1) + ": " +
                    ShortMessage(error.what());
    } catch (const Json::exception& error) {
        fault = ShortMessage(error.what());
    }
    throw Error(ExitCode::kUsage, std::string(source) + ": " + fault);
}

namespace {

/// Behind the value of JSON that begins at `begin`: a list or an object with all it holds, a text, or a word.
std::size_t FindValueEnd(std::string_view json, std::size_t begin) {
    int depth = 0;
    bool isText = false;
    for (std::size_t i = begin; i < json.size(); ++i) {
        const char c = json[i];
        if (isText) {
            if (c == '\\')
                ++i;
            else
                isText = c != '"';
        } else if (c == '"') {
            isText = true;
        } else if (c == '[' || c == '{') {
            ++depth;
        } else if (c == ']' || c == '}' || c == ',' || c == ':') {
            if (depth == 0) return i;
            if (c == ']' || c == '}') --depth;
        }
    }
    return json.size();
}

}  // namespace

std::vector<std::string> GetElementTexts(std::string_view json, std::string_view key) {
    std::vector<std::string> elements;
    std::size_t i = json.find('{') + 1;
    while (i < json.size() && json[i] != '}') {
        const std::size_t colon = FindValueEnd(json, i);
        const std::string_view name = Trim(json.substr(i, colon - i));
        std::size_t end = FindValueEnd(json, colon + 1);
        if (Json::parse(name).get<std::string>() == key) {
            const std::string_view list = Trim(json.substr(colon + 1, end - colon - 1));
            for (std::size_t k = 1; k < list.size(); k = end + 1) {
                end = FindValueEnd(list, k);
                if (const auto element = Trim(list.substr(k, end - k)); !element.empty())
                    elements.emplace_back(element);
            }
            return elements;
        }
        i = end + 1;
    }
    return elements;
}

void JsonValue::Refuse(const std::string& what, const std::string& allowed) const {
    throw Error(ExitCode::kUsage, place_ + ": " + what, allowed);
}

JsonValue JsonValue::Require(std::string_view key) const {
    RequireObject();
    const auto found = json_.find(std::string(key));
    if (found == json_.end()) Refuse("'" + std::string(key) + "' is missing");
    return {*found, place_ + (place_.ends_with(':') ? " " : ".") + std::string(key)};
}

void JsonValue::RequireObject() const {
    if (!json_.is_object()) Refuse("expected an object, found " + std::string(json_.type_name()));
}

void JsonValue::RequireKeys(const std::vector<std::string>& allowed) const {
    RequireObject();
    for (const auto& [key, value] : json_.items())
        if (std::find(allowed.begin(), allowed.end(), key) == allowed.end())
            throw Error(ExitCode::kUsage, place_ + ": unknown key '" + key + "'", Join(allowed),
                        DidYouMean(key, allowed));
}

std::vector<JsonValue> JsonValue::GetElements() const {
    if (!json_.is_array()) Refuse("expected a list, found " + std::string(json_.type_name()));
    std::vector<JsonValue> elements;
    for (std::size_t i = 0; i < json_.size(); ++i)
        elements.emplace_back(json_[i], place_ + "[" + std::to_string(i) + "]");
    return elements;
}

std::string JsonValue::GetText() const {
    if (!json_.is_string()) Refuse("expected a text, found " + std::string(json_.type_name()));
    return json_.get<std::string>();
}

double JsonValue::GetNumber(double lo, double hi) const {
    if (!json_.is_number()) Refuse("expected a number, found " + std::string(json_.type_name()));
    const auto number = json_.get<double>();
    if (!(number >= lo && number <= hi))
        Refuse(ToText(number) + " is out of range", ToText(lo) + " … " + ToText(hi));
    return number;
}

int JsonValue::GetInteger(int lo, int hi) const {
    const double number = GetNumber(lo, hi);
    if (number != std::floor(number)) Refuse(ToText(number) + " is no whole number");
    return static_cast<int>(number);
}

}  // namespace zuc::host
