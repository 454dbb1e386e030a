#include "Components/private/ConsoleCommands.h"

#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <memory>
#include <variant>
#include <vector>

#include "kraaudiodsp/IntraClipParam.h"
#include "kracore/Console.h"
#include "kracore/DebugDatabase.h"
#include "kracore/Numbers.h"

namespace zuc {
namespace {

using dsp::intraclip::IntraClipParam;
using kracore::WStr;
using kracore::console::Command;
using kracore::console::CommandRegistry;
using kracore::console::OutputStream;

using Field = std::variant<float IntraClipParam::*, int IntraClipParam::*>;
constexpr std::array<Field, 28> kSetupFields{
    &IntraClipParam::refLevel,
    &IntraClipParam::maxGain,
    &IntraClipParam::maxGainDelta,
    &IntraClipParam::peakMax,
    &IntraClipParam::peakMin,
    &IntraClipParam::bodyDynamic,
    &IntraClipParam::minRMSNoise,
    &IntraClipParam::maxRMSNoise,
    &IntraClipParam::compAttackTime,
    &IntraClipParam::compReleaseTime,
    &IntraClipParam::peakSmoothAttackTime,
    &IntraClipParam::peakSmoothReleaseTime,
    &IntraClipParam::noiseThresholdOffset,
    &IntraClipParam::noiseGateRatio,
    &IntraClipParam::noiseGateAttack,
    &IntraClipParam::noiseGateRelease,
    &IntraClipParam::noiseGateHoldTime,
    &IntraClipParam::numRMSBuckets,
    &IntraClipParam::rmsWindowTime,
    &IntraClipParam::selBucketIndex,
    &IntraClipParam::delayCompensationTime,
    &IntraClipParam::finCompAttack,
    &IntraClipParam::finCompRelease,
    &IntraClipParam::finCompThresh,
    &IntraClipParam::finLimLookAhead,
    &IntraClipParam::finLimRelease,
    &IntraClipParam::finLimCeil,
    &IntraClipParam::processingBlockActiveBitField,
};

std::atomic<float> timeStretchPreviewQuality{11.0f};

/// Deliberate: text that is no number counts as 0; the commands check no range.
double ToNumber(const WStr& text) { return kracore::utility::StringToNumber(text).value_or(0.0); }

/// Truncated toward zero; numbers beyond an int become its limit.
int ToInteger(const WStr& text) {
    constexpr double kLimit = std::numeric_limits<int>::max();
    return static_cast<int>(std::fmax(-kLimit, std::fmin(kLimit, ToNumber(text))));
}

class IntraClipSetup final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        if (arguments.size() != kSetupFields.size()) {
            out << u"IntraClip.Setup RefLevel MaxGain MaxGainDelta PeakMax PeakMin BodyDynamic "
                   u"MinRMSNoise "
                   u"MaxRMSNoise CompAttackTime CompReleaseTime PeakSmoothAttackTime "
                   u"PeakSmoothReleaseTime ...\n"
                   u"NoiseThresholdOffset NoiseGateRatio NoiseGateAttack NoiseGateRelease "
                   u"NoiseGateHoldTime NumRMSBuckets RMSWindowTime SelBucketIndex "
                   u"DelayCompensationTime...\n"
                   u"FinCompAttack FinCompRelease FinCompThresh FinLimLookAhead FinLimRelease "
                   u"FinLimCeil "
                   u"ProcessingBlockActiveBitField\n"
                   u"ProcessingBlockActiveBitField: 1=IntraClipCompressor 2=FinalizeCompressor "
                   u"4=FinalizeLimiter 8=NoiseGate\n"
                   u"Example: IntraClip.Setup -12 10 35 -10 -40 15 -60 -50 10 500 1000 8000 15 1.5 "
                   u"10 1000 "
                   u"250 10 50 2 -200 10 250 -6 5 100 -1.0 15\n";
            return;
        }
        IntraClipParam param;
        dsp::intraclip::GetGlobalParam(param);
        for (std::size_t i = 0; i < kSetupFields.size(); ++i) {
            if (const auto* field = std::get_if<float IntraClipParam::*>(&kSetupFields[i]))
                param.*(*field) = static_cast<float>(ToNumber(arguments[i]));
            else
                param.*(std::get<int IntraClipParam::*>(kSetupFields[i])) = ToInteger(arguments[i]);
        }
        dsp::intraclip::SetGlobalParam(param);
        out << u"Parameter changed for next run.\n";
    }
};

