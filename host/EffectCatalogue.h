#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Components/Catalogue.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host {

using kraaudiofilterhost::AudioFilter;
using kraaudiofilterhost::AudioFilterPtr;

/// One effect under the names that people and scripts use. The slug comes from the title's text key
/// ("$$$/AudioComponents/AmplifyTitle=Amplify" is `amplify`), the class name from the identifier.
struct Effect {
    std::string slug;       // "graphic-equalizer-10"
    std::string className;  // "GraphicEqualizer10"
    std::string title;      // localized
    components::Category category;
    AudioFilterPtr (*create)();
};

/// The effects by name. Immutable after construction. [any]
class EffectCatalogue {
public:
    using Entries = std::span<const components::CatalogueEntry>;

    explicit EffectCatalogue(Entries entries = components::GetCatalogue());

    /// In menu order.
    const std::vector<Effect>& GetEffects() const { return effects_; }
    /// By slug, class name or title; case, blanks, '-' and '_' do not count. Throws Error (kUsage).
    const Effect& Find(std::string_view name) const;
    bool Has(std::string_view name) const;

private:
    std::vector<Effect> effects_;
};

/// "amplitude", "delay-reverb": a category in texts for programs.
std::string_view GetCategoryName(components::Category category);

/// A new effect that knows its rate and has `channels` main channels in the customary layout, like a
/// host before it sets parameters. Throws Error (kUsage) when it takes no such layout. [host]
AudioFilterPtr CreateForFormat(const Effect& effect,
                               float rateHz,
                               std::size_t channels,
                               int blockFrames,
                               std::size_t sideChannels = 0);
/// Proposes the customary layout of `channels` channels for each main bus, and of `sideChannels` for
/// the side chain of an effect that has one; false when the effect does not end up with it. [host]
bool RequestChannels(AudioFilter& filter, std::size_t channels, std::size_t sideChannels = 0);

/// A factory preset by its name as shown or its identifier; case does not count. -1 when there is none.
int FindFactoryPreset(const AudioFilter& filter, std::string_view name);
std::vector<std::string> GetFactoryPresetNames(const AudioFilter& filter);

}  // namespace zuc::host
