#pragma once

#include <vector>

#include "kraaudiofilterhost/AudioFilter.h"

namespace kraaudiofilterhost {

/// Starts and ends the host library. Counted like the libraries that call them. [host]
ZUC_API void Initialize();
ZUC_API void Terminate();

namespace utility {

using AudioFilterCreator = AudioFilterPtr (*)();

/// Makes a filter known by its identifier; the last registration wins. [host]
ZUC_API void RegisterAudioFilter(const WStr& identifier, AudioFilterCreator creator);
ZUC_API void UnregisterAudioFilter(const WStr& identifier);
/// A new filter, or null when the identifier is unknown. [host]
ZUC_API AudioFilterPtr CreateAudioFilter(const WStr& identifier);
/// Identifiers that CreateAudioFilter knows, ascending. [host]
ZUC_API std::vector<WStr> GetAudioFilterIdentifiers();

}  // namespace utility
}  // namespace kraaudiofilterhost
