#include <array>
#include <cmath>
#include <utility>

#include "ChainArguments.h"
#include "Commands.h"
#include "Console.h"
#include "Signals.h"
#include "host/BeatAnalysis.h"
#include "host/ChainProcessor.h"
#include "host/CurvePlot.h"
#include "host/Faults.h"
#include "host/Figure.h"
#include "host/GainPlot.h"
#include "host/RemixPicture.h"
#include "host/ResponsePlot.h"
#include "host/Text.h"
#include "host/TimeRange.h"
#include "host/TransferPlot.h"
#include "host/WaveformPlot.h"
#include "kracore/Numbers.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

constexpr int kBlockFrames = 1024;
constexpr std::size_t kMaximumFiles = 32;  // in one picture

double ParseNumber(const char* option, const std::string& text, double lo, double hi) {
    const auto number = kracore::utility::StringToNumber(text);
    if (!number || *number < lo || *number > hi)
        throw Error(
            ExitCode::kUsage, std::string(option) + " cannot be '" + text + "'",
            host::ToText(static_cast<float>(lo)) + " … " + host::ToText(static_cast<float>(hi)));
    return *number;
}

/// What every picture of effects needs, read and checked.
struct PlotJob {
    host::Chain chain;
    float rateHz = 48000.0f;
    std::size_t channels = 2;
    double seconds = 0.0;  // 0: as long as it takes
    host::ImpulseScale scale = host::ImpulseScale::kAuto;
    host::TimeRange range;
    std::vector<std::string> files;
    std::unique_ptr<host::AudioReader>
        input;  // the first file, of kinds that run it through a chain
    std::unique_ptr<host::AudioReader> sideChain;

    std::string Title(const char* what) const {
        std::vector<std::string> steps;
        for (const host::ChainStep& step : chain) steps.push_back(host::FormatStepText(step));
        return std::string(what) + host::Join(steps, " + ");
    }
    host::ChainProcessor MakeProcessor() const {
        return {chain,       host::EffectCatalogue(), host::UserPresets(), rateHz, channels,
                kBlockFrames};
    }
};

host::ImpulseResponses Measure(const PlotJob& job) {
    host::ChainProcessor processor = job.MakeProcessor();
    return host::MeasureImpulseResponses(processor, job.rateHz, job.seconds);
}

host::Figure DrawTransfer(const PlotJob& job) {
    if (job.chain.size() != 1)
        throw Error(ExitCode::kUsage, "plot transfer shows one effect at a time");
    return host::PlotTransfer(*job.MakeProcessor().GetFilters().front(),
                              job.Title("Transfer curve of "));
}

host::Figure DrawGain(const PlotJob& job) {
    const host::GainTrace trace =
        host::MeasureGain(*job.input, job.range, job.chain, host::EffectCatalogue(),
                          host::UserPresets(), job.sideChain.get());
    const std::string& path = job.input->GetInfo().path;
    const std::string title = path.substr(path.rfind('/') + 1) + " through ";
    return host::PlotGain(trace, job.Title(title.c_str()));
}

host::Figure DrawBeats(const PlotJob& job) {
    const InterruptibleJob interruptible;
    const auto song = host::AnalyseBeats(job.files.front(), host::SongCache(),
                                         [](double) { return GetInterruption() == 0; });
    return host::PlotBeats(job.files.front(), song);
}

void SaveRemix(const PlotJob& job, const std::string& path) {
    if (job.files.size() < 2)
        throw Error(ExitCode::kUsage, "plot remix: the plan is missing", "",
                    "for example zuc plot remix song.wav plan.json -o remix.svg");
    const InterruptibleJob interruptible;
    host::PlotRemix(job.files[0], job.files[1], &GetInterruption()).Save(path);
}

