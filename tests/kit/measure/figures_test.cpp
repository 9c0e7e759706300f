#include "files_support.h"

#include <vxcamkit/figures.h>

#include <gmock/gmock.h>

#include <cmath>

using testing::ElementsAre;

namespace vxcam {

TEST(Figures, AreExactAtEachWidth)
{
    const FrameFigures bytes = figuresOf(frameOf<uint8_t>(1, 4, {0, 255, 255, 2}));
    EXPECT_EQ(bytes.sum, 512u);
    EXPECT_EQ(bytes.least, 0u);
    EXPECT_EQ(bytes.most, 255u);
    EXPECT_EQ(bytes.saturated, 2u);
    const FrameFigures words = figuresOf(frameOf<uint16_t>(2, 2, {1, 65535, 3, 4}));
    EXPECT_EQ(words.sum, 65543u);
    EXPECT_EQ(words.saturated, 1u);
    const FrameFigures sums = figuresOf(frameOf<uint32_t>(1, 3, {4294967295, 4294967295, 2}));
    EXPECT_EQ(sums.sum, 8589934592u);
    EXPECT_EQ(sums.least, 2u);
    EXPECT_EQ(sums.most, 4294967295u);
    EXPECT_DOUBLE_EQ(sums.mean, 8589934592.0 / 3);
    EXPECT_EQ(sums.saturated, 2u);
}

TEST(Figures, KnowTheDeviation)
{
    EXPECT_EQ(figuresOf(frameOf<uint16_t>(1, 3, {7, 7, 7})).deviation, 0);
    // 2, 4, 4, 4, 5, 5, 7, 9 have the mean 5 and the deviation 2.
    const FrameFigures figures = figuresOf(frameOf<uint16_t>(2, 4, {2, 4, 4, 4, 5, 5, 7, 9}));
    EXPECT_EQ(figures.mean, 5);
    EXPECT_EQ(figures.deviation, 2);
    // 0 to n - 1, each once: (n^2 - 1) / 12 is its square.
    std::vector<uint16_t> ramp(65536);
    for (size_t i = 0; i < ramp.size(); ++i) {
        ramp[i] = static_cast<uint16_t>(i);
    }
    EXPECT_NEAR(figuresOf(frameOf(256, 256, ramp)).deviation,
                std::sqrt((65536.0 * 65536.0 - 1) / 12), 1e-6);
}

TEST(Figures, CountAsSaturatedWhatReachesTheLevel)
{
    const Frame frame = frameOf<uint16_t>(1, 4, {3999, 4000, 4095, 65535});
    EXPECT_EQ(figuresOf(frame, 4000).saturated, 3u);
    EXPECT_EQ(figuresOf(frame, 4000000).saturated, 1u); // which no pixel can reach
}

TEST(Histogram, CountsEachValue)
{
    const Histogram histogram = histogramOf(frameOf<uint16_t>(1, 6, {10, 12, 12, 13, 13, 13}));
    EXPECT_EQ(histogram.first, 10);
    EXPECT_EQ(histogram.width, 1);
    EXPECT_THAT(histogram.counts, ElementsAre(1, 0, 2, 3));
}

TEST(Histogram, JoinsValuesWhereThereAreTooMany)
{
    const Frame frame = frameOf<uint32_t>(1, 4, {0, 1, 2000000000, 4294967295});
    const Histogram histogram = histogramOf(frame, 4);
    EXPECT_EQ(histogram.width, 1073741824);
    EXPECT_THAT(histogram.counts, ElementsAre(2, 1, 0, 1));
    EXPECT_EQ(histogramOf(frame, 1).counts, std::vector<uint64_t>{4});
    EXPECT_LE(histogramOf(frame).counts.size(), 65536u);
    EXPECT_NE(refusalOf([&] { histogramOf(frame, 0); }, ErrorKind::Usage), "");
}

TEST(Histogram, KnowsPercentiles)
{
    const Histogram odd = histogramOf(frameOf<uint16_t>(1, 5, {9, 1, 5, 3, 7}));
    EXPECT_EQ(odd.percentile(0.5), 5);
    EXPECT_EQ(odd.percentile(0), 1);
    EXPECT_EQ(odd.percentile(1), 9);
    EXPECT_EQ(odd.percentile(0.25), 3);
    std::vector<uint32_t> ramp(1000);
    for (size_t i = 0; i < ramp.size(); ++i) {
        ramp[i] = static_cast<uint32_t>(i * 1000000);
    }
    const Histogram wide = histogramOf(frameOf(1, 1000, ramp));
    EXPECT_NEAR(wide.percentile(0.5), 500e6, 1e6);
    EXPECT_NEAR(wide.percentile(0.9), 900e6, 1e6);
}

} // namespace vxcam
