#include <array>
#include <cmath>
#include <filesystem>

#include <fmt/format.h>

#include "Commands.h"
#include "Console.h"
#include "DemoMusic.h"
#include "Progress.h"
#include "Signals.h"
#include "host/AudioWriter.h"
#include "host/RemixRender.h"
#include "host/RemixReport.h"
#include "host/RemixSearch.h"
#include "host/Render.h"
#include "host/TemporaryFile.h"
#include "host/Text.h"

namespace zuc::cli {
namespace {

constexpr unsigned kSeed = 2024;
constexpr int kBlockFrames = 2048;
/// What the piece runs through; the limiter catches the peaks that the boost lifts beyond full scale.
constexpr std::array kSteps{
    "dynamics-processing:preset=Classic Soft Knee",
    // Three and two quarters of a beat, so that the echoes fall on the sixteenths.
    "echo:delay-left=468.75ms,delay-right=312.5ms,decay-left=40%,decay-right=40%,"
    "init-echo-left=25%,init-echo-right=25%",
    "amplify:gain=+10dB",
};

void WriteMusic(const std::string& path, const Music& music) {
    host::AudioWriterOptions options;
    options.path = path;
    options.samples = host::SampleFormat::kInt24;
    options.rateHz = kMusicRateHz;
    options.channels = 2;
    host::AudioMetadata metadata;
    metadata[host::Tag::kTitle] = "zuc demo";
    host::AudioWriter writer(options, metadata);
    const int frames = static_cast<int>(music.left.size());
    for (int done = 0; done < frames; done += kBlockFrames) {
        const std::array block{music.left.data() + done, music.right.data() + done};
        writer.Write(block.data(), std::min(kBlockFrames, frames - done));
    }
    writer.Commit();
}

/// Makes the piece shorter and longer, each with a page to look at. Returns a line for each.
std::string MakeRemixes(const std::filesystem::path& folder) {
    constexpr std::array kPercents{60, 150};
    const InterruptibleJob interruptible;
    host::RemixSource source((folder / "dry.wav").string(), &GetInterruption());
    const auto& song = source.Analyse(host::SongCache(""), nullptr);
    host::RemixRequest request;
    request.slackSeconds = 2;  // of a piece of twenty
    host::RemixSearch search(source, song, request, &GetInterruption());
    std::string text;
    for (const int percent : kPercents) {
        const host::RemixPlan plan = search.Find(source.GetSeconds() * percent / 100);
        host::SpooledAudio copy(source.GetInfo().rateHz, source.GetInfo().channels);
        host::RemixOutput output;
        output.path = (folder / fmt::format("remix-{}.wav", percent)).string();
        output.copy = &copy;
        output.interrupted = &GetInterruption();
        host::WriteRemix(plan, source, output);
        host::WriteFileAtomically((folder / fmt::format("remix-{}.html", percent)).string(),
                                  host::MakeRemixReport(plan, source, copy, &song));
        text += fmt::format("  remix-{0}.wav  {0} % of dry.wav, {1}; remix-{0}.html shows it\n",
                            percent, host::FormatTime(host::ToSeconds(plan.GetDuration())));
    }
    return text;
}

std::string Summarize(const host::RenderReport& report,
                      const host::Chain& chain,
                      const std::string& remixes) {
    std::string text =
        "zuc demo\n\nEight bars at 96 beats a minute, composed and played by the program.\n\n";
    text += "  dry.wav      the piece as it was played\n";
    text += "  demo.wav     the same through the chain below\n";
    text += "  chain.json   the chain, for --chain\n";
    text += remixes + "\n";
    for (const host::ChainStep& step : chain) text += "  -e '" + host::FormatStepText(step) + "'\n";
    text += fmt::format(
        "\n{} of audio in {:.2f} s ({:.0f} x real time)\npeak {:.2f} dBFS, limited by up to {:.2f} "
        "dB, "
        "latency {} frames (removed), tail {} frames\n",
        FormatDuration(static_cast<double>(report.framesOut) / report.output.rateHz),
        report.seconds, report.GetSpeed(), 20.0f * std::log10(report.overs.peak),
        std::abs(report.limiterLowestGainDb), report.latencyFrames, report.tailFrames);
    text +=
        "\nTry it:\n  zuc process dry.wav louder.wav --chain chain.json -e amplify:gain=-3dB\n"
        "  zuc remix dry.wav forty.wav --to 0:40 --report forty.html\n";
    return text;
}

}  // namespace

int RunDemo(const DemoOptions& options) {
    const std::filesystem::path folder(options.folder);
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error)
        throw host::Error(host::ExitCode::kOutput,
                          options.folder + ": cannot be made: " + error.message());
    const std::string dry = (folder / "dry.wav").string();
    WriteMusic(dry, ComposeMusic(kSeed));

    host::Chain steps;
    for (const char* text : kSteps) steps.push_back(host::ParseStepText(text));
    host::ChainProcessor chain(steps, host::EffectCatalogue(), host::UserPresets(),
                               static_cast<float>(kMusicRateHz), 2, kBlockFrames);
    host::RenderOptions render;
    render.onClip = host::OnClip::kLimit;
    render.output.path = (folder / "demo.wav").string();
    render.interrupted = &GetInterruption();
    const auto reader = host::AudioReader::Open(dry);
    const host::RenderReport report = [&] {
        const InterruptibleJob interruptible;
        return host::Render(*reader, chain, kMusicRateHz, render);
    }();
    host::WriteChainFile((folder / "chain.json").string(), chain.GetResolvedChain());
    const std::string summary = Summarize(report, chain.GetResolvedChain(), MakeRemixes(folder));
    host::WriteFileAtomically((folder / "summary.txt").string(), summary);
    if (!options.quiet) Print(summary);
    return 0;
}

}  // namespace zuc::cli
