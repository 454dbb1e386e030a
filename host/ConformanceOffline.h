#pragma once

#include <cstdint>
#include <string>

#include "Components/Catalogue.h"

namespace zuc::host::conformance {

// The promises of offline effects; each answers what is wrong, empty when nothing is. [worker]

std::string FindOfflineRunFault(const components::CatalogueEntry& effect, std::uint64_t seed);
std::string FindOfflineCancelFault(const components::CatalogueEntry& effect, std::uint64_t seed);
std::string FindOfflineWriterFault(const components::CatalogueEntry& effect, std::uint64_t seed);

}  // namespace zuc::host::conformance
