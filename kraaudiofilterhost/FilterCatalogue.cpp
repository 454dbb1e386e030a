#include "kraaudiofilterhost/FilterCatalogue.h"

#include <map>

namespace kraaudiofilterhost {
namespace {

int initializations = 0;

std::map<WStr, utility::AudioFilterCreator>& Creators() {
    static std::map<WStr, utility::AudioFilterCreator> creators;
    return creators;
}

}  // namespace

void Initialize() { ++initializations; }

void Terminate() {
    if (--initializations == 0) Creators().clear();
}

namespace utility {

void RegisterAudioFilter(const WStr& identifier, AudioFilterCreator creator) {
    Creators()[identifier] = creator;
}

void UnregisterAudioFilter(const WStr& identifier) { Creators().erase(identifier); }

AudioFilterPtr CreateAudioFilter(const WStr& identifier) {
    const auto found = Creators().find(identifier);
    return found == Creators().end() ? nullptr : found->second();
}

std::vector<WStr> GetAudioFilterIdentifiers() {
    std::vector<WStr> identifiers;
    for (const auto& [identifier, creator] : Creators()) identifiers.push_back(identifier);
    return identifiers;
}

}  // namespace utility
}  // namespace kraaudiofilterhost
