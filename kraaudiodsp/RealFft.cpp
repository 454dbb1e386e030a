#include "kraaudiodsp/RealFft.h"

#include <array>
#include <cmath>
#include <numbers>
#include <type_traits>

#include "kracore/Debug.h"

namespace dsp {
namespace {

// Radix 4 first, so that every later pass finds strides that fill vectors.
constexpr std::array<std::size_t, 4> kRadices{4, 2, 3, 5};
/// What tables are worked out in, finer than what they hold; the finest is slow.
template <typename T>
using Wide = std::conditional_t<std::is_same_v<T, float>, double, long double>;

bool IsSmooth(std::size_t size) {
    for (const std::size_t prime : {2, 3, 5})
        while (size % prime == 0) size /= prime;
    return size == 1;
}

bool IsAllowed(std::size_t size, std::size_t maxSize) {
    return size >= 2 && size % 2 == 0 && size <= maxSize && IsSmooth(size);
}

template <typename T>
Wide<T> Angle(std::size_t k, std::size_t n) {
    return 2 * std::numbers::pi_v<Wide<T>> * static_cast<Wide<T>>(k) / static_cast<Wide<T>>(n);
}

template <typename T>
T Cos(std::size_t k, std::size_t n) {
    return static_cast<T>(std::cos(Angle<T>(k, n)));
}

template <typename T>
T MinusSin(std::size_t k, std::size_t n) {
    return static_cast<T>(-std::sin(Angle<T>(k, n)));
}

template <typename T>
void AddStages(vector::FftPlan<T>& plan, std::size_t length) {
    std::size_t stride = 1;
    for (const std::size_t radix : kRadices)
        while (length % radix == 0) {
            plan.stages.push_back({radix, length, stride, plan.twiddles.size()});
            for (std::size_t k = 1; k < radix; ++k) {
                for (std::size_t p = 0; p < length / radix; ++p)
                    plan.twiddles.push_back(Cos<T>(p * k, length));
                for (std::size_t p = 0; p < length / radix; ++p)
                    plan.twiddles.push_back(MinusSin<T>(p * k, length));
            }
            length /= radix;
            stride *= radix;
        }
}

}  // namespace

template <typename T>
std::size_t RealFft<T>::GoodSize(std::size_t size) {
    std::size_t good = size < 2 ? 2 : size + size % 2;
    while (good < kMaxSize && !IsSmooth(good)) good += 2;
    return good;
}

template <typename T>
void RealFft<T>::Prepare(std::size_t size) {
    if (!kracore::debug::Assert(IsAllowed(size, kMaxSize), "IsAllowed(size)")) return;
    if (size == plan_.size) return;
    const std::size_t half = size / 2;
    vector::FftPlan<T> plan;
    plan.size = size;
    AddStages(plan, half);
    plan.untieCos.resize(half);
    plan.untieSin.resize(half);
    for (std::size_t k = 0; k < half; ++k) {
        plan.untieCos[k] = Cos<T>(k, size);
        plan.untieSin[k] = MinusSin<T>(k, size);
    }
    plan.work.resize(4 * half);
    plan_ = std::move(plan);
}

template <typename T>
void RealFft<T>::Forward(const T* in, std::complex<T>* out) {
    vector::FftForward(plan_, in, out);
}

template <typename T>
void RealFft<T>::Inverse(const std::complex<T>* in, T* out) {
    vector::FftInverse(plan_, in, out);
}

template class RealFft<float>;
template class RealFft<double>;

}  // namespace dsp
