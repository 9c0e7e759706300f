#include "cameras/outage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace vxcam {

using namespace std::chrono_literals;
using testing::ElementsAre;

TEST(Outage, IsToldOnceAndThenAtGrowingIntervals)
{
    Outage outage("camera 1 (host:2000)");
    const Outage::Clock::time_point start{};
    std::vector<int> minutes;
    for (auto time = 0s; time <= 6h; time += 2s) {
        if (outage.isMissing("nobody answers", start + time).empty()) continue;
        minutes.push_back(static_cast<int>(time / 1min));
    }
    EXPECT_THAT(minutes, ElementsAre(0, 1, 3, 7, 15, 31, 63, 123, 183, 243, 303));
}

TEST(Outage, NamesTheCameraTheReasonAndTheTime)
{
    Outage outage("camera 1 (host:2000)");
    const Outage::Clock::time_point start{};
    EXPECT_EQ(outage.isThere(start), ""); // it has always been
    EXPECT_EQ(outage.isMissing("nobody answers", start), "camera 1 (host:2000): nobody answers");
    EXPECT_EQ(outage.due(), start + 1min);
    EXPECT_EQ(outage.isMissing("nobody answers", start + 59s), "");
    EXPECT_EQ(outage.isMissing("it is busy", start + 60s),
              "camera 1 (host:2000), still after 60s: it is busy");
    EXPECT_EQ(outage.isThere(start + 61s), "camera 1 (host:2000): is there, after 61s");
    EXPECT_EQ(outage.isThere(start + 62s), "");
    EXPECT_EQ(outage.isMissing("it is busy", start + 63s), "camera 1 (host:2000): it is busy");
    EXPECT_EQ(outage.due(), start + 123s); // from the beginning again
}

} // namespace vxcam
