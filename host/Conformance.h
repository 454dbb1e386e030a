#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Components/Catalogue.h"

namespace zuc::host {

/// How the checks learn that processing allocated, waited or called the system. A program that is
/// linked with a guard fills it in, FindRealTimeProbe does; without one those checks are left out and said to be.
struct RealTimeProbe {
    void (*enter)() = nullptr;
    void (*leave)() = nullptr;
    std::uint64_t (*countFindings)() = nullptr;  // since the process started
    const char* (*describeLast)() = nullptr;

    bool IsActive() const { return enter != nullptr; }
};

/// The guard that this program is linked with or was started under; inactive without one. [any]
RealTimeProbe FindRealTimeProbe();

struct ConformanceOptions {
    std::uint64_t seed = 1;
    RealTimeProbe probe;
    int hourMinutes = 60;  // how long the check of an hour is; at least 4
};

/// One promise that an effect does not keep.
struct Finding {
    std::string effect;  // its title
    std::string check;
    std::string detail;  // what was seen, where, what was expected
};

/// One rule that every effect of the catalogue keeps.
struct ConformanceCheck {
    std::string_view name;
    std::string_view promise;  // one sentence for people
    int level = 3;  // of thoroughness from which it runs: 1 quick, 3 usual, 5 stress, 10 long
};

/// The rules, in the order in which they run. [any]
std::span<const ConformanceCheck> GetConformanceChecks();

/// Why `check` does not apply to the effect; empty when it does. Every exception has a reason. [any]
std::string_view GetConformanceException(const components::CatalogueEntry& effect,
                                         std::string_view check,
                                         const ConformanceOptions& options);

/// Runs one rule against one effect; what it finds, empty when the effect keeps it. The library must
/// be initialized. Deterministic for a seed. [worker]
std::vector<Finding> RunConformanceCheck(const components::CatalogueEntry& effect,
                                         std::string_view check,
                                         const ConformanceOptions& options);

}  // namespace zuc::host
