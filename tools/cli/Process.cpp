#include "ChainArguments.h"
#include "Commands.h"
#include "RenderJob.h"

namespace zuc::cli {
namespace {

// The format that a chain is checked for when the input cannot be read anyway.
constexpr int kAssumedRateHz = 48000;
constexpr int kAssumedChannels = 2;

RenderJob Prepare(const ProcessOptions& options) {
    RenderJob job;
    host::Faults faults;
    ReadArguments(options.render, job, faults);
    if (!options.range.empty())
        faults.Try([&] { job.render.range = host::ParseTimeRange(options.range); });
    const host::Chain chain = MakeChain(options.render.chain, faults);
    faults.Try([&] { job.source = host::AudioReader::Open(options.input); });
    if (!options.sideChain.empty())
        faults.Try([&] { job.sideChain = host::AudioReader::Open(options.sideChain); });
    job.render.sideChain = job.sideChain.get();
    const host::AudioFileInfo info = job.source ? job.source->GetInfo() : host::AudioFileInfo{};
    if (job.rateHz == 0) job.rateHz = job.source ? info.rateHz : kAssumedRateHz;
    faults.Try([&] {
        job.chain.emplace(
            chain, host::EffectCatalogue(), host::UserPresets(), static_cast<float>(job.rateHz),
            static_cast<std::size_t>(job.source ? info.channels : kAssumedChannels),
            job.blockFrames,
            static_cast<std::size_t>(job.sideChain ? job.sideChain->GetInfo().channels : 0));
    });
    faults.ThrowIfAny();
    return job;
}

}  // namespace

int RunProcess(const ProcessOptions& options) {
    return RunRenderJob(options.render, [&] { return Prepare(options); });
}

}  // namespace zuc::cli
