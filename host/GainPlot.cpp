#include "host/GainPlot.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "host/ChainProcessor.h"
#include "host/Parameters.h"
#include "host/RenderSource.h"
#include "kracore/FlushToZero.h"

namespace zuc::host {
namespace {

constexpr int kBlockFrames = 2048;
constexpr double kQuietPower = 1e-8;  // -80 dB: below it a ratio of powers tells nothing
constexpr double kLowestShownDb = -70.0;
constexpr std::size_t kMaxColumns = 1000;  // about one for each pixel
constexpr double kNoGain = std::numeric_limits<double>::quiet_NaN();
constexpr char kEnvelopeOnly[] = "EnvelopeOnly";

double ToDb(double power) { return 10.0 * std::log10(std::max(power, 1e-20)); }

using Step = GainTrace::Step;

/// Cuts a stream of blocks into the steps of a trace.
class StepFiller {
public:
    StepFiller(std::vector<Step>& steps, int stepFrames, std::int64_t skippedFrames)
        : steps_(steps), stepFrames_(stepFrames), frame_(-skippedFrames) {}

    /// Calls `add(step, sample)` for each sample of a frame that is not skipped.
    template <class Add>
    void Take(float* const* audio, std::size_t channels, int frames, const Add& add) {
        for (int i = 0; i < frames; ++i, ++frame_) {
            if (frame_ < 0) continue;
            const auto index = static_cast<std::size_t>(frame_ / stepFrames_);
            if (index >= steps_.size()) steps_.resize(index + 1);
            for (std::size_t c = 0; c < channels; ++c) add(steps_[index], audio[c][i]);
        }
    }

private:
    std::vector<Step>& steps_;
    int stepFrames_;
    std::int64_t frame_;
};

bool HasEnvelopeOnly(const kraaudiofilterhost::AudioFilter& filter) {
    const auto parameters = GetParameters(filter);
    return std::any_of(parameters.begin(), parameters.end(), [](const Parameter& parameter) {
        return parameter.info->GetIdentifier() == kEnvelopeOnly;
    });
}

/// Runs the chain, and beside it the same chain whose last effect puts out its gain where it can.
class Measurement {
public:
    Measurement(AudioReader& reader,
                const TimeRange& range,
                const Chain& chain,
                const EffectCatalogue& catalogue,
                const UserPresets& presets,
                AudioReader* sideChain)
        : channels_(static_cast<std::size_t>(reader.GetInfo().channels)),
          rateHz_(reader.GetInfo().rateHz),
          source_(reader, range, rateHz_, kBlockFrames),
          audio_(channels_, kBlockFrames),
          gains_(channels_, kBlockFrames) {
        const auto make = [&](const Chain& what) {
            return ChainProcessor(
                what, catalogue, presets, static_cast<float>(rateHz_), channels_, kBlockFrames,
                static_cast<std::size_t>(sideChain ? sideChain->GetInfo().channels : 0));
        };
        processor_.emplace(make(chain));
        processor_->RequireBlockwise();
        const auto& filters = processor_->GetFilters();
        if (!filters.empty() && HasEnvelopeOnly(*filters.back())) {
            Chain envelope = chain;
            envelope.back().settings.push_back({"envelope-only", "on"});
            envelope_.emplace(make(envelope));
        }
        FindMeters();
        if (!sideChain) return;
        side_.emplace(*sideChain, range, rateHz_, kBlockFrames);
        sideAudio_.emplace(static_cast<std::size_t>(sideChain->GetInfo().channels), kBlockFrames);
    }

