#include <algorithm>
#include <array>
#include <iterator>
#include <set>
#include <stdexcept>

#include <fmt/format.h>

#include "../Ports.h"
#include "Literals.h"
#include "Turtle.h"
#include "host/Text.h"

namespace zuc::lv2 {
namespace {

using components::Category;
using host::PluginControl;
using host::PluginInfo;
using kramediatypes::AudioChannelLabel;

std::string_view GetPluginClass(Category category) {
    switch (category) {
        case Category::kAmplitude:
            return "lv2:DynamicsPlugin";
        case Category::kFilter:
            return "lv2:FilterPlugin";
        case Category::kDelayReverb:
            return "lv2:DelayPlugin";
        case Category::kModulation:
            return "lv2:ModulatorPlugin";
        case Category::kTimePitch:
            return "lv2:PitchPlugin";
        case Category::kGenerator:
            return "lv2:GeneratorPlugin";
        case Category::kRestoration:
        case Category::kRemix:
            return "lv2:UtilityPlugin";
    }
    return {};
}

std::string_view GetDesignation(AudioChannelLabel label) {
    switch (label) {
        case AudioChannelLabel::kMono:
        case AudioChannelLabel::kCenter:
            return "pg:center";
        case AudioChannelLabel::kLeft:
            return "pg:left";
        case AudioChannelLabel::kRight:
            return "pg:right";
        case AudioChannelLabel::kLowFrequency:
            return "pg:lowFrequencyEffects";
        case AudioChannelLabel::kLeftSurround:
            return "pg:rearLeft";
        case AudioChannelLabel::kRightSurround:
            return "pg:rearRight";
        default:
            throw std::invalid_argument("a channel without a designation");
    }
}

std::string_view GetGroupClass(std::size_t channels) {
    if (channels == 1) return "pg:MonoGroup";
    return channels == 2 ? "pg:StereoGroup" : "pg:FivePointOneGroup";
}

struct UnitRow {
    std::string_view unit;
    std::string_view lv2;
};
// clang-format off
constexpr std::array kUnits{
    UnitRow{"ms",        "units:ms"},
    UnitRow{"s",         "units:s"},
    UnitRow{"Hz",        "units:hz"},
    UnitRow{"kHz",       "units:khz"},
    UnitRow{"dB",        "units:db"},
    UnitRow{"%",         "units:pc"},
    UnitRow{"cents",     "units:cent"},
    UnitRow{"semitones", "units:semitone12TET"},
    UnitRow{"BPM",       "units:bpm"},
    UnitRow{"°",         "units:degree"},
    UnitRow{"degrees",   "units:degree"},
    UnitRow{"frames",    "units:frame"},
};
// clang-format on

std::string GetUnit(const std::string& unit) {
    for (const UnitRow& row : kUnits)
        if (row.unit == unit) return std::string(row.lv2);
    return fmt::format("[ a units:Unit ; rdfs:label {0} ; units:symbol {0} ; units:render {1} ]",
                       Quote(unit), Quote("%f " + (unit == "%" ? "%%" : unit)));
}

/// Writes the ports of one plugin, in the order of their indices.
class PortWriter {
public:
    explicit PortWriter(const PluginInfo& info)
        : info_(info), ports_(info), groups_(GetGroupPrefix(info)) {}

    static std::string GetGroupPrefix(const PluginInfo& info) {
        return "urn:zuc:" + info.effect.slug + '#' + std::string(info.format.name);
    }

    std::string Write() {
        for (const auto& channel : info_.layout) WriteAudio("in", "In", "lv2:InputPort", channel);
        for (const auto& channel : info_.layout)
            WriteAudio("out", "Out", "lv2:OutputPort", channel);
        for (const auto& channel : kramediatypes::LayoutForChannelCount(info_.sideChannels))
            if (info_.sideChannels > 0) WriteAudio("side", "Side Chain", "lv2:InputPort", channel);
        WriteLatency();
        WriteToggle("enabled", "Enabled", 1, "lv2:designation lv2:enabled ;");
        if (info_.sideChannels > 0)
            WriteToggle("side_chain_used", "Use Side Chain", 0,
                        "lv2:portProperty pprops:notAutomatic ;");
        for (std::size_t i = 0; i < info_.controls.size(); ++i)
            WriteControl(info_.controls[i], info_.controls.size() - i);
        return fmt::format("    lv2:port {}", fmt::join(texts_, " , "));
    }

private:
    void Add(const std::string& symbol, const std::string& name, const std::string& rest) {
        if (!symbols_.insert(symbol).second)
            throw std::invalid_argument(info_.effect.slug + " has two ports called " + symbol);
        texts_.push_back(
            fmt::format("[\n        lv2:index {} ;\n        lv2:symbol \"{}\" ;\n        lv2:name "
                        "{} ;\n{}    ]",
                        texts_.size(), symbol, Quote(name), rest));
    }

    void WriteAudio(const std::string& group,
                    const std::string& title,
                    std::string_view direction,
                    const kramediatypes::AudioChannelDescription& channel) {
        const auto text = [&](bool isShort) {
            return kracore::utility::ToUtf8(AudioChannelLabelDescription(channel.label, isShort));
        };
        const std::string side = group == "side" ? "        lv2:portProperty lv2:isSideChain , "
                                                   "lv2:connectionOptional ;\n"
                                                 : "";
        Add(group + '_' + host::ToLower(text(true)), text(false) + ' ' + title,
            fmt::format("        a lv2:AudioPort , {} ;\n        pg:group <{}-{}> ;\n"
                        "        lv2:designation {} ;\n{}",
                        direction, groups_, group, GetDesignation(channel.label), side));
    }

