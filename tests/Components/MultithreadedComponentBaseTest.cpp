#include "Components/private/MultithreadedComponentBaseImpl.h"

#include <gtest/gtest.h>

#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Components/ProcessingFrame.h"

namespace zuc::components {
namespace {

/// A one-pole smoother that notes who called it and how.
struct Smoother {
    void Process(const float* in, float* out, int frames) {
        thread = std::this_thread::get_id();
        for (int i = 0; i < frames; ++i) out[i] = state = 0.9f * state + 0.1f * gain * in[i];
    }
    void Reset() { state = 0.0f; }
    void Suspend() { ++suspended; }
    void SetSampleRate(int rate) { rateHz = rate; }
    int GetLatency() const { return 17; }

    float state = 0.0f;
    float gain = 1.0f;
    int rateHz = 0;
    int suspended = 0;
    std::thread::id thread;
};

class Effect final : public MultithreadedComponentBase<Smoother> {
public:
    Effect() : MultithreadedComponentBase(u"test.Smoother", u"Smoother", 32) {
        SetParamsOnChannelChange(true);
        OnNumberOfChannelsChanged(2);
    }
    int GetParameterCount() const override { return 1; }
    void SetParameter(int index, float normalized) override {
        MultithreadedComponentBase::SetParameter(index, normalized);
        for (std::size_t c = 0; c < GetProcessorCount(); ++c) GetProcessors()[c].gain = normalized;
    }
    void SetChannels(std::size_t channels) {
        const auto layout = kramediatypes::LayoutForChannelCount(channels);
        RequestIOConfiguration({layout}, {layout});
    }
    using MultithreadedComponentBase::GetProcessorCount;
    using MultithreadedComponentBase::GetProcessors;
};

using Channels = std::vector<std::vector<float>>;

Channels Render(Effect& effect, const Channels& input, int blockFrames) {
    Channels buffers = input;
    std::vector<float*> pointers(buffers.size());
    Flags flags;
    const int frames = static_cast<int>(buffers.front().size());
    for (int done = 0; done < frames; done += blockFrames) {
        for (std::size_t c = 0; c < buffers.size(); ++c) pointers[c] = buffers[c].data() + done;
        effect.Process(pointers.data(), pointers.data(), std::min(blockFrames, frames - done), {},
                       flags);
    }
    return buffers;
}

TEST(MultithreadedComponentBase, GivesTheSameOutputSerialAndParallel) {
    Channels noise(6, std::vector<float>(8192));
    unsigned random = 1;
    for (auto& channel : noise)
        for (float& sample : channel)
            sample =
                static_cast<float>(static_cast<int>(random = random * 1664525u + 1013904223u)) *
                1e-10f;
    noise[3][5000] = std::numeric_limits<float>::quiet_NaN();
    boost::intrusive_ptr<Effect> effect(new Effect);
    effect->SetChannels(6);
    effect->Resume();
    const Channels expected = Render(*effect, noise, 2047);
    const auto here = std::this_thread::get_id();
    for (std::size_t c = 0; c < 6; ++c) EXPECT_EQ(effect->GetProcessors()[c].thread, here);
    for (const int blockFrames : {1, 64, 2048, 4096, 8192}) {
        effect->Resume();
        EXPECT_EQ(Render(*effect, noise, blockFrames), expected) << blockFrames;
    }
    EXPECT_EQ(effect->GetNonFiniteSampleCount(), 6u);
}

TEST(MultithreadedComponentBase, CarriesRateAndParametersOverToNewKernels) {
    boost::intrusive_ptr<Effect> effect(new Effect);
    EXPECT_EQ(effect->GetProcessors()[0].rateHz, 0) << "no rate is known yet";
    effect->SetSampleRate(44100.7f);
    effect->SetParameter(0, 0.25f);
    effect->SetChannels(8);
    ASSERT_EQ(effect->GetProcessorCount(), 8u);
    for (std::size_t c = 0; c < 8; ++c) {
        EXPECT_EQ(effect->GetProcessors()[c].gain, 0.25f);
        EXPECT_EQ(effect->GetProcessors()[c].rateHz, 44100);
    }
    EXPECT_EQ(effect->GetInitialDelay(), 17);
    effect->GetProcessors()[5].state = 1.0f;
    effect->Suspend();
    effect->Resume();
    EXPECT_EQ(effect->GetProcessors()[5].suspended, 1);
    EXPECT_EQ(effect->GetProcessors()[5].state, 0.0f);
}

/// An effect whose updates hold a mutex, as it wraps its processing.
class GuardedEffect {
public:
    GuardedEffect() { effect_->Resume(); }
    void Process(float** in, float** out, int frames) {
        Flags flags;
        ProcessOrSilence(mutex_, out, 2, frames,
                         [&] { effect_->Process(in, out, frames, {}, flags); });
    }
    std::mutex& GetMutex() { return mutex_; }

private:
    boost::intrusive_ptr<Effect> effect_{new Effect};
    std::mutex mutex_;
};

/// What comes during the update is not consumed: the next block goes on from where the last one ended.
TEST(ProcessOrSilence, AnUpdateSilencesItsBlockOnly) {
    for (const int frames : {64, 4096}) {
        GuardedEffect updated;
        GuardedEffect other;
        for (int block = 0; block < 4; ++block) {
            std::vector<float> in(static_cast<std::size_t>(frames));
            for (std::size_t i = 0; i < in.size(); ++i)
                in[i] = static_cast<float>((i * 7 + static_cast<std::size_t>(block)) % 11) - 5.0f;
            std::vector<float> left(in.size(), 9.0f);
            std::vector<float> right(in.size(), 9.0f);
            float* from[] = {in.data(), in.data()};
            float* to[] = {left.data(), right.data()};
            if (block == 1) {
                std::unique_lock update(updated.GetMutex());
                // The audio thread; it would never come back if it waited.
                std::thread([&] { updated.Process(from, to, frames); }).join();
                EXPECT_EQ(left, std::vector<float>(in.size(), 0.0f));
                EXPECT_EQ(right, left);
                continue;
            }
            updated.Process(from, to, frames);
            std::vector<float> expected(in.size());
            std::vector<float> alike(in.size());
            float* toOther[] = {expected.data(), alike.data()};
            other.Process(from, toOther, frames);
            EXPECT_EQ(left, expected) << "block " << block;
            EXPECT_EQ(right, alike) << "block " << block;
        }
    }
}

TEST(ProcessOrSilence, NeverWaitsForAnUpdate) {
    std::mutex mutex;
    std::vector<float> samples(64, 0.5f);
    float* out[] = {samples.data()};
    EXPECT_TRUE(ProcessOrSilence(mutex, out, 1, 64, [] {}));
    EXPECT_EQ(samples[0], 0.5f);
    std::thread([&] {
        const std::lock_guard update(mutex);
        std::thread([&] {
            EXPECT_FALSE(ProcessOrSilence(mutex, out, 1, 64, [] { ADD_FAILURE(); }));
        }).join();
    }).join();
    EXPECT_EQ(samples, std::vector<float>(64, 0.0f));
    EXPECT_TRUE(ProcessOrSilence(mutex, out, 1, 64, [] {})) << "free again";
}

}  // namespace
}  // namespace zuc::components
