#include "kraaudiodsp/BiquadCascade.h"

#include <algorithm>

namespace dsp {
namespace {

using vector::BiquadGroup;
using vector::kBiquadLanes;

Biquad Combine(const Biquad& a, const Biquad& b, double factor) {
    return {a.b0 + factor * b.b0, a.b1 + factor * b.b1, a.b2 + factor * b.b2, a.a1 + factor * b.a1,
            a.a2 + factor * b.a2};
}

Biquad Scale(const Biquad& a, double factor) {
    return {a.b0 * factor, a.b1 * factor, a.b2 * factor, a.a1 * factor, a.a2 * factor};
}

void SetLane(BiquadGroup& group, std::size_t lane, const Biquad& filter, double s1, double s2) {
    group.b0[lane] = filter.b0;
    group.b1[lane] = filter.b1;
    group.b2[lane] = filter.b2;
    group.a1[lane] = filter.a1;
    group.a2[lane] = filter.a2;
    group.s1[lane] = s1;
    group.s2[lane] = s2;
}

}  // namespace

void BiquadCascade::SetSections(std::span<const Biquad> sections, int rampFrames) {
    if (GetRampLeft() == 0) Unpack();
    for (std::size_t p = 0; p < kMaxSections; ++p) {
        start_[p] = Present(p);
        target_[p] = p < sections.size() ? sections[p] : Biquad{};
    }
    rampFrames_ = target_ == start_ ? 0 : rampFrames;
    rampPosition_ = 0;
    if (rampFrames_ == 0) return Pack();
    for (std::size_t p = 0; p < kMaxSections; ++p)
        slope_[p] = Scale(Combine(target_[p], start_[p], -1.0), 1.0 / rampFrames_);
}

void BiquadCascade::Reset() {
    states_.fill({});
    rampFrames_ = rampPosition_ = 0;
    Pack();
}

Biquad BiquadCascade::Present(std::size_t place) const {
    return GetRampLeft() == 0 ? target_[place]
                              : Combine(start_[place], slope_[place], rampPosition_);
}

void BiquadCascade::Pack() {
    groups_.fill({});
    activeCount_ = 0;
    for (std::size_t p = 0; p < kMaxSections; ++p) {
        if (target_[p] == Biquad{}) continue;
        SetLane(groups_[activeCount_ / kBiquadLanes], activeCount_ % kBiquadLanes, target_[p],
                states_[p].s1, states_[p].s2);
        places_[activeCount_++] = p;
    }
}

void BiquadCascade::Unpack() {
    states_.fill({});
    for (std::size_t k = 0; k < activeCount_; ++k) {
        const BiquadGroup& group = groups_[k / kBiquadLanes];
        states_[places_[k]] = {group.s1[k % kBiquadLanes], group.s2[k % kBiquadLanes]};
    }
}

void BiquadCascade::FilterRamping(std::size_t frames) {
    for (std::size_t p = 0; p < kMaxSections; ++p) {
        if (start_[p] == Biquad{} && target_[p] == Biquad{}) continue;
        State state = states_[p];
        for (std::size_t i = 0; i < frames; ++i) {
            const double k = rampPosition_ + static_cast<double>(i) + 1.0;
            const Biquad now = Combine(start_[p], slope_[p], k);
            const double x = work_[i];
            const double y = now.b0 * x + state.s1;
            state.s1 = (now.b1 * x - now.a1 * y) + state.s2;
            state.s2 = now.b2 * x - now.a2 * y;
            work_[i] = y;
        }
        states_[p] = state;
    }
}

void BiquadCascade::Process(const float* in, float* out, int frames) {
    if (GetRampLeft() == 0 && activeCount_ == 0) {
        if (out != in) std::copy_n(in, frames, out);
        return;
    }
    std::copy_n(in, frames, work_.begin());
    const int ramping = std::min(frames, GetRampLeft());
    if (ramping > 0) {
        FilterRamping(static_cast<std::size_t>(ramping));
        rampPosition_ += ramping;
        if (GetRampLeft() == 0) Pack();
    }
    const std::size_t groupCount = (activeCount_ + kBiquadLanes - 1) / kBiquadLanes;
    if (ramping < frames && groupCount > 0)
        vector::FilterBiquads(work_.data() + ramping, groups_.data(), groupCount,
                              static_cast<std::size_t>(frames - ramping));
    std::transform(work_.begin(), work_.begin() + frames, out,
                   [](double y) { return static_cast<float>(y); });
}

}  // namespace dsp
