#include "kraaudiodsp/vector/DotProducts.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <random>
#include <vector>

namespace dsp::vector {
namespace {

TEST(DotProducts, AreTheSameOnEveryInstructionSetAndCloseToTheSum) {
    std::mt19937 random(2);
    for (const std::size_t length : {0u, 1u, 15u, 16u, 17u, 33u, 100u, 208u})
        for (const std::size_t rowCount : {0u, 1u, 3u, 4u, 9u}) {
            std::vector<float> row(length), rows(length * rowCount), first;
            for (float& x : row) x = static_cast<float>(random() % 2001) / 1000.0f - 1.0f;
            for (float& x : rows) x = static_cast<float>(random() % 2001) / 1000.0f - 1.0f;
            for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
                hwy::SetSupportedTargetsForTest(target);
                std::vector<float> out(rowCount + 1, 7.0f);
                DotProducts(out.data(), row.data(), rows.data(), rowCount, length);
                EXPECT_EQ(out.back(), 7.0f);
                if (first.empty()) first = out;
                EXPECT_EQ(first, out) << hwy::TargetName(target) << " " << length;
            }
            hwy::SetSupportedTargetsForTest(0);
            for (std::size_t k = 0; k < rowCount; ++k) {
                double sum = 0;
                for (std::size_t i = 0; i < length; ++i)
                    sum += static_cast<double>(row[i]) * static_cast<double>(rows[k * length + i]);
                EXPECT_NEAR(first[k], sum, 2e-5) << length;
            }
        }
}

}  // namespace
}  // namespace dsp::vector
