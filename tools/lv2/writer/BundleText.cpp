#include <array>

#include <fmt/format.h>

#include "../Ports.h"
#include "Literals.h"
#include "Turtle.h"
#include "host/Text.h"

namespace zuc::lv2 {
namespace {

struct Prefix {
    std::string_view name;
    std::string_view uri;
};
// clang-format off
constexpr std::array kPrefixes{
    Prefix{"doap",   "http://usefulinc.com/ns/doap#"},
    Prefix{"foaf",   "http://xmlns.com/foaf/0.1/"},
    Prefix{"lv2",    "http://lv2plug.in/ns/lv2core#"},
    Prefix{"owl",    "http://www.w3.org/2002/07/owl#"},
    Prefix{"pg",     "http://lv2plug.in/ns/ext/port-groups#"},
    Prefix{"pprops", "http://lv2plug.in/ns/ext/port-props#"},
    Prefix{"pset",   "http://lv2plug.in/ns/ext/presets#"},
    Prefix{"rdf",    "http://www.w3.org/1999/02/22-rdf-syntax-ns#"},
    Prefix{"rdfs",   "http://www.w3.org/2000/01/rdf-schema#"},
    Prefix{"state",  "http://lv2plug.in/ns/ext/state#"},
    Prefix{"units",  "http://lv2plug.in/ns/extensions/units#"},
    Prefix{"urid",   "http://lv2plug.in/ns/ext/urid#"},
    Prefix{"xsd",    "http://www.w3.org/2001/XMLSchema#"},
};
// clang-format on

std::string GetPresetUri(const host::PluginInfo& info, const host::PluginPreset& preset) {
    return MakePluginUri(info.effect.slug, info.format.name) + "-preset-" + preset.identifier;
}

}  // namespace

std::string GetPrefixes() {
    std::string text;
    for (const Prefix& prefix : kPrefixes)
        text += fmt::format("@prefix {}: <{}> .\n", prefix.name, prefix.uri);
    return text + '\n';
}

std::string Quote(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        if (c == '\n')
            quoted += "\\n";
        else
            quoted += c;
    }
    return quoted + '"';
}

std::string Number(float value) {
    const std::string text = host::ToText(value);
    return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

std::string WriteProjectManifest() {
    return GetPrefixes() +
           fmt::format(
               "<{0}>\n    a doap:Project ;\n    doap:name \"zuc\" ;\n"
               "    doap:shortdesc \"Audio effects behind one host contract\" ;\n"
               "    doap:license <{1}> ;\n    doap:maintainer <{2}> .\n\n"
               "<{2}>\n    a foaf:Person ;\n    foaf:name \"the zuc authors\" .\n\n"
               "<{3}>\n    a rdf:Property , owl:DatatypeProperty ;\n    rdfs:label \"settings\" ;\n"
               "    rdfs:comment \"All settings of an effect, as JSON text.\" ;\n"
               "    rdfs:range xsd:string .\n",
               kProjectUri, kLicenseUri, kMaintainerUri, kSettingsUri);
}

std::string WriteManifest(const std::vector<Described>& plugins, std::string_view binary) {
    std::string text = GetPrefixes();
    for (const auto& [info, presets] : plugins) {
        const std::string uri = MakePluginUri(info.effect.slug, info.format.name);
        text += fmt::format(
            "<{}>\n    a lv2:Plugin ;\n    lv2:binary <{}> ;\n    rdfs:seeAlso <{}.ttl> .\n\n", uri,
            binary, info.effect.slug);
        for (const host::PluginPreset& preset : presets)
            text += fmt::format(
                "<{}>\n    a pset:Preset ;\n    lv2:appliesTo <{}> ;\n"
                "    rdfs:seeAlso <{}-presets.ttl> .\n\n",
                GetPresetUri(info, preset), uri, info.effect.slug);
    }
    return text;
}

std::string WritePresets(const std::vector<Described>& plugins) {
    std::string text = GetPrefixes();
    for (const auto& [info, presets] : plugins) {
        for (const host::PluginPreset& preset : presets) {
            std::vector<std::string> ports;
            for (std::size_t i = 0; i < info.controls.size(); ++i)
                ports.push_back(fmt::format("[ lv2:symbol \"{}\" ; pset:value {} ]",
                                            info.controls[i].symbol, Number(preset.values[i])));
            text += fmt::format(
                "<{}>\n    a pset:Preset ;\n    rdfs:label {} ;\n    lv2:appliesTo <{}> ;\n",
                GetPresetUri(info, preset), Quote(preset.name),
                MakePluginUri(info.effect.slug, info.format.name));
            if (!preset.settings.empty())
                text += fmt::format("    state:state [ <{}> {} ] ;\n", kSettingsUri,
                                    Quote(preset.settings));
            text += fmt::format("    lv2:port {} .\n\n", fmt::join(ports, " ,\n        "));
        }
    }
    return text;
}

}  // namespace zuc::lv2
