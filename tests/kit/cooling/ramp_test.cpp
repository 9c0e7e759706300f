#include "cooling/ramp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace vxcam;
using namespace std::chrono_literals;
using testing::HasSubstr;
using Time = Ramp::Time;

namespace {

// A sensor that follows its set point with a time constant of 10 s, down to so far below ambient.
struct Sensor {
    double ambient = 20, reach = 60;
    double temperature = 20, setPoint = 0;
    bool isCooled = false;

    void pass(double seconds)
    {
        const double goal =
            isCooled ? std::min(ambient, std::max(setPoint, ambient - reach)) : ambient;
        temperature = goal + (temperature - goal) * std::exp(-seconds / 10);
    }
    double told() const { return std::round(temperature * 10) / 10; }
};

struct Course {
    Sensor sensor = {};
    double seconds = 0;
    std::vector<double> setPoints = {};

    // Steps every half second until it is over, or so long.
    CoolingState through(Ramp& ramp, double most)
    {
        const double end = seconds + most;
        while (seconds < end && ramp.isWatching()) {
            const Ramp::Orders orders = ramp.step(Time(seconds), sensor.told());
            if (orders.setPoint) {
                sensor.setPoint = *orders.setPoint;
                setPoints.push_back(*orders.setPoint);
            }
            if (orders.cooling) sensor.isCooled = *orders.cooling;
            if (ramp.state().phase == CoolingPhase::Settled) break;
            sensor.pass(0.5);
            seconds += 0.5;
        }
        return ramp.state();
    }
};

} // namespace

TEST(Ramp, SettlesAtOnceWithoutARate)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 120s});
    Course run;
    const CoolingState state = run.through(ramp, 600);
    EXPECT_EQ(state.phase, CoolingPhase::Settled);
    EXPECT_EQ(state.done, 1);
    EXPECT_EQ(run.setPoints, (std::vector<double>{-20}));
    EXPECT_NEAR(run.sensor.temperature, -20, 0.55);
    EXPECT_GT(run.seconds, 10 * std::log(40 / 0.55) + 9.5) << "within the tolerance for 10 s";
}

TEST(Ramp, MovesTheSetPointAtItsRate)
{
    Ramp ramp(Cooling{-20, 6, 0.5, 10s, 120s}); // a tenth of a degree a second
    Course run;
    EXPECT_EQ(run.through(ramp, 100).phase, CoolingPhase::Ramping);
    EXPECT_NEAR(run.setPoints.back(), 20 - 10, 0.11);
    EXPECT_NEAR(ramp.state().done, 0.25, 0.05);
    EXPECT_THAT(ramp.state().text, HasSubstr("set to 10."));
    EXPECT_THAT(ramp.state().text, HasSubstr("target -20.0 C"));
    for (size_t i = 1; i < run.setPoints.size(); ++i) {
        EXPECT_NEAR(run.setPoints[i - 1] - run.setPoints[i], 0.1, 0.02) << i;
    }
    EXPECT_EQ(run.through(ramp, 1000).phase, CoolingPhase::Settled);
    EXPECT_EQ(run.setPoints.back(), -20);
    EXPECT_GT(run.seconds, 400);
}

TEST(Ramp, SaysThatATargetIsOutOfReach)
{
    for (const double rate : {0.0, 30.0}) {
        Ramp ramp(Cooling{-50, rate, 0.5, 10s, 60s});
        Course run;
        const CoolingState state = run.through(ramp, 3600);
        EXPECT_EQ(state.phase, CoolingPhase::Failed);
        EXPECT_THAT(state.text, HasSubstr("out of reach: the sensor stays at -40.0 C"));
        EXPECT_THAT(state.text, HasSubstr("10.0 C from the target of -50.0 C"));
        EXPECT_LT(run.seconds, 400);
    }
}

TEST(Ramp, SlowRampsAreNoFailure)
{
    Ramp ramp(Cooling{15, 0.05, 0.5, 10s, 60s});
    Course run;
    EXPECT_EQ(run.through(ramp, 3 * 3600).phase, CoolingPhase::Settled);
    EXPECT_NEAR(run.seconds, 5 / 0.05 * 60, 120);
}

TEST(Ramp, SettlesAgainAfterADisturbance)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 120s});
    Course run;
    run.through(ramp, 600);
    run.sensor.temperature = -15;
    run.seconds += 1;
    ramp.step(Time(run.seconds), run.sensor.told());
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Settling);
    EXPECT_EQ(run.through(ramp, 600).phase, CoolingPhase::Settled);
}

