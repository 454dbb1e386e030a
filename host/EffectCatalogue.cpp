#include "host/EffectCatalogue.h"

#include <algorithm>

#include "host/Error.h"
#include "host/Text.h"
#include "kracore/Localizer.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::host {
namespace {

using components::Category;
using kracore::utility::ToUtf8;

std::string_view WithoutSuffix(std::string_view text, std::string_view suffix) {
    return text.ends_with(suffix) && text.size() > suffix.size()
               ? text.substr(0, text.size() - suffix.size())
               : text;
}

Effect MakeEffect(const components::CatalogueEntry& entry) {
    const std::string identifier = ToUtf8(entry.identifier);
    Effect effect{};
    effect.slug = ToSlug(WithoutSuffix(kracore::config::GetKeyName(entry.titleKey), "Title"));
    effect.className = identifier.substr(identifier.find_last_of(".:/") + 1);
    effect.title = ToUtf8(kracore::config::Localizer::Localize(entry.titleKey));
    effect.category = entry.category;
    effect.create = entry.create;
    return effect;
}

bool IsCalled(const Effect& effect, const std::string& folded) {
    return folded == Fold(effect.slug) || folded == Fold(effect.className) ||
           folded == Fold(effect.title);
}

}  // namespace

EffectCatalogue::EffectCatalogue(Entries entries) {
    for (const components::CatalogueEntry& entry : entries) effects_.push_back(MakeEffect(entry));
}

bool EffectCatalogue::Has(std::string_view name) const {
    return std::any_of(effects_.begin(), effects_.end(),
                       [folded = Fold(name)](const Effect& e) { return IsCalled(e, folded); });
}

const Effect& EffectCatalogue::Find(std::string_view name) const {
    const std::string wanted = Fold(name);
    std::vector<std::string> slugs;
    std::vector<std::string> names;
    for (const Effect& effect : effects_) {
        if (IsCalled(effect, wanted)) return effect;
        slugs.push_back(effect.slug);
        names.insert(names.end(), {effect.slug, effect.className, effect.title});
    }
    const std::string similar = FindSimilar(name, names);
    throw Error(ExitCode::kUsage, "there is no effect '" + std::string(name) + "'",
                slugs.size() <= 8 ? Join(slugs) : "the effects that 'zuc list' shows",
                similar.empty() ? "" : "did you mean '" + Find(similar).slug + "'?");
}

std::string_view GetCategoryName(Category category) {
    switch (category) {
        case Category::kAmplitude:
            return "amplitude";
        case Category::kFilter:
            return "filter";
        case Category::kDelayReverb:
            return "delay-reverb";
        case Category::kModulation:
            return "modulation";
        case Category::kRestoration:
            return "restoration";
        case Category::kTimePitch:
            return "time-pitch";
        case Category::kGenerator:
            return "generator";
        case Category::kRemix:
            return "remix";
    }
    return {};
}

bool RequestChannels(AudioFilter& filter, std::size_t channels, std::size_t sideChannels) {
    const auto layout = kramediatypes::LayoutForChannelCount(channels);
    const bool hasSideChain = sideChannels > 0 && filter.CanUseSideChaining();
    if (hasSideChain)
        filter.RequestIOConfiguration({layout, kramediatypes::LayoutForChannelCount(sideChannels)},
                                      {layout});
    else
        filter.RequestIOConfiguration({layout}, {layout});
    const auto& inputs = filter.GetInputBuses();
    const auto& outputs = filter.GetOutputBuses();
    const bool acceptsInput = inputs.empty() || inputs.front().GetChannelCount() == channels;
    if (hasSideChain && filter.GetNumberOfInputChannels() != channels + sideChannels) return false;
    return acceptsInput && outputs.size() == 1 && outputs.front().GetChannelCount() == channels;
}

AudioFilterPtr CreateForFormat(const Effect& effect,
                               float rateHz,
                               std::size_t channels,
                               int blockFrames,
                               std::size_t sideChannels) {
    AudioFilterPtr filter = effect.create();
    if (!filter)
        throw Error(ExitCode::kProcessing, effect.slug + " cannot be created on this machine");
    filter->SetSampleRate(rateHz);
    filter->SetBlockSize(blockFrames);
    if (!RequestChannels(*filter, channels, sideChannels))
        throw Error(
            ExitCode::kUsage,
            effect.slug + " does not take " + std::to_string(channels) + " channels" +
                (sideChannels > 0 ? " with " + std::to_string(sideChannels) + " side-chain channels"
                                  : ""),
            "the layouts that 'zuc describe " + effect.slug + "' shows");
    return filter;
}

std::vector<std::string> GetFactoryPresetNames(const AudioFilter& filter) {
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(std::max(0, filter.GetNumFactoryPresets())));
    for (int preset = 0; preset < filter.GetNumFactoryPresets(); ++preset)
        names.push_back(ToUtf8(filter.GetFactoryPresetName(preset)));
    return names;
}

int FindFactoryPreset(const AudioFilter& filter, std::string_view name) {
    name = Trim(name);
    if (name.empty()) return -1;
    for (int preset = 0; preset < filter.GetNumFactoryPresets(); ++preset)
        if (EqualsIgnoringCase(ToUtf8(filter.GetFactoryPresetName(preset)), name) ||
            EqualsIgnoringCase(filter.GetFactoryPresetIdentifier(preset), name))
            return preset;
    return -1;
}

}  // namespace zuc::host