    void WriteLatency() {
        Add("latency", "Latency",
            "        a lv2:ControlPort , lv2:OutputPort ;\n"
            "        lv2:designation lv2:latency ;\n"
            "        lv2:portProperty lv2:reportsLatency , lv2:integer , pprops:notOnGUI ;\n"
            "        lv2:minimum 0 ;\n        lv2:maximum 1000000 ;\n"
            "        units:unit units:frame ;\n");
    }

    void WriteToggle(const std::string& symbol,
                     const std::string& name,
                     int initial,
                     std::string_view rest) {
        Add(symbol, name,
            fmt::format("        a lv2:ControlPort , lv2:InputPort ;\n        {}\n"
                        "        lv2:portProperty lv2:toggled ;\n        lv2:minimum 0 ;\n"
                        "        lv2:maximum 1 ;\n        lv2:default {} ;\n",
                        rest, initial));
    }

    static std::vector<std::string_view> GetProperties(const PluginControl& control) {
        using Kind = PluginControl::Kind;
        std::vector<std::string_view> properties;
        const auto isWhole = [](const auto& choice) {
            return choice.value == static_cast<float>(static_cast<int>(choice.value));
        };
        if (control.kind == Kind::kToggle) properties.emplace_back("lv2:toggled");
        if (control.kind == Kind::kChoice) properties.emplace_back("lv2:enumeration");
        if (control.kind == Kind::kInteger ||
            (control.kind == Kind::kChoice && std::ranges::all_of(control.choices, isWhole)))
            properties.emplace_back("lv2:integer");
        if (control.isLogarithmic) properties.emplace_back("pprops:logarithmic");
        if (!control.parameter.isAutomatable) properties.emplace_back("pprops:notAutomatic");
        return properties;
    }

    void WriteControl(const PluginControl& control, std::size_t priority) {
        std::string rest = fmt::format(
            "        a lv2:ControlPort , lv2:InputPort ;\n        lv2:minimum {} ;\n"
            "        lv2:maximum {} ;\n        lv2:default {} ;\n"
            "        pprops:displayPriority {} ;\n",
            Number(control.lo), Number(control.hi), Number(control.initial), priority);
        if (const auto properties = GetProperties(control); !properties.empty())
            rest += fmt::format("        lv2:portProperty {} ;\n", fmt::join(properties, " , "));
        if (!control.parameter.unit.empty())
            rest += fmt::format("        units:unit {} ;\n", GetUnit(control.parameter.unit));
        for (const PluginControl::Choice& choice : control.choices)
            rest += fmt::format("        lv2:scalePoint [ rdfs:label {} ; rdf:value {} ] ;\n",
                                Quote(choice.name), Number(choice.value));
        Add(control.symbol, control.parameter.name, rest);
    }

    const PluginInfo& info_;
    Ports ports_;
    std::string groups_;
    std::set<std::string> symbols_;
    std::vector<std::string> texts_;
};

std::string WriteGroups(const PluginInfo& info) {
    const std::string prefix = PortWriter::GetGroupPrefix(info);
    std::string text = fmt::format(
        "<{0}-in>\n    a pg:InputGroup , {1} ;\n    lv2:symbol \"in\" ;\n    lv2:name \"Input\" "
        ".\n\n"
        "<{0}-out>\n    a pg:OutputGroup , {1} ;\n    lv2:symbol \"out\" ;\n"
        "    lv2:name \"Output\" ;\n    pg:source <{0}-in> .\n\n",
        prefix, GetGroupClass(info.format.channels));
    if (info.sideChannels > 0)
        text += fmt::format(
            "<{0}-side>\n    a pg:InputGroup , {1} ;\n    lv2:symbol \"side\" ;\n"
            "    lv2:name \"Side Chain\" ;\n    pg:sideChainOf <{0}-in> .\n\n",
            prefix, GetGroupClass(info.sideChannels));
    return text;
}

/// Even numbers mean a release.
std::string WriteVersion(std::string_view version) {
    int major = 0;
    int minor = 0;
    int patch = 0;
    if (std::sscanf(std::string(version).c_str(), "%d.%d.%d", &major, &minor, &patch) != 3)
        throw std::invalid_argument("no version: " + std::string(version));
    return fmt::format("    lv2:minorVersion {} ;\n    lv2:microVersion {} ;\n",
                       2 * (100 * major + minor), 2 * patch);
}

}  // namespace

std::string WritePlugins(const std::vector<Described>& plugins, std::string_view version) {
    std::string text = GetPrefixes();
    for (const auto& [info, presets] : plugins) {
        const std::string uri = MakePluginUri(info.effect.slug, info.format.name);
        text += WriteGroups(info);
        text += fmt::format(
            "<{}>\n    a lv2:Plugin , {} ;\n    doap:name {} ;\n    doap:license <{}> ;\n"
            "    lv2:project <{}> ;\n    {}"
            "    lv2:optionalFeature lv2:hardRTCapable , urid:map ;\n"
            "    lv2:extensionData state:interface ;\n"
            "    pg:mainInput <{}-in> ;\n    pg:mainOutput <{}-out> ;\n{} .\n\n",
            uri, GetPluginClass(info.effect.category),
            Quote(fmt::format("zuc {} ({})", info.effect.title, info.format.title)), kLicenseUri,
            kProjectUri, WriteVersion(version), PortWriter::GetGroupPrefix(info),
            PortWriter::GetGroupPrefix(info), PortWriter(info).Write());
    }
    return text;
}

}  // namespace zuc::lv2
