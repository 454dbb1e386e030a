#include <algorithm>
#include <cmath>
#include <numeric>

#include "Components/Song.h"
#include "kraaudiodsp/AlignedVector.h"
#include "kraaudiodsp/vector/DotProducts.h"

namespace zuc::components {
namespace {

constexpr std::size_t kTileBeats = 64;  // rows of one tile stay in the second-level cache

/// Dot products of all pairs, without neighbours; symmetric.
std::vector<float> Products(const BeatRows& rows) {
    const std::size_t count = rows.GetCount();
    const std::size_t length = (rows.columns + 15) / 16 * 16;
    dsp::AlignedVector<float> padded(count * length, 0.0f);
    for (std::size_t i = 0; i < count; ++i)
        std::copy_n(rows.values.data() + i * rows.columns, rows.columns,
                    padded.data() + i * length);
    std::vector<float> products(count * count);
    for (std::size_t tile = 0; tile < count; tile += kTileBeats) {
        const std::size_t end = std::min(count, tile + kTileBeats);
        for (std::size_t i = tile; i < count; ++i)  // on and below the diagonal
            dsp::vector::DotProducts(products.data() + i * count + tile, padded.data() + i * length,
                                     padded.data() + tile * length, std::min(end, i + 1) - tile,
                                     length);
    }
    return products;
}

/// Adds to each product those of the beats before and behind, which lie along the diagonal.
void AddNeighbours(std::vector<float>& products, std::size_t count, float weight) {
    if (weight == 0) return;
    std::vector<float> before(count + 1, 0.0f), here(count + 1, 0.0f);  // bare, from column -1 on
    for (std::size_t i = 0; i < count; ++i) {
        float* row = products.data() + i * count;
        std::copy_n(row, i + 1, here.begin() + 1);
        const float* after = i + 1 < count ? row + count + 1 : nullptr;
        for (std::size_t j = 0; j <= i; ++j)
            row[j] += weight * (before[j] + (after != nullptr ? after[j] : 0.0f));
        before.swap(here);
    }
}

/// Copies what is below the diagonal to above it.
void Mirror(std::vector<float>& products, std::size_t count) {
    for (std::size_t tile = 0; tile < count; tile += kTileBeats)
        for (std::size_t i = tile; i < count; ++i)
            for (std::size_t j = tile; j < std::min(i, tile + kTileBeats); ++j)
                products[j * count + i] = products[i * count + j];
}

std::vector<float> ProductsWithNeighbours(const BeatRows& rows) {
    std::vector<float> products = Products(rows);
    AddNeighbours(products, rows.GetCount(), rows.neighbourWeight * rows.neighbourWeight);
    return products;
}

float CosineOf(float product, double normA, double normB) {
    if (normA == 0 || normB == 0) return normA == normB ? 1.0f : 0.0f;
    return static_cast<float>(
        std::clamp(static_cast<double>(product) / (normA * normB), -1.0, 1.0));
}

}  // namespace

std::vector<float> CosinesOfBeats(const BeatRows& rows) {
    const std::size_t count = rows.GetCount();
    std::vector<float> products = ProductsWithNeighbours(rows);
    std::vector<double> norms(count);
    for (std::size_t i = 0; i < count; ++i)
        norms[i] = std::sqrt(static_cast<double>(products[i * count + i]));
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            products[i * count + j] =
                i == j ? 1.0f : CosineOf(products[i * count + j], norms[i], norms[j]);
    Mirror(products, count);
    return products;
}

std::vector<float> DistancesOfBeats(const BeatRows& rows) {
    const std::size_t count = rows.GetCount();
    std::vector<float> products = ProductsWithNeighbours(rows);
    std::vector<float> squares(count);
    for (std::size_t i = 0; i < count; ++i) squares[i] = products[i * count + i];
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t j = 0; j <= i; ++j)
            products[i * count + j] =
                std::sqrt(std::max(0.0f, squares[i] + squares[j] - 2 * products[i * count + j]));
    Mirror(products, count);
    return products;
}

float CosineOfBeats(const BeatRows& rows, std::size_t i, std::size_t j) {
    const std::size_t count = rows.GetCount();
    const auto getProduct = [&](std::size_t a, std::size_t b) {
        double sum = 0;
        for (const int step : {-1, 0, 1}) {
            const std::size_t x = a + static_cast<std::size_t>(step);
            const std::size_t y = b + static_cast<std::size_t>(step);
            if (x >= count || y >= count) continue;  // also before the first
            const auto row = rows.values.begin() + static_cast<std::ptrdiff_t>(x * rows.columns);
            const auto other = rows.values.begin() + static_cast<std::ptrdiff_t>(y * rows.columns);
            const float weight = step == 0 ? 1.0f : rows.neighbourWeight * rows.neighbourWeight;
            sum += static_cast<double>(weight) *
                   std::inner_product(row, row + static_cast<std::ptrdiff_t>(rows.columns), other,
                                      0.0);
        }
        return sum;
    };
    return i == j ? 1.0f
                  : CosineOf(static_cast<float>(getProduct(i, j)), std::sqrt(getProduct(i, i)),
                             std::sqrt(getProduct(j, j)));
}

}  // namespace zuc::components
