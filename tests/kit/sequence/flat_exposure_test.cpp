#include "sequence/flat_exposure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vxcam {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

// A sky of so many counts a second above an offset, as far as pixels go.
struct Sky {
    double offset = 1000, rate = 200;
    int frames = 0;

    FlatExposure::Measure measure()
    {
        return [this](std::optional<FlatExposure::Time> exposure) {
            ++frames;
            const double seconds = static_cast<double>(exposure.value_or(0ms).count()) / 1000;
            return std::min(offset + rate * seconds, 65535.0);
        };
    }
};

SequenceLevel levelOf(double mean)
{
    SequenceLevel level;
    level.mean = mean;
    return level;
}

} // namespace

TEST(FlatExposure, FindsTheLevelFromTooDarkAndFromTooBright)
{
    for (const auto first : {1ms, 1000ms, 60000ms}) {
        Sky sky{1000, 2000, 0};
        FlatExposure flat(levelOf(20000), first);
        const auto found = flat.find(sky.measure());
        EXPECT_NEAR(1000 + 2.0 * static_cast<double>(found.count()), 20000, 2000);
        EXPECT_LE(sky.frames, 8);
    }
}

TEST(FlatExposure, SaysThatTheLevelIsOutOfReach)
{
    Sky dark{1000, 1, 0};
    FlatExposure flat(levelOf(20000), 1s);
    try {
        flat.find(dark.measure());
        FAIL() << "nothing was thrown";
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), ErrorKind::Camera);
        EXPECT_THAT(error.what(), HasSubstr("20000 is out of reach: 60s gives 1060"));
    }
}

TEST(FlatExposure, FollowsASkyThatGetsDarker)
{
    Sky sky{1000, 2000, 0};
    FlatExposure flat(levelOf(20000), 1s);
    const auto first = flat.find(sky.measure());
    sky.rate = 1850;
    EXPECT_TRUE(flat.accept(sky.measure()(first)));
    const auto second = flat.find(sky.measure());
    EXPECT_NEAR(1000 + 1.85 * static_cast<double>(second.count()), 20000, 40);
    sky.rate = 500;
    EXPECT_FALSE(flat.accept(sky.measure()(second)));
    const auto third = flat.find(sky.measure());
    EXPECT_NEAR(1000 + 0.5 * static_cast<double>(third.count()), 20000, 2000);
}

} // namespace vxcam
