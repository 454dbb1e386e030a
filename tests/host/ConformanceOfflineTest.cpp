#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "Components/AudioOfflineComponent.h"
#include "Components/Library.h"
#include "Components/private/OfflineJob.h"
#include "host/Conformance.h"

namespace zuc::host {
namespace {

using components::OfflineJob;

/// What is wrong with the offline effect that the rules look at.
enum class Fault {
    kNone,
    kNotFinite,
    kDrift,
    kShorter,
    kNoStart,
    kGivesUp,
    kLoses,
    kStaysOpen,
    kStaysOpenOnFailure,
};
Fault gFault = Fault::kNone;

/// Reads its source and puts half of it, in pieces. Right in every respect but one.
class FaultyOffline final : public components::MultiChannelOfflineComponent {
public:
    FaultyOffline() : MultiChannelOfflineComponent(u"test.FaultyOffline", u"Faulty Offline", 2) {}

    bool CanChangeDuration() const override { return gFault == Fault::kShorter; }
    void Cancel() override { job_.Cancel(); }
    bool OfflineProcessFinished() override {
        const bool isFinished = job_.IsFinished();
        const bool hasFailed = job_.GetOutcome() == OfflineJob::Outcome::kFailed;
        if (isFinished &&
            (gFault == Fault::kStaysOpen || (gFault == Fault::kStaysOpenOnFailure && hasFailed)))
            writer_->SetOpenToWrite(true);
        return isFinished;
    }
    void SetOfflineReader(boost::intrusive_ptr<OfflineIInterface> reader) override {
        job_.SetReader(std::move(reader));
    }
    void SetOfflineWriter(boost::intrusive_ptr<OfflineOInterface> writer) override {
        writer_ = writer;
        job_.SetWriter(std::move(writer));
    }
    bool OfflineRun(std::int64_t start, std::int64_t end) override {
        if (gFault == Fault::kNoStart) return false;
        ++runs_;
        return job_.Start([this, start, end](OfflineJob::Run& run) {
            std::int64_t last = end;
            if (gFault == Fault::kGivesUp) last /= 2;
            if (gFault == Fault::kShorter) last -= runs_;
            for (std::int64_t at = start; at < last; at += kPieceFrames)
                if (!Halve(run, at, std::min<long>(kPieceFrames, last - at))) return false;
            return true;
        });
    }

private:
    static constexpr long kPieceFrames = 1000;

    bool Halve(OfflineJob::Run& run, std::int64_t position, long frames) const {
        std::vector<float> audio[2];
        for (auto& channel : audio) channel.resize(static_cast<std::size_t>(frames));
        float* at[] = {audio[0].data(), audio[1].data()};
        if (!run.Read(at, 2, position, frames)) return false;
        for (auto& channel : audio)
            for (float& sample : channel) {
                sample *= 0.5f;
                if (gFault == Fault::kDrift) sample *= static_cast<float>(runs_);
                if (gFault == Fault::kNotFinite) sample = std::numeric_limits<float>::infinity();
            }
        if (gFault != Fault::kLoses) return run.Write(at, frames);
        writer_->PutAudio(at, 0, 0, frames);
        return true;
    }
    void OnNumberOfChannelsChanged(std::size_t) override {}

    inline static int runs_ = 0;  // of all of its kind
    boost::intrusive_ptr<OfflineOInterface> writer_;
    OfflineJob job_;
};

const components::CatalogueEntry kFaulty{
    u"test.FaultyOffline", "$$$/AudioComponents/FaultyOfflineTitle=Faulty Offline",
    components::Category::kTimePitch,
    []() -> kraaudiofilterhost::AudioFilterPtr { return new FaultyOffline; }};

TEST(ConformanceOffline, EachFaultIsFoundByItsRuleAndTheSoundEffectPasses) {
    const struct {
        Fault fault;
        const char* check;
        const char* finding;  // empty: there is none
    } rows[] = {
        {Fault::kNone, "offline-run", ""},
        {Fault::kNone, "offline-cancel", ""},
        {Fault::kNone, "offline-faults", ""},
        {Fault::kNotFinite, "offline-run", "output that is not finite"},
        {Fault::kDrift, "offline-run", "through another ring: channel 0, frame 0"},
        {Fault::kShorter, "offline-run", "through another ring: channel 0 has "},
        {Fault::kNoStart, "offline-run", "did not start"},
        {Fault::kGivesUp, "offline-run", "gave up after 30000 frames"},
        {Fault::kNoStart, "offline-faults", "a run does not start"},
        {Fault::kLoses, "offline-faults", "a writer that takes little gets other samples"},
        {Fault::kStaysOpen, "offline-faults", "a run does not end"},
        {Fault::kStaysOpenOnFailure, "offline-faults", "a run whose reader fails does not end"},
    };
    Initialize();
    for (const auto& row : rows) {
        gFault = row.fault;
        const auto found = RunConformanceCheck(kFaulty, row.check, {});
        ASSERT_EQ(found.empty(), *row.finding == 0) << row.check << ": " << row.finding;
        for (const Finding& finding : found)
            EXPECT_THAT(finding.detail, testing::HasSubstr(row.finding));
    }
    Terminate();
}

}  // namespace
}  // namespace zuc::host
