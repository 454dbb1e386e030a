#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <optional>

#include <fmt/format.h>

#include "ChainArguments.h"
#include "Commands.h"
#include "Console.h"
#include "Progress.h"
#include "RenderJob.h"
#include "Signals.h"
#include "SoundDevice.h"
#include "host/Faults.h"
#include "host/Playback.h"
#include "host/Render.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

// Short enough that effects never spread a block over other threads, for which a device cannot wait.
constexpr int kChainBlockFrames = 1024;
constexpr int kMaximumBlockFrames = 65536;
constexpr int kPollMs = 50;

constexpr std::string_view kCommands =
    "EFFECT.PARAMETER VALUE   set it, as in: echo.decay-left 40%\n"
    "EFFECT.preset NAME       apply a preset\n"
    "status                   position, load and dropped blocks\n"
    "quit                     stop\n";

int ListDevices() {
    const SoundSystem system;
    std::vector<std::vector<std::string>> rows;
    for (const SoundDevice& device : system.GetDevices())
        rows.push_back({std::to_string(device.index), device.name,
                        fmt::format("{} channels", device.channels),
                        fmt::format("{} Hz", device.rateHz), device.system,
                        device.isDefault ? "default" : ""});
    if (rows.empty()) Say("this machine has no sound device");
    Print(FormatColumns(rows, ""));
    return static_cast<int>(ExitCode::kDone);
}

/// The lines of standard input, as they come.
class Lines {
public:
    /// Waits up to kPollMs for input; calls `use(line)` for every line that is complete.
    template <class Use>
    void Poll(const Use& use) {
        pollfd input{isOpen_ ? STDIN_FILENO : -1, POLLIN, 0};
        if (::poll(&input, 1, kPollMs) <= 0) return;
        char bytes[512];
        const ssize_t count = ::read(STDIN_FILENO, bytes, sizeof(bytes));
        text_.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count <= 0) {  // the end of the commands is not the end of the sound
            isOpen_ = false;
            text_ += '\n';
        }
        for (std::size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
            const std::string line = text_.substr(0, end);
            text_.erase(0, end + 1);
            use(line);
        }
    }

private:
    bool isOpen_ = true;
    std::string text_;
};

/// One file on its way to one device.
class Player {
public:
    explicit Player(const PlayOptions& options) : device_(Prepare(options)) {
        const int channels = reader_->GetInfo().channels;
        stream_.emplace(
            device_, format_,
            [this, isMono = channels == 1 && format_.channels == 2](float* const* out, int frames) {
                const bool goesOn = playback_->Fill(out, frames);
                if (isMono) std::copy_n(out[0], frames, out[1]);
                return goesOn;
            });
    }

    void Run(bool isQuiet) {
        const InterruptibleJob interruptible;
        playback_->Start();
        stream_->Start();
        if (!isQuiet) SayBeginning();
        Lines lines;
        while (stream_->IsActive() && !quits_ && GetInterruption() == 0) {
            lines.Poll([this](const std::string& line) { Obey(line); });
            highestLoad_ = std::max(highestLoad_, stream_->GetLoad());
        }
        const std::string status = DescribeStatus();
        stream_.reset();
        playback_->ThrowIfReadingFailed();
        if (!isQuiet) Say("played " + status);
        if (GetInterruption() != 0) throw host::Interrupted();
    }

private:
    SoundDevice Prepare(const PlayOptions& options) {
        host::Faults faults;
        const host::Chain chain = MakeChain(options.chain, faults);
        host::Playback::Options playback;
        playback.loops = options.loop;
        if (!options.range.empty())
            faults.Try([&] { playback.range = host::ParseTimeRange(options.range); });
        if (!options.block.empty())
            faults.Try([&] {
                format_.blockFrames =
                    ParseInteger("--block", options.block, 1, kMaximumBlockFrames);
            });
        faults.Try([&] { reader_ = host::AudioReader::Open(options.input); });
        faults.ThrowIfAny();
        WarnOfPlaceholders(chain);
        SoundDevice device = system_.Find(options.device);
        ChooseFormat(device);
        chain_.emplace(chain, catalogue_, presets_, static_cast<float>(format_.rateHz),
                       static_cast<std::size_t>(reader_->GetInfo().channels), kChainBlockFrames);
        chain_->RequireBlockwise();
        playback_.emplace(*reader_, *chain_, format_.rateHz, playback);
        return device;
    }

