#include "host/ConformanceOffline.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "host/ConformanceRig.h"
#include "host/Error.h"
#include "host/OfflineSession.h"
#include "host/SpooledAudio.h"

namespace zuc::host::conformance {
namespace {

using std::chrono::steady_clock;

constexpr int kFrames = 60000;
constexpr int kRateHz = 48000;
constexpr int kChannels = 2;
constexpr std::chrono::seconds kLongestEnd(5);  // of a job that was told to stop

/// The effect with settings drawn from a seed, and noise for it to read.
struct OfflineRig {
    OfflineRig(const components::CatalogueEntry& entry, std::uint64_t seed)
        : rig(entry, {static_cast<float>(kRateHz), kChannels, 2048}), source(kRateHz, kChannels) {
        rig.Randomize(seed);
        const Signal noise = MakeNoise(kChannels, kFrames, seed);
        const float* const at[] = {noise[0].data(), noise[1].data()};
        source.Append(at, kFrames);
    }
    Rig rig;
    SpooledAudio source;
};

Signal ReadAll(OfflineSession& session) {
    Signal out(kChannels);
    Signal block = MakeSilence(kChannels, 3000);
    float* const at[] = {block[0].data(), block[1].data()};
    while (const int count = session.Read(at, 3000))
        for (std::size_t c = 0; c < kChannels; ++c)
            out[c].insert(out[c].end(), block[c].begin(), block[c].begin() + count);
    return out;
}

/// A reader that fails from a frame on.
class FaultyReader final : public OfflineIInterface {
public:
    explicit FaultyReader(std::int64_t failsFrom) : failsFrom_(failsFrom) {}
    long GetChannelCount() const override { return kChannels; }
    bool GetAudio(float** destination, long channels, std::int64_t position, long frames) override {
        if (position + frames > failsFrom_) return false;
        for (long c = 0; c < channels; ++c) std::fill_n(destination[c], frames, 0.25f);
        return true;
    }

private:
    std::int64_t failsFrom_;
};

/// A writer that takes 0 to `most` frames at a time.
class FussyWriter final : public OfflineOInterface {
public:
    FussyWriter(std::uint64_t seed, long most) : random_(seed), most_(most) {}
    long GetChannelCount() const override { return kChannels; }
    void SetOpenToWrite(bool open) override { isOpen_.store(open); }
    void Flush() override {}
    long PutAudio(const float* const* source, long, std::int64_t offset, long frames) override {
        const long taken = std::min(frames, std::uniform_int_distribution<long>(0, most_)(random_));
        for (std::size_t c = 0; c < kChannels; ++c)
            taken_[c].insert(taken_[c].end(), source[c] + offset, source[c] + offset + taken);
        return taken;
    }
    bool IsOpen() const { return isOpen_.load(); }
    const Signal& GetTaken() const { return taken_; }

private:
    std::mt19937_64 random_;
    long most_;
    std::atomic<bool> isOpen_{false};
    Signal taken_{kChannels};
};

bool WaitForEnd(kraaudiofilterhost::AudioFilter& filter) {
    const auto until = steady_clock::now() + kLongestEnd;
    while (!filter.OfflineProcessFinished()) {
        if (steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace

std::string FindOfflineRunFault(const components::CatalogueEntry& effect, std::uint64_t seed) {
    Signal expected;
    for (const long ring : {32768L, 1000L, 100000L}) {
        OfflineRig model(effect, seed);
        try {
            OfflineSession session(&model.rig.Filter(), model.source, kFrames, ring);
            const Signal out = ReadAll(session);
            if (!IsFinite(out)) return "output that is not finite";
            if (expected.empty()) expected = out;
            if (const auto difference = DescribeDifference(out, expected); !difference.empty())
                return "through another ring: " + difference;
        } catch (const Error& error) {
            return error.what();
        }
    }
    return {};
}

std::string FindOfflineCancelFault(const components::CatalogueEntry& effect, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    for (int i = 0; i < 20; ++i) {
        OfflineRig model(effect, seed);
        const auto before = steady_clock::now();
        {
            OfflineSession session(&model.rig.Filter(), model.source, kFrames, 2000);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
            if (i % 2 == 0) session.Cancel();
        }
        if (steady_clock::now() - before > kLongestEnd) return "a cancelled run goes on";
    }
    return {};
}

std::string FindOfflineWriterFault(const components::CatalogueEntry& effect, std::uint64_t seed) {
    Signal expected;
    for (const long most : {1L << 20, 500L, 1L}) {
        OfflineRig model(effect, seed);
        auto& run = dynamic_cast<OfflineOperations&>(model.rig.Filter());
        const boost::intrusive_ptr<FussyWriter> writer(new FussyWriter(seed, most));
        run.SetOfflineReader(new FaultyReader(1 << 20));
        run.SetOfflineWriter(writer);
        // A frame at a time takes a wait for every second frame.
        const int frames = most == 1 ? 100 : kFrames;
        if (!run.OfflineRun(0, frames)) return "a run does not start";
        if (!WaitForEnd(model.rig.Filter()) || writer->IsOpen()) return "a run does not end";
        if (expected.empty()) expected = writer->GetTaken();
        if (most == 500 && !DescribeDifference(writer->GetTaken(), expected).empty())
            return "a writer that takes little gets other samples";
    }
    for (const std::int64_t failsFrom : {0, 20000}) {
        OfflineRig model(effect, seed);
        auto& run = dynamic_cast<OfflineOperations&>(model.rig.Filter());
        const boost::intrusive_ptr<FussyWriter> writer(new FussyWriter(seed, 1 << 20));
        run.SetOfflineReader(new FaultyReader(failsFrom));
        run.SetOfflineWriter(writer);
        if (!run.OfflineRun(0, kFrames)) continue;
        if (!WaitForEnd(model.rig.Filter()) || writer->IsOpen())
            return "a run whose reader fails does not end";
    }
    return {};
}

}  // namespace zuc::host::conformance
