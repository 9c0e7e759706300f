#include "files_support.h"

#include <vxcamkit/steady_light.h>

#include <gmock/gmock.h>

#include <cmath>

using testing::ElementsAre;
using testing::HasSubstr;

namespace vxcam {

namespace {

// A lamp and a camera without noise: so many ADU a millisecond above 1000.
class Lamp
{
public:
    explicit Lamp(double light) : light_(light) {}

    TakeFrames taking()
    {
        return [this](const Plan& plan, const std::string& what) {
            const double milliseconds =
                std::chrono::duration<double, std::milli>(plan.exposure.value()).count();
            const double light = plan.type == FrameType::Bias ? 0 : light_ * milliseconds;
            const auto level = static_cast<uint16_t>(std::min(1000 + light, 65535.0));
            plans.push_back(plan);
            exposures.push_back(std::lround(milliseconds));
            names.push_back(what);
            return std::vector<Frame>(plan.frames, frameOf<uint16_t>(32, 32, pixels(level)));
        };
    }

    std::vector<Plan> plans;
    std::vector<long> exposures;
    std::vector<std::string> names;

private:
    static std::vector<uint16_t> pixels(uint16_t level)
    {
        return std::vector<uint16_t>(32UL * 32, level);
    }
    double light_;
};

ErrorKind kindOf(const std::function<void()>& call, const std::string& words)
{
    try {
        call();
    } catch (const Error& error) {
        EXPECT_THAT(error.what(), HasSubstr(words));
        return error.kind();
    }
    ADD_FAILURE() << "nothing was thrown: " << words;
    return ErrorKind::File;
}

} // namespace

TEST(SteadyLight, FindsTheExposureOfALevel)
{
    Lamp lamp(50);
    ExposureGoal goal;
    goal.level = 31000;
    std::vector<double> medians;
    const auto found = exposureFor({}, goal, lamp.taking(),
                                   [&](auto, double median) { medians.push_back(median); });
    EXPECT_NEAR(static_cast<double>(found.count()), 600, 12);
    EXPECT_EQ(lamp.plans.front().type, FrameType::Bias);
    EXPECT_EQ(lamp.plans.front().frames, 1);
    EXPECT_EQ(lamp.plans.back().type, Plan().type);
    EXPECT_EQ(medians.size() + 1, lamp.plans.size());
    EXPECT_NEAR(medians.back(), 31000, 0.02 * 30000);
}

TEST(SteadyLight, SaysThatItIsTooDarkOrTooBright)
{
    ExposureGoal goal;
    goal.level = 31000;
    goal.first = std::chrono::milliseconds(10);
    goal.most = std::chrono::milliseconds(20);
    Lamp dark(1), bright(40000);
    EXPECT_EQ(kindOf([&] { exposureFor({}, goal, dark.taking()); }, "too dark, even for 20ms"),
              ErrorKind::Camera);
    EXPECT_EQ(kindOf([&] { exposureFor({}, goal, bright.taking()); }, "too bright, even for 1ms"),
              ErrorKind::Camera);
}

TEST(SteadyLight, TakesPairsOverTheDecadesBetweenTwoExposures)
{
    Lamp lamp(10);
    TransferOptions options;
    options.pairs = 4;
    options.from = std::chrono::milliseconds(1);
    options.to = std::chrono::milliseconds(1000);
    const TransferSeries series = takeTransfer(options, lamp.taking());
    EXPECT_THAT(lamp.exposures, ElementsAre(0, 1, 10, 100, 1000));
    EXPECT_THAT(lamp.names, ElementsAre("bias", "pair 1/4", "pair 2/4", "pair 3/4", "pair 4/4"));
    for (const Plan& plan : lamp.plans) {
        EXPECT_EQ(plan.frames, 2);
        EXPECT_EQ(plan.kind, ReadoutKind::Area);
    }
    EXPECT_EQ(series.dark.level, 1000);
    ASSERT_EQ(series.flats.size(), 4u);
    EXPECT_EQ(series.flats[2].level, 2000);
}

TEST(SteadyLight, FindsTheExposuresFromAHundredthOfTheScaleToBeyondIt)
{
    Lamp lamp(50);
    const TransferSeries series = takeTransfer({}, lamp.taking());
    ASSERT_EQ(series.flats.size(), 16u);
    const double full = 65535.0 / 50; // ms
    EXPECT_NEAR(static_cast<double>(lamp.exposures[lamp.exposures.size() - 16]), full / 100, 2);
    EXPECT_NEAR(static_cast<double>(lamp.exposures.back()), 1.8 * full, 0.2 * full);
    EXPECT_EQ(series.flats[15].saturated, 1);
    EXPECT_EQ(series.flats[14].saturated, 1);
    EXPECT_LT(series.flats[12].level, 65535);
}

TEST(SteadyLight, RefusesOptionsThatMeanNothingBeforeAnyFrame)
{
    Lamp lamp(50);
    const auto refused = [&](int pairs, int from, int to, int longest, const std::string& words) {
        TransferOptions options;
        options.pairs = pairs;
        options.from = std::chrono::milliseconds(from);
        options.to = std::chrono::milliseconds(to);
        options.longest = std::chrono::milliseconds(longest);
        EXPECT_EQ(kindOf([&] { takeTransfer(options, lamp.taking()); }, words), ErrorKind::Usage);
    };
    refused(3, 0, 0, 1, "pairs 3: give 4 to 200");
    refused(201, 0, 0, 1, "pairs 201");
    refused(16, 10, 10, 1, "longest one longer");
    refused(16, 0, 10, 1, "1 ms or more");
    refused(16, 10, 0, 1, "longest one longer");
    refused(16, 0, 0, 0, "longest exposure that is tried");
    EXPECT_TRUE(lamp.plans.empty());
}

} // namespace vxcam
