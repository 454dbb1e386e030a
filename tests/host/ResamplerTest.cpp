#include <fmt/format.h>
#include <gmock/gmock.h>

#include <limits>

#include "host/Resampler.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

std::vector<float> Resample(const std::vector<float>& in, int fromHz, int toHz, int blockFrames) {
    Resampler resampler(fromHz, toHz, 2);
    std::vector<float> out;
    Channels block(2, std::vector<float>(300));
    for (std::size_t at = 0; at < in.size();) {
        const int count = std::min(blockFrames, static_cast<int>(in.size() - at));
        const std::array<const float*, 2> from{&in[at], &in[at]};
        const Resampler::Progress progress =
            resampler.Process(from.data(), count, Pointers(block).data(), 300);
        at += static_cast<std::size_t>(progress.consumed);
        out.insert(out.end(), block[1].begin(), block[1].begin() + progress.produced);
    }
    while (const int count = resampler.Drain(Pointers(block).data(), 300))
        out.insert(out.end(), block[1].begin(), block[1].begin() + count);
    return out;
}

TEST(Resampler, KeepsLengthTimeAndQuality) {
    struct Case {
        int fromHz, toHz;
    };
    for (const Case& c :
         {Case{44100, 48000}, Case{48000, 44100}, Case{48000, 16000}, Case{8000, 192000},
          Case{48000, 48000}, Case{44100, 88200}, Case{11025, 44100}}) {
        for (const int frames : {0, 1, 100, 30011}) {
            SCOPED_TRACE(fmt::format("{} to {} Hz, {} frames", c.fromHz, c.toHz, frames));
            const std::vector<float> sine = MakeSine(1000, c.fromHz, frames);
            const std::vector<float> out = Resample(sine, c.fromHz, c.toHz, 1000);
            ASSERT_EQ(out.size(), static_cast<std::size_t>(std::llround(
                                      static_cast<double>(frames) * c.toHz / c.fromHz)));
            EXPECT_EQ(Resample(sine, c.fromHz, c.toHz, 77), out);
            if (frames < 30000) continue;
            const std::vector<float> ideal = MakeSine(1000, c.toHz, static_cast<int>(out.size()));
            double error = 0.0, power = 0.0;
            // The ends hold the onset of the sine, which is not band limited.
            for (std::size_t i = out.size() / 8; i < out.size() * 7 / 8; ++i) {
                error += std::pow(static_cast<double>(out[i]) - ideal[i], 2);
                power += std::pow(static_cast<double>(ideal[i]), 2);
            }
            EXPECT_LT(10.0 * std::log10(error / power + 1e-30), -105.0);
        }
    }
    EXPECT_EQ(Resampler::GetOutputFrames(std::int64_t{1} << 50, 44100, 88200),
              std::int64_t{1} << 51);
    // Places beyond what audio has, of files that say anything, stay numbers of their sign.
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(Resampler::GetOutputFrames(kMost, 8000, 48000), kMost);
    EXPECT_EQ(Resampler::GetOutputFrames(-kMost, 8000, 48000), -kMost);
}

}  // namespace
}  // namespace zuc::host
