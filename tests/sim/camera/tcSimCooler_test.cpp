#include "tcSimCooler.h"

#include <cmath>
#include <gtest/gtest.h>

TEST(SimCooler, StartsAtAmbientAndStaysThereWhileOff)
{
    tcSimCooler cooler(20.0);
    cooler.SetTarget(-40.0, 5.0);
    EXPECT_DOUBLE_EQ(cooler.Temperature(1000.0), 20.0);
    EXPECT_FALSE(cooler.Cooling());
}

TEST(SimCooler, ApproachesTheTargetWithItsTimeConstant)
{
    tcSimCooler cooler(20.0);
    cooler.SetTarget(-30.0, 0.0);
    cooler.SetCooling(true, 100.0);
    EXPECT_DOUBLE_EQ(cooler.Temperature(100.0), 20.0);
    EXPECT_NEAR(cooler.Temperature(100.0 + gnSimCoolingTime), -30.0 + 50.0 / std::exp(1.0), 1e-9);
    EXPECT_NEAR(cooler.Temperature(100.0 + 20 * gnSimCoolingTime), -30.0, 1e-3);
}

TEST(SimCooler, GoesOnFromWhereItIsWhenTheTargetChanges)
{
    tcSimCooler cooler(20.0);
    cooler.SetTarget(-30.0, 0.0);
    cooler.SetCooling(true, 0.0);
    const double reached = cooler.Temperature(4.0);
    cooler.SetTarget(0.0, 4.0);
    EXPECT_DOUBLE_EQ(cooler.Temperature(4.0), reached);
    EXPECT_NEAR(cooler.Temperature(400.0), 0.0, 1e-6);
    cooler.SetCooling(false, 400.0);
    EXPECT_NEAR(cooler.Temperature(900.0), 20.0, 1e-6);
}

TEST(SimCooler, ReachesLessFarWithoutItsFan)
{
    tcSimCooler cooler(20.0);
    cooler.SetTarget(-100.0, 0.0);
    cooler.SetCooling(true, 0.0);
    EXPECT_NEAR(cooler.Temperature(1000.0), 20.0 - gnSimCoolingReach, 1e-6);
    cooler.SetFan(false, 1000.0);
    EXPECT_NEAR(cooler.Temperature(2000.0), 20.0 - gnSimCoolingFanless, 1e-6);
}

TEST(SimCooler, WarmsTheBoardByWhatItPumps)
{
    tcSimCooler cooler(20.0);
    EXPECT_DOUBLE_EQ(cooler.BoardTemperature(0.0), 25.0);
    cooler.SetTarget(-30.0, 0.0);
    cooler.SetCooling(true, 0.0);
    EXPECT_NEAR(cooler.BoardTemperature(1000.0), 27.5, 1e-6);
    cooler.SetFan(false, 1000.0);
    EXPECT_GT(cooler.BoardTemperature(1000.0), 34.0);
}
