#include "kraaudiodsp/vector/BiquadOps.h"

#include <algorithm>
#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kraaudiodsp/vector/BiquadOps.cpp"
#include "hwy/foreach_target.h"
// Must follow foreach_target.h.
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace dsp::vector::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

using Tag = hn::CappedTag<double, kBiquadLanes>;
using Vector = hn::Vec<Tag>;
using Indices = decltype(hn::SetTableIndices(Tag(), static_cast<const int64_t*>(nullptr)));
constexpr std::size_t kVectorLanes = sizeof(Vector) / sizeof(double);

/// Some groups in registers.
template <std::size_t kGroups>
class Cascade {
public:
    static constexpr std::size_t kLanes = kGroups * kBiquadLanes;

    HWY_ATTR explicit Cascade(const BiquadGroup* groups) : rotate_(MakeRotation()) {
        const Tag d;
        for (std::size_t v = 0; v < kVectors; ++v) {
            const BiquadGroup& group = groups[v / kPerGroup];
            const std::size_t lane = v % kPerGroup * kVectorLanes;
            b0_[v] = hn::Load(d, &group.b0[lane]);
            b1_[v] = hn::Load(d, &group.b1[lane]);
            b2_[v] = hn::Load(d, &group.b2[lane]);
            a1_[v] = hn::Load(d, &group.a1[lane]);
            a2_[v] = hn::Load(d, &group.a2[lane]);
            s1_[v] = hn::Load(d, &group.s1[lane]);
            s2_[v] = hn::Load(d, &group.s2[lane]);
            rotated_[v] = hn::Zero(d);
        }
    }

    HWY_ATTR void StoreState(BiquadGroup* groups) const {
        const Tag d;
        for (std::size_t v = 0; v < kVectors; ++v) {
            BiquadGroup& group = groups[v / kPerGroup];
            const std::size_t lane = v % kPerGroup * kVectorLanes;
            hn::Store(s1_[v], d, &group.s1[lane]);
            hn::Store(s2_[v], d, &group.s2[lane]);
        }
    }

    /// Each filter takes what the one before it gave in the last step, the first one `in`; gives what
    /// the last one has now. `keep(v, before, now)` chooses the state of vector v after the step.
    template <class Keep>
    HWY_INLINE HWY_ATTR double Step(double in, const Keep& keep) {
        const Tag d;
        const auto isFirst = hn::FirstN(d, 1);
        for (std::size_t v = kVectors; v-- > 0;) {
            const Vector before = v == 0 ? hn::Set(d, in) : rotated_[v - 1];
            const Vector x = hn::IfThenElse(isFirst, before, rotated_[v]);
            // Multiplied and added apart: machines that fuse both would give other results.
            const Vector y = hn::Add(hn::Mul(b0_[v], x), s1_[v]);
            const Vector s1 = hn::Add(hn::Sub(hn::Mul(b1_[v], x), hn::Mul(a1_[v], y)), s2_[v]);
            const Vector s2 = hn::Sub(hn::Mul(b2_[v], x), hn::Mul(a2_[v], y));
            s1_[v] = keep(v, s1_[v], s1);
            s2_[v] = keep(v, s2_[v], s2);
            rotated_[v] = hn::TableLookupLanes(y, rotate_);
        }
        return hn::GetLane(rotated_[kVectors - 1]);
    }

    /// A step in which only the filters work whose frame, step less lane, lies in the block.
    HWY_INLINE HWY_ATTR double StepAtEdge(double in, std::size_t step, std::size_t frames) {
        const Tag d;
        const auto newest = hn::Set(d, static_cast<double>(step));
        const auto oldest = hn::Set(d, static_cast<double>(step) - static_cast<double>(frames));
        return Step(in, [&](std::size_t v, Vector before, Vector now) HWY_ATTR {
            const auto lane = hn::Iota(d, static_cast<double>(v * kVectorLanes));
            const auto works = hn::And(hn::Le(lane, newest), hn::Gt(lane, oldest));
            return hn::IfThenElse(works, now, before);
        });
    }

private:
    static constexpr std::size_t kPerGroup = kBiquadLanes / kVectorLanes;
    static constexpr std::size_t kVectors = kGroups * kPerGroup;

    static HWY_ATTR Indices MakeRotation() {
        HWY_ALIGN int64_t rotation[kVectorLanes];
        for (std::size_t i = 0; i < kVectorLanes; ++i)
            rotation[i] = static_cast<int64_t>((i + kVectorLanes - 1) % kVectorLanes);
        return hn::SetTableIndices(Tag(), rotation);
    }

    Vector b0_[kVectors], b1_[kVectors], b2_[kVectors], a1_[kVectors], a2_[kVectors];
    Vector s1_[kVectors], s2_[kVectors];
    Vector rotated_[kVectors];  // the last outputs, each one lane up and the last one in lane 0
    Indices rotate_;
};

template <std::size_t kGroups>
void FilterGroups(double* io, BiquadGroup* groups, std::size_t frames) {
    Cascade<kGroups> cascade(groups);
    constexpr std::size_t kBehind = Cascade<kGroups>::kLanes - 1;
    const std::size_t steps = frames + kBehind;
    std::size_t t = 0;
    for (; t < kBehind; ++t) {
        const double y = cascade.StepAtEdge(t < frames ? io[t] : 0.0, t, frames);
        static_cast<void>(y);
    }
    for (; t < frames; ++t)
        io[t - kBehind] =
            cascade.Step(io[t], [](std::size_t, Vector, Vector now) HWY_ATTR { return now; });
    for (; t < steps; ++t) io[t - kBehind] = cascade.StepAtEdge(0.0, t, frames);
    cascade.StoreState(groups);
}

void Filter(double* io, BiquadGroup* groups, std::size_t groupCount, std::size_t frames) {
    while (groupCount > 0) {
        const std::size_t count = std::min<std::size_t>(groupCount, 4);
        switch (count) {
            case 1:
                FilterGroups<1>(io, groups, frames);
                break;
            case 2:
                FilterGroups<2>(io, groups, frames);
                break;
            case 3:
                FilterGroups<3>(io, groups, frames);
                break;
            default:
                FilterGroups<4>(io, groups, frames);
                break;
        }
        groups += count;
        groupCount -= count;
    }
}

}  // namespace
}  // namespace dsp::vector::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace dsp::vector {

HWY_EXPORT(Filter);

void FilterBiquads(double* io, BiquadGroup* groups, std::size_t groupCount, std::size_t frames) {
    HWY_DYNAMIC_DISPATCH(Filter)(io, groups, groupCount, frames);
}

}  // namespace dsp::vector
#endif
