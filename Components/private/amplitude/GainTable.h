#pragma once

#include <array>
#include <cstddef>

#include "Components/private/amplitude/TransferCurve.h"

namespace zuc::components {

/// The gain that a transfer curve gives each level: 8192 entries from 0 dB down to -100 dB, read with
/// linear interpolation. Below the table its last entry holds; above 0 dB the curve goes on with its
/// slope just below 0 dB. No gain exceeds 100 dB.
class GainTable {
public:
    static constexpr std::size_t kCount = 8192;

    void Build(const TransferCurve& curve);  // [audio]
    /// out[i] = linear gain of the level in[i] in dB; may be the same array. [audio]
    void LookUp(float* out, const float* in, std::size_t count) const;

private:
    std::array<float, kCount> gains_{};
    float gainDbAtZero_ = 0.0f;
    float gainDbPerDb_ = 0.0f;  // above 0 dB
};

}  // namespace zuc::components