    GainTrace Run() {
        const kracore::utility::FlushToZeroScope flushToZero;
        source_.Rewind();
        if (side_) side_->Rewind();
        for (auto* chain : {&processor_, &envelope_}) {
            if (!*chain) continue;
            (*chain)->SetSelection(source_.GetBeginFrame(), source_.GetTotalFrames());
            (*chain)->Resume();
        }
        const std::int64_t latency = processor_->GetLatencyFrames();
        const int stepFrames = std::max(1, rateHz_ / 100);
        const int blockFrames = meters_.empty() ? kBlockFrames : stepFrames;
        StepFiller inputs(trace_.steps, stepFrames, 0);
        StepFiller outputs(trace_.steps, stepFrames, latency);
        StepFiller gains(trace_.steps, stepFrames, latency);
        std::int64_t silence = latency;
        while (true) {
            audio_.Clear(kBlockFrames);
            int frames = source_.Read(audio_.GetChannels(), blockFrames);
            if (frames > 0) {
                inputs.Take(audio_.GetChannels(), channels_, frames, AddInput);
            } else {
                frames = static_cast<int>(std::min<std::int64_t>(silence, blockFrames));
                silence -= frames;
            }
            if (frames == 0) break;
            ProcessBlock(frames, outputs, gains);
            ReadMeters(frames, stepFrames);
        }
        Finish(stepFrames);
        return std::move(trace_);
    }

private:
    struct MeterPlace {
        kraaudiofilterhost::AudioFilter* filter;
        Parameter parameter;
        std::int64_t latency;  // of the chain up to there
    };
    void FindMeters() {
        std::int64_t latency = 0;
        for (const auto& filter : processor_->GetFilters()) {
            latency += std::max(0, filter->GetInitialDelay());
            for (Parameter& parameter : GetParameters(*filter)) {
                if (parameter.role != kraaudiofilterhost::AudioFilterParameterRole::kMeter ||
                    parameter.unit != "dB")
                    continue;
                trace_.meters.push_back({parameter.name, {}});
                meters_.push_back({filter.get(), std::move(parameter), latency});
            }
        }
    }
    /// What they show of the block that has just been processed, which is as long as a step.
    void ReadMeters(int frames, int stepFrames) {
        for (std::size_t k = 0; k < meters_.size(); ++k) {
            const auto& [filter, parameter, latency] = meters_[k];
            const std::int64_t middle = meterFrame_ + frames / 2 - latency;
            if (middle < 0) continue;
            auto& values = trace_.meters[k].valuesDb;
            const auto index = static_cast<std::size_t>(middle / stepFrames);
            if (index >= values.size()) values.resize(index + 1, kNoGain);
            values[index] = static_cast<double>(
                parameter.info->FromNormalized(filter->GetParameter(parameter.index)));
        }
        meterFrame_ += frames;
    }

    static void AddInput(Step& step, float x) {
        step.inputLo = std::min(step.inputLo, x);
        step.inputHi = std::max(step.inputHi, x);
        step.inputPower += static_cast<double>(x) * x;
    }
    static void AddOutput(Step& step, float x) {
        step.outputLo = std::min(step.outputLo, x);
        step.outputHi = std::max(step.outputHi, x);
        step.outputPower += static_cast<double>(x) * x;
    }
    /// Linear until Finish; a gain is positive, so that 0 means none yet.
    static void AddGain(Step& step, float gain) {
        const double value = std::max(gain, 1e-10f);
        step.gainLoDb = step.gainLoDb == 0.0 ? value : std::min(step.gainLoDb, value);
        step.gainHiDb = std::max(step.gainHiDb, value);
    }

    void ProcessBlock(int frames, StepFiller& outputs, StepFiller& gains) {
        float** side = nullptr;
        if (side_) {
            sideAudio_->Clear(kBlockFrames);
            side = sideAudio_->GetChannels();
            side_->Read(side, frames);
        }
        if (envelope_) {
            for (std::size_t c = 0; c < channels_; ++c)
                std::copy_n(audio_.GetChannels()[c], frames, gains_.GetChannels()[c]);
            envelope_->Process(gains_.GetChannels(), frames, side);
            gains.Take(gains_.GetChannels(), channels_, frames, AddGain);
        }
        processor_->Process(audio_.GetChannels(), frames, side);
        outputs.Take(audio_.GetChannels(), channels_, frames, AddOutput);
    }

    void Finish(int stepFrames) {
        trace_.stepSeconds = static_cast<double>(stepFrames) / rateHz_;
        trace_.beginSeconds = static_cast<double>(source_.GetBeginFrame()) / rateHz_;
        trace_.isGainExact = envelope_.has_value();
        const double count = static_cast<double>(stepFrames) * static_cast<double>(channels_);
        for (Step& step : trace_.steps) {
            if (envelope_) {
                step.gainLoDb = 20.0 * std::log10(step.gainLoDb);
                step.gainHiDb = 20.0 * std::log10(step.gainHiDb);
            } else {
                const bool tells = step.inputPower > kQuietPower * count;
                const double gainDb = ToDb(step.outputPower / std::max(step.inputPower, 1e-30));
                step.gainLoDb = step.gainHiDb = tells ? gainDb : kNoGain;
            }
            step.inputPower /= count;
            step.outputPower /= count;
        }
    }