struct PlotKind {
    const char* name = "";
    host::Figure (*draw)(const PlotJob& job) = nullptr;
    std::size_t mostFiles = 0;  // none are needed when it is 0
    bool needsEffects = true;
    /// Of pictures that are no figure with axes.
    void (*save)(const PlotJob& job, const std::string& path) = nullptr;
};
constexpr std::array kKinds{
    PlotKind{"impulse",
             [](const PlotJob& job) {
                 return host::PlotImpulseResponses(Measure(job), job.Title("Impulse response of "),
                                                   job.scale);
             }},
    PlotKind{"response",
             [](const PlotJob& job) {
                 host::ChainProcessor processor = job.MakeProcessor();
                 return host::PlotFrequencyResponses(
                     host::MeasureImpulseResponses(processor, job.rateHz, job.seconds),
                     job.Title("Frequency response of "),
                     host::GetTargetMagnitude(processor, job.rateHz));
             }},
    PlotKind{"transfer", DrawTransfer},
    PlotKind{"gain", DrawGain, 1},
    PlotKind{"curve",
             [](const PlotJob& job) {
                 host::ChainProcessor processor = job.MakeProcessor();
                 return host::PlotCurves(processor, job.rateHz, job.seconds);
             }},
    PlotKind{"waveform",
             [](const PlotJob& job) { return host::PlotWaveforms(job.files, job.range); },
             kMaximumFiles, false},
    PlotKind{"beats", DrawBeats, 1, false},
    PlotKind{"remix", nullptr, 2, false, SaveRemix},
};

host::ImpulseScale ParseScale(const std::string& text) {
    if (text == "auto") return host::ImpulseScale::kAuto;
    if (text == "amplitude") return host::ImpulseScale::kAmplitude;
    if (text == "level") return host::ImpulseScale::kLevel;
    throw Error(ExitCode::kUsage, "--scale cannot be '" + text + "'", "auto, amplitude, level");
}

const PlotKind& FindKind(const std::string& name) {
    std::vector<std::string> names;
    for (const PlotKind& kind : kKinds) {
        if (name == kind.name) return kind;
        names.emplace_back(kind.name);
    }
    throw Error(ExitCode::kUsage, "there is no plot '" + name + "'", host::Join(names),
                host::DidYouMean(name, names));
}

PlotJob ReadOptions(const PlotOptions& options, const PlotKind* kind, host::Faults& faults) {
    PlotJob job;
    job.chain = MakeChain(options.chain, faults);
    WarnOfPlaceholders(job.chain);
    job.files = options.inputs;
    if (!options.range.empty())
        faults.Try([&] { job.range = host::ParseTimeRange(options.range); });
    if (!options.rate.empty())
        faults.Try([&] {
            job.rateHz = static_cast<float>(ParseNumber("--rate", options.rate, 1000.0, 768000.0));
        });
    if (!options.channels.empty())
        faults.Try([&] {
            job.channels = static_cast<std::size_t>(
                std::floor(ParseNumber("--channels", options.channels, 1.0, 8.0)));
        });
    if (!options.length.empty())
        faults.Try([&] { job.seconds = ParseNumber("--length", options.length, 0.001, 60.0); });
    faults.Try([&] { job.scale = ParseScale(options.scale); });
    if (kind && kind->mostFiles == 1 && job.files.size() == 1)
        faults.Try([&] { job.input = host::AudioReader::Open(job.files.front()); });
    if (!options.sideChain.empty())
        faults.Try([&] { job.sideChain = host::AudioReader::Open(options.sideChain); });
    return job;
}

/// That there is what the kind draws, and nothing else.
void CheckUse(const PlotKind& kind, const PlotJob& job, host::Faults& faults) {
    const std::string name = std::string("plot ") + kind.name;
    if (kind.mostFiles > 0 && job.files.empty())
        faults.Add(Error(ExitCode::kUsage, name + ": IN is missing", "",
                         "for example zuc " + name + " in.wav -o picture.svg"));
    if (job.files.size() > kind.mostFiles)
        faults.Add(
            Error(ExitCode::kUsage, name + " does not expect '" + job.files[kind.mostFiles] + "'"));
    if (kind.needsEffects && job.chain.empty() && faults.IsEmpty())
        faults.Add(Error(ExitCode::kUsage, "plot: -e EFFECT is missing", "",
                         "for example -e echo:preset=Spooky"));
}

}  // namespace

int RunPlot(const PlotOptions& options) {
    host::Faults faults;
    const PlotKind* kind = nullptr;
    faults.Try([&] { kind = &FindKind(options.kind); });
    const PlotJob job = ReadOptions(options, kind, faults);
    if (kind) CheckUse(*kind, job, faults);
    if (faults.IsEmpty())
        faults.Try([&] {
            if (kind->save)
                kind->save(job, options.output);
            else
                kind->draw(job).Save(options.output);
        });
    faults.ThrowIfAny();
    return static_cast<int>(ExitCode::kDone);
}

}  // namespace zuc::cli
