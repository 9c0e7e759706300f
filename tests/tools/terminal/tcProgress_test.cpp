#include "tcProgress.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(Progress, LineShowsLabelBarAndText)
{
    EXPECT_EQ(ProgressLine("reading", 0.5, "50 %", 25), "reading [#####-----] 50 %");
}

TEST(Progress, LineNeverExceedsItsWidth)
{
    for (int width = 0; width < 100; ++width) {
        EXPECT_LE(ProgressLine("exposing 2/5", 0.3, "1.2 s of 5 s", width).size(),
                  static_cast<size_t>(width));
    }
}

TEST(Progress, NarrowLinesGoWithoutTheBar)
{
    EXPECT_EQ(ProgressLine("reading", 0.5, "50 %", 15), "reading 50 %");
}

TEST(Progress, FractionsBeyondTheEndsAreCut)
{
    EXPECT_EQ(ProgressLine("a", -1, "b", 11), ProgressLine("a", 0, "b", 11));
    EXPECT_EQ(ProgressLine("a", 2, "b", 11), ProgressLine("a", 1, "b", 11));
    EXPECT_EQ(ProgressLine("a", NAN, "b", 11), ProgressLine("a", 0, "b", 11));
    EXPECT_EQ(ProgressLine("a", INFINITY, "b", 11), ProgressLine("a", 0, "b", 11));
}

TEST(Progress, BarsAreNotLongerThanUseful)
{
    EXPECT_EQ(ProgressLine("a", 1, "b", 1000), "a [" + std::string(40, '#') + "] b");
}
