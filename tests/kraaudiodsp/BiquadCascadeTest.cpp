#include "kraaudiodsp/BiquadCascade.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace dsp {
namespace {

std::vector<float> Noise(std::size_t frames) {
    std::mt19937 random(3);
    std::vector<float> noise(frames);
    for (float& x : noise) x = static_cast<float>(random()) / 2147483648.0f - 1.0f;
    return noise;
}

std::vector<Biquad> MakeSections(std::size_t count, double shift) {
    std::vector<Biquad> sections;
    for (std::size_t k = 0; k < count; ++k) {
        if (k % 5 == 3) {
            sections.emplace_back();  // changes nothing
            continue;
        }
        const double hz = 50.0 * static_cast<double>(k + 1) + shift;
        sections.push_back(Design(MakeBell(hz, k % 2 ? -4 : 4, 2.0), 48000.0).sections[k % 2]);
    }
    return sections;
}

/// What the header says, one filter after the other.
std::vector<float> Reference(const std::vector<Biquad>& sections, const std::vector<float>& in) {
    std::vector<double> work(in.begin(), in.end());
    for (const Biquad& f : sections) {
        double s1 = 0.0;
        double s2 = 0.0;
        for (double& x : work) {
            const double y = f.b0 * x + s1;
            s1 = (f.b1 * x - f.a1 * y) + s2;
            s2 = f.b2 * x - f.a2 * y;
            x = y;
        }
    }
    return {work.begin(), work.end()};
}

std::vector<float> Play(BiquadCascade& cascade, const std::vector<float>& in, std::size_t block) {
    std::vector<float> out(in);
    for (std::size_t done = 0; done < in.size(); done += block)
        cascade.Process(out.data() + done, out.data() + done,
                        static_cast<int>(std::min(block, in.size() - done)));
    return out;
}

TEST(BiquadCascade, IsItsFiltersInARowBitForBitInAnyBlocks) {
    const auto noise = Noise(999);
    BiquadCascade cascade;
    EXPECT_EQ(Play(cascade, noise, 64), noise) << "nothing is set";
    for (const std::size_t count : {1u, 3u, 4u, 5u, 8u, 10u, 16u, 17u, 40u, 68u}) {
        const auto sections = MakeSections(count, 0.0);
        const auto expected = Reference(sections, noise);
        for (const std::size_t block : {1u, 2u, 7u, 16u, 64u, 999u}) {
            cascade.SetSections(sections, 0);
            cascade.Reset();
            EXPECT_EQ(Play(cascade, noise, block), expected) << count << " in blocks of " << block;
        }
    }
}

TEST(BiquadCascade, RampsAlikeInAnyBlocksAndEndsAtTheTarget) {
    const auto noise = Noise(4000);
    std::vector<float> expected;
    for (const std::size_t block : {1000u, 1u, 7u, 64u, 500u}) {
        BiquadCascade cascade;
        cascade.SetSections(MakeSections(9, 0.0), 0);
        std::vector<float> out;
        const auto play = [&](std::size_t first, std::size_t last) {
            const auto piece = Play(cascade, {noise.begin() + first, noise.begin() + last}, block);
            out.insert(out.end(), piece.begin(), piece.end());
        };
        play(0, 1000);
        cascade.SetSections(MakeSections(12, 30.0), 960);
        play(1000, 1500);
        cascade.SetSections(MakeSections(2, 700.0), 960);  // before the first ramp has ended
        play(1500, 4000);
        if (expected.empty()) expected = out;
        EXPECT_EQ(out, expected) << block;
    }
    // A tenth of a second after the ramp nothing of the old filters is left.
    const auto plain = Reference(MakeSections(2, 700.0), noise);
    for (std::size_t i = 3900; i < 4000; ++i) EXPECT_NEAR(expected[i], plain[i], 2e-5f) << i;
}

TEST(BiquadCascade, EachFrameOfARampIsAStepFurtherAndTheLastIsTheTarget) {
    BiquadCascade cascade;
    const auto play = [&](double gain, int rampFrames, std::size_t frames) {
        cascade.SetSections(std::array{Biquad{gain, 0.0, 0.0, 0.0, 0.0}}, rampFrames);
        return Play(cascade, std::vector<float>(frames, 1.0f), 2);
    };
    play(2.0, 0, 1);
    EXPECT_EQ(play(10.0, 8, 3), (std::vector<float>{3, 4, 5}));
    EXPECT_EQ(play(1.0, 4, 6), (std::vector<float>{4, 3, 2, 1, 1, 1})) << "from where it was";
}

}  // namespace
}  // namespace dsp
