#include <algorithm>
#include <cmath>

#include "ChainArguments.h"
#include "Commands.h"
#include "RenderJob.h"
#include "host/Parameters.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

constexpr int kDefaultRateHz = 48000;
constexpr double kDefaultSeconds = 10.0;
constexpr double kLongestSeconds = 86400.0;

void CheckGenerator(const host::EffectCatalogue& catalogue, const std::string& name) {
    std::vector<std::string> generators;
    for (const host::Effect& effect : catalogue.GetEffects())
        if (effect.create()->IsGenerator()) generators.push_back(effect.slug);
    const auto isGenerator = [&](const std::string& slug) {
        return std::find(generators.begin(), generators.end(), slug) != generators.end();
    };
    if (!catalogue.Has(name))
        throw Error(ExitCode::kUsage, "there is no generator '" + name + "'",
                    host::Join(generators), host::DidYouMean(name, generators));
    if (const std::string& slug = catalogue.Find(name).slug; !isGenerator(slug))
        throw Error(ExitCode::kUsage, slug + " makes no sound of its own", host::Join(generators),
                    "'zuc process' runs it on a file");
}

double ParseDuration(const std::string& text) {
    const double seconds = host::ParseTime(text);
    if (!(seconds > 0.0 && seconds <= kLongestSeconds))
        throw Error(ExitCode::kUsage, "--duration cannot be '" + text + "'",
                    "more than nothing, at most a day", "for example --duration 10s or 1:30");
    return seconds;
}

/// What the generator itself is set to, when it has such a setting.
double GetOwnDuration(const host::ChainProcessor& chain) {
    const auto& generator = *chain.GetFilters().front();
    for (const host::Parameter& parameter : host::GetParameters(generator))
        if (parameter.slug == "duration" && parameter.unit == "s")
            return parameter.info->FromNormalized(generator.GetParameter(parameter.index));
    return kDefaultSeconds;
}

RenderJob Prepare(const GenerateOptions& options) {
    RenderJob job;
    host::Faults faults;
    ReadArguments(options.render, job, faults);
    const host::EffectCatalogue catalogue;
    host::Chain generator;
    faults.Try([&] {
        CheckGenerator(catalogue, options.generator);
        std::string text = options.generator + ":" + host::Join(options.settings, ",");
        generator.push_back(host::ParseStepText(text));
    });
    const host::Chain chain = MakeChain(options.render.chain, faults, generator);
    int channels = 0;
    faults.Try(
        [&] { channels = ParseInteger("--channels", options.channels, 1, host::kMaxChannels); });
    double seconds = 0.0;
    if (!options.duration.empty()) faults.Try([&] { seconds = ParseDuration(options.duration); });
    if (job.rateHz == 0) job.rateHz = kDefaultRateHz;
    if (!generator.empty())
        faults.Try([&] {
            job.chain.emplace(chain, catalogue, host::UserPresets(), static_cast<float>(job.rateHz),
                              static_cast<std::size_t>(std::max(channels, 1)), job.blockFrames);
        });
    faults.ThrowIfAny();
    if (options.duration.empty()) seconds = GetOwnDuration(*job.chain);
    job.source = std::make_unique<host::SilentSource>(job.rateHz, channels,
                                                      std::llround(seconds * job.rateHz));
    return job;
}

}  // namespace

int RunGenerate(const GenerateOptions& options) {
    return RunRenderJob(options.render, [&] { return Prepare(options); });
}

}  // namespace zuc::cli
