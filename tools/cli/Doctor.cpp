#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <sstream>

#include <fmt/format.h>
#include <CLI/Version.hpp>

#include "Commands.h"
#include "Console.h"
#include "host/AudioWriter.h"
#include "host/ChainProcessor.h"
#include "host/JsonReader.h"
#include "host/RenderSource.h"
#include "host/Sandbox.h"
#include "host/SystemInfo.h"
#include "host/TemporaryFile.h"
#include "host/Text.h"
#include "kracore/DebugMonitor.h"

namespace zuc::cli {
namespace {

using host::Json;

constexpr float kRateHz = 48000.0f;
constexpr std::size_t kChannels = 2;
constexpr int kBlockFrames = 1024;
constexpr int kBlocks = 16;

struct Check {
    std::string name;
    bool isGood = false;
    std::string detail;
};

Check RunCheck(const std::string& name, const std::function<std::string()>& check) {
    try {
        return {name, true, check()};
    } catch (const std::exception& error) {
        return {name, false, error.what()};
    }
}

/// A third of a second of noise through the effect as it comes; the result must be finite.
std::string TryEffect(const host::EffectCatalogue& catalogue, const std::string& slug) {
    host::ChainProcessor chain({{slug, {}, {}}}, catalogue, host::UserPresets(), kRateHz, kChannels,
                               kBlockFrames);
    if (chain.GetOfflineEffect()) return "creates; works on whole files";
    host::AudioBlock block(kChannels, kBlockFrames);
    std::minstd_rand random(1);
    chain.Resume();
    for (int i = 0; i < kBlocks; ++i) {
        for (std::size_t c = 0; c < kChannels; ++c)
            std::generate_n(block.GetChannels()[c], kBlockFrames, [&] {
                return static_cast<float>(random()) / static_cast<float>(random.max()) - 0.5f;
            });
        chain.Process(block.GetChannels(), kBlockFrames);
        for (std::size_t c = 0; c < kChannels; ++c)
            for (int frame = 0; frame < kBlockFrames; ++frame)
                if (!std::isfinite(block.GetChannels()[c][frame]))
                    throw host::Error(host::ExitCode::kProcessing,
                                      "gives samples that are not finite");
    }
    chain.Suspend();
    return "creates and processes";
}

std::vector<Check> RunChecks() {
    std::vector<Check> checks{RunCheck("temporary files", [] {
        host::OpenUnlinkedTemporary();
        return std::string("writable");
    })};
    const host::EffectCatalogue catalogue;
    for (const host::Effect& effect : catalogue.GetEffects())
        checks.push_back(RunCheck(effect.slug, [&] { return TryEffect(catalogue, effect.slug); }));
    return checks;
}

std::vector<host::LibraryVersion> GetLibraries() {
    auto libraries = host::GetLibraryVersions();
    libraries.push_back({"CLI11", CLI11_VERSION});
    return libraries;
}

/// The statistics that parts of the library offer, by the name of the part.
std::vector<std::pair<std::string, std::vector<std::string>>> ReadMonitors() {
    std::vector<std::pair<std::string, std::vector<std::string>>> monitors;
    for (const auto& channel : kracore::debug::GetDebugMonitorChannels()) {
        auto& [name, lines] = monitors.emplace_back();
        name = kracore::utility::ToUtf8(channel);
        std::istringstream text(
            kracore::utility::ToUtf8(kracore::debug::ReadDebugMonitor(channel)));
        for (std::string line; std::getline(text, line);) lines.push_back(line);
    }
    return monitors;
}

void PrintMonitors() {
    for (const auto& [name, lines] : ReadMonitors()) {
        Print("\n" + name + "\n");
        for (const std::string& line : lines) Print("  " + line + "\n");
    }
}

std::string Describe(const host::SandboxState& sandbox) {
    if (sandbox.version == 0) return "none: this kernel has no Landlock";
    return (sandbox.isActive ? "active, Landlock " : "off, Landlock ") +
           std::to_string(sandbox.version);
}

void PrintJson(const std::vector<Check>& checks, bool isGood, bool withMonitors) {
    const host::SandboxState sandbox = host::GetSandboxState();
    Json json = {{"schema", "zuc.doctor/1"},
                 {"version", ZUC_VERSION},
                 {"compiler", host::GetCompiler()},
                 {"ok", isGood},
                 {"libraries", Json::object()},
                 {"processor", host::GetProcessorFeatures()},
                 {"reads", host::GetReadableFormats()},
                 {"writes", host::ListWritableFormats()},
                 {"presetFolder", host::UserPresets::GetDefaultFolder()},
                 {"sandbox", {{"active", sandbox.isActive}, {"landlock", sandbox.version}}},
                 {"checks", Json::array()}};
    for (const auto& [name, version] : GetLibraries()) json["libraries"][name] = version;
    for (const Check& check : checks)
        json["checks"].push_back(
            {{"name", check.name}, {"ok", check.isGood}, {"detail", check.detail}});
    if (withMonitors)
        for (const auto& [name, lines] : ReadMonitors()) json["monitors"][name] = lines;
    Print(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

void PrintText(const std::vector<Check>& checks, bool isGood) {
    std::vector<std::vector<std::string>> rows{
        {"version", ZUC_VERSION},
        {"compiler", host::GetCompiler()},
        {"processor", host::Join(host::GetProcessorFeatures())},
        {"reads", host::Join(host::GetReadableFormats())},
        {"writes", host::ListWritableFormats()},
        {"presets", host::UserPresets::GetDefaultFolder()},
        {"sandbox", Describe(host::GetSandboxState())}};
    for (const auto& [name, version] : GetLibraries()) rows.push_back({name, version});
    std::vector<std::vector<std::string>> results;
    results.reserve(checks.size());
    for (const Check& check : checks)
        results.push_back({check.isGood ? "good" : "FAILED", check.name, check.detail});
    Print(FormatColumns(rows, "") + "\n" + FormatColumns(results, "") + "\n" +
          (isGood ? "Everything works.\n" : "Something does not work.\n"));
}

}  // namespace

int RunDoctor(const DoctorOptions& options) {
    const std::vector<Check> checks = RunChecks();
    const bool isGood =
        std::all_of(checks.begin(), checks.end(), [](const Check& check) { return check.isGood; });
    if (options.json)
        PrintJson(checks, isGood, options.monitor);
    else
        PrintText(checks, isGood);
    if (options.monitor && !options.json) PrintMonitors();
    return static_cast<int>(isGood ? host::ExitCode::kDone : host::ExitCode::kProcessing);
}

}  // namespace zuc::cli