class IntraClipDebug final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        if (arguments.size() != 1) {
            out << u"0=(Default) Normal Processing 1=(Control curve in right channel) "
                   u"1=ShowIntraClipGainCurve 2=ShowFinalizeCompressorGainCurve\n"
                   u"3=ShowFinalizeLimiterGainCurve 4=ShowMaxGainCurve 5=ShowNoiseGateGainCurve "
                   u"6=Noisefloor Estimate\n";
            return;
        }
        IntraClipParam param;
        dsp::intraclip::GetGlobalParam(param);
        param.debugMode = ToInteger(arguments.front());
        dsp::intraclip::SetGlobalParam(param);
        out << (param.debugMode != 0 ? u"Show control curve in right channel\n"
                                     : u"Normal processing\n");
    }
};

class SetTimeStretchPreviewQ final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        const int quality = arguments.size() == 1 ? ToInteger(arguments.front()) : 0;
        if (quality < 10 || quality > 12) {
            out << u"Invalid quality setting\n";
            return;
        }
        timeStretchPreviewQuality.store(static_cast<float>(quality));
        out << u"Quality changed.\n";
    }
};

/// What a value of a setting has to be.
enum class SettingKind { kInteger, kBool };

/// One setting of Remix, kept in the debug database; the next run takes it up.
template <const char16_t* Name, SettingKind Kind>
class RemixSetting final : public Command {
public:
    void Execute(const std::vector<WStr>& arguments, OutputStream& out) override {
        using kracore::debug::DebugDatabase;
        const auto before = DebugDatabase::Get(Name);
        if (arguments.size() == 1 && arguments.front() == u"default") {
            DebugDatabase::Remove(Name);
        } else if (arguments.size() == 1) {
            DebugDatabase::Set(Name, arguments.front());
            if (!IsValid()) {
                before ? DebugDatabase::Set(Name, *before) : DebugDatabase::Remove(Name);
                out << u"Invalid value\n";
                return;
            }
        }
        out << Name << u" = " << DebugDatabase::Get(Name).value_or(u"default") << u"\n";
    }

private:
    static bool IsValid() {
        using kracore::debug::DebugDatabase;
        if (Kind == SettingKind::kBool) return DebugDatabase::GetBool(Name).has_value();
        return DebugDatabase::GetInteger(Name).value_or(0) > 0;
    }
};

constexpr char16_t kRemixSampleRate[] = u"Remix.Samplerate";
constexpr char16_t kRemixAvoidLoops[] = u"Remix.AvoidLoops";
constexpr char16_t kRemixSourceSeparation[] = u"Remix.SourceSeperation";

struct CommandRow {
    const char16_t* name;
    const char16_t* help;
    std::unique_ptr<Command> (*create)();
};

template <class T>
std::unique_ptr<Command> Create() {
    return std::make_unique<T>();
}

constexpr std::array kCommands{
    CommandRow{u"IntraClip.Setup", u"IntraClip.Setup - Sets all adjustable parameter",
               Create<IntraClipSetup>},
    CommandRow{u"IntraClip.Debug",
               u"IntraClip.Debug - Enables displaying of control curve in right stereo channel",
               Create<IntraClipDebug>},
    CommandRow{u"SetTimeStretchPreviewQ",
               u"SetTimeStretchPreviewQ - Sets time stretch preview Q - 10, 11, or 12",
               Create<SetTimeStretchPreviewQ>},
    CommandRow{kRemixSampleRate,
               u"Remix.Samplerate - Sets the sample rate of the analysis in Hz; or default",
               Create<RemixSetting<kRemixSampleRate, SettingKind::kInteger>>},
    CommandRow{kRemixAvoidLoops, u"Remix.AvoidLoops - Avoids playing one loop again and again",
               Create<RemixSetting<kRemixAvoidLoops, SettingKind::kBool>>},
    CommandRow{kRemixSourceSeparation,
               u"Remix.SourceSeperation - Takes harmonies from sustained sounds only",
               Create<RemixSetting<kRemixSourceSeparation, SettingKind::kBool>>},
};

/// Made when the commands are registered, so that to unregister them takes no memory.
std::vector<WStr> registeredNames;

}  // namespace

void RegisterConsoleCommands() {
    registeredNames.clear();
    for (const CommandRow& row : kCommands) registeredNames.emplace_back(row.name);
    for (const CommandRow& row : kCommands)
        CommandRegistry::RegisterCommand(row.name, row.help, row.create);
}

void UnregisterConsoleCommands() {
    for (const WStr& name : registeredNames) CommandRegistry::UnregisterCommand(name);
}

float GetTimeStretchPreviewQuality() { return timeStretchPreviewQuality.load(); }

}  // namespace zuc
