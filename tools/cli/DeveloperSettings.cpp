#include "DeveloperSettings.h"

#include <algorithm>

#include "host/Error.h"
#include "host/Faults.h"
#include "host/Text.h"
#include "kracore/DebugDatabase.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;
using kracore::debug::DebugDatabase;
using kracore::utility::FromUtf8;
using Kind = DeveloperSetting::Kind;

const DeveloperSetting& Find(std::string_view name) {
    std::vector<std::string> names;
    for (const DeveloperSetting& setting : GetDeveloperSettings()) {
        if (host::EqualsIgnoringCase(setting.name, name)) return setting;
        names.emplace_back(setting.name);
    }
    throw Error(ExitCode::kUsage, "there is no developer setting '" + std::string(name) + "'",
                host::Join(names), host::DidYouMean(name, names));
}

}  // namespace

const std::vector<DeveloperSetting>& GetDeveloperSettings() {
    // "Seperation" is how the setting is spelled.
    static const std::vector<DeveloperSetting> settings{
        {"Remix.AvoidLoops", Kind::kSwitch, "a remix repeats no part directly"},
        {"Remix.Samplerate", Kind::kWhole, "rate in Hz at which music is analysed (22050)"},
        {"Remix.SourceSeperation", Kind::kSwitch, "the analysis sets harmonic parts apart (on)"},
    };
    return settings;
}

std::string SetDeveloperSetting(std::string_view name, std::string_view value) {
    const DeveloperSetting& setting = Find(host::Trim(name));
    const auto key = FromUtf8(setting.name);
    const auto before = DebugDatabase::Get(key);
    DebugDatabase::Set(key, FromUtf8(host::Trim(value)));
    const bool isSwitch = setting.kind == Kind::kSwitch;
    const bool isGood = isSwitch ? DebugDatabase::GetBool(key).has_value()
                                 : DebugDatabase::GetInteger(key).value_or(0) > 0;
    if (isGood) return std::string(setting.name);
    if (before)
        DebugDatabase::Set(key, *before);
    else
        DebugDatabase::Remove(key);
    throw Error(ExitCode::kUsage,
                std::string(setting.name) + " cannot be '" + std::string(value) + "'",
                isSwitch ? "true, false, on, off, yes, no, 1, 0" : "whole numbers from 1 up");
}

void ApplyDeveloperSettings(const std::vector<std::string>& settings) {
    host::Faults faults;
    for (const std::string& text : settings)
        faults.Try([&] {
            const auto equals = text.find('=');
            if (equals == std::string::npos)
                throw Error(ExitCode::kUsage, "--set cannot be '" + text + "'", "NAME=VALUE",
                            "for example --set Remix.AvoidLoops=true");
            SetDeveloperSetting(text.substr(0, equals), text.substr(equals + 1));
        });
    faults.ThrowIfAny();
}

}  // namespace zuc::cli