    /// The file's own channels and rate where the device takes them; one channel goes to both sides.
    void ChooseFormat(const SoundDevice& device) {
        const host::AudioFileInfo& info = reader_->GetInfo();
        if (info.channels > device.channels)
            throw Error(ExitCode::kUsage,
                        fmt::format("{} has {} channels, the sound device '{}' takes {}", info.path,
                                    info.channels, device.name, device.channels),
                        "", "'zuc play --list-devices' shows the others");
        format_.channels = std::max(info.channels, std::min(2, device.channels));
        const bool takesRate = SoundStream::TakesRate(device, format_.channels, info.rateHz);
        format_.rateHz = takesRate ? info.rateHz : static_cast<int>(std::lround(device.rateHz));
    }

    void SayBeginning() const {
        const host::AudioFileInfo& info = reader_->GetInfo();
        std::string text = fmt::format("{} on '{}' ({}) at {} Hz", info.path, device_.name,
                                       device_.system, format_.rateHz);
        for (const host::ChainStep& step : chain_->GetResolvedChain())
            text += "\n  through " + host::FormatStepText(step);
        Say(text + "\n  " + DescribeLatency());
        if (IsTerminal(STDIN_FILENO)) Say("  type 'help' for what can be changed meanwhile");
    }

    std::string DescribeLatency() const {
        const double effects = static_cast<double>(chain_->GetLatencyFrames()) / format_.rateHz;
        const double device = stream_->GetLatencySeconds();
        return fmt::format("latency {:.1f} ms: effects {:.1f}, device {:.1f}",
                           1000.0 * (effects + device), 1000.0 * effects, 1000.0 * device);
    }

    std::string DescribeStatus() const {
        const host::Playback::Status status = playback_->GetStatus();
        const long dropped = stream_->GetDroppedBlocks();
        return fmt::format(
            "{}; dropped blocks: {} ({} by the device, {} waiting for the file); "
            "highest load {:.1f} %",
            FormatDuration(status.seconds), status.lateBlocks + dropped, dropped, status.lateBlocks,
            100.0 * highestLoad_);
    }

    void Obey(const std::string& line) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) return;
        if (line == "quit" || line == "q") {
            quits_ = true;
        } else if (line == "help") {
            Print(kCommands);
        } else if (line == "status") {
            Print(DescribeStatus() + "\n");
        } else {
            try {
                const std::int64_t latency = chain_->GetLatencyFrames();
                Print(host::FormatStepText(playback_->Set(catalogue_, presets_, line)) + "\n");
                if (chain_->GetLatencyFrames() != latency) Print(DescribeLatency() + "\n");
            } catch (const Error& error) {
                SayError(error);
            }
        }
    }

    const host::EffectCatalogue catalogue_;
    const host::UserPresets presets_;
    SoundSystem system_;
    SoundStream::Format format_;
    std::unique_ptr<host::AudioReader> reader_;
    std::optional<host::ChainProcessor> chain_;
    std::optional<host::Playback> playback_;
    SoundDevice device_;
    std::optional<SoundStream> stream_;  // ends before what it plays from
    double highestLoad_ = 0.0;
    bool quits_ = false;
};

}  // namespace

int RunPlay(const PlayOptions& options) {
    if (options.listDevices) return ListDevices();
    if (options.input.empty())
        throw Error(ExitCode::kUsage, "play: IN is missing", "", "see 'zuc play --help'");
    Player(options).Run(options.quiet);
    return static_cast<int>(ExitCode::kDone);
}

}  // namespace zuc::cli
