#pragma once

#include <cstdlib>
#include <string_view>
#include <utility>

#include "host/Error.h"
#include "kraaudiofilterhost/AudioFilter.h"

namespace zuc::fuzz {

/// What a target does with one input. host::Error says that the input was refused, which is fine; anything
/// else that is thrown, a sanitizer's report, a hang, and a Require that does not hold are findings.
void Run(std::string_view input);

/// Ends the program when a promise does not hold.
inline void Require(bool holds) {
    if (!holds) std::abort();
}

/// Does a part of a target that may refuse its input.
template <class Part>
void Try(Part&& part) {
    try {
        std::forward<Part>(part)();
    } catch (const host::Error&) {
        return;
    }
}

/// Runs a new effect over a little noise, in blocks of different lengths; its output must be finite. Offline
/// effects only pass it.
void Process(kraaudiofilterhost::AudioFilter& effect);

}  // namespace zuc::fuzz
