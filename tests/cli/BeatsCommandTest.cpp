#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <sstream>

#include <nlohmann/json.hpp>

#include "RunZuc.h"
#include "host/AudioReader.h"
#include "host/AudioWriter.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr int kRateHz = 44100;
constexpr double kFirst = 0.25, kPeriod = 0.5;  // of the ticks, seconds

double Ticks(double t) {
    const double since = t < kFirst ? 1 : std::fmod(t - kFirst, kPeriod);
    return 0.5 * std::exp(-since / 0.01) * std::sin(2 * std::numbers::pi * 1500 * since);
}

void WriteSound(const std::string& path,
                double seconds,
                const std::function<double(double)>& sound) {
    host::AudioWriterOptions options;
    options.path = path;
    options.rateHz = kRateHz;
    options.channels = 1;
    host::AudioWriter writer(options, {});
    std::vector<float> audio;
    for (int i = 0; i < static_cast<int>(seconds * kRateHz); ++i)
        audio.push_back(static_cast<float>(sound(static_cast<double>(i) / kRateHz)));
    const float* const channels[] = {audio.data()};
    writer.Write(channels, static_cast<int>(audio.size()));
    writer.Commit();
}

/// With a cache of its own.
class BeatsCommandTest : public testing::Test {
protected:
    BeatsCommandTest() {
        ::setenv("XDG_CACHE_HOME", cache_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        WriteSound(in_, 20, Ticks);
    }
    void TearDown() override {
        ::unsetenv("XDG_CACHE_HOME");  // NOLINT(concurrency-mt-unsafe)
    }

    TemporaryFolder folder_;
    std::string in_ = folder_ / "ticks.wav";
    std::string cache_ = folder_ / "cache";
};

TEST_F(BeatsCommandTest, TellsTheBeatsAsJsonLabelsAndTicks) {
    const std::string labels = folder_ / "labels.txt", click = folder_ / "click.wav";
    const Outcome outcome = RunZuc({"beats", in_, "--json", "--labels", labels, "--click", click});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const json song = json::parse(outcome.out);
    EXPECT_NEAR(song["duration"].get<double>(), 20, 1e-3);
    EXPECT_NEAR(song["bpm"].get<double>(), 120, 0.2);
    EXPECT_NEAR(song["beat_period"].get<double>(), kPeriod, 1e-3);
    EXPECT_GT(song["confidence"].get<double>(), 0.5);
    ASSERT_EQ(song["beats"].size(), 40u);
    std::istringstream lines(ReadBytes(labels));
    for (std::size_t k = 0; k < song["beats"].size(); ++k) {
        const double beat = song["beats"][k];
        EXPECT_NEAR(beat, kFirst + kPeriod * static_cast<double>(k), 0.0015);
        double from = 0, to = 0;
        std::size_t number = 0;
        lines >> from >> to >> number;
        EXPECT_NEAR(from, beat, 1e-6);
        EXPECT_EQ(from, to);
        EXPECT_EQ(number, k + 1);
    }
    // A tick of 1 kHz is added to half the music: it is louder behind a beat than between beats.
    const auto reader = host::AudioReader::Open(click);
    EXPECT_EQ(reader->GetInfo().frames, 20 * kRateHz);
    std::vector<float> audio(static_cast<std::size_t>(20) * kRateHz);
    float* channels[] = {audio.data()};
    ASSERT_EQ(reader->Read(channels, 20 * kRateHz), 20 * kRateHz);
    for (const double beat : song["beats"]) {
        const auto at = static_cast<std::size_t>(beat * kRateHz);
        const auto most = [&](std::size_t from, std::size_t to) {
            return *std::max_element(audio.begin() + static_cast<std::ptrdiff_t>(from),
                                     audio.begin() + static_cast<std::ptrdiff_t>(to));
        };
        EXPECT_GT(most(at, at + 400), 0.35f) << beat;
        EXPECT_LT(most(at + kRateHz / 10, at + kRateHz / 5), 0.01f) << beat;
    }
    EXPECT_THAT(RunZuc({"beats", in_}).out, HasSubstr("120.0"));
}

TEST_F(BeatsCommandTest, KeepsResultsByContent) {
    const auto cached = [this] {
        std::error_code error;
        std::vector<std::filesystem::path> files;
        for (const auto& file : std::filesystem::recursive_directory_iterator(cache_, error))
            if (file.is_regular_file()) files.push_back(file.path());
        return files;
    };
    const std::string fresh = RunZuc({"beats", in_, "--json", "--no-cache"}).out;
    EXPECT_TRUE(cached().empty());
    EXPECT_EQ(RunZuc({"beats", in_, "--json"}).out, fresh);
    ASSERT_EQ(cached().size(), 1u);
    // The same bytes under another name are known; that they are is seen by an answer that was changed.
    const std::string copy = folder_ / "copy.wav";
    std::filesystem::copy_file(in_, copy);
    std::fstream file(cached().front(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::string_view("zuc song 1\n").size());
    const double duration = 777;
    file.write(reinterpret_cast<const char*>(&duration), sizeof(duration));
    file.close();
    EXPECT_EQ(json::parse(RunZuc({"beats", copy, "--json"}).out)["duration"], 777);
    EXPECT_EQ(RunZuc({"beats", copy, "--json", "--no-cache"}).out, fresh);
    std::filesystem::resize_file(cached().front(), 100);
    EXPECT_EQ(RunZuc({"beats", copy, "--json"}).out, fresh) << "a broken entry is made anew";
    std::filesystem::remove_all(cache_);
    EXPECT_EQ(RunZuc({"beats", copy, "--json"}).out, fresh) << "safe to delete";
}

TEST_F(BeatsCommandTest, AnswersSensiblyToOddInput) {
    std::mt19937 random(5);
    const auto noise = [&](double) { return static_cast<double>(random()) / 4294967296.0 - 0.5; };
    // Voiced syllables of uneven length and pitch with pauses.
    const auto speech = [](double t) {
        const double place = t * 4.3 + 0.7 * std::sin(1.7 * t) + 0.5 * std::sin(4.1 * t);
        const double syllable = std::max(0.0, std::sin(2 * std::numbers::pi * place));
        const double phase = 2 * std::numbers::pi * (110 * t + 4 * std::sin(1.1 * t));
        double voice = 0;
        for (int h = 1; h < 20; ++h) voice += std::sin(h * phase) / h;
        return 0.2 * syllable * syllable * voice;
    };
    struct Row {
        const char* name;
        double seconds;
        std::function<double(double)> sound;
        int exitCode;
        std::size_t leastBeats, mostBeats;
    };
    for (const Row& row : {Row{"ten seconds", 10, Ticks, 0, 20, 20},
                           Row{"silence", 10, [](double) { return 0.0; }, 0, 0, 0},
                           Row{"noise", 10, noise, 0, 0, 50}, Row{"speech", 12, speech, 0, 0, 60},
                           Row{"too short", 1.5, Ticks, 3, 0, 0}}) {
        const std::string path = folder_ / "odd.wav";
        std::filesystem::remove(path);
        WriteSound(path, row.seconds, row.sound);
        const Outcome outcome = RunZuc({"beats", path, "--json"});
        ASSERT_EQ(outcome.exitCode, row.exitCode) << row.name << outcome.err;
        if (row.exitCode != 0) {
            EXPECT_THAT(outcome.err, HasSubstr("too short")) << row.name;
            continue;
        }
        const json song = json::parse(outcome.out);
        EXPECT_GE(song["beats"].size(), row.leastBeats) << row.name;
        EXPECT_LE(song["beats"].size(), row.mostBeats) << row.name;
        EXPECT_EQ(outcome.err.find("no pulse") != std::string::npos, song["beats"].size() < 2);
        EXPECT_GE(song["confidence"].get<double>(), 0);
        EXPECT_LE(song["confidence"].get<double>(), 1);
    }
    EXPECT_EQ(RunZuc({"beats", folder_ / "none.wav"}).exitCode, 3);
    EXPECT_EQ(RunZuc({"beats", in_, "--click", in_}).exitCode, 2);
    EXPECT_EQ(RunZuc({"beats", in_, "--labels", folder_ / "none/labels.txt"}).exitCode, 4);
}

}  // namespace
}  // namespace zuc::test
