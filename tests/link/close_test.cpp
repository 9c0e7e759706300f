// Closing a camera, whatever it is doing.
#include "link_support.h"

#include "tcFillers.h"

class Close : public Link
{
protected:
    // The quickest of a few closings, each of a camera in the same state: a machine that is busy is
    // not so each time.
    int QuickestClose(const std::function<void()>& prepare,
                      const std::function<void()>& tidy = nullptr)
    {
        int quickest = 10000;
        for (int round = 0; round < 5 && quickest >= nBelowASecond; ++round) {
            if (round > 0) {
                peer.SwitchOff();
                peer.SwitchOn();
                CameraLog().Clear();
                camera = std::make_unique<tcVXCamera_Ethernet>("127.0.0.1", peer.Port());
            }
            Open();
            prepare();
            quickest = std::min(quickest, CloseCamera());
            if (tidy) tidy();
        }
        return quickest;
    }

    static constexpr int nBelowASecond = 900; // which an attempt takes, and the longest pause
};

TEST_F(Close, IsQuickWhenTheCameraWasNeverOpened)
{
    EXPECT_LT(CloseCamera(), gnCloseLimit);
}

TEST_F(Close, IsQuickWhenIdle)
{
    Open();
    EXPECT_LT(CloseCamera(), gnCloseLimit);
    EXPECT_TRUE(peer.SeesClose());
}

TEST_F(Close, IsQuickWhileTheCameraStreams)
{
    Open();
    std::vector<unsigned short> image(16 * 32);
    camera->SetCCDArea(0, 0, 32, 16);
    ASSERT_EQ(0, camera->ReadCCDArea(image.data(), 0, 0));
    std::atomic<bool> stop{false};
    std::thread stream([&] {
        const std::string head("\1\0\1\0\2\0\3\0\0\0\x1f\0\0\0\0\0", 16); // packet 1 of 2, row 3
        uint64_t pixel = 0;
        while (!stop && peer.Send(MessageBytes(0x66, head + LittleEndian(++pixel, 2))))
            ;
    });
    ASSERT_TRUE(WaitUntil(
        [&] { return !log.Debug(10, "tcVXCamera_Ethernet::MonitorThread finished").empty(); }));
    EXPECT_LT(CloseCamera(), gnCloseLimit);
    const auto after = image;
    stream.join(); // its connection is gone
    EXPECT_EQ(after, image);
}

TEST_F(Close, IsQuickWhileAReconnectionIsUnderWay)
{
    std::unique_ptr<tcFillers> fillers;
    const auto prepare = [&] {
        peer.SwitchOff();
        peer.SwitchOn(0);
        fillers = std::make_unique<tcFillers>(peer.Port(), 4);
        peer.Close();
        ASSERT_TRUE(AwaitReconnecting(1));
    };
    const int quickest = QuickestClose(prepare, [&] { fillers.reset(); });
    EXPECT_LT(quickest, nBelowASecond);
}

TEST_F(Close, IsQuickInThePauseBeforeAReconnection)
{
    const int quickest = QuickestClose([this] {
        peer.SwitchOff();
        peer.Close();
        ASSERT_TRUE(AwaitReconnecting(8)); // then it waits for a second
    });
    EXPECT_LT(quickest, nBelowASecond);
    EXPECT_EQ(1u, log.Debug(1, "tcVXCamera_Ethernet::MonitorThread Exit").size());
}

// Fills the way to the camera until it takes nothing for a while, so that the next message stalls.
static void FillSendBuffer(int descriptor)
{
    const std::string bytes(65536, 'x');
    auto last = steady_clock::now();
    EXPECT_TRUE(WaitUntil([&] {
        if (send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
            last = steady_clock::now();
        }
        return ElapsedMs(last) > 100;
    }));
}

TEST_F(Close, IsQuickWhileTheMonitorsMessageIsStalled)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    camera->EnableNoOps(1, 1);
    FillSendBuffer(peer.ClientDescriptor());
    log.Clear();
    ASSERT_TRUE(log.AwaitDebug(1, "EnableNoOps 1 messages at 1 ms per message"));
    EXPECT_LT(CloseCamera(), gnCloseLimit);
}

static tcVXCamera_Ethernet* spCamera;
static std::atomic<int> sCalls;

TEST_F(Close, IsQuickWhileAMessageOfACallbackIsStalled)
{
    peer.LimitReceiveBuffer(4096);
    Open();
    spCamera = camera.get();
    sCalls = 0;
    camera->SetHeartBeatCallback([](int, tsHeartBeatData*) {
        ++sCalls;
        spCamera->SetTrigger(1);
        ++sCalls;
    });
    FillSendBuffer(peer.ClientDescriptor());
    ASSERT_TRUE(peer.Send(MessageBytes(0x69, "123456")));
    ASSERT_TRUE(WaitUntil([] { return sCalls == 1; }));
    EXPECT_LT(CloseCamera(), gnCloseLimit);
    EXPECT_EQ(2, sCalls);
}

TEST_F(Close, LeavesTheCallersImageAlone)
{
    Open();
    std::vector<unsigned short> image(16 * 32, 7);
    ASSERT_EQ(0, camera->ReadCCDArea(image.data(), 1, 0));
    ASSERT_EQ(0x36u, IdOf(peer.ReadMessage()));
    CloseCamera();
    const std::string head("\1\1\1\0\1\0\0\0\0\0\x1f\0\0\0\0\0", 16);
    peer.Send(MessageBytes(0x66, head + std::string(64, 'x')));
    EXPECT_THAT(image, testing::Each(7));
}
