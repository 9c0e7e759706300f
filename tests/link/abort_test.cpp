// Aborts that do not wait, and connections that take nothing.
#include "closerace_support.h"
#include "link_support.h"
#include "vxcamiface.h"

TEST_F(CloseRace, AbortsDoNotWaitForASendThatIsStuck)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, 1, 0));
    auto sending = StickInASend();
    int shortest = 1000;
    for (int i = 0; i < 5; ++i) { // the machine may be busy once
        const auto start = steady_clock::now();
        EXPECT_EQ(-1, VXAbortRead(handle));
        shortest = std::min(shortest, ElapsedMs(start));
    }
    EXPECT_LT(shortest, Within(100)); // of five seconds
    EXPECT_EQ(0, VXisCameraReady(handle));
    EXPECT_EQ(1u, Figures().FramesAborted);
    EXPECT_EQ(0u, Figures().ConnectionsLost);
    ExpectQuickClose();
    sending.wait();
}

// Sends give up sooner here.
struct tcImpatientCamera : tcVXCamera_Ethernet {
    tcImpatientCamera(unsigned short port) : tcVXCamera_Ethernet("127.0.0.1", port)
    {
        mSendLimit = milliseconds(200);
    }
};

TEST_F(Link, GivesUpAConnectionThatTakesNothingAndSaysSo)
{
    peer.LimitReceiveBuffer(4096);
    camera.reset();
    CameraLog();
    camera = std::make_unique<tcImpatientCamera>(peer.Port());
    camera->SetUserDefinedCallback(tcReceivedMessages::Callback);
    Open();
    while (camera->SetTimingData(const_cast<char*>(gsTiming), sizeof gsTiming) == 0) {
    }
    EXPECT_TRUE(log.AwaitErrors("tcVXCamera_Ethernet::SendMessage the camera takes nothing, the "
                                "connection is given up"));
    ASSERT_TRUE(peer.Accept());
    Synchronise();
    tsStatistics figures{};
    camera->GetStatistics(&figures, sizeof figures);
    EXPECT_EQ(1u, figures.ConnectionsLost);
    EXPECT_EQ(1u, figures.Reconnects);
    EXPECT_EQ(0, camera->SetTrigger(1));
    EXPECT_EQ(0x58u, IdOf(peer.ReadMessage()));
}
