#include "Components/private/remix/BeatLevels.h"

#include <cmath>
#include <numeric>

namespace zuc::components {
namespace {

constexpr double kLeastPower = 1e-7;

double PowerOf(double sumOfSquares, std::size_t frames) {
    return frames == 0 ? 0 : sumOfSquares / static_cast<double>(frames);
}

double ToDb(double power) { return 10 * std::log10(power + kLeastPower); }

}  // namespace

std::vector<BeatLevel> ReadBeatLevels(const std::vector<double>& beatTimes,
                                      IAudioFramesGetter& frames) {
    const double rateHz = frames.GetSampleRate();
    std::vector<BeatLevel> levels(beatTimes.size());
    for (std::size_t i = 0; i + 1 < beatTimes.size(); ++i) {
        const auto samples = frames.GetFrames(static_cast<std::int64_t>(beatTimes[i] * rateHz),
                                              static_cast<std::int64_t>(beatTimes[i + 1] * rateHz));
        const std::size_t half = samples.size() / 2;
        const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(half);
        const double first = std::inner_product(samples.begin(), middle, samples.begin(), 0.0);
        const double second = std::inner_product(middle, samples.end(), middle, 0.0);
        levels[i] = {std::sqrt(PowerOf(first + second, samples.size())), ToDb(PowerOf(first, half)),
                     ToDb(PowerOf(second, samples.size() - half))};
    }
    if (levels.size() > 1) levels.back() = levels[levels.size() - 2];
    return levels;
}

}  // namespace zuc::components
