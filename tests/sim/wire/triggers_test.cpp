// The external trigger modes, with the software trigger.
#include "SimClient.h"
#include "tcSimServer.h"

namespace {

struct tsRig {
    tsRig() : server(Options()), client(server.Start())
    {
        client.SendCommand(cmdSetExposure, {0});
        client.SendCommand(cmdSetTestPattern, {1, {7}});
    }
    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.columns = options.rows = 16;
        options.heartbeatSeconds = 0;
        return options;
    }
    void Read(uint32_t mode, uint16_t frames)
    {
        client.SendCommand(cmdSetTriggerMode, {mode, 0, 0});
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, frames, 0});
    }
    void Trigger(uint32_t level = 1) { client.SendCommand(cmdSetTrigger, {level}); }

    tcSimServer server;
    tcSimTestClient client;
};

} // namespace

TEST(SimTriggers, StartTheWholeReadout)
{
    tsRig rig;
    rig.Read(eExtTrigStart, 3);
    EXPECT_TRUE(rig.client.Settle().empty()) << "nothing before the trigger";
    rig.Trigger();
    for (int i = 1; i <= 3; ++i) {
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        ASSERT_TRUE(frame.complete);
        EXPECT_EQ(frame.lastFlag, i == 3);
    }
}

TEST(SimTriggers, StartEachFrame)
{
    tsRig rig;
    rig.Read(eExtTrigFrame, 2);
    EXPECT_TRUE(rig.client.Settle().empty());
    rig.Trigger();
    EXPECT_FALSE(rig.client.ReceiveFrame().lastFlag);
    ASSERT_TRUE(Eventually([&] { return rig.server.Statistics().framesComplete == 1; }));
    EXPECT_TRUE(rig.client.Settle().empty()) << "the second waits";
    rig.Trigger();
    EXPECT_TRUE(rig.client.ReceiveFrame().lastFlag);
}

TEST(SimTriggers, HaveToBeReleasedFirstWhenTheyAreNotReArmedByThemselves)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetAutoTriggerReArm, {0});
    rig.Read(eExtTrigFrame, 2);
    rig.Trigger();
    ASSERT_TRUE(rig.client.ReceiveFrame().complete);
    rig.Trigger();
    EXPECT_TRUE(rig.client.Settle().empty());
    rig.Trigger(0);
    EXPECT_TRUE(rig.client.Settle().empty());
    rig.Trigger();
    EXPECT_TRUE(rig.client.ReceiveFrame().lastFlag);
}

TEST(SimTriggers, MakeTheExposureAsLongAsTheyLast)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetExposure, {3600000});
    rig.Read(eExtTrigExposure, 2);
    for (int i = 0; i < 2; ++i) {
        rig.Trigger();
        EXPECT_TRUE(rig.client.Settle().empty());
        const auto begin = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(30)) {
            rig.client.Settle();
        }
        rig.Trigger(0);
        ASSERT_TRUE(rig.client.ReceiveFrame().complete);
        EXPECT_GE(rig.server.Frames().back().exposure, 0.03);
        EXPECT_LT(rig.server.Frames().back().exposure, 30.0);
        // The frame is over on the camera's side a moment after its last packet arrived here.
        rig.client.Settle();
    }
}

TEST(SimTriggers, DoNothingWhileNoReadoutWaitsForThem)
{
    tsRig rig;
    rig.Trigger();
    rig.Trigger(0);
    EXPECT_TRUE(rig.client.Settle().empty());
    rig.Read(eExtTrigOff, 1);
    EXPECT_TRUE(rig.client.ReceiveFrame().complete) << "and are not needed when off";
}

TEST(SimTriggers, CanBeAbortedWhileWaiting)
{
    tsRig rig;
    rig.Read(eExtTrigStart, 1);
    rig.client.SendCommand(cmdAbortRead);
    rig.Trigger();
    EXPECT_TRUE(rig.client.Settle().empty());
    EXPECT_TRUE(rig.server.Frames().empty());
}
