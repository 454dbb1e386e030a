#include "kraaudiodsp/IntraClip.h"

#include <algorithm>
#include <cmath>

#include "kraaudiodsp/Units.h"
#include "kraaudiodsp/vector/CurveOps.h"
#include "kraaudiodsp/vector/LevelOps.h"
#include "kraaudiodsp/vector/PeakOps.h"

namespace dsp::intraclip {
namespace {

constexpr long kMostChannels = 32;
constexpr double kStepSeconds = 0.005;
constexpr double kLongestDelayMs = 1000.0;
constexpr double kLongestLookAheadMs = 20.0;
constexpr double kLeastLookAheadMs = 0.5;

constexpr float kTargetBelowReferenceDb = 6.0f;
constexpr float kBoostedMaxGainDb = 18.0f;
constexpr double kCompressorStrength = 0.9;
constexpr double kFullStrengthRangeDb = 15.0;
constexpr double kNoStrengthDb = 40.0;
constexpr double kFallRatio = 4.0;         // of the total gain's fall to its rise
constexpr double kControlTimeRatio = 5.0;  // of the compressor's attack to compAttackTime
constexpr double kReleaseRatio = 4.0;  // of peakSmoothReleaseTime to what it takes within the body,
constexpr double kCatchUpRatio = 8.0;  // and below it
constexpr double kMostGateDb = 12.0;
constexpr double kPeakRatio = 4.0;
constexpr double kPeakKneeDb = 6.0;
constexpr float kCurveDbAtFullScale = 60.0f;

double Bounded(double value, double lo, double hi) {
    return std::isnan(value) ? lo : std::clamp(value, lo, hi);
}

}  // namespace

IntraClip::IntraClip() {
    for (std::size_t i = 0; i < parameters_.size(); ++i)
        parameters_[i].store(kBounds[i].initial, std::memory_order_relaxed);
    GetGlobalParam(record_);
    SetParameter(kTargetDb, record_.refLevel - kTargetBelowReferenceDb);
    SetParameter(kCompressorThresholdDb, record_.finCompThresh);
    SetParameter(kNoiseOffsetDb, record_.noiseThresholdOffset);
    SetParameter(kDynamicRangeDb, record_.bodyDynamic);
    Initialize(2, 44100.0f, 1024);
}

bool IntraClip::Initialize(long channels, float rateHz, long) {
    if (channels < 1 || channels > kMostChannels || !(rateHz > 0.0f)) return false;
    rateHz_ = static_cast<double>(rateHz);
    stepFrames_ = static_cast<std::size_t>(std::max(1, MsToFrames(1000.0 * kStepSeconds, rateHz_)));
    const auto longest = static_cast<std::size_t>(MsToFrames(kLongestDelayMs, rateHz_));
    delays_.resize(static_cast<std::size_t>(channels));
    for (SlidingBuffer& delay : delays_) delay.Prepare(longest + stepFrames_, stepFrames_);
    decisions_.assign(longest / stepFrames_ + 2, {});
    gains_.assign(stepFrames_, 1.0f);
    curve_.assign(stepFrames_, 0.0f);
    reductions_.assign(HardLimit::kMaxPieceFrames, 0.0f);
    const int mostLookAhead = MsToFrames(kLongestLookAheadMs, rateHz_);
    limiter_.Prepare(delays_.size(), mostLookAhead, 1, rateHz_);
    curveDelay_.Prepare(static_cast<std::size_t>(mostLookAhead + TruePeak::kLatencyFrames),
                        HardLimit::kMaxPieceFrames);
    GetGlobalParam(record_);
    Reset();
    return true;
}

void IntraClip::Reset() {
    TakeRecord();
    for (SlidingBuffer& delay : delays_) delay.Reset();
    curveDelay_.Reset();
    limiter_.Reset(limiterSettings_);
    stepFramesLeft_ = stepFrames_;
    compressorDb_ = totalDb_ = gateDb_ = peakGainDb_ = 0.0;
    gateHoldSeconds_ = Bounded(record_.noiseGateHoldTime, 0.0, 60000.0) / 1000.0;
    gainDb_ = 0.0f;
    inForce_ = {};
    inForce_.floor = static_cast<float>(speech_.GetFloorDb());
    std::fill(decisions_.begin(), decisions_.end(), inForce_);
    decisionCount_ = 0;
    curveDb_ = GetCurveDb(inForce_, 0.0f);
    parameters_[kAmplificationDb].store(0.0f, std::memory_order_relaxed);
    BeginStep();
}

/// Every field within what can work; the console commands check no range.
void IntraClip::TakeRecord() {
    TryGetGlobalParam(record_);
    const IntraClipParam& r = record_;
    const double stepMs = 1000.0 * static_cast<double>(stepFrames_) / rateHz_;
    const auto steps = [stepMs](double ms, std::size_t most) {
        return static_cast<std::size_t>(
            std::lround(Bounded(ms / stepMs, 1.0, static_cast<double>(most))));
    };
    SpeechLevel::Settings speech;
    speech.stepSeconds = stepMs / 1000.0;
    speech.windowSteps = steps(static_cast<double>(r.rmsWindowTime), SpeechLevel::kMaxWindowSteps);
    speech.buckets = static_cast<std::size_t>(
        std::clamp(r.numRMSBuckets, 1, static_cast<int>(SpeechLevel::kMaxBuckets)));
    speech.selectedBucket = static_cast<std::size_t>(
        std::clamp(r.selBucketIndex, 0, static_cast<int>(speech.buckets) - 1));
    speech.lowestFloorDb = Bounded(r.minRMSNoise, -120.0, 0.0);
    speech.highestFloorDb = Bounded(r.maxRMSNoise, speech.lowestFloorDb, 0.0);
    speech.lowestBodyDb = Bounded(r.peakMin, -120.0, 0.0);
    speech.highestBodyDb = Bounded(r.peakMax, speech.lowestBodyDb, 0.0);
    const double releaseMs = Bounded(r.peakSmoothReleaseTime, 0.0, 1e6);
    speech.attackSeconds = Bounded(r.peakSmoothAttackTime, 0.0, 1e6) / 1000.0;
    speech.releaseSeconds = releaseMs / kReleaseRatio / 1000.0;
    speech.catchUpSeconds = releaseMs / kCatchUpRatio / 1000.0;
    speech_.Reset(speech);

    const double delayMs = Bounded(r.delayCompensationTime, -kLongestDelayMs, kLongestDelayMs);
    delayFrames_ = static_cast<std::size_t>(MsToFrames(std::max(0.0, -delayMs), rateHz_));
    gainDelaySteps_ = delayMs > 0.0 ? steps(delayMs, decisions_.size() - 1) : 0;

    limiterSettings_ = {};
    limiterSettings_.ceiling = DbToGain(static_cast<float>(Bounded(r.finLimCeil, -60.0, 0.0)));
    limiterSettings_.lookAheadFrames =
        MsToFrames(Bounded(r.finLimLookAhead, kLeastLookAheadMs, kLongestLookAheadMs), rateHz_);
    limiterSettings_.releaseFrames =
        static_cast<float>(Bounded(r.finLimRelease, 0.1, 60000.0) / 1000.0 * rateHz_);
    const int limiterFrames = HasBlock(kLimiterBlock) ? HardLimit::GetLatency(limiterSettings_) : 0;
    latency_.store(static_cast<long>(delayFrames_) + limiterFrames, std::memory_order_relaxed);
}

// ---- Parameters ----

void IntraClip::SetParameter(long index, float value) {
    if (index < 0 || index >= kParameterCount || index == kAmplificationDb) return;
    if (!std::isfinite(value)) return;
    const auto i = static_cast<std::size_t>(index);
    parameters_[i].store(std::clamp(value, kBounds[i].lo, kBounds[i].hi),
                         std::memory_order_relaxed);
}

float IntraClip::GetParameter(long index) const {
    if (index < 0 || index >= kParameterCount) return 0.0f;
    return parameters_[static_cast<std::size_t>(index)].load(std::memory_order_relaxed);
}

void IntraClip::GetBounds(long index, float& lo, float& hi) const {
    const bool isKnown = index >= 0 && index < kParameterCount;
    lo = isKnown ? kBounds[static_cast<std::size_t>(index)].lo : 0.0f;
    hi = isKnown ? kBounds[static_cast<std::size_t>(index)].hi : 0.0f;
}

// ---- Every step ----

/// What is left after a step of a follower with this time constant, taken from 1.
double IntraClip::StepShare(double ms) const {
    const double stepMs = 1000.0 * static_cast<double>(stepFrames_) / rateHz_;
    return 1.0 - std::exp(-stepMs / Bounded(ms, 1e-3, 1e6));
}

/// Hears the step that has just come in and decides what its gain shall be.
void IntraClip::Decide() {
    double power = 0.0;
    for (SlidingBuffer& delay : delays_)
        power += vector::SumOfSquares(delay.Append(0) - stepFrames_, stepFrames_);
    power /= static_cast<double>(stepFrames_ * delays_.size());
    speech_.Take(power, static_cast<double>(GetParameter(kNoiseOffsetDb)),
                 static_cast<double>(GetParameter(kDynamicRangeDb)));

    const double amount = static_cast<double>(GetParameter(kAmountPercent)) / 100.0;
    const double maxGainDb = Bounded(
        IsOn(kBoostLowSignals) ? std::max(kBoostedMaxGainDb, record_.maxGain) : record_.maxGain,
        0.0, 60.0);
    const double levellingDb =
        speech_.HasBody()
            ? std::clamp(
                  (static_cast<double>(GetParameter(kTargetDb)) - speech_.GetBodyDb()) * amount,
                  -maxGainDb, maxGainDb)
            : 0.0;
    FollowCompressor(amount);
    const double rise =
        Bounded(record_.maxGainDelta, 0.1, 1e6) * static_cast<double>(stepFrames_) / rateHz_;
    totalDb_ =
        std::clamp(levellingDb + compressorDb_, totalDb_ - kFallRatio * rise, totalDb_ + rise);

    Decision& decision = decisions_[decisionCount_ % decisions_.size()];
    decision.levelling = static_cast<float>(levellingDb);
    decision.total = static_cast<float>(totalDb_);
    decision.gate = static_cast<float>(FollowGate());
    decision.floor = static_cast<float>(speech_.GetFloorDb());
    inForce_ =
        decisions_[(decisionCount_ + decisions_.size() - gainDelaySteps_) % decisions_.size()];
    ++decisionCount_;
}

void IntraClip::FollowCompressor(double amount) {
    double goal = 0.0;
    if (HasBlock(kIntraClipBlock) && speech_.IsSpeech()) {
        const double range = static_cast<double>(GetParameter(kDynamicRangeDb));
        const double strength =
            std::clamp(1.0 + (kFullStrengthRangeDb - range) / kNoStrengthDb, 0.0, 1.0);
        const double above = std::clamp(speech_.GetLevelDb() - speech_.GetBodyDb(), -range, range);
        goal = -kCompressorStrength * amount * strength * above;
    }
    const double ms = goal < compressorDb_
                          ? kControlTimeRatio * static_cast<double>(record_.compAttackTime)
                          : static_cast<double>(record_.compReleaseTime);
    compressorDb_ += (goal - compressorDb_) * StepShare(ms);
}

double IntraClip::FollowGate() {
    const double stepSeconds = static_cast<double>(stepFrames_) / rateHz_;
    const double below = speech_.GetFloorDb() + static_cast<double>(GetParameter(kNoiseOffsetDb)) -
                         speech_.GetWindowDb();
    if (below <= 0.0)
        gateHoldSeconds_ = Bounded(record_.noiseGateHoldTime, 0.0, 60000.0) / 1000.0;
    else
        gateHoldSeconds_ = std::max(0.0, gateHoldSeconds_ - stepSeconds);
    double goal = 0.0;
    if (HasBlock(kGateBlock) && IsOn(kGate) && gateHoldSeconds_ == 0.0)
        goal = -std::clamp(below * (static_cast<double>(record_.noiseGateRatio) - 1.0), 0.0,
                           kMostGateDb);
    const double ms =
        static_cast<double>(goal > gateDb_ ? record_.noiseGateAttack : record_.noiseGateRelease);
    gateDb_ += (goal - gateDb_) * StepShare(ms);
    return gateDb_;
}

/// The gain of the compressor on peaks at the end of the step that comes, for audio that will have `gainDb`.
float IntraClip::CompressPeaks(float gainDb) {
    double goal = 0.0;
    if (HasBlock(kCompressorBlock) && IsOn(kCompressor)) {
        // Of the audio that the step puts out, where it is all there yet; else of the last step.
        float peak = 0.0f;
        for (SlidingBuffer& delay : delays_)
            peak = std::max(
                peak,
                vector::PeakOf(delay.Append(0) - std::max(delayFrames_, stepFrames_), stepFrames_));
        const double over = static_cast<double>(GainToDb(std::max(peak, 1e-6f)) + gainDb -
                                                GetParameter(kCompressorThresholdDb));
        const double knee = std::clamp(over + kPeakKneeDb / 2.0, 0.0, kPeakKneeDb);
        const double excess = over > kPeakKneeDb / 2.0 ? over : knee * knee / (2.0 * kPeakKneeDb);
        goal = -excess * (1.0 - 1.0 / kPeakRatio);
    }
    const double ms =
        static_cast<double>(goal < peakGainDb_ ? record_.finCompAttack : record_.finCompRelease);
    peakGainDb_ += (goal - peakGainDb_) * StepShare(ms);
    return static_cast<float>(peakGainDb_);
}

float IntraClip::GetCurveDb(const Decision& decision, float peakGainDb) const {
    switch (record_.debugMode) {
        case kTotalCurve:
            return decision.total;
        case kCompressorCurve:
            return peakGainDb;
        case kLevellingCurve:
            return decision.levelling;
        case kGateCurve:
            return decision.gate;
        case kFloorCurve:
            return decision.floor;
        default:  // no curve, or one that the limiter gives
            return 0.0f;
    }
}

/// The gains of the step that comes, along a straight line in dB.
void IntraClip::BeginStep() {
    const float levelledDb = inForce_.total + inForce_.gate;
    const float peakGainDb = CompressPeaks(levelledDb);
    const float endDb = levelledDb + peakGainDb;
    const float curveEndDb = GetCurveDb(inForce_, peakGainDb);
    const float scale = 1.0f / static_cast<float>(stepFrames_);
    for (std::size_t i = 0; i < stepFrames_; ++i) {
        const float place = static_cast<float>(i + 1) * scale;
        gains_[i] = gainDb_ + (endDb - gainDb_) * place;
        curve_[i] = std::clamp((curveDb_ + (curveEndDb - curveDb_) * place) / kCurveDbAtFullScale,
                               -1.0f, 1.0f);
    }
    vector::FromDb(gains_.data(), gains_.data(), stepFrames_);
    gainDb_ = endDb;
    curveDb_ = curveEndDb;
    const auto& bounds = kBounds[kAmplificationDb];
    parameters_[kAmplificationDb].store(std::clamp(endDb, bounds.lo, bounds.hi),
                                        std::memory_order_relaxed);
}

bool IntraClip::ShowsCurve() const {
    return record_.debugMode > kNoCurve && record_.debugMode <= kFloorCurve && delays_.size() >= 2;
}

// ---- Audio ----

void IntraClip::Process(const float* const* in, float* const* out, long frames) {
    std::array<const float*, kMostChannels> from{};
    std::array<float*, kMostChannels> to{};
    const auto total = static_cast<std::size_t>(std::max(frames, 0L));
    for (std::size_t done = 0; done < total;) {
        const std::size_t count = std::min<std::size_t>(total - done, HardLimit::kMaxPieceFrames);
        for (std::size_t c = 0; c < delays_.size(); ++c) {
            from[c] = in[c] + done;
            to[c] = out[c] + done;
        }
        ProcessPiece(from.data(), to.data(), count);
        done += count;
    }
}

void IntraClip::ProcessPiece(const float* const* in, float* const* out, std::size_t frames) {
    float* const curve = curveDelay_.Append(frames);
    for (std::size_t done = 0; done < frames;) {
        const std::size_t run = std::min(frames - done, stepFramesLeft_);
        const std::size_t first = stepFrames_ - stepFramesLeft_;
        std::copy_n(curve_.data() + first, run, curve + done);
        for (std::size_t c = 0; c < delays_.size(); ++c) {
            const float* newest = std::copy_n(in[c] + done, run, delays_[c].Append(run)) - run;
            vector::MultiplyBy(out[c] + done, newest - delayFrames_, gains_.data() + first, run);
        }
        done += run;
        stepFramesLeft_ -= run;
        if (stepFramesLeft_ > 0) continue;
        stepFramesLeft_ = stepFrames_;
        Decide();
        BeginStep();
    }
    const bool isLimited = HasBlock(kLimiterBlock);
    if (isLimited) limiter_.Process(out, out, static_cast<int>(frames), reductions_.data());
    if (!ShowsCurve()) return;
    if (record_.debugMode == kLimiterCurve)
        std::transform(reductions_.data(), reductions_.data() + frames, out[1], [=](float db) {
            return isLimited ? std::max(-db / kCurveDbAtFullScale, -1.0f) : 0.0f;
        });
    else
        std::copy_n(curve - (isLimited ? limiter_.GetLatency() : 0), frames, out[1]);
}

}  // namespace dsp::intraclip
