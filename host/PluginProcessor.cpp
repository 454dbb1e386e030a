#include "host/PluginProcessor.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>

#include "Components/Library.h"
#include "host/Error.h"
#include "kraaudiofilterhost/PresetData.h"

namespace zuc::host {
namespace {

constexpr float kFadeSeconds = 0.01f;
constexpr float kUnset = std::numeric_limits<float>::quiet_NaN();

/// Hosts may make and release plugins on several threads at once.
std::mutex& GetLibraryMutex() {
    static std::mutex mutex;
    return mutex;
}

}  // namespace

// ---- Preparation ----

PluginProcessor::PluginProcessor(PluginInfo info, float rateHz)
    : info_(std::move(info)), controls_(info_.controls.size(), kUnset) {
    const std::lock_guard lock(GetLibraryMutex());
    Initialize();
    try {
        engines_[0] = MakeEngine(0, rateHz);
        settings_ = SaveFilterSettings(*engines_[0].filter);
        if (info_.sideChannels > 0) engines_[1] = MakeEngine(info_.sideChannels, rateHz);
        dry_.Prepare(info_.format.channels, FindLargestLatency(rateHz), kPieceFrames);
    } catch (...) {
        engines_ = {};
        Terminate();
        throw;
    }
    wetStep_ = 1.0f / std::max(1.0f, std::round(kFadeSeconds * rateHz));
    scratch_.resize((info_.format.channels + info_.sideChannels) * kPieceFrames);
}

PluginProcessor::~PluginProcessor() {
    const std::lock_guard lock(GetLibraryMutex());
    engines_ = {};
    Terminate();
}

PluginProcessor::Engine PluginProcessor::MakeEngine(std::size_t sideChannels, float rateHz) const {
    Engine engine;
    engine.filter =
        CreateForFormat(info_.effect, rateHz, info_.format.channels, kPieceFrames, sideChannels);
    for (const PluginControl& control : info_.controls)
        engine.controlInfos.push_back(engine.filter->GetParameterInfo(control.parameter.index));
    return engine;
}

/// What the controls can raise the latency to: the sum of what each can add.
int PluginProcessor::FindLargestLatency(float rateHz) const {
    const AudioFilterPtr filter =
        CreateForFormat(info_.effect, rateHz, info_.format.channels, kPieceFrames);
    const int initial = filter->GetInitialDelay();
    int largest = initial;
    for (const PluginControl& control : info_.controls) {
        std::vector<float> values{0.0f, 1.0f};
        for (const ParameterEntry& entry : control.parameter.entries)
            values.push_back(entry.normalized);
        int most = initial;
        const float before = filter->GetParameter(control.parameter.index);
        for (const float value : values) {
            filter->SetParameter(control.parameter.index, value);
            most = std::max(most, filter->GetInitialDelay());
        }
        filter->SetParameter(control.parameter.index, before);
        largest += most - initial;
    }
    return largest;
}

// ---- Controls ----

void PluginProcessor::ForgetControls() {
    std::fill(controls_.begin(), controls_.end(), kUnset);
    isLatencyStale_ = true;
}

void PluginProcessor::Start() {
    // Here an effect may start threads. It resumes again once its controls are set, which takes no time.
    for (const Engine& engine : engines_)
        if (engine.filter) engine.filter->Resume();
    isFresh_ = true;
    hasStarted_ = false;
    dry_.Reset();
    dryFrames_ = dry_.GetMostDelayFrames();
}

void PluginProcessor::Stop() {
    for (const Engine& engine : engines_)
        if (engine.filter) engine.filter->Suspend();
}

void PluginProcessor::SetSideChainUsed(bool used) {
    const std::size_t wanted = used && engines_[1].filter ? 1 : 0;
    if (wanted == engine_) return;
    engine_ = wanted;
    isFresh_ = true;
    ForgetControls();
}

void PluginProcessor::SetControls(const float* const* values) {
    const float* controls = controls_.data();
    const std::size_t count = controls_.size();
    unsigned changed = 0;
    for (std::size_t i = 0; i < count; ++i) changed |= *values[i] != controls[i] ? 1u : 0u;
    for (std::size_t i = 0; changed != 0 && i < count; ++i) SetControl(i, *values[i]);
}

void PluginProcessor::SetControl(std::size_t index, float value) {
    if (value == controls_[index] || !std::isfinite(value)) return;
    controls_[index] = value;
    const Engine& engine = engines_[engine_];
    const PluginControl& control = info_.controls[index];
    const float normalized = control.kind == PluginControl::Kind::kToggle
                                 ? (value > 0.0f ? 1.0f : 0.0f)
                                 : engine.controlInfos[index]->ToNormalized(value);
    engine.filter->SetParameter(control.parameter.index, std::clamp(normalized, 0.0f, 1.0f));
    isLatencyStale_ = true;
}

int PluginProcessor::GetLatencyFrames() {
    if (isLatencyStale_) latencyFrames_ = engines_[engine_].filter->GetInitialDelay();
    isLatencyStale_ = false;
    return latencyFrames_;
}

// ---- Processing ----

/// Whether an output is the buffer of an input other than its own.
bool PluginProcessor::CrossesBuffers(const Inputs& in, const float* const* out) const {
    const std::size_t channels = info_.format.channels;
    for (std::size_t i = 0; i < channels + info_.sideChannels; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            if (i != c && in[i] == out[c]) return true;
    return false;
}

void PluginProcessor::Process(const float* const* in,
                              const float* const* side,
                              float* const* out,
                              int frames) {
    if (frames <= 0) return;
    Inputs inputs{};
    Outputs outputs{};
    std::copy_n(in, info_.format.channels, inputs.begin());
    std::copy_n(out, info_.format.channels, outputs.begin());
    if (side) std::copy_n(side, info_.sideChannels, inputs.begin() + info_.format.channels);
    if (isFresh_) engines_[engine_].filter->Resume();
    if (!hasStarted_) wet_ = isEnabled_ ? 1.0f : 0.0f;
    isFresh_ = false;
    hasStarted_ = true;

    const bool crosses = CrossesBuffers(inputs, out);
    for (int done = 0;;) {
        const int count = std::min(frames - done, kPieceFrames);
        ProcessPiece(inputs, outputs, count, crosses);
        done += count;
        if (done == frames) break;
        for (const float*& input : inputs)
            if (input) input += count;
        for (float*& output : outputs)
            if (output) output += count;
    }
}

void PluginProcessor::ProcessPiece(Inputs in, const Outputs& out, int frames, bool crosses) {
    const std::size_t channels = info_.format.channels;
    if (crosses) {
        for (std::size_t i = 0; i < channels + info_.sideChannels; ++i) {
            if (!in[i]) continue;
            float* copy = scratch_.data() + i * kPieceFrames;
            std::copy_n(in[i], frames, copy);
            in[i] = copy;
        }
    }
    const bool isWet = isEnabled_ && wet_ == 1.0f;
    const bool hasDry =
        !isWet && dryFrames_ >= std::min(GetLatencyFrames(), dry_.GetMostDelayFrames());
    if (!isWet) dry_.Write(in.data(), frames);
    dryFrames_ = isWet ? 0 : std::min(dryFrames_ + frames, dry_.GetMostDelayFrames());

    std::array<float*, 2 * kMaxChannels> from{};
    std::transform(in.begin(), in.end(), from.begin(),
                   [](const float* channel) { return const_cast<float*>(channel); });
    Outputs to = out;
    kraaudiofilterhost::Flags outFlags;
    engines_[engine_].filter->Process(from.data(), to.data(), frames, {}, outFlags);
    if (hasDry) MixDry(out, frames);
}

void PluginProcessor::MixDry(const Outputs& out, int frames) {
    const float step = isEnabled_ ? wetStep_ : -wetStep_;
    const float end = isEnabled_ ? 1.0f : 0.0f;
    const bool isDry = !isEnabled_ && wet_ == 0.0f;
    for (std::size_t c = 0; c < info_.format.channels; ++c) {
        float* dry = isDry ? out[c] : scratch_.data();
        dry_.Read(c, dry, GetLatencyFrames(), frames);
        if (isDry) continue;
        for (int i = 0; i < frames; ++i) {
            const float wet = std::clamp(wet_ + step * static_cast<float>(i + 1), 0.0f, 1.0f);
            out[c][i] = wet * out[c][i] + (1.0f - wet) * dry[i];
        }
    }
    wet_ = std::clamp(wet_ + step * static_cast<float>(frames), 0.0f, 1.0f);
    // Rounding must not keep the fade from its end.
    if (std::abs(wet_ - end) < 0.5f * wetStep_) wet_ = end;
}

// ---- Settings ----

bool PluginProcessor::LoadSettings(std::string_view settings) {
    try {
        kracore::proplist::PropList list = kracore::proplist::FromJson(settings);
        const kraaudiofilterhost::PresetData preset(list);
        for (const Engine& engine : engines_)
            if (engine.filter && !engine.filter->LoadSettings(preset)) return false;
    } catch (const kracore::proplist::ParseError&) {
        return false;
    }
    settings_ = SaveFilterSettings(*engines_[0].filter);
    // What the controls say goes before what the settings say of them.
    ForgetControls();
    return true;
}

}  // namespace zuc::host
