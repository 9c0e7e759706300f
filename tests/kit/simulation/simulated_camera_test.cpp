// The simulated camera that is opened again and again.
#include "kit_support.h"

#include <vxcamkit/simulated_camera.h>

using namespace vxcam;
using testing::HasSubstr;

namespace {

SimulatorOptions small()
{
    SimulatorOptions options;
    options.sensor = {40, 30};
    options.timeScale = 10;
    return options;
}

Plan shortPlan()
{
    Plan plan;
    plan.exposure = 10ms;
    return plan;
}

} // namespace

TEST(SimulatedCamera, KeepsItsSettingsFromClientToClient)
{
    SimulatedCamera simulated(small());
    Camera::open(simulated.target()).set("gain", 3);
    EXPECT_EQ(Camera::open(simulated.target()).get("gain").toInt(), 3);
}

TEST(SimulatedCamera, KnowsTheFramesThatItSent)
{
    SimulatedCamera simulated(small());
    Camera camera = Camera::open(simulated.target());
    const Frame frame = camera.grab(shortPlan());
    const std::vector<SentFrame> sent = simulated.frames();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].sum, frame.sum());
    EXPECT_EQ(sent[0].sentSum, frame.sum());
    EXPECT_EQ(sent[0].rows, 30);
    EXPECT_EQ(sent[0].columns, 40);
    EXPECT_EQ(sent[0].bits, 16);
    EXPECT_TRUE(sent[0].complete);
    EXPECT_TRUE(sent[0].intact);
    EXPECT_LT(sent[0].begin, sent[0].end);
}

TEST(SimulatedCamera, IsKnownToCamerasOfItsProcessWithItsTimeScaleAndWhatItSent)
{
    SimulatedCamera simulated(small());
    Camera camera = Camera::open(simulated.target());
    EXPECT_EQ(camera.timeScale(), 10);
    Plan plan;
    plan.exposure = 2s; // 0.2 s of the clock
    const Frame frame = camera.grab(plan);
    EXPECT_EQ(frame.facts().trueSum, simulated.frames().back().sum);
    const FrameTimes& times = frame.facts().times;
    const auto lasted = times.end - times.begin;
    EXPECT_GE(lasted, 190ms);
    EXPECT_LT(lasted, 1900ms);
    simulated.close();
    EXPECT_EQ(camera.timeScale(), 10);
}

TEST(SimulatedCamera, HasFaultsFromTheBeginningAndLater)
{
    SimulatorOptions options = small();
    options.faults = {"missing-packet:readout=1,packet=7"};
    SimulatedCamera simulated(options);
    Camera camera = Camera::open(simulated.target());
    EXPECT_THROW(camera.grab(shortPlan()), IncompleteFrame);
    EXPECT_FALSE(simulated.frames().back().intact);
    EXPECT_NO_THROW(camera.grab(shortPlan()));
    simulated.inject("missing-packet:packet=3");
    EXPECT_THROW(camera.grab(shortPlan()), IncompleteFrame);
    EXPECT_EQ(errorOf([&] { simulated.inject("nonsense"); }).kind(), ErrorKind::Usage);
}

TEST(SimulatedCamera, IsGoneWhenClosed)
{
    SimulatedCamera simulated(small());
    const std::string target = simulated.target();
    simulated.close();
    simulated.close();
    EXPECT_TRUE(simulated.frames().empty());
    EXPECT_EQ(errorOf([&] { simulated.inject("half-open"); }).kind(), ErrorKind::Usage);
    EXPECT_EQ(errorOf([&] { Camera::open(target); }).kind(), ErrorKind::NotFound);
}

TEST(SimulatedCamera, RefusesASensorThatCannotBe)
{
    for (const Size size : {Size{0, 5}, Size{5, -1}, Size{16385, 5}, Size{65537, 1}}) {
        SimulatorOptions options;
        options.sensor = size;
        const Error error = errorOf([&] { const SimulatedCamera simulated(options); });
        EXPECT_EQ(error.kind(), ErrorKind::Usage);
        EXPECT_THAT(error.what(), HasSubstr("sensor"));
    }
}
