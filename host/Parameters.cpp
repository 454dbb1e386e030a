#include "host/Parameters.h"

#include <algorithm>

#include "Components/MusicRetarget.h"
#include "Components/ParameterInfos.h"
#include "host/Error.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

using components::BoolParameterInfo;
using components::EnumParameterInfo;
using components::KeyParameterInfo;
using components::ScaleParameterInfo;
using kraaudiofilterhost::AudioFilterParameterInfo;
using kraaudiofilterhost::AudioFilterParameterRole;
using kracore::WStr;
using kracore::utility::ToUtf8;

constexpr int kKeyCount = 12;
constexpr int kScaleCount = 3;

ParameterEntry MakeEntry(const WStr& name, float normalized) {
    const std::string text = ToUtf8(name);
    const std::string slug = ToSlug(text);
    return {slug.empty() ? text : slug, text, normalized};
}

std::vector<ParameterEntry> MakeEvenEntries(const AudioFilterParameterInfo& info, int count) {
    std::vector<ParameterEntry> entries;
    for (int i = 0; i < count; ++i) {
        const float normalized = static_cast<float>(i) / static_cast<float>(count - 1);
        entries.push_back(MakeEntry(info.GetParameterString(normalized), normalized));
        // Notes would lose what tells C from C#.
        entries.back().slug = ToLower(entries.back().name);
    }
    return entries;
}

std::vector<ParameterEntry> GetEntries(const AudioFilterParameterInfo& info) {
    if (const auto* boolean = dynamic_cast<const BoolParameterInfo*>(&info)) {
        return {{"off", ToUtf8(boolean->GetFalseText()), 0.0f},
                {"on", ToUtf8(boolean->GetTrueText()), 1.0f}};
    }
    if (const auto* choice = dynamic_cast<const EnumParameterInfo*>(&info)) {
        std::vector<ParameterEntry> entries;
        for (const auto& [key, name] : choice->GetEntries())
            entries.push_back(MakeEntry(name, choice->ToNormalized(static_cast<float>(key))));
        return entries;
    }
    if (dynamic_cast<const KeyParameterInfo*>(&info)) return MakeEvenEntries(info, kKeyCount);
    if (dynamic_cast<const ScaleParameterInfo*>(&info)) return MakeEvenEntries(info, kScaleCount);
    if (info.GetRole() == AudioFilterParameterRole::kSwitch ||
        info.GetRole() == AudioFilterParameterRole::kLink)
        return {{"off", "Off", 0.0f}, {"on", "On", 1.0f}};
    return {};
}

std::string MakeSlug(const AudioFilterParameterInfo& info) {
    const std::string& identifier = info.GetIdentifier();
    std::string slug = ToSlug(identifier.empty() ? ToUtf8(info.GetName()) : identifier);
    if (info.GetElement() > 0) slug += '.' + std::to_string(info.GetElement());
    return slug;
}

/// The label as it stands, except that Remix counts its times in seconds although their label is "ms".
std::string GetUnit(const kraaudiofilterhost::AudioFilter& filter,
                    const AudioFilterParameterInfo& info) {
    const bool isRemix = filter.GetComponentID() == components::kMusicRetargetComponentID;
    const bool isTime = info.GetUnit() == kraaudiofilterhost::AudioFilterParameterInfoUnit::kTime;
    return isRemix && isTime ? "s" : ToUtf8(info.GetLabel());
}

/// "gain" of "gain.1"; the slug itself when it has no number.
std::string_view GetStem(std::string_view slug) { return slug.substr(0, slug.find('.')); }

Error UnknownParameter(const std::vector<Parameter>& parameters,
                       std::string_view name,
                       std::string_view effect) {
    std::vector<std::string> slugs;
    for (const Parameter& parameter : parameters) {
        const std::string stem(GetStem(parameter.slug));
        if (stem != parameter.slug && std::find(slugs.begin(), slugs.end(), stem) == slugs.end())
            slugs.push_back(stem);
        slugs.push_back(parameter.slug);
    }
    const std::string hint = DidYouMean(name, slugs);
    constexpr std::size_t kMostListed = 24;
    return {ExitCode::kUsage, std::string(effect) + " has no parameter '" + std::string(name) + "'",
            slugs.size() <= kMostListed
                ? "preset, " + Join(slugs)
                : "preset and what 'zuc describe " + std::string(effect) + "' shows",
            hint};
}

}  // namespace

std::vector<Parameter> GetParameters(const kraaudiofilterhost::AudioFilter& filter) {
    std::vector<Parameter> parameters;
    for (int index = 0; index < filter.GetParameterCount(); ++index) {
        const auto info = filter.GetParameterInfo(index);
        if (!info) continue;
        Parameter parameter;
        parameter.index = index;
        parameter.slug = MakeSlug(*info);
        parameter.name = ToUtf8(info->GetName());
        parameter.unit = GetUnit(filter, *info);
        parameter.lo = info->FromNormalized(0.0f);
        parameter.hi = info->FromNormalized(1.0f);
        parameter.normalized = filter.GetParameter(index);
        parameter.isAutomatable = info->CanBeAutomated();
        parameter.role = info->GetRole();
        parameter.entries = GetEntries(*info);
        parameter.info = info;
        parameters.push_back(std::move(parameter));
    }
    return parameters;
}

std::vector<const Parameter*> FindParameters(const std::vector<Parameter>& parameters,
                                             std::string_view name,
                                             std::string_view effect) {
    const std::string wanted = Fold(Trim(name));
    std::vector<const Parameter*> group;
    for (const Parameter& parameter : parameters) {
        if (wanted == Fold(parameter.slug)) return {&parameter};
        if (wanted == Fold(GetStem(parameter.slug))) group.push_back(&parameter);
    }
    if (!group.empty()) return group;
    for (const Parameter& parameter : parameters)
        if (wanted == Fold(parameter.name)) return {&parameter};
    throw UnknownParameter(parameters, Trim(name), effect);
}

}  // namespace zuc::host
