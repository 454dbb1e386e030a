#include "Components/private/generators/NoiseDSP.h"

#include <algorithm>
#include <cmath>

namespace zuc::components {

void NoiseDSP::Prepare(std::size_t channels, double rateHz) {
    rateHz_ = rateHz;
    sources_.resize(channels);
    channels_.assign(channels, nullptr);
    pairs_.resize(channels / 2);
    if (pairs_.empty()) return;
    pairs_.front().Prepare(rateHz);
    std::fill(pairs_.begin() + 1, pairs_.end(), pairs_.front());
}

void NoiseDSP::Start(const NoiseSettings& settings, std::uint64_t seed, bool isSettled) {
    settings_ = settings;
    coloring_.Design(settings.coloring, rateHz_);
    for (std::size_t c = 0; c < sources_.size(); ++c)
        sources_[c].Start(seed, static_cast<int>(c), settings.distribution, coloring_, isSettled);
    if (settings.relation != NoiseRelation::kDiffuse) return;
    for (std::size_t k = 0; k < pairs_.size(); ++k) {
        dsp::DiffusePair& pair = pairs_[k];
        pair.Reset();
        // The filters' latency is spent here, so that the noise begins at once.
        std::array<float, kPieceFrames> left{};
        std::array<float, kPieceFrames> right{};
        for (int rest = 2 * pair.GetLatency(); isSettled && rest > 0; rest -= kPieceFrames) {
            const int count = std::min(rest, kPieceFrames);
            sources_[2 * k].Process(coloring_, left.data(), count);
            sources_[2 * k + 1].Process(coloring_, right.data(), count);
            pair.Process(left.data(), right.data(), count);
        }
    }
}

void NoiseDSP::Process(float* const* out, int frames) {
    for (int done = 0; done < frames; done += kPieceFrames) {
        for (std::size_t c = 0; c < channels_.size(); ++c) channels_[c] = out[c] + done;
        ProcessPiece(channels_.data(), std::min(frames - done, kPieceFrames));
    }
}

void NoiseDSP::ProcessPiece(float* const* out, int frames) {
    const std::size_t channels = channels_.size();
    const bool isSame = settings_.relation == NoiseRelation::kSame;
    for (std::size_t c = 0; c < channels; ++c) {
        if (isSame && c > 0)
            std::copy_n(out[0], frames, out[c]);
        else
            sources_[c].Process(coloring_, out[c], frames);
    }
    if (settings_.relation == NoiseRelation::kDiffuse)
        for (std::size_t k = 0; k < pairs_.size(); ++k)
            pairs_[k].Process(out[2 * k], out[2 * k + 1], frames);
    if (settings_.relation == NoiseRelation::kByCorrelation) {
        const float shared = settings_.correlation;
        const float own = std::sqrt(std::max(0.0f, 1.0f - shared * shared));
        for (std::size_t c = 1; c < channels; ++c)
            for (int i = 0; i < frames; ++i) out[c][i] = shared * out[0][i] + own * out[c][i];
    }
    for (std::size_t c = 0; c < channels; ++c)
        for (int i = 0; i < frames; ++i)
            out[c][i] = std::clamp(settings_.level * out[c][i] + settings_.offset, -settings_.limit,
                                   settings_.limit);
}

}  // namespace zuc::components
