#include "host/ConformanceRig.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <random>

#include <fmt/format.h>

#include "kramediatypes/AudioChannels.h"

namespace zuc::host::conformance {

using kraaudiofilterhost::AudioFilterParameterRole;

namespace {

constexpr float kLevel = 0.25f;

}  // namespace

Signal MakeSilence(std::size_t channels, std::size_t frames) {
    return Signal(channels, std::vector<float>(frames, 0.0f));
}

Signal MakeNoise(std::size_t channels, std::size_t frames, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Signal noise = MakeSilence(channels, frames);
    for (auto& channel : noise)
        for (float& sample : channel)
            sample = kLevel * (static_cast<float>(random() >> 40) / 8388608.0f - 1.0f);
    return noise;
}

Signal MakeSine(std::size_t channels, std::size_t frames, double frequencyHz, double rateHz) {
    Signal sine = MakeSilence(channels, frames);
    for (auto& channel : sine)
        for (std::size_t i = 0; i < frames; ++i)
            channel[i] = kLevel * static_cast<float>(std::sin(2.0 * std::numbers::pi * frequencyHz *
                                                              static_cast<double>(i) / rateHz));
    return sine;
}

Signal MakeImpulse(std::size_t channels, std::size_t frames) {
    Signal impulse = MakeSilence(channels, frames);
    for (auto& channel : impulse) channel[0] = 1.0f;
    return impulse;
}

bool IsFinite(const Signal& signal) {
    return std::all_of(signal.begin(), signal.end(), [](const auto& channel) {
        return std::all_of(channel.begin(), channel.end(),
                           [](float x) { return std::isfinite(x); });
    });
}

float GetPeak(const Signal& signal, std::size_t firstFrame) {
    float peak = 0.0f;
    for (const auto& channel : signal)
        for (std::size_t i = firstFrame; i < channel.size(); ++i)
            peak = std::max(peak, std::fabs(channel[i]));
    return peak;
}

std::string DescribeDifference(const Signal& got, const Signal& expected) {
    for (std::size_t c = 0; c < expected.size(); ++c) {
        if (got[c].size() != expected[c].size())
            return fmt::format("channel {} has {} frames instead of {}", c, got[c].size(),
                               expected[c].size());
        for (std::size_t i = 0; i < expected[c].size(); ++i)
            if (std::bit_cast<std::uint32_t>(got[c][i]) !=
                std::bit_cast<std::uint32_t>(expected[c][i]))
                return fmt::format("channel {}, frame {}: {} instead of {}", c, i, got[c][i],
                                   expected[c][i]);
    }
    return {};
}

Rig::Rig(const components::CatalogueEntry& effect,
         const Setup& setup,
         const RealTimeProbe& probe,
         std::string_view allowedCall)
    : filter_(effect.create()), probe_(probe), allowedCall_(allowedCall) {
    filter_->SetSampleRate(setup.rateHz);
    filter_->SetBlockSize(setup.blockFrames);
    const auto layout = kramediatypes::LayoutForChannelCount(setup.channels);
    filter_->RequestIOConfiguration({layout}, {layout});
    filter_->SetCurrentDuration(kSelectionFrames / static_cast<double>(setup.rateHz));
    Resume();
}

std::string Rig::Watch(const std::function<void()>& call) const {
    if (!probe_.IsActive()) {
        call();
        return {};
    }
    const std::uint64_t before = probe_.countFindings();
    probe_.enter();
    call();
    probe_.leave();
    const std::uint64_t findings = probe_.countFindings() - before;
    if (findings == 0 || (findings == 1 && probe_.describeLast() == allowedCall_)) return {};
    return probe_.describeLast();
}

void Rig::Resume() {
    const std::string finding = Watch([this] { filter_->Resume(); });
    if (!finding.empty()) resumeFinding_ = finding;
}

Signal Rig::Render(const Signal& input, int blockFrames, bool inPlace) {
    return Render(
        input, [blockFrames] { return blockFrames; }, inPlace);
}

Signal Rig::Render(const Signal& input, const std::function<int()>& nextBlockFrames, bool inPlace) {
    Signal source = MakeInput(input);
    Signal target = MakeOutput(input.front().size());
    Process(source, target, nextBlockFrames, inPlace);
    if (inPlace)
        for (std::size_t c = 0; c < std::min(source.size(), target.size()); ++c)
            target[c] = source[c];
    return target;
}

Signal Rig::MakeInput(const Signal& input) const {
    Signal source(GetInputChannels());
    for (std::size_t c = 0; c < source.size(); ++c) source[c] = input[c % input.size()];
    return source;
}

Signal Rig::MakeOutput(std::size_t frames) const {
    return MakeSilence(GetOutputChannels(), frames);
}

void Rig::Process(Signal& source,
                  Signal& target,
                  const std::function<int()>& nextBlockFrames,
                  bool inPlace) {
    const std::size_t frames = target.front().size();
    std::vector<float*> in(source.size());
    std::vector<float*> out(target.size());
    kraaudiofilterhost::Flags flags;
    for (std::size_t done = 0; done < frames;) {
        const auto left = static_cast<int>(frames - done);
        const int count = std::min(nextBlockFrames(), left);
        for (std::size_t c = 0; c < in.size(); ++c) in[c] = source[c].data() + done;
        for (std::size_t c = 0; c < out.size(); ++c)
            out[c] = (inPlace && c < source.size() ? source[c] : target[c]).data() + done;
        const std::string finding =
            Watch([&] { filter_->Process(in.data(), out.data(), count, {}, flags); });
        if (!finding.empty()) processFinding_ = finding;
        done += static_cast<std::size_t>(count);
    }
}

std::vector<int> Rig::GetSoundParameters() const {
    std::vector<int> indices;
    for (int i = 0; i < filter_->GetParameterCount(); ++i) {
        const auto info = filter_->GetParameterInfo(i);
        if (info && (info->GetRole() == AudioFilterParameterRole::kControl ||
                     info->GetRole() == AudioFilterParameterRole::kSwitch ||
                     info->GetRole() == AudioFilterParameterRole::kCount))
            indices.push_back(i);
    }
    return indices;
}

void Rig::Randomize(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    for (const int index : GetSoundParameters())
        filter_->SetParameterAutomated(index, static_cast<float>(random() >> 40) / 16777216.0f);
}

}  // namespace zuc::host::conformance
