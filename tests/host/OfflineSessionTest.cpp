#include "host/OfflineSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "Components/Library.h"
#include "TestEffects.h"
#include "host/EffectCatalogue.h"
#include "host/Error.h"
#include "host/Parameters.h"

namespace zuc::host {
namespace {

using std::chrono::steady_clock;

constexpr int kFrames = 20000;

/// Frame i is i, up to one from which on reading throws.
class CountingSource final : public AudioSource {
public:
    explicit CountingSource(std::int64_t failsFrom = kFrames) : failsFrom_(failsFrom) {
        info_.rateHz = 48000;
        info_.channels = 2;
        info_.frames = kFrames;
    }
    int Read(float* const* out, int frames) override {
        const auto count =
            static_cast<int>(std::min<std::int64_t>({frames, 777, kFrames - position_}));
        if (position_ + count > failsFrom_) throw Error(ExitCode::kInput, "the disc is broken");
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < count; ++i) out[c][i] = static_cast<float>(position_ + i);
        position_ += count;
        return count;
    }
    void Seek(std::int64_t frame) override { position_ = frame; }

private:
    std::int64_t failsFrom_;
    std::int64_t position_ = 0;
};

class OfflineSessionTest : public testing::Test {
protected:
    OfflineSessionTest() { Initialize(); }
    ~OfflineSessionTest() override { Terminate(); }

    AudioFilterPtr Make(const char* parameter, float value) const {
        auto filter = CreateForFormat(catalogue_.Find("test-offline"), 48000.0f, 2, 512);
        const auto parameters = GetParameters(*filter);
        const auto* found = FindParameters(parameters, parameter, "test-offline").front();
        filter->SetParameter(found->index, found->info->ToNormalized(value));
        return filter;
    }
    /// All frames in blocks of any size; the number of those that are not as they should be.
    static int CountWrong(OfflineSession& session, std::minstd_rand& random, int& frames) {
        std::vector<float> left(5000);
        std::vector<float> right(5000);
        float* const at[] = {left.data(), right.data()};
        int wrong = 0;
        frames = 0;
        while (const int count = session.Read(at, static_cast<int>(random() % 5000) + 1)) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i, ++frames) {
                const auto expected = static_cast<float>(kFrames - 1 - frames % kFrames);
                wrong += left[i] != expected || right[i] != expected ? 1 : 0;
            }
        }
        return wrong;
    }

    EffectCatalogue catalogue_{test::GetTestEffects()};
};

TEST_F(OfflineSessionTest, GivesEveryFrameThroughAnyRing) {
    std::minstd_rand random(1);
    for (const float way : {0.0f, 1.0f})
        for (const long ring : {100L, 8192L, 100000L}) {
            CountingSource source;
            OfflineSession session(Make("way", way), source, kFrames, ring);
            int frames = 0;
            EXPECT_EQ(CountWrong(session, random, frames), 0) << ring;
            EXPECT_EQ(frames, way > 0.0f ? 2 * kFrames : kFrames) << ring;
            EXPECT_EQ(session.GetCompletionText(), "turned round");
        }
}

TEST_F(OfflineSessionTest, HandsOnWhatTheSourceThrew) {
    std::minstd_rand random(1);
    for (const std::int64_t failsFrom : {0, 9000}) {
        CountingSource source(failsFrom);
        OfflineSession session(Make("way", 0.0f), source, kFrames);
        int frames = 0;
        try {
            CountWrong(session, random, frames);
            ADD_FAILURE();
        } catch (const Error& error) {
            EXPECT_EQ(error.GetMessage(), "the disc is broken");
        }
    }
}

TEST_F(OfflineSessionTest, SaysWhatWentWrong) {
    std::minstd_rand random(3);
    CountingSource source;
    const auto find = [&](const AudioFilterPtr& filter) {
        try {
            OfflineSession session(filter, source, kFrames);
            int frames = 0;
            CountWrong(session, random, frames);
        } catch (const Error& error) {
            return std::string(error.what());
        }
        return std::string("nothing");
    };
    EXPECT_THAT(find(Make("way", 2.0f)),
                testing::HasSubstr("gave up after 0 frames\n  hint: gave up"));
    EXPECT_THAT(find(CreateForFormat(catalogue_.Find("test-delay"), 48000.0f, 2, 512)),
                testing::HasSubstr("does not work on whole files"));
    // Two at once with one effect: the first goes on.
    const auto filter = Make("analysis", 500.0f);
    OfflineSession first(filter, source, kFrames);
    EXPECT_THAT(find(filter), testing::HasSubstr("did not start"));
    int frames = 0;
    EXPECT_EQ(CountWrong(first, random, frames), 0);
    EXPECT_EQ(frames, kFrames);
}

TEST_F(OfflineSessionTest, AsASourceTellsItsProgress) {
    for (const float way : {0.0f, 1.0f}) {
        const auto filter = Make("analysis", 200.0f);
        filter->SetParameter(0, way / 2.0f);
        std::vector<double> seen;
        OfflineSource source(filter, std::make_unique<CountingSource>(),
                             {nullptr, [&](double progress) { seen.push_back(progress); }});
        EXPECT_EQ(source.GetInfo().frames, way > 0.0f ? -1 : kFrames);
        std::vector<float> left(3 * kFrames);
        std::vector<float> right(3 * kFrames);
        float* const at[] = {left.data(), right.data()};
        EXPECT_EQ(source.Read(at, 3 * kFrames), way > 0.0f ? 2 * kFrames : kFrames);
        EXPECT_EQ(right[kFrames - 1], 0.0f);
        EXPECT_EQ(source.Read(at, 1), 0) << "at the end";
        EXPECT_THROW(source.Seek(0), Error);
        ASSERT_GT(seen.size(), 2u);
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
        EXPECT_GE(seen.front(), 0.0);
        EXPECT_GT(seen.back(), 0.1);
        EXPECT_LE(seen.back(), 0.5) << "the analysis is half of the work";
    }
}

/// However long the effect thinks, and whether the session is cancelled, interrupted or just dropped.
TEST_F(OfflineSessionTest, EndsAtOnce) {
    std::minstd_rand random(2);
    std::atomic<int> interrupted{2};
    float sample[2] = {};
    float* const at[] = {&sample[0], &sample[1]};
    for (int i = 0; i < 200; ++i) {
        CountingSource source;
        steady_clock::time_point before;
        {
            OfflineSession session(Make("analysis", i % 2 == 0 ? 60000.0f : 0.0f), source, kFrames,
                                   100);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000));
            before = steady_clock::now();
            if (i % 3 == 0) {
                session.Cancel();
                EXPECT_EQ(session.Read(at, 1), 0);
            } else if (i % 3 == 1) {
                EXPECT_THROW(session.Read(at, 1, {&interrupted, {}}), Interrupted);
            }
        }
        EXPECT_LT(steady_clock::now() - before, std::chrono::milliseconds(500));
    }
}

}  // namespace
}  // namespace zuc::host
