// Where libFuzzer, or the replay of a corpus, calls the target; and what several targets do.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "Components/Library.h"
#include "host/RenderSource.h"
#include "tests/fuzz/Fuzz.h"

namespace zuc::fuzz {

void Process(kraaudiofilterhost::AudioFilter& effect) {
    constexpr int kBlocks[] = {1, 64, 480, 7, 1024};
    constexpr int kMostFrames = 1024;
    const std::size_t channels =
        std::max(effect.GetNumberOfInputChannels(), effect.GetNumberOfOutputChannels());
    host::AudioBlock audio(channels, kMostFrames);
    float** const at = audio.GetChannels();
    std::uint32_t seed = 1;
    effect.Resume();
    for (const int frames : kBlocks) {
        for (std::size_t c = 0; c < channels; ++c)
            for (int i = 0; i < frames; ++i) {
                seed = seed * 1664525u + 1013904223u;  // Press et al., Numerical Recipes, 7.1
                at[c][i] = static_cast<float>(static_cast<std::int32_t>(seed)) * 0x1p-31f;
            }
        kraaudiofilterhost::Flags flags;
        effect.Process(at, at, frames, {}, flags);
        for (std::size_t c = 0; c < effect.GetNumberOfOutputChannels(); ++c)
            for (int i = 0; i < frames; ++i) Require(std::isfinite(at[c][i]));
    }
    effect.Suspend();
}

}  // namespace zuc::fuzz

extern "C" int LLVMFuzzerTestOneInput(  // NOLINT(readability-identifier-naming): libFuzzer's name
    const std::uint8_t* bytes,
    std::size_t count) {
    [[maybe_unused]] static const bool kIsInitialized = (zuc::Initialize(), true);
    zuc::fuzz::Try([&] { zuc::fuzz::Run({reinterpret_cast<const char*>(bytes), count}); });
    return 0;
}
