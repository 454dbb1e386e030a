#include "host/ChainProcessor.h"

#include <algorithm>
#include <limits>

#include <fmt/core.h>

#include "Components/AudioComponentZombie.h"
#include "host/AudioThread.h"
#include "host/Faults.h"
#include "host/OfflineSession.h"
#include "host/Parameters.h"
#include "host/Text.h"
#include "host/Units.h"

namespace zuc::host {
namespace {

using kraaudiofilterhost::AudioFilterParameterRole;

Error UnknownPreset(const ChainStep& step,
                    const std::string& slug,
                    const UserPresets& presets,
                    const AudioFilter& filter) {
    std::vector<std::string> names = GetFactoryPresetNames(filter);
    for (std::string& name : presets.GetNames(slug)) names.push_back(std::move(name));
    std::vector<std::string> quoted;
    quoted.reserve(names.size());
    for (const std::string& name : names) quoted.push_back(fmt::format("'{}'", name));
    constexpr std::size_t kMostListed = 12;
    return {ExitCode::kUsage, slug + " has no preset '" + step.preset + "'",
            names.size() <= kMostListed ? Join(quoted)
                                        : fmt::format("what 'zuc preset list {}' shows", slug),
            DidYouMean(step.preset, names)};
}

/// Applies the named preset; returns its name as it is shown.
std::string ApplyPreset(const ChainStep& step,
                        const std::string& slug,
                        const UserPresets& presets,
                        AudioFilter& filter) {
    if (const int factory = FindFactoryPreset(filter, step.preset); factory >= 0) {
        filter.SetFactoryPreset(factory);
        return kracore::utility::ToUtf8(filter.GetFactoryPresetName(factory));
    }
    const auto saved = presets.Load(slug, step.preset);
    // A saved preset builds on a factory preset at most, so that no two can refer to each other.
    if (!saved || (!saved->preset.empty() && FindFactoryPreset(filter, saved->preset) < 0))
        throw UnknownPreset(saved ? *saved : step, slug, presets, filter);
    ApplyStep(*saved, slug, presets, filter);
    return step.preset;
}

Setting ApplySetting(const Setting& setting,
                     const std::string& slug,
                     const std::vector<Parameter>& parameters,
                     AudioFilter& filter) {
    const auto meant = FindParameters(parameters, setting.name, slug);
    Setting resolved;
    for (const Parameter* parameter : meant) {
        if (parameter->role == AudioFilterParameterRole::kFollowsLayout)
            throw Error(ExitCode::kUsage,
                        slug + ": " + parameter->slug + " follows the channels and cannot be set");
        if (parameter->role == AudioFilterParameterRole::kMeter)
            throw Error(ExitCode::kUsage,
                        slug + ": " + parameter->slug + " is a meter and cannot be set");
        const float normalized = ParseValue(*parameter, setting.text, slug);
        filter.SetParameterAutomated(parameter->index, normalized);
        const std::string& name = parameter->slug;
        resolved = {meant.size() > 1 ? name.substr(0, name.find('.')) : name,
                    FormatValue(*parameter, normalized)};
    }
    return resolved;
}

}  // namespace

ChainStep ApplyStep(const ChainStep& step,
                    const std::string& slug,
                    const UserPresets& presets,
                    AudioFilter& filter) {
    Faults faults;
    ChainStep resolved{slug, {}, {}};
    if (!step.preset.empty())
        faults.Try([&] { resolved.preset = ApplyPreset(step, slug, presets, filter); });
    const std::vector<Parameter> parameters = GetParameters(filter);
    for (const Setting& setting : step.settings)
        faults.Try(
            [&] { resolved.settings.push_back(ApplySetting(setting, slug, parameters, filter)); });
    faults.ThrowIfAny();
    return resolved;
}

ChainProcessor::ChainProcessor(const Chain& chain,
                               const EffectCatalogue& catalogue,
                               const UserPresets& presets,
                               float rateHz,
                               std::size_t channels,
                               int maximumBlockFrames,
                               std::size_t sideChannels)
    : channelCount_(channels),
      maximumBlockFrames_(maximumBlockFrames),
      rateHz_(rateHz),
      spanOut_(channels),
      silence_(static_cast<std::size_t>(maximumBlockFrames)),
      inputs_(channels) {
    Faults faults;
    for (const ChainStep& step : chain)
        faults.Try([&] {
            if (!step.placeholder.empty()) {
                AddPlaceholder(step);
                return;
            }
            const Effect& effect = catalogue.Find(step.effect);
            AudioFilterPtr filter =
                CreateForFormat(effect, rateHz, channels, maximumBlockFrames, sideChannels);
            filter->SetRenderingContext(kraaudiofilterhost::RenderingContext::kOffline);
            resolved_.push_back(ApplyStep(step, effect.slug, presets, *filter));
            if (!step.automation.empty() && WorksOffline(*filter))
                throw Error(ExitCode::kUsage,
                            effect.slug + " works on the whole at once and cannot be automated");
            automation_.emplace_back(step.automation, effect.slug, *filter, rateHz);
            resolved_.back().automation = automation_.back().GetResolved();
            filters_.push_back(std::move(filter));
        });
    faults.ThrowIfAny();
    FindStretches();
    for (const AudioFilterPtr& filter : filters_)
        inputs_.resize(std::max(inputs_.size(), filter->GetNumberOfInputChannels()));
    std::fill(inputs_.begin(), inputs_.end(), silence_.data());
    spanIn_.resize(inputs_.size());
    delayFrames_.resize(filters_.size());
    sideChains_.resize(filters_.size());
    if (sideChannels == 0) return;
    const auto takesSideChain = [](const AudioFilterPtr& f) { return f->CanUseSideChaining(); };
    if (std::none_of(filters_.begin(), filters_.end(), takesSideChain))
        throw Error(ExitCode::kUsage, "no effect of the chain has a side chain", "",
                    "'zuc describe EFFECT' says which have one");
}

/// An effect that is not known here; the audio passes it.
void ChainProcessor::AddPlaceholder(const ChainStep& step) {
    const auto name = kracore::utility::FromUtf8(step.effect);
    filters_.push_back(new components::AudioComponentZombie(name, name, 0, false));
    filters_.back()->SetSampleRate(rateHz_);
    filters_.back()->SetBlockSize(maximumBlockFrames_);
    RequestChannels(*filters_.back(), channelCount_);
    automation_.emplace_back(std::vector<CurveText>{}, step.effect, *filters_.back(), rateHz_);
    resolved_.push_back(step);
}

void ChainProcessor::SetSelection(std::int64_t beginFrame, std::int64_t frames) {
    beginFrame_ = beginFrame;
    const auto rate = static_cast<double>(rateHz_);
    for (const AudioFilterPtr& filter : filters_) {
        filter->SetSelectionLeft(static_cast<double>(beginFrame) / rate);
        filter->SetCurrentDuration(static_cast<double>(std::max<std::int64_t>(frames, 0)) / rate);
    }
}

void ChainProcessor::FindStretches() {
    Stretch stretch;
    for (const AudioFilterPtr& filter : filters_) {
        if (WorksOffline(*filter)) {
            stretches_.push_back(stretch);
            stretch = {stretch.end + 1, stretch.end + 1};
        } else {
            ++stretch.end;
        }
    }
    stretches_.push_back(stretch);
    stretch_ = stretches_.front();
}

AudioFilterPtr ChainProcessor::GetOfflineEffect() const {
    return stretch_.end < filters_.size() ? filters_[stretch_.end] : nullptr;
}

void ChainProcessor::RequireBlockwise() const {
    for (std::size_t k = 0; k < filters_.size(); ++k)
        if (WorksOffline(*filters_[k]))
            throw Error(ExitCode::kUsage, resolved_[k].effect +
                                              " works on the whole at once; there is no picture "
                                              "of that, and no playing before the end");
}

void ChainProcessor::Resume() {
    position_ = beginFrame_;
    int delayFrames = 0;
    for (std::size_t k = stretch_.begin; k < stretch_.end; ++k) {
        const std::size_t inputs = filters_[k]->GetNumberOfInputChannels();
        sideChains_[k].Prepare(inputs - std::min(inputs, channelCount_), delayFrames,
                               maximumBlockFrames_);
        delayFrames_[k] = delayFrames;
        automation_[k].Start(beginFrame_ - delayFrames);
        filters_[k]->SetCurrentOffset(beginFrame_ - delayFrames);
        filters_[k]->Resume();
        delayFrames += std::max(0, filters_[k]->GetInitialDelay());
    }
}

void ChainProcessor::Process(float** audio, int frames, const float* const* side) {
    const AudioThreadScope audioThread;
    std::copy_n(audio, channelCount_, inputs_.begin());
    for (std::size_t k = stretch_.begin; k < stretch_.end; ++k) {
        if (side) sideChains_[k].Take(side, frames, inputs_.data() + channelCount_);
        ProcessFilter(k, audio, frames);
    }
    position_ += frames;
}

/// One filter over the block, in spans between which its parameters stand still.
void ChainProcessor::ProcessFilter(std::size_t index, float** audio, int frames) {
    kraaudiofilterhost::Flags outFlags;
    const std::int64_t position = position_ - delayFrames_[index];
    filters_[index]->SetCurrentOffset(position);
    for (int done = 0; done < frames;) {
        const int count = automation_[index].Advance(position + done, frames - done);
        for (std::size_t c = 0; c < inputs_.size(); ++c) spanIn_[c] = inputs_[c] + done;
        for (std::size_t c = 0; c < channelCount_; ++c) spanOut_[c] = audio[c] + done;
        filters_[index]->Process(spanIn_.data(), spanOut_.data(), count, {}, outFlags);
        done += count;
    }
}

void ChainProcessor::Suspend() {
    for (std::size_t k = stretch_.begin; k < stretch_.end; ++k) filters_[k]->Suspend();
}

std::int64_t ChainProcessor::GetLatencyFrames() const {
    std::int64_t sum = 0;
    for (std::size_t k = stretch_.begin; k < stretch_.end; ++k)
        sum += std::max(0, filters_[k]->GetInitialDelay());
    return sum;
}

std::int64_t ChainProcessor::GetTailFrames() const {
    std::int64_t sum = 0;
    for (std::size_t k = stretch_.begin; k < stretch_.end; ++k)
        sum += std::max(0, filters_[k]->GetTail());
    return std::min<std::int64_t>(sum, std::numeric_limits<int>::max());
}

}  // namespace zuc::host