TEST(Ramp, WarmsUpAtItsRateAndSwitchesOff)
{
    Ramp ramp(Warming{20, 12, 60s});
    Course run;
    run.sensor = {25, 60, -30, -30, true};
    EXPECT_EQ(run.through(ramp, 100).phase, CoolingPhase::WarmingUp);
    EXPECT_TRUE(run.sensor.isCooled);
    EXPECT_NEAR(run.setPoints.back(), -10, 0.3);
    EXPECT_EQ(run.through(ramp, 1000).phase, CoolingPhase::Warm);
    EXPECT_FALSE(run.sensor.isCooled);
    EXPECT_NEAR(run.sensor.temperature, 20, 0.2);
    EXPECT_GT(run.seconds, 250);
}

TEST(Ramp, IsWarmWhereASensorGetsNoWarmer)
{
    Ramp ramp(Warming{20, 60, 60s});
    Course run;
    run.sensor = {5, 60, -30, -30, true};
    const CoolingState state = run.through(ramp, 1000);
    EXPECT_EQ(state.phase, CoolingPhase::Warm);
    EXPECT_NEAR(run.sensor.temperature, 5, 0.1);
    EXPECT_FALSE(run.sensor.isCooled);
}

TEST(Ramp, FailsWithoutATemperature)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 60s});
    ramp.step(Time(0), std::nullopt);
    ramp.step(Time(59), std::nullopt);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Ramping);
    EXPECT_THAT(ramp.state().text, HasSubstr("no temperature yet"));
    ramp.step(Time(61), std::nullopt);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Failed);
    EXPECT_THAT(ramp.state().text, HasSubstr("tells no temperature"));
}

TEST(Ramp, JudgesWhatTheSensorTellsAnew)
{
    for (const bool isWarming : {false, true}) {
        Ramp ramp = isWarming ? Ramp(Warming{15, 1, 60s}) : Ramp(Cooling{-50, 1, 0.5, 10s, 60s});
        const auto phase = isWarming ? CoolingPhase::WarmingUp : CoolingPhase::Ramping;
        ramp.step(Time(0), -20);
        for (int seconds = 1; seconds < 1000; ++seconds)
            ramp.step(Time(seconds), -20, false);
        ramp.step(Time(1000), -20);
        ramp.step(Time(1001), -20);
        EXPECT_EQ(ramp.state().phase, phase) << "told too seldom to say that it stays";
        ramp.step(Time(1002), -20);
        EXPECT_EQ(ramp.state().phase, isWarming ? CoolingPhase::Warm : CoolingPhase::Failed);
    }
}

TEST(Ramp, HasSettledBySeveralTemperatures)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 60s});
    ramp.step(Time(0), -20);
    ramp.step(Time(11), -20, false);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Settling);
    ramp.step(Time(12), -20);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Settled);
}

TEST(Ramp, GoesOnWhereItWasAfterASilence)
{
    Ramp ramp(Cooling{-20, 6, 0.5, 10s, 60s}); // a tenth of a degree a second
    for (int seconds = 0; seconds <= 100; ++seconds)
        ramp.step(Time(seconds), 20 - seconds / 10.0);
    EXPECT_NEAR(ramp.state().setPoint, 10, 0.01);
    for (int seconds = 100; seconds < 158; ++seconds)
        ramp.step(Time(seconds), std::nullopt);
    ramp.step(Time(158), 15); // warmer meanwhile
    EXPECT_NEAR(ramp.state().setPoint, 10, 0.01) << "no leap";
    for (int seconds = 159; seconds < 170; ++seconds)
        ramp.step(Time(seconds), 15);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Ramping) << "had no time to come nearer";
    for (int seconds = 170; seconds < 240; ++seconds)
        ramp.step(Time(seconds), 15);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Failed);
}

TEST(Ramp, DoesNotSettleByASilence)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 60s});
    ramp.step(Time(0), -20);
    ramp.step(Time(1), std::nullopt);
    ramp.step(Time(50), -20);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Settling);
}

TEST(Ramp, BearsASilenceThatMayComeWithAnyCamera)
{
    Ramp ramp(Cooling{-20, 0, 0.5, 10s, 60s}, Time(5000)); // of a fast clock
    ramp.step(Time(0), std::nullopt);
    ramp.step(Time(4999), std::nullopt);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Ramping);
    ramp.step(Time(5001), std::nullopt);
    EXPECT_EQ(ramp.state().phase, CoolingPhase::Failed);
}
