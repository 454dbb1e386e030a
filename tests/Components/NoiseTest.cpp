#include "Components/Noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "Components/DefaultOfflineWriter.h"
#include "Components/Library.h"
#include "kramediatypes/AudioChannels.h"

namespace zuc::components {
namespace {

using Signal = std::vector<std::vector<float>>;
using std::chrono::steady_clock;

using NoisePtr = boost::intrusive_ptr<Noise>;
using WriterPtr = boost::intrusive_ptr<DefaultOfflineWriter>;

class NoiseTest : public testing::Test {
protected:
    void SetUp() override { Initialize(); }
    void TearDown() override { Terminate(); }
};

NoisePtr MakeNoise(std::size_t channels = 2, float seed = 3.0f) {
    NoisePtr noise(new Noise);
    noise->SetSampleRate(48000.0f);
    const auto layout = kramediatypes::LayoutForChannelCount(channels);
    noise->RequestIOConfiguration({layout}, {layout});
    const auto info = noise->GetParameterInfo(Noise::kSeed);
    noise->SetParameter(Noise::kSeed, info->ToNormalized(seed));
    return noise;
}

void Set(Noise& noise, int parameter, float value) {
    noise.SetParameter(parameter, noise.GetParameterInfo(parameter)->ToNormalized(value));
}

Signal Play(Noise& noise, std::size_t frames, std::size_t block = 512) {
    Signal out(noise.GetNumberOfOutputChannels(), std::vector<float>(frames));
    kraaudiofilterhost::Flags flags;
    for (std::size_t done = 0; done < frames; done += block) {
        std::vector<float*> at;
        for (auto& channel : out) at.push_back(channel.data() + done);
        noise.Process(at.data(), at.data(), static_cast<int>(std::min(block, frames - done)), {},
                      flags);
    }
    return out;
}

Signal RunOffline(Noise& noise, std::int64_t start, std::int64_t end, long capacity = 20000) {
    const auto channels = noise.GetNumberOfOutputChannels();
    const WriterPtr writer(new DefaultOfflineWriter);
    writer->Initialize(static_cast<long>(channels), capacity);
    noise.SetOfflineWriter(writer);
    EXPECT_TRUE(noise.OfflineRun(start, end));
    Signal out(channels);
    Signal block(channels, std::vector<float>(3000));
    std::vector<float*> at;
    for (auto& channel : block) at.push_back(channel.data());
    while (writer->IsOpenToWrite() || writer->GetAvailable() > 0) {
        const int count = noise.OfflineProcess(nullptr, at.data(), 0, 3000, 0);
        for (std::size_t c = 0; c < channels; ++c)
            out[c].insert(out[c].end(), block[c].begin(), block[c].begin() + count);
    }
    while (!noise.OfflineProcessFinished()) std::this_thread::yield();
    return out;
}

double GetLevelDb(const std::vector<float>& x) {
    double sum = 0.0;
    for (const float v : x) sum += static_cast<double>(v) * v;
    return 10.0 * std::log10(sum / static_cast<double>(x.size()));
}

double Correlate(const std::vector<float>& a, const std::vector<float>& b) {
    double ab = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) ab += static_cast<double>(a[i]) * b[i];
    return ab / static_cast<double>(a.size()) /
           std::pow(10.0, (GetLevelDb(a) + GetLevelDb(b)) / 20.0);
}

struct ChannelCase {
    const char* name;
    int relation;
    float correlation;
    double expected;  // with the first channel
};
const ChannelCase kRelations[] = {
    {"same", 0, 0.0f, 1.0},
    {"independent", 1, 0.9f, 0.0},
    {"by correlation 0.5", 3, 0.5f, 0.5},
    {"by correlation -1", 3, -1.0f, -1.0},
    {"by correlation 0", 3, 0.0f, 0.0},
};

TEST_F(NoiseTest, RelatesItsChannelsAsAsked) {
    for (const ChannelCase& c : kRelations)
        for (const float color : {0.0f, 1.0f}) {
            const auto noise = MakeNoise(3);
            Set(*noise, Noise::kColor, color);
            Set(*noise, Noise::kChannels, static_cast<float>(c.relation));
            Set(*noise, Noise::kCorrelation, c.correlation);
            noise->Resume();
            const Signal out = RunOffline(*noise, 0, 60 * 48000);
            // Pink noise holds 300 independent values a second: three deviations of 60 s are 0.022.
            const double tolerance = color == 0.0f ? 0.01 : 0.022;
            for (const std::size_t k : {1u, 2u})
                EXPECT_NEAR(Correlate(out[0], out[k]), c.expected, tolerance) << c.name;
        }
}

TEST_F(NoiseTest, KeepsLevelOffsetAndLimit) {
    const auto noise = MakeNoise();
    for (const float level : {-3.0f, -20.0f, -60.0f}) {
        Set(*noise, Noise::kColor, 0.0f);
        Set(*noise, Noise::kLevelDb, level);
        Set(*noise, Noise::kDistribution, 1.0f);
        EXPECT_NEAR(GetLevelDb(RunOffline(*noise, 0, 30 * 48000)[1]), level,
                    level > -4.0f ? 0.7 : 0.1);
    }
    Set(*noise, Noise::kOffsetPercent, 25.0f);
    double mean = 0.0;
    const Signal shifted = RunOffline(*noise, 0, 48000);
    for (const float x : shifted[0]) mean += x / 48000.0;
    EXPECT_NEAR(mean, 0.25, 1e-4);
    Set(*noise, Noise::kLevelDb, 0.0f);
    Set(*noise, Noise::kPeakLimitDb, -6.0206f);
    const Signal limited = RunOffline(*noise, 0, 48000);
    for (const float x : limited[0]) EXPECT_LE(std::abs(x), 0.50001f);
}

TEST_F(NoiseTest, GivesTheSameForTheSameSeedOnly) {
    const auto noise = MakeNoise(2, 5.0f);
    const Signal first = RunOffline(*noise, 0, 20000);
    EXPECT_EQ(RunOffline(*noise, 0, 20000, 100), first) << "through a small ring";
    noise->Resume();
    EXPECT_EQ(Play(*noise, 20000, 700), first) << "block by block";
    Set(*noise, Noise::kSeed, 6.0f);
    EXPECT_NE(RunOffline(*noise, 0, 20000), first);
    Set(*noise, Noise::kSeed, 0.0f);
    EXPECT_NE(RunOffline(*noise, 0, 20000), RunOffline(*noise, 0, 20000)) << "new each run";
}

TEST_F(NoiseTest, IsAsLongAsItsRangeOrItsDuration) {
    const auto noise = MakeNoise();
    Set(*noise, Noise::kDurationSeconds, 0.5f);
    EXPECT_EQ(RunOffline(*noise, 0, 0)[0].size(), 24000u);
    EXPECT_EQ(RunOffline(*noise, 1000, 13001)[0].size(), 12001u);
}

TEST_F(NoiseTest, FadesIntoNewSettings) {
    const auto noise = MakeNoise(1);
    Set(*noise, Noise::kLevelDb, -120.0f);
    Set(*noise, Noise::kOffsetPercent, 50.0f);
    noise->Resume();
    Play(*noise, 100);
    Set(*noise, Noise::kOffsetPercent, -50.0f);
    const Signal fade = Play(*noise, 4000, 64);
    for (std::size_t i = 1; i < 4000; ++i)
        ASSERT_LT(std::abs(fade[0][i] - fade[0][i - 1]), 0.001f) << "frame " << i;
    EXPECT_NEAR(fade[0].back(), -0.5f, 1e-5f);
    const Signal same = Play(*noise, 2000);
    Set(*noise, Noise::kDurationSeconds, 4.0f);
    EXPECT_NEAR(Play(*noise, 1000)[0].front(), -0.5f, 1e-5f) << "the duration is not heard";
}

/// Cancels or abandons a thousand runs after any time; a writer may be full or nearly so.
TEST_F(NoiseTest, AThousandRunsCancelAnywhere) {
    std::minstd_rand random(4);
    const auto draw = [&random](int most) {
        return std::uniform_int_distribution<int>(0, most)(random);
    };
    std::vector<double> milliseconds;
    for (int i = 0; i < 1000; ++i) {
        const auto noise = MakeNoise();
        const WriterPtr writer(new DefaultOfflineWriter);
        writer->Initialize(2, draw(3) == 0 ? 100 : 1 << 16);
        noise->SetOfflineWriter(writer);
        ASSERT_TRUE(noise->OfflineRun(0, 1 << 24));
        std::this_thread::sleep_for(std::chrono::microseconds(draw(2000)));
        if (draw(3) == 0) continue;  // the destructor has to cope
        const auto before = steady_clock::now();
        noise->Cancel();
        if (draw(1) == 0) writer->Flush();
        while (!noise->OfflineProcessFinished()) std::this_thread::yield();
        milliseconds.push_back(
            std::chrono::duration<double, std::milli>(steady_clock::now() - before).count());
        EXPECT_FALSE(writer->IsOpenToWrite());
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    RecordProperty("cancelP99Ms", std::to_string(milliseconds[milliseconds.size() * 99 / 100]));
    EXPECT_LT(milliseconds[milliseconds.size() / 2], 1000.0) << "60 ms on a machine at rest";
}

}  // namespace
}  // namespace zuc::components
