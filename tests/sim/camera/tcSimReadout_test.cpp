#include "tcSimReadout.h"

#include <gtest/gtest.h>

namespace {

tsSimTiming Timing(uint32_t frames, double exposure, double interval = 0,
                   teExtTrigMode trigger = eExtTrigOff)
{
    return {frames, exposure, interval, trigger};
}

void SendOne(tcSimReadout& readout, double now)
{
    readout.BeginSending();
    readout.FrameSent(now);
}

} // namespace

TEST(SimReadout, ExposesForAsLongAsItIsTold)
{
    tcSimReadout readout;
    ASSERT_TRUE(readout.Start(Timing(1, 2.5), 10.0));
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    EXPECT_EQ(readout.Due().value(), 12.5);
    readout.Step(12.4);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    readout.Step(12.5);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
    EXPECT_FALSE(readout.Due());
    SendOne(readout, 13.0);
    EXPECT_EQ(readout.Phase(), teSimPhase::eIdle);
}

TEST(SimReadout, RefusesASecondWhileOneRuns)
{
    tcSimReadout readout;
    ASSERT_TRUE(readout.Start(Timing(1, 1), 0));
    EXPECT_FALSE(readout.Start(Timing(5, 9), 0.5));
    EXPECT_EQ(readout.Due().value(), 1.0);
    readout.Abort();
    EXPECT_TRUE(readout.Start(Timing(1, 1), 0.5));
}

TEST(SimReadout, NumbersFramesFromOneAndKnowsTheLast)
{
    tcSimReadout readout;
    readout.Start(Timing(3, 0), 0);
    for (uint32_t frame = 1; frame <= 3; ++frame) {
        EXPECT_EQ(readout.Frame(), frame);
        EXPECT_EQ(readout.LastFrame(), frame == 3);
        EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
        SendOne(readout, frame);
    }
    EXPECT_FALSE(readout.Running());
}

TEST(SimReadout, GoesOnUntilAbortedWithoutAFrameCount)
{
    tcSimReadout readout;
    readout.Start(Timing(0, 0), 0);
    for (int i = 0; i < 70000; ++i) {
        ASSERT_FALSE(readout.LastFrame());
        SendOne(readout, i);
    }
    EXPECT_EQ(readout.Frame(), 70001u);
    readout.Abort();
    EXPECT_FALSE(readout.Running());
}

TEST(SimReadout, KeepsTheIntervalBetweenFrameStarts)
{
    tcSimReadout readout;
    readout.Start(Timing(4, 1, 5), 0);
    readout.Step(1);
    SendOne(readout, 2);
    EXPECT_EQ(readout.Phase(), teSimPhase::ePausing);
    EXPECT_EQ(readout.Due().value(), 5);
    readout.Step(5);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    EXPECT_EQ(readout.LastInterval(), 5);
    readout.Step(6);
    SendOne(readout, 17); // slower than the interval: the next begins at once
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    EXPECT_EQ(readout.LastInterval(), 12);
    EXPECT_EQ(readout.ShortestInterval(), 5);
    EXPECT_EQ(readout.LongestInterval(), 12);
}

TEST(SimReadout, KeepsTheIntervalHoweverLateItIsAsked)
{
    tcSimReadout readout;
    readout.Start(Timing(4, 1, 5), 0);
    readout.Step(1);
    SendOne(readout, 2);
    readout.Step(5.5);
    EXPECT_EQ(readout.ExposureStart(), 5);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    EXPECT_EQ(readout.Due().value(), 6);
    readout.Step(6.5);
    SendOne(readout, 7);
    EXPECT_EQ(readout.Due().value(), 10);
    readout.Step(12); // when the exposure is over, too
    EXPECT_EQ(readout.ExposureStart(), 10);
    EXPECT_EQ(readout.LastInterval(), 5);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
    SendOne(readout, 16); // too late for the next one, which begins now
    EXPECT_EQ(readout.ExposureStart(), 16);
}

TEST(SimReadout, StartsTheWholeReadoutByOneTrigger)
{
    tcSimReadout readout;
    readout.Start(Timing(2, 1, 0, eExtTrigStart), 0);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
    EXPECT_FALSE(readout.Due());
    readout.Step(100);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
    readout.SetTrigger(true, 100);
    readout.Step(101);
    SendOne(readout, 101);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
}

TEST(SimReadout, WaitsForATriggerBeforeEachFrame)
{
    tcSimReadout readout;
    readout.Start(Timing(2, 0, 0, eExtTrigFrame), 0);
    readout.SetTrigger(true, 1);
    SendOne(readout, 2);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
    readout.SetTrigger(true, 3);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
}

TEST(SimReadout, FiresOncePerEdgeWithoutAutomaticReArming)
{
    tcSimReadout readout;
    readout.SetAutoReArm(false);
    readout.Start(Timing(2, 0, 0, eExtTrigFrame), 0);
    readout.SetTrigger(true, 1);
    SendOne(readout, 2);
    readout.SetTrigger(true, 3);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
    readout.SetTrigger(false, 4);
    readout.SetTrigger(true, 5);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
}

TEST(SimReadout, ExposesWhileTheTriggerIsActive)
{
    tcSimReadout readout;
    readout.Start(Timing(1, 9, 0, eExtTrigExposure), 0);
    EXPECT_FALSE(readout.ExposureKnown());
    readout.SetTrigger(true, 10);
    readout.Step(1000);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposing);
    EXPECT_FALSE(readout.Due());
    readout.SetTrigger(false, 1010);
    EXPECT_EQ(readout.Phase(), teSimPhase::eExposed);
    EXPECT_TRUE(readout.ExposureKnown());
    EXPECT_EQ(readout.Exposure(), 1000);
}

TEST(SimReadout, IgnoresTriggersWhileItDoesNotWaitForOne)
{
    tcSimReadout readout;
    readout.SetTrigger(true, 0);
    readout.Start(Timing(2, 5, 0, eExtTrigFrame), 0);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
    readout.SetTrigger(true, 1);
    readout.SetTrigger(true, 2);
    EXPECT_EQ(readout.Due().value(), 6);
    readout.Step(6);
    SendOne(readout, 7);
    EXPECT_EQ(readout.Phase(), teSimPhase::eArmed);
}

TEST(SimReadout, KnowsItsExposureBeforeTheTriggerThatStartsIt)
{
    tcSimReadout readout;
    readout.Start(Timing(1, 3, 0, eExtTrigStart), 0);
    EXPECT_TRUE(readout.ExposureKnown());
    EXPECT_EQ(readout.Exposure(), 3);
}
