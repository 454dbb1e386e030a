#include "SoundDevice.h"

#include <fcntl.h>
#include <portaudio.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <memory>

#include <fmt/format.h>

#include "host/AudioThread.h"
#include "host/Error.h"
#include "host/Text.h"
#include "kracore/Numbers.h"

namespace zuc::cli {
namespace {

using host::Error;
using host::ExitCode;

/// Standard error goes nowhere while it lives: the sound systems tell there about every device that
/// they look for and do not find.
class QuietErrors {
public:
    QuietErrors() : kept_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept_ >= 0 && nowhere >= 0) ::dup2(nowhere, STDERR_FILENO);
        if (nowhere >= 0) ::close(nowhere);
    }
    ~QuietErrors() {
        if (kept_ < 0) return;
        ::dup2(kept_, STDERR_FILENO);
        ::close(kept_);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    int kept_;
};

void Check(PaError result, const std::string& what) {
    if (result == paNoError) return;
    std::string reason = Pa_GetErrorText(result);
    if (result == paUnanticipatedHostError && *Pa_GetLastHostErrorInfo()->errorText)
        reason = Pa_GetLastHostErrorInfo()->errorText;
    throw Error(ExitCode::kOutput, what + ": " + reason);
}

std::string ListNames(const std::vector<SoundDevice>& devices) {
    std::vector<std::string> names;
    names.reserve(devices.size());
    for (const SoundDevice& device : devices)
        names.push_back(fmt::format("{} '{}'", device.index, device.name));
    return host::Join(names);
}

PaStreamParameters MakeParameters(const SoundDevice& device, int channels) {
    return {device.index, channels, paFloat32 | paNonInterleaved,
            Pa_GetDeviceInfo(device.index)->defaultLowOutputLatency, nullptr};
}

}  // namespace

// ---- Devices ----

SoundSystem::SoundSystem() {
    const QuietErrors quiet;
    Check(Pa_Initialize(), "the sound system does not start");
}

SoundSystem::~SoundSystem() {
    const QuietErrors quiet;
    Pa_Terminate();
}

std::vector<SoundDevice> SoundSystem::GetDevices() const {
    std::vector<SoundDevice> devices;
    const int preferred = Pa_GetDefaultOutputDevice();
    for (int i = 0; i < Pa_GetDeviceCount(); ++i) {
        const PaDeviceInfo& info = *Pa_GetDeviceInfo(i);
        if (info.maxOutputChannels < 1) continue;
        devices.push_back({i, info.name, Pa_GetHostApiInfo(info.hostApi)->name,
                           info.maxOutputChannels, info.defaultSampleRate, i == preferred});
    }
    // A system without any device may have been asked for the default one.
    if (!devices.empty() && preferred == paNoDevice) devices.front().isDefault = true;
    return devices;
}

SoundDevice SoundSystem::Find(const std::string& text) const {
    const std::vector<SoundDevice> devices = GetDevices();
    if (devices.empty())
        throw Error(ExitCode::kOutput, "this machine has no sound device", "",
                    "'zuc process' writes to a file instead");
    const auto number = kracore::utility::StringToNumber(text);
    std::vector<SoundDevice> meant;
    for (const SoundDevice& device : devices) {
        const bool isMeant =
            text.empty() ? device.isDefault
            : number     ? *number == device.index
                     : host::ToLower(device.name).find(host::ToLower(text)) != std::string::npos;
        if (isMeant) meant.push_back(device);
    }
    if (meant.empty())
        throw Error(ExitCode::kUsage, "there is no sound device '" + text + "'", ListNames(devices),
                    "'zuc play --list-devices' tells more");
    return meant.front();
}

// ---- The stream ----

struct SoundStream::State {
    Fill fill;
    PaStream* stream = nullptr;
    std::atomic<long> droppedBlocks{0};

    static int OnBlock(const void*,
                       void* out,
                       unsigned long frames,
                       const PaStreamCallbackTimeInfo*,
                       PaStreamCallbackFlags flags,
                       void* user) {
        const host::AudioThreadScope audioThread;
        State& state = *static_cast<State*>(user);
        if ((flags & paOutputUnderflow) != 0)
            state.droppedBlocks.fetch_add(1, std::memory_order_relaxed);
        const bool goesOn = state.fill(static_cast<float* const*>(out), static_cast<int>(frames));
        return goesOn ? paContinue : paComplete;
    }
};

bool SoundStream::TakesRate(const SoundDevice& device, int channels, int rateHz) {
    const QuietErrors quiet;
    const PaStreamParameters parameters = MakeParameters(device, channels);
    return Pa_IsFormatSupported(nullptr, &parameters, rateHz) == paFormatIsSupported;
}

SoundStream::SoundStream(const SoundDevice& device, const Format& format, Fill fill)
    : state_(std::make_unique<State>()) {
    state_->fill = std::move(fill);
    const PaStreamParameters parameters = MakeParameters(device, format.channels);
    const QuietErrors quiet;
    Check(Pa_OpenStream(&state_->stream, nullptr, &parameters, format.rateHz,
                        static_cast<unsigned long>(format.blockFrames), paNoFlag, State::OnBlock,
                        state_.get()),
          "the sound device '" + device.name + "' cannot be opened");
}

SoundStream::~SoundStream() {
    const QuietErrors quiet;
    Pa_CloseStream(state_->stream);
}

void SoundStream::Start() {
    Check(Pa_StartStream(state_->stream), "the sound device does not start");
}

bool SoundStream::IsActive() const { return Pa_IsStreamActive(state_->stream) == 1; }

double SoundStream::GetLatencySeconds() const {
    const PaStreamInfo* const info = Pa_GetStreamInfo(state_->stream);
    return info ? info->outputLatency : 0.0;
}

double SoundStream::GetLoad() const { return Pa_GetStreamCpuLoad(state_->stream); }

long SoundStream::GetDroppedBlocks() const { return state_->droppedBlocks.load(); }

}  // namespace zuc::cli
