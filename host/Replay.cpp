#include "host/Replay.h"

#include <algorithm>
#include <array>
#include <limits>

#include "host/Text.h"

namespace zuc::host {
namespace {

using Op = ReplayEvent::Op;

constexpr int kMaximumChannels = 64;          // beyond what effects take, to see how they answer
constexpr int kMaximumFrames = 1 << 28;       // of one event
constexpr int kMaximumBlockFrames = 1 << 22;  // bounds the memory
constexpr double kMaximumRateHz = 1e6;
constexpr double kMaximumFloat = std::numeric_limits<float>::max();

/// An operation's name and the number that it takes, if any.
struct OpRow {
    std::string_view name;
    Op op;
    std::string_view indexKey;  // whole number
    std::string_view numberKey;
};
// clang-format off
constexpr std::array kOps{
    //    name        operation      whole     number
    OpRow{"rate",     Op::kRate,     "",       "value"},
    OpRow{"channels", Op::kChannels, "value",  ""},
    OpRow{"param",    Op::kParam,    "index",  "n"},
    OpRow{"preset",   Op::kPreset,   "index",  ""},
    OpRow{"begin",    Op::kBegin,    "index",  ""},
    OpRow{"end",      Op::kEnd,      "index",  ""},
    OpRow{"resume",   Op::kResume,   "",       ""},
    OpRow{"suspend",  Op::kSuspend,  "",       ""},
    OpRow{"process",  Op::kProcess,  "",       ""},
    OpRow{"get",      Op::kGet,      "index",  ""},
    OpRow{"latency",  Op::kLatency,  "",       ""},
    OpRow{"name",     Op::kName,     "index",  ""},
    OpRow{"curve",    Op::kCurve,    "points", ""},
};
// clang-format on

const OpRow& FindOp(const JsonValue& place, const std::string& name) {
    std::vector<std::string> names;
    for (const OpRow& row : kOps) {
        if (row.name == name) return row;
        names.emplace_back(row.name);
    }
    const std::string hint = DidYouMean(name, names);
    place.Refuse("unknown operation '" + name + "'" + (hint.empty() ? "" : " (" + hint + ")"),
                 Join(names));
}

ReplayEvent ParseEvent(const JsonValue& value) {
    const OpRow& row = FindOp(value, value.Require("op").GetText());
    ReplayEvent event;
    event.op = row.op;
    if (!row.indexKey.empty()) {
        const bool isChannels = row.op == Op::kChannels;
        const bool isCurve = row.op == Op::kCurve;
        event.index = value.Require(row.indexKey)
                          .GetInteger(isChannels ? 1
                                      : isCurve  ? 0
                                                 : std::numeric_limits<int>::min(),
                                      isChannels ? kMaximumChannels
                                      : isCurve  ? kMaximumBlockFrames
                                                 : std::numeric_limits<int>::max());
    }
    if (!row.numberKey.empty())
        event.number = static_cast<float>(
            value.Require(row.numberKey).GetNumber(-kMaximumFloat, kMaximumFloat));
    if (row.op == Op::kProcess) {
        event.frames = value.Require("frames").GetInteger(0, kMaximumFrames);
        const bool hasBlock = value.Has("block");
        event.block = hasBlock ? value.Require("block").GetInteger(1, kMaximumBlockFrames)
                               : std::clamp(event.frames, 1, kMaximumBlockFrames);
        if (!hasBlock && event.frames > kMaximumBlockFrames)
            value.Refuse("so many frames need a 'block'",
                         "1 … " + ToText(double{kMaximumBlockFrames}));
    }
    return event;
}

/// Channels of one block, as an effect takes them.
class Planes {
public:
    void Resize(std::size_t channels, int frames) {
        samples_.assign(channels * static_cast<std::size_t>(frames), 0.0f);
        pointers_.resize(channels);
        for (std::size_t c = 0; c < channels; ++c)
            pointers_[c] = samples_.data() + c * static_cast<std::size_t>(frames);
    }
    float** Get() { return pointers_.data(); }
    std::size_t GetCount() const { return pointers_.size(); }

private:
    std::vector<float> samples_;
    std::vector<float*> pointers_;
};

class Player {
public:
    Player(AudioFilter& filter,
           std::size_t outputChannels,
           std::size_t sideChannels,
           const ReplaySource& input,
           const ReplaySource& sideChain,
           const ReplaySink& output)
        : filter_(filter),
          outputChannels_(outputChannels),
          sideChannels_(sideChannels),
          input_(input),
          sideChain_(sideChain),
          output_(output) {}

