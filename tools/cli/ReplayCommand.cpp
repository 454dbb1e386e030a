#include <fstream>
#include <iterator>

#include "Commands.h"
#include "Console.h"
#include "host/AudioReader.h"
#include "host/AudioWriter.h"
#include "host/Chain.h"
#include "host/Faults.h"
#include "host/RenderSource.h"
#include "host/Replay.h"
#include "host/TemporaryFile.h"

namespace zuc::cli {
namespace {

/// Feeds the channels of a file, silence for those that it lacks and past its end.
class FileFeed {
public:
    explicit FileFeed(std::unique_ptr<host::AudioReader> reader) : reader_(std::move(reader)) {}

    void Fill(float* const* audio, std::size_t channels, int frames) {
        host::AudioBlock block(static_cast<std::size_t>(reader_->GetInfo().channels), frames);
        const int read = reader_->Read(block.GetChannels(), frames);
        for (std::size_t c = 0; c < channels; ++c) {
            const int count = c < block.GetChannelCount() ? read : 0;
            std::copy_n(c < block.GetChannelCount() ? block.GetChannels()[c] : audio[c], count,
                        audio[c]);
            std::fill(audio[c] + count, audio[c] + frames, 0.0f);
        }
    }

private:
    std::unique_ptr<host::AudioReader> reader_;
};

}  // namespace

int RunReplayCommand(const ReplayOptions& options) {
    const host::EffectCatalogue catalogue;
    host::ReplayScript script;
    std::unique_ptr<host::AudioReader> input;
    std::unique_ptr<host::AudioReader> sideChain;
    host::Faults faults;
    faults.Try([&] {
        script = host::ParseReplayJson(host::ReadTextFile(options.script), options.script);
        catalogue.Find(script.effect);
    });
    faults.Try([&] { input = host::AudioReader::Open(options.input); });
    if (!options.sideChain.empty())
        faults.Try([&] { sideChain = host::AudioReader::Open(options.sideChain); });
    faults.ThrowIfAny();

    if (sideChain) script.sideChannels = sideChain->GetInfo().channels;
    FileFeed inputFeed(std::move(input));
    host::ReplaySource sideSource = [](float* const*, std::size_t, int) {};  // buffers come silent
    if (sideChain)
        sideSource = [feed = std::make_shared<FileFeed>(std::move(sideChain))](
                         float* const* audio, std::size_t channels, int frames) {
            feed->Fill(audio, channels, frames);
        };
    host::AudioWriterOptions output;
    output.path = options.output;
    output.samples = host::SampleFormat::kFloat32;
    output.rateHz = static_cast<int>(script.rateHz);
    output.channels = static_cast<int>(host::CountReplayChannels(script, catalogue));
    host::AudioWriter writer(output, {});
    const host::Json log = host::RunReplay(
        script, catalogue,
        [&](float* const* audio, std::size_t channels, int frames) {
            inputFeed.Fill(audio, channels, frames);
        },
        sideSource,
        [&](const float* const* audio, std::size_t, int frames) { writer.Write(audio, frames); });
    writer.Commit();
    if (options.log == "-")
        Print(log.dump() + "\n");
    else if (!options.log.empty())
        host::WriteFileAtomically(options.log, log.dump() + "\n");
    return 0;
}

}  // namespace zuc::cli
