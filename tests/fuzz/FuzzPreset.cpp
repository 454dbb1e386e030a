// Presets and chains as a person saves them, applied to their effects: refused, or every effect's output is
// finite, and the chain in its usual form means the same.

#include "host/ChainProcessor.h"
#include "host/TemporaryFile.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/fuzz/TemporaryFolder.h"

namespace zuc::fuzz {
namespace {

constexpr std::size_t kMostEffects = 4;
constexpr const char* kName = "Fuzz";

host::Chain Resolve(const host::Chain& chain,
                    const host::EffectCatalogue& catalogue,
                    const host::UserPresets& presets) {
    host::ChainProcessor processor(chain, catalogue, presets, 48000.0f, 2, 1024);
    processor.GetLatencyFrames();
    processor.GetTailFrames();
    for (const auto& filter : processor.GetFilters()) Process(*filter);
    return processor.GetResolvedChain();
}

}  // namespace

void Run(std::string_view input) {
    static const host::EffectCatalogue catalogue;
    static const TemporaryFolder folder;
    const host::UserPresets presets(folder.GetPath());
    const host::Chain chain = host::ParseChainJson(input, "fuzz", &catalogue);
    if (chain.empty() || chain.size() > kMostEffects) return;
    // As the user's own preset: whatever it refers to, loading it ends.
    const host::ChainStep& first = chain.front();
    if (first.placeholder.empty()) {
        const std::string slug = catalogue.Find(first.effect).slug;
        Try([&] {
            host::WriteFileAtomically(presets.Save(slug, kName, {slug, "", {}}), input);
            Resolve({{slug, kName, {}}}, catalogue, presets);
        });
    }
    const host::Chain resolved = Resolve(chain, catalogue, presets);
    Require(Resolve(resolved, catalogue, presets) == resolved);
}

}  // namespace zuc::fuzz
