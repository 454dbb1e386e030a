#include "kraaudiodsp/Lfo.h"

#include <random>

namespace dsp {

Drift::Drift(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    const auto uniform = [&random] { return static_cast<double>(random() >> 11) * 0x1p-53; };
    for (std::size_t k = 0; k < kSineCount; ++k) {
        const double place = (static_cast<double>(k) + uniform()) / kSineCount;
        frequenciesHz_[k] = 0.1 * std::pow(10.0, place);
        phases_[k] = uniform();
    }
}

float Drift::At(double seconds) const {
    double sum = 0.0;
    for (std::size_t k = 0; k < kSineCount; ++k) {
        const double cycles = frequenciesHz_[k] * seconds + phases_[k];
        sum += std::sin(2.0 * std::numbers::pi * (cycles - std::floor(cycles)));
    }
    return static_cast<float>(sum / kSineCount);
}

}  // namespace dsp