    void Play(const ReplayEvent& event) {
        switch (event.op) {
            case Op::kRate:
                filter_.SetSampleRate(event.number);
                break;
            case Op::kChannels:
                RequestChannels(filter_, static_cast<std::size_t>(event.index), sideChannels_);
                break;
            case Op::kParam:
                filter_.SetParameterAutomated(event.index, event.number);
                break;
            case Op::kPreset:
                filter_.SetFactoryPreset(event.index);
                break;
            case Op::kBegin:
                filter_.BeginEditing(event.index);
                break;
            case Op::kEnd:
                filter_.EndEditing(event.index);
                break;
            case Op::kResume:
                filter_.Resume();
                break;
            case Op::kSuspend:
                filter_.Suspend();
                break;
            case Op::kProcess:
                Process(event.frames, event.block);
                break;
            case Op::kGet:
                log_.push_back(filter_.GetParameter(event.index));
                break;
            case Op::kLatency:
                log_.push_back(filter_.GetInitialDelay());
                break;
            case Op::kName:
                log_.push_back(kracore::utility::ToUtf8(filter_.GetFactoryPresetName(event.index)));
                break;
            case Op::kCurve:
                LogCurve(event.index);
                break;
        }
    }
    Json TakeLog() { return std::move(log_); }

private:
    void Process(int frames, int block) {
        const std::size_t inputs = filter_.GetNumberOfInputChannels();
        const auto& buses = filter_.GetInputBuses();
        const std::size_t mains = buses.empty() ? 0 : buses.front().GetChannelCount();
        for (int done = 0; done < frames; done += block) {
            const int count = std::min(block, frames - done);
            in_.Resize(inputs, count);
            out_.Resize(std::max(outputChannels_, filter_.GetNumberOfOutputChannels()), count);
            input_(in_.Get(), mains, count);
            if (inputs > mains) sideChain_(in_.Get() + mains, inputs - mains, count);
            kraaudiofilterhost::Flags outFlags;
            filter_.Process(in_.Get(), out_.Get(), count, {}, outFlags);
            output_(out_.Get(), outputChannels_, count);
        }
    }

    void LogCurve(int points) {
        std::vector<float> samples;
        filter_.GetCurveData(0, static_cast<std::size_t>(points), samples);
        log_.push_back(samples);
    }

    AudioFilter& filter_;
    std::size_t outputChannels_;
    std::size_t sideChannels_;
    const ReplaySource& input_;
    const ReplaySource& sideChain_;
    const ReplaySink& output_;
    Planes in_;
    Planes out_;
    Json log_ = Json::array();
};

/// A new effect that knows the script's rate, channels and largest block.
AudioFilterPtr CreateForScript(const ReplayScript& script, const EffectCatalogue& catalogue) {
    const Effect& effect = catalogue.Find(script.effect);
    AudioFilterPtr filter = effect.create();
    if (!filter)
        throw Error(ExitCode::kProcessing, effect.slug + " cannot be created on this machine");
    filter->SetSampleRate(script.rateHz);
    filter->SetBlockSize(script.GetLargestBlock());
    RequestChannels(*filter, static_cast<std::size_t>(script.channels),
                    static_cast<std::size_t>(script.sideChannels));
    return filter;
}

}  // namespace

int ReplayScript::GetLargestBlock() const {
    int largest = 1;
    for (const ReplayEvent& event : events)
        if (event.op == Op::kProcess)
            largest = std::max(largest, std::min(event.block, event.frames));
    return largest;
}

ReplayScript ParseReplayJson(std::string_view json, std::string_view source) {
    const Json parsed = ParseJson(json, source);
    const JsonValue root(parsed, std::string(source) + ":");
    ReplayScript script;
    script.effect = root.Require("effect").GetText();
    if (root.Has("rate"))
        script.rateHz = static_cast<float>(root.Require("rate").GetNumber(1.0, kMaximumRateHz));
    if (root.Has("channels"))
        script.channels = root.Require("channels").GetInteger(1, kMaximumChannels);
    for (const JsonValue& event : root.Require("events").GetElements())
        script.events.push_back(ParseEvent(event));
    return script;
}

std::size_t CountReplayChannels(const ReplayScript& script, const EffectCatalogue& catalogue) {
    const AudioFilterPtr filter = CreateForScript(script, catalogue);
    std::size_t most = 1;
    for (const ReplayEvent& event : script.events) {
        if (event.op == Op::kChannels)
            RequestChannels(*filter, static_cast<std::size_t>(event.index),
                            static_cast<std::size_t>(script.sideChannels));
        if (event.op == Op::kProcess) most = std::max(most, filter->GetNumberOfOutputChannels());
    }
    return most;
}

Json RunReplay(const ReplayScript& script,
               const EffectCatalogue& catalogue,
               const ReplaySource& input,
               const ReplaySource& sideChain,
               const ReplaySink& output) {
    const AudioFilterPtr filter = CreateForScript(script, catalogue);
    const std::size_t channels = CountReplayChannels(script, catalogue);
    Player player(*filter, channels, static_cast<std::size_t>(script.sideChannels), input,
                  sideChain, output);
    for (const ReplayEvent& event : script.events) player.Play(event);
    return player.TakeLog();
}

}  // namespace zuc::host
