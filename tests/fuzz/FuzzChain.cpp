// Chains from JSON and from the command line: read or refused, never anything else; what was read is the same
// after it was written and read again, effects that nobody knows included.

#include "host/Chain.h"
#include "host/EffectCatalogue.h"
#include "tests/fuzz/Fuzz.h"

void zuc::fuzz::Run(std::string_view input) {
    static const host::EffectCatalogue everything;
    const host::EffectCatalogue* const catalogues[] = {nullptr, &everything};
    for (const auto* catalogue : catalogues)
        Try([&] {
            const host::Chain chain = host::ParseChainJson(input, "fuzz", catalogue);
            const std::string json = host::FormatChainJson(chain);
            Require(host::ParseChainJson(json, "fuzz", catalogue) == chain);
        });
    const host::ChainStep step = host::ParseStepText(input);
    Require(host::ParseStepText(host::FormatStepText(step)).effect == step.effect);
}
