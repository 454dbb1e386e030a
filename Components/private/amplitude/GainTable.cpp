#include "Components/private/amplitude/GainTable.h"

#include <algorithm>

#include "kraaudiodsp/vector/LevelOps.h"

namespace zuc::components {
namespace {

constexpr double kEntriesPerDb = GainTable::kCount / -TransferCurve::kLowestDb;
constexpr double kLargestGainDb = -TransferCurve::kLowestDb;

}  // namespace

void GainTable::Build(const TransferCurve& curve) {
    for (std::size_t i = 0; i < kCount; ++i) {
        const double inDb = static_cast<double>(i) / -kEntriesPerDb;
        gains_[i] = static_cast<float>(curve.GetOutputDb(inDb) - inDb);
    }
    gainDbAtZero_ = gains_[0];
    gainDbPerDb_ = static_cast<float>(curve.GetSlopeBelowZero() - 1.0);
    dsp::vector::FromDb(gains_.data(), gains_.data(), kCount);
    for (std::size_t i = 0; i < kCount; ++i)
        if (static_cast<double>(i) / -kEntriesPerDb < curve.GetMuteDb()) gains_[i] = 0.0f;
}

void GainTable::LookUp(float* out, const float* in, std::size_t count) const {
    const dsp::vector::LevelTable table{
        gains_.data(), kCount,       static_cast<float>(kEntriesPerDb),
        gainDbAtZero_, gainDbPerDb_, static_cast<float>(kLargestGainDb)};
    dsp::vector::LookUpGains(out, in, table, count);
}

}  // namespace zuc::components