    std::size_t channels_;
    int rateHz_;
    RenderSource source_;
    AudioBlock audio_;
    AudioBlock gains_;
    std::optional<ChainProcessor> processor_;
    std::optional<ChainProcessor> envelope_;  // where the last effect can put out its gain
    std::vector<MeterPlace> meters_;
    std::int64_t meterFrame_ = 0;  // frames processed
    std::optional<RenderSource> side_;
    std::optional<AudioBlock> sideAudio_;
    GainTrace trace_;
};

/// Neighbouring steps together, so that there are no more than the picture can show.
std::vector<Step> MergeSteps(const std::vector<Step>& steps, std::size_t together) {
    std::vector<Step> merged;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step& step = steps[i];
        if (i % together == 0) {
            merged.push_back(step);
            continue;
        }
        Step& sum = merged.back();
        sum.inputLo = std::min(sum.inputLo, step.inputLo);
        sum.inputHi = std::max(sum.inputHi, step.inputHi);
        sum.outputLo = std::min(sum.outputLo, step.outputLo);
        sum.outputHi = std::max(sum.outputHi, step.outputHi);
        const double weight = 1.0 / static_cast<double>(i % together + 1);
        sum.inputPower += weight * (step.inputPower - sum.inputPower);
        sum.outputPower += weight * (step.outputPower - sum.outputPower);
        sum.gainLoDb = std::fmin(sum.gainLoDb, step.gainLoDb);  // either, where one is no number
        sum.gainHiDb = std::fmax(sum.gainHiDb, step.gainHiDb);
    }
    return merged;
}

void AddMeters(FigurePanel& panel, const GainTrace& trace) {
    int color = 2;
    for (const GainTrace::Meter& meter : trace.meters) {
        std::vector<FigurePoint> line;
        for (std::size_t i = 0; i < meter.valuesDb.size(); ++i)
            line.push_back({trace.beginSeconds + trace.stepSeconds * (static_cast<double>(i) + 0.5),
                            meter.valuesDb[i]});
        panel.AddLine(std::move(line), meter.name, {color++, 1.5});
    }
}

}  // namespace

GainTrace MeasureGain(AudioReader& reader,
                      const TimeRange& range,
                      const Chain& chain,
                      const EffectCatalogue& catalogue,
                      const UserPresets& presets,
                      AudioReader* sideChain) {
    return Measurement(reader, range, chain, catalogue, presets, sideChain).Run();
}

Figure PlotGain(const GainTrace& trace, const std::string& title) {
    const std::size_t together =
        std::max<std::size_t>(1, (trace.steps.size() + kMaxColumns - 1) / kMaxColumns);
    const std::vector<Step> steps = MergeSteps(trace.steps, together);
    const double columnSeconds = trace.stepSeconds * static_cast<double>(together);
    std::vector<FigureBand> input;
    std::vector<FigureBand> output;
    std::vector<FigureBand> gains;
    std::vector<FigurePoint> inputLevel;
    std::vector<FigurePoint> outputLevel;
    std::vector<FigurePoint> leastGain;
    double peak = 0.1;
    double lowestGainDb = -6.0;
    double highestGainDb = 0.0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step& step = steps[i];
        const double time = trace.beginSeconds + columnSeconds * (static_cast<double>(i) + 0.5);
        input.push_back({time, step.inputLo, step.inputHi});
        output.push_back({time, step.outputLo, step.outputHi});
        inputLevel.push_back({time, std::max(ToDb(step.inputPower), kLowestShownDb)});
        outputLevel.push_back({time, std::max(ToDb(step.outputPower), kLowestShownDb)});
        leastGain.push_back({time, step.gainLoDb});
        if (std::isfinite(step.gainLoDb)) gains.push_back({time, step.gainLoDb, step.gainHiDb});
        for (const float x : {-step.inputLo, step.inputHi, -step.outputLo, step.outputHi})
            peak = std::max(peak, static_cast<double>(x));
        lowestGainDb = std::fmin(lowestGainDb, step.gainLoDb);
        highestGainDb = std::fmax(highestGainDb, step.gainHiDb);
    }
    for (const GainTrace::Meter& meter : trace.meters)
        for (const double valueDb : meter.valuesDb) {
            lowestGainDb = std::fmin(lowestGainDb, valueDb);
            highestGainDb = std::fmax(highestGainDb, valueDb);
        }
    const double end = trace.beginSeconds + columnSeconds * static_cast<double>(steps.size());
    const bool isLong = end > 60.0;
    Figure figure(
        title, {isLong ? "Time (min:s)" : "Time (s)", trace.beginSeconds, end, AxisUnit::kSeconds},
        1000.0, 680.0);
    FigurePanel& waveform = figure.AddPanel({"Waveform", -peak, peak});
    waveform.AddBand(input, "input", {5});
    waveform.AddBand(output, "output", {0, 1.0, false, 0.75});
    FigurePanel& levels = figure.AddPanel(
        {"Level (dB)", kLowestShownDb, std::max(0.0, 20.0 * std::log10(peak)), AxisUnit::kDecibel});
    levels.AddLine(inputLevel, "input", {5, 1.5});
    levels.AddLine(outputLevel, "output", {0, 1.5});
    FigurePanel& gain = figure.AddPanel({"Gain (dB)", std::max(lowestGainDb, kLowestShownDb) - 1.0,
                                         highestGainDb + 1.0, AxisUnit::kDecibel});
    gain.AddHorizontals({0.0}, "", {FigureStyle::kGrey, 1.0, true});
    const char* name = trace.isGainExact ? "gain of the envelope" : "output over input";
    gain.AddBand(gains, "", {1, 1.0, false, 0.25});
    gain.AddLine(leastGain, name, {1, 1.5});
    AddMeters(gain, trace);
    return figure;
}

}  // namespace zuc::host
