#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/Chain.h"
#include "host/EffectCatalogue.h"
#include "host/Error.h"

/// Chains from JSON and from the command line: read or refused, never anything else; what was read is
/// the same after it was written and read again, effects that nobody knows included.
extern "C" int LLVMFuzzerTestOneInput(  // NOLINT(readability-identifier-naming): libFuzzer's name
    const std::uint8_t* data,
    std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    static const zuc::host::EffectCatalogue everything;
    for (const auto* catalogue :
         {static_cast<const zuc::host::EffectCatalogue*>(nullptr), &everything})
        try {
            const zuc::host::Chain chain = zuc::host::ParseChainJson(text, "fuzz", catalogue);
            const std::string json = zuc::host::FormatChainJson(chain);
            if (zuc::host::ParseChainJson(json, "fuzz", catalogue) != chain) std::abort();
        } catch (const zuc::host::Error&) {
        }
    try {
        const zuc::host::ChainStep step = zuc::host::ParseStepText(text);
        const zuc::host::ChainStep again =
            zuc::host::ParseStepText(zuc::host::FormatStepText(step));
        if (again.effect != step.effect) std::abort();
    } catch (const zuc::host::Error&) {
    }
    return 0;
}
