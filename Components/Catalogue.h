#pragma once

#include <span>
#include <string_view>

#include "kraaudiofilterhost/AudioFilter.h"
#include "kracore/Export.h"

namespace zuc::components {

/// Where an effect belongs in menus.
enum class Category {
    kAmplitude,
    kFilter,
    kDelayReverb,
    kModulation,
    kRestoration,
    kTimePitch,
    kGenerator,
    kRemix
};

/// One effect of the library.
struct CatalogueEntry {
    std::u16string_view identifier;  // names the effect in saved files; never changes
    std::string_view titleKey;       // "$$$/AudioComponents/AmplifyTitle=Amplify"
    Category category;
    kraaudiofilterhost::AudioFilterPtr (*create)();
};

/// Every effect of the library, in menu order. Nothing depends on a row's position. [any]
ZUC_API std::span<const CatalogueEntry> GetCatalogue();

}  // namespace zuc::components
