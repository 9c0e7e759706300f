#include "measure/pixel_tally.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace vxcam {

namespace {

template <class Pixel>
void expectTally(const std::vector<Pixel>& some, Pixel limit)
{
    // Not at the beginning of the memory, whose address would be a round one.
    const size_t count = some.size() - 1;
    uint64_t squares = 0, saturated = 0;
    for (size_t i = 1; i <= count; ++i) {
        const int64_t distance = int64_t{some[i]} - kMiddle<Pixel>;
        squares += static_cast<uint64_t>(distance * distance);
        saturated += some[i] >= limit ? 1 : 0;
    }
    const PixelTally tally = tallyOf(some.data() + 1, count, limit);
    EXPECT_EQ(tally.least, *std::min_element(some.begin() + 1, some.end())) << count;
    EXPECT_EQ(tally.most, *std::max_element(some.begin() + 1, some.end())) << count;
    EXPECT_EQ(tally.squares, squares) << count;
    EXPECT_EQ(tally.saturated, saturated) << count;
}

template <class Pixel>
void expectTallies()
{
    constexpr auto highest = static_cast<Pixel>(~0U);
    std::mt19937 random(5);
    for (const size_t count : {1, 15, 16, 17, 4095, 4096, 4097, 8192, 40000}) {
        for (const Pixel value : {Pixel{0}, highest}) {
            expectTally(std::vector<Pixel>(count + 1, value), highest);
        }
        std::vector<Pixel> some(count + 1);
        std::generate(some.begin(), some.end(), [&] { return static_cast<Pixel>(random()); });
        for (const int limit : {1, highest / 3, highest / 2 + 1, int{highest}}) {
            expectTally(some, static_cast<Pixel>(limit));
        }
    }
}

} // namespace

TEST(PixelTally, IsThatOfEachPixel)
{
    expectTallies<uint8_t>();
    expectTallies<uint16_t>();
}

} // namespace vxcam
