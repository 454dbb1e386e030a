#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "Components/AudioOfflineComponent.h"
#include "Components/DefaultOfflineWriter.h"

namespace zuc {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

boost::intrusive_ptr<DefaultOfflineWriter> MakeWriter(long channels, long capacity) {
    boost::intrusive_ptr<DefaultOfflineWriter> writer(new DefaultOfflineWriter);
    writer->Initialize(channels, capacity);
    writer->SetOpenToWrite(true);
    return writer;
}

/// Frame i of channel c.
float Sample(long channel, std::int64_t frame) {
    return static_cast<float>(frame % 65536 + 100000 * channel);
}

long Put(DefaultOfflineWriter& writer, long channels, std::int64_t from, long frames) {
    std::vector<std::vector<float>> data(static_cast<std::size_t>(channels));
    std::vector<const float*> pointers;
    for (long c = 0; c < channels; ++c) {
        // The offset is tested by putting three frames of something else in front.
        for (std::int64_t i = from - 3; i < from + frames; ++i)
            data[static_cast<std::size_t>(c)].push_back(Sample(c, i));
        pointers.push_back(data[static_cast<std::size_t>(c)].data());
    }
    return writer.PutAudio(pointers.data(), 0, 3, frames);
}

/// Gets up to `frames` frames and expects them to go on at `from`.
long Get(DefaultOfflineWriter& writer, long channels, std::int64_t from, long frames) {
    std::vector<std::vector<float>> data(static_cast<std::size_t>(channels),
                                         std::vector<float>(static_cast<std::size_t>(frames)));
    std::vector<float*> pointers;
    for (auto& channel : data) pointers.push_back(channel.data());
    const long count = writer.GetAudio(pointers.data(), 0, frames);
    for (long c = 0; c < channels; ++c)
        for (long i = 0; i < count; ++i)
            EXPECT_EQ(data[static_cast<std::size_t>(c)][static_cast<std::size_t>(i)],
                      Sample(c, from + i))
                << "channel " << c << ", frame " << from + i;
    return count;
}

TEST(DefaultOfflineWriter, WrapsAroundAndSaysWhenItIsFull) {
    const auto writer = MakeWriter(2, 1000);
    int full = 0;
    writer->GetMediaReadySignal().connect([&] { ++full; });
    EXPECT_EQ(Put(*writer, 2, 0, 1500), 1000);
    EXPECT_EQ(full, 1);
    EXPECT_EQ(Put(*writer, 2, 1000, 10), 0) << "a full ring takes nothing";
    EXPECT_EQ(Get(*writer, 2, 0, 300), 300);
    EXPECT_EQ(Put(*writer, 2, 1000, 200), 200);
    EXPECT_EQ(Get(*writer, 2, 300, 5000), 900) << "across the end of the ring";
    EXPECT_EQ(full, 1);
}

TEST(DefaultOfflineWriter, GrowsButNeverShrinks) {
    const auto writer = MakeWriter(2, 1000);
    Put(*writer, 2, 0, 10);
    writer->SetStartAdjust(77);
    writer->Initialize(1, 500);
    EXPECT_EQ(writer->GetChannelCount(), 2);
    EXPECT_EQ(writer->GetAvailable(), 0);
    EXPECT_EQ(writer->GetStartAdjust(), 0);
    EXPECT_EQ(Put(*writer, 2, 0, 2000), 1000);
    writer->Initialize(2, 3000);
    EXPECT_EQ(Put(*writer, 2, 0, 4000), 3000) << "every channel has the new capacity";
    EXPECT_EQ(Get(*writer, 2, 0, 4000), 3000);
    writer->Flush();
    EXPECT_EQ(writer->GetAvailable(), 0);
    EXPECT_EQ(writer->GetChannelCount(), 2);
}

TEST(DefaultOfflineWriter, WaitsOnlyWhileMoreMayCome) {
    const auto writer = MakeWriter(1, 100);
    const auto timed = [](const std::function<void()>& work) {
        const auto start = steady_clock::now();
        work();
        return steady_clock::now() - start;
    };
    EXPECT_EQ(Get(*writer, 1, 0, 0), 0);
    EXPECT_GE(timed([&] { EXPECT_EQ(Get(*writer, 1, 0, 10), 0); }), milliseconds(240));
    Put(*writer, 1, 0, 100);
    EXPECT_GE(timed([&] { EXPECT_EQ(Put(*writer, 1, 100, 1), 0); }), milliseconds(45));
    Get(*writer, 1, 0, 100);

    std::thread closer([&] {
        std::this_thread::sleep_for(milliseconds(20));
        writer->SetOpenToWrite(false);
    });
    EXPECT_LT(timed([&] { EXPECT_EQ(Get(*writer, 1, 0, 10), 0); }), milliseconds(150))
        << "closing wakes the consumer";
    closer.join();
    EXPECT_LT(timed([&] { EXPECT_EQ(Get(*writer, 1, 0, 10), 0); }), milliseconds(20));
    EXPECT_EQ(Put(*writer, 1, 0, 1), 0) << "closed";

    writer->SetOpenToWrite(true);
    Put(*writer, 1, 0, 30);
    writer->SetOpenToWrite(false);
    EXPECT_EQ(Get(*writer, 1, 0, 20), 20) << "what was put before is still delivered";
    EXPECT_EQ(Get(*writer, 1, 20, 20), 10);
    EXPECT_EQ(Get(*writer, 1, 30, 20), 0);

    boost::intrusive_ptr<DefaultOfflineWriter> fresh(new DefaultOfflineWriter);
    EXPECT_EQ(Put(*fresh, 1, 0, 1), 0) << "closed before Initialize";
    EXPECT_EQ(Get(*fresh, 1, 0, 1), 0);
}

TEST(DefaultOfflineWriter, HandsEverythingOverBetweenTwoThreads) {
    constexpr std::int64_t kFrames = 400000;
    const auto writer = MakeWriter(2, 1777);
    std::thread producer([&] {
        std::mt19937 random(1);
        for (std::int64_t done = 0; done < kFrames;)
            done += Put(*writer, 2, done,
                        std::min<long>(static_cast<long>(random() % 4000),
                                       static_cast<long>(kFrames - done)));
        writer->SetOpenToWrite(false);
    });
    std::mt19937 random(2);
    std::int64_t got = 0;
    for (;;) {
        const long count = Get(*writer, 2, got, static_cast<long>(1 + random() % 3000));
        if (count == 0 && !writer->IsOpenToWrite() && writer->GetAvailable() == 0) break;
        got += count;
    }
    producer.join();
    EXPECT_EQ(got, kFrames);
}

TEST(AudioOfflineComponent, DoesNothingByDefault) {
    boost::intrusive_ptr<AudioOfflineComponent> component(
        new AudioOfflineComponent(u"test.Offline", u"Offline"));
    kracore::WStr text(u"old");
    component->GetCompletionText(text);
    EXPECT_TRUE(text.empty());
    component->SetOfflineReader(nullptr);
    component->SetOfflineWriter(new DefaultOfflineWriter);
    component->Cancel();
    EXPECT_TRUE(component->OfflineRun(0, 10));
    EXPECT_FALSE(component->WantsToHandleProgress());
}

}  // namespace
}  // namespace zuc
