#include "Components/private/OfflineJob.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Components/DefaultOfflineWriter.h"
#include "Components/Library.h"

namespace zuc::components {
namespace {

using WriterPtr = boost::intrusive_ptr<DefaultOfflineWriter>;

class OfflineJobTest : public testing::Test {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override { Terminate(); }
};

/// Source frame i is i; fails from a frame on.
class CountingReader final : public OfflineIInterface {
public:
    explicit CountingReader(std::int64_t failsFrom) : failsFrom_(failsFrom) {}
    long GetChannelCount() const override { return 1; }
    bool GetAudio(float** destination, long, std::int64_t position, long frames) override {
        if (position + frames > failsFrom_) return false;
        for (long i = 0; i < frames; ++i) destination[0][i] = static_cast<float>(position + i);
        return true;
    }

private:
    std::int64_t failsFrom_;
};

/// Takes 0, 1 or any number of frames at a time and checks that they go on where they stopped.
class FussyWriter final : public OfflineOInterface {
public:
    FussyWriter(unsigned seed, int most) : random_(seed), most_(most) {}
    long GetChannelCount() const override { return 1; }
    void SetOpenToWrite(bool open) override { open_.store(open); }
    void Flush() override {}
    long PutAudio(const float* const* source, long, std::int64_t offset, long frames) override {
        if (!open_.load()) return 0;
        const long taken =
            std::min<long>(frames, std::uniform_int_distribution<long>(0, most_)(random_));
        for (long i = 0; i < taken; ++i)
            if (source[0][offset + i] != static_cast<float>(next_++)) ++wrong_;
        return taken;
    }
    bool IsOpen() const { return open_.load(); }
    std::int64_t next_ = 0;
    int wrong_ = 0;

private:
    std::minstd_rand random_;
    int most_;
    std::atomic<bool> open_{false};
};

constexpr std::int64_t kSourceFrames = 20000;

/// Copies the source to the writer.
bool Copy(OfflineJob::Run& run) {
    std::vector<float> block(1024);
    float* at = block.data();
    for (std::int64_t done = 0; done < kSourceFrames;) {
        const long count = static_cast<long>(std::min<std::int64_t>(1024, kSourceFrames - done));
        if (!run.Read(&at, 1, done, count) || !run.Write(&at, count)) return false;
        done += count;
        run.ReportProgress(static_cast<double>(done) / kSourceFrames);
    }
    return true;
}

struct JobCase {
    const char* name;
    std::int64_t failsFrom;
    int mostTaken;
    OfflineJob::Outcome outcome;
};
const JobCase kJobs[] = {
    {"takes any number", kSourceFrames, 3000, OfflineJob::Outcome::kDone},
    {"takes all", kSourceFrames, 1 << 20, OfflineJob::Outcome::kDone},
    {"fails at once", 0, 3000, OfflineJob::Outcome::kFailed},
    {"fails in the middle", 9000, 3000, OfflineJob::Outcome::kFailed},
};

TEST_F(OfflineJobTest, JobsEndWithAClosedWriterHoweverTheyEnd) {
    for (const JobCase& c : kJobs) {
        float volatile progress = -1.0f;
        const boost::intrusive_ptr<FussyWriter> writer(new FussyWriter(1, c.mostTaken));
        OfflineJob job;
        job.SetReader(new CountingReader(c.failsFrom));
        job.SetWriter(writer);
        job.SetProgressHandler(&progress);
        ASSERT_TRUE(job.Start(Copy)) << c.name;
        job.Wait();
        EXPECT_EQ(job.GetOutcome(), c.outcome) << c.name;
        EXPECT_FALSE(writer->IsOpen()) << c.name;
        EXPECT_EQ(writer->wrong_, 0) << c.name;
        const bool isDone = c.outcome == OfflineJob::Outcome::kDone;
        EXPECT_EQ(writer->next_, isDone ? kSourceFrames : c.failsFrom / 1024 * 1024) << c.name;
        EXPECT_EQ(progress >= 100.0f, isDone) << c.name;
    }
}

TEST_F(OfflineJobTest, JobsStartOnlyWhenTheyCan) {
    const WriterPtr writer(new DefaultOfflineWriter);
    writer->Initialize(1, 100);
    OfflineJob job;
    EXPECT_FALSE(job.Start(Copy)) << "no writer";
    job.SetWriter(writer);
    job.SetReader(new CountingReader(kSourceFrames));
    EXPECT_TRUE(job.Start(Copy));
    EXPECT_FALSE(job.IsFinished()) << "counts as running at once";
    EXPECT_FALSE(job.Start(Copy)) << "one run at a time";
    job.Cancel();
    job.Wait();
    EXPECT_EQ(job.GetOutcome(), OfflineJob::Outcome::kCancelled);
    EXPECT_TRUE(job.Start([](OfflineJob::Run&) -> bool { throw std::runtime_error("broken"); }));
    job.Wait();
    EXPECT_EQ(job.GetOutcome(), OfflineJob::Outcome::kFailed);
    EXPECT_FALSE(writer->IsOpenToWrite());
}

TEST(OfflineJobWithoutLibrary, DoesNotStart) {
    const WriterPtr writer(new DefaultOfflineWriter);
    writer->Initialize(1, 100);
    OfflineJob job;
    job.SetWriter(writer);
    EXPECT_FALSE(job.Start(Copy));
    EXPECT_TRUE(job.IsFinished());
    EXPECT_FALSE(writer->IsOpenToWrite());
}

/// Cancels after any time, with readers that fail and writers that take little.
TEST_F(OfflineJobTest, AThousandFussyRunsEnd) {
    std::minstd_rand random(5);
    const auto draw = [&random](int most) {
        return std::uniform_int_distribution<int>(0, most)(random);
    };
    for (int i = 0; i < 1000; ++i) {
        const boost::intrusive_ptr<FussyWriter> writer(
            new FussyWriter(static_cast<unsigned>(i) + 1, draw(2) == 0 ? 1 : 4000));
        OfflineJob job;
        job.SetReader(new CountingReader(draw(1) == 0 ? kSourceFrames : draw(kSourceFrames)));
        job.SetWriter(writer);
        ASSERT_TRUE(job.Start(Copy));
        std::this_thread::sleep_for(std::chrono::microseconds(draw(1500)));
        job.Cancel();
        job.Wait();
        EXPECT_FALSE(writer->IsOpen());
        EXPECT_EQ(writer->wrong_, 0);
    }
}

}  // namespace
}  // namespace zuc::components
