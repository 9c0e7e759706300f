#include "values/pixel_sum.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace vxcam {

namespace {

template <class Pixel>
void expectSums()
{
    std::mt19937_64 random(3);
    for (const size_t count : {0, 1, 15, 16, 17, 4095, 4096, 4097, 8192, 40000}) {
        std::vector<Pixel> some(count + 1, static_cast<Pixel>(~0ULL));
        uint64_t sum = 0;
        for (size_t i = 1; i <= count; ++i) {
            sum += some[i];
        }
        EXPECT_EQ(pixelSum(some.data() + 1, count), sum) << count;
        sum = 0;
        for (size_t i = 1; i <= count; ++i) {
            some[i] = static_cast<Pixel>(random());
            sum += some[i];
        }
        EXPECT_EQ(pixelSum(some.data() + 1, count), sum) << count;
    }
}

} // namespace

TEST(PixelSum, IsThatOfEachPixel)
{
    expectSums<uint8_t>();
    expectSums<uint16_t>();
    expectSums<uint32_t>();
}

} // namespace vxcam
