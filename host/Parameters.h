#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::host {

/// One named choice of a parameter.
struct ParameterEntry {
    std::string slug;  // "on", "low-pass"
    std::string name;  // localized
    float normalized = 0.0f;
};

/// A parameter of an effect under the names that people and scripts use, in its own unit.
struct Parameter {
    int index = 0;
    std::string slug;  // "delay-left"; one of several alike: "gain.1"
    std::string name;  // localized
    std::string unit;  // as shown; may be empty
    float lo = 0.0f;   // in the unit
    float hi = 0.0f;
    float normalized = 0.0f;  // of the effect when it was asked
    bool isAutomatable = true;
    kraaudiofilterhost::AudioFilterParameterRole role{};
    std::vector<ParameterEntry> entries;  // of switches and choices
    kraaudiofilterhost::AudioFilterParameterInfoPtr info;
};

/// The described parameters of `filter`, in index order, with its present values. [host]
std::vector<Parameter> GetParameters(const kraaudiofilterhost::AudioFilter& filter);

/// The parameters that `name` means: a slug, a name as shown, or a slug without its number ("gain"),
/// which means all that share it; case, blanks, '-' and '_' do not count. Throws Error (kUsage) that
/// begins with `effect`.
std::vector<const Parameter*> FindParameters(const std::vector<Parameter>& parameters,
                                             std::string_view name,
                                             std::string_view effect);

}  // namespace zuc::host
