#include "host/Chain.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/EffectCatalogue.h"
#include "host/JsonReader.h"
#include "host/TemporaryFile.h"
#include "host/Text.h"
#include "host/TimeRange.h"

namespace zuc::host {
namespace {

constexpr std::string_view kSchema = "zuc.chain/1";
/// More is no chain that a person wrote.
constexpr std::size_t kMaximumFileBytes = 4u << 20;

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

/// Whether `text` begins with `name=`.
bool BeginsSetting(std::string_view text) {
    text = Trim(text);
    const auto end = std::find_if_not(text.begin(), text.end(), IsNameCharacter);
    return end != text.begin() && end != text.end() && *end == '=';
}

/// Splits at the commas that begin a new setting.
std::vector<std::string_view> SplitSettings(std::string_view text) {
    std::vector<std::string_view> parts;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != ',' || !BeginsSetting(text.substr(i + 1))) continue;
        parts.push_back(text.substr(begin, i - begin));
        begin = i + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

void AddSetting(ChainStep& step, std::string_view name, std::string_view text) {
    if (name == "preset")
        step.preset = text;
    else
        step.settings.push_back({std::string(name), std::string(text)});
}

std::string TextOfValue(const JsonValue& value) {
    const Json& json = value.Get();
    if (json.is_string()) return json.get<std::string>();
    if (json.is_boolean()) return json.get<bool>() ? "on" : "off";
    if (json.is_number_integer()) return json.dump();
    if (json.is_number()) return ToText(json.get<double>());
    value.Refuse("expected a text, a number, true or false, found " +
                 std::string(json.type_name()));
}

std::vector<CurvePoint> PointsFromJson(const JsonValue& value) {
    std::vector<CurvePoint> points;
    for (const JsonValue& json : value.GetElements()) {
        json.RequireKeys({"time", "value", "hold"});
        const JsonValue time = json.Require("time");
        CurvePoint point{0.0, TextOfValue(json.Require("value"))};
        try {
            point.seconds = ParseTime(TextOfValue(time));
        } catch (const Error& error) {
            time.Refuse(error.GetMessage(), error.GetAllowed());
        }
        if (json.Has("hold")) {
            const JsonValue hold = json.Require("hold");
            if (!hold.Get().is_boolean()) hold.Refuse("expected true or false");
            point.hold = hold.Get().get<bool>();
        }
        if (!points.empty() && point.seconds <= points.back().seconds)
            time.Refuse("the times of a curve must rise");
        points.push_back(std::move(point));
    }
    if (points.empty()) value.Refuse("expected at least one point");
    return points;
}

ChainStep StepFromJson(const JsonValue& value) {
    value.RequireKeys({"effect", "preset", "settings", "automation"});
    ChainStep step;
    step.effect = value.Require("effect").GetText();
    if (value.Has("preset")) step.preset = value.Require("preset").GetText();
    if (value.Has("settings")) {
        const JsonValue settings = value.Require("settings");
        settings.RequireObject();
        for (const auto& [name, json] : settings.Get().items())
            step.settings.push_back({name, TextOfValue(settings.Require(name))});
    }
    if (value.Has("automation")) {
        const JsonValue automation = value.Require("automation");
        automation.RequireObject();
        for (const auto& [name, json] : automation.Get().items())
            step.automation.push_back({name, PointsFromJson(automation.Require(name))});
    }
    return step;
}

std::string FormatStepJson(const ChainStep& step) {
    if (!step.placeholder.empty()) return step.placeholder;
    Json json = {{"effect", step.effect}};
    if (!step.preset.empty()) json["preset"] = step.preset;
    Json settings = Json::object();
    for (const Setting& setting : step.settings) {
        // Of two settings of one name the later wins, in its place, as when they are applied.
        settings.erase(setting.name);
        settings[setting.name] = setting.text;
    }
    if (!settings.empty()) json["settings"] = std::move(settings);
    for (const CurveText& curve : step.automation)
        for (const CurvePoint& point : curve.points) {
            Json row = {{"time", ToText(point.seconds) + " s"}, {"value", point.value}};
            if (point.hold) row["hold"] = true;
            json["automation"][curve.parameter].push_back(std::move(row));
        }
    std::string text;
    for (const char c : json.dump(2, ' ', false, Json::error_handler_t::replace)) {
        text += c;
        if (c == '\n') text += "    ";
    }
    return text;
}

std::string SystemMessage(int error) { return std::system_category().message(error); }

}  // namespace

ChainStep ParseStepText(std::string_view text) {
    const std::size_t colon = text.find(':');
    ChainStep step;
    step.effect = Trim(text.substr(0, colon));
    if (step.effect.empty())
        throw Error(ExitCode::kUsage, "'" + std::string(text) + "' names no effect",
                    "EFFECT, EFFECT:NAME=VALUE,… or @FILE", "for example amplify:gain=-6dB");
    if (colon == std::string_view::npos) return step;
    const std::string_view settings = text.substr(colon + 1);
    if (Trim(settings).empty()) return step;
    for (const std::string_view part : SplitSettings(settings)) {
        const std::size_t equals = part.find('=');
        if (equals == std::string_view::npos || Trim(part.substr(0, equals)).empty())
            throw Error(ExitCode::kUsage,
                        step.effect + ": '" + std::string(Trim(part)) + "' is no setting",
                        "NAME=VALUE", "for example amplify:gain=-6dB");
        AddSetting(step, Trim(part.substr(0, equals)), Trim(part.substr(equals + 1)));
    }
    return step;
}

std::string FormatStepText(const ChainStep& step) {
    std::vector<std::string> parts;
    if (!step.preset.empty()) parts.push_back("preset=" + step.preset);
    for (const Setting& setting : step.settings) parts.push_back(setting.name + "=" + setting.text);
    return step.effect + (parts.empty() ? "" : ":") + Join(parts, ",");
}

Chain ParseChainJson(std::string_view json,
                     std::string_view source,
                     const EffectCatalogue* catalogue) {
    const Json parsed = ParseJson(json, source);
    const JsonValue root(parsed, std::string(source) + ":");
    root.RequireKeys({"schema", "effects"});
    const std::string schema = root.Require("schema").GetText();
    if (schema != kSchema)
        root.Refuse("unknown schema '" + schema + "'", "\"" + std::string(kSchema) + "\"");
    const std::vector<std::string> texts = GetElementTexts(json, "effects");
    Chain chain;
    for (const JsonValue& step : root.Require("effects").GetElements()) {
        const std::string effect = step.Require("effect").GetText();
        if (catalogue && !catalogue->Has(effect))
            chain.push_back({effect, {}, {}, {}, texts.at(chain.size())});
        else
            chain.push_back(StepFromJson(step));
    }
    return chain;
}

std::string FormatChainJson(const Chain& chain) {
    std::vector<std::string> steps;
    for (const ChainStep& step : chain) steps.push_back("\n    " + FormatStepJson(step));
    return "{\n  \"schema\": \"" + std::string(kSchema) + "\",\n  \"effects\": [" +
           Join(steps, ",") + (steps.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

std::string ReadTextFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text;
    if (file) {
        char block[4096];
        while (text.size() <= kMaximumFileBytes &&
               (file.read(block, sizeof block) || file.gcount() > 0))
            text.append(block, static_cast<std::size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad())
        throw Error(ExitCode::kInput, path + ": cannot be read: " + SystemMessage(errno));
    if (text.size() > kMaximumFileBytes)
        throw Error(ExitCode::kInput, path + ": too large", "at most 4 MB");
    return text;
}

Chain ReadChainFile(const std::string& path, const EffectCatalogue* catalogue) {
    return ParseChainJson(ReadTextFile(path), path, catalogue);
}

void WriteChainFile(const std::string& path, const Chain& chain) {
    WriteFileAtomically(path, FormatChainJson(chain));
}

}  // namespace zuc::host
