// Everything about a camera but its pictures.
#include "system_support.h"

using testing::HasSubstr;

TEST_F(Camera, SendsHeartBeats)
{
    tsSimOptions options = Options();
    options.heartbeatSeconds = 0.02;
    options.ambient = 12.5;
    Open(options);
    ASSERT_TRUE(WaitUntil([&] { return events.HeartBeats().size() >= 3; }));
    const auto beat = events.HeartBeats()[0];
    EXPECT_EQ(handle, beat.handle);
    EXPECT_EQ(125, static_cast<int16_t>(beat.data.CCDTemp));
    EXPECT_GT(beat.data.BoardTemp, beat.data.CCDTemp);
    short sensor = 0, board = 0;
    EXPECT_EQ(0, VXGetCCDTemp(handle, &sensor));
    EXPECT_EQ(0, VXGetBoardTemp(handle, &board));
    EXPECT_EQ(beat.data.CCDTemp, sensor);
    EXPECT_EQ(beat.data.BoardTemp, board);
    EXPECT_GE(sim->Statistics().heartbeats, 3u);
}

TEST_F(Camera, TellsWhatItDid)
{
    tsSimOptions options = Options();
    options.heartbeatSeconds = 0.02;
    Open(options);
    ASSERT_TRUE(WaitUntil([&] { return events.HeartBeats().size() >= 3; }));
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, 3, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    ASSERT_EQ(0, VXReadCCDBinned(handle, nullptr, nullptr, 2, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    long exposure = 0;
    ASSERT_EQ(0, VXSetExposure(handle, 100000000)); // refused
    ASSERT_EQ(0, VXGetExposureTime(handle, &exposure));

    const tsStatistics f = Figures();
    EXPECT_GE(f.HeartBeats, 3u);
    EXPECT_EQ(1u, f.CameraErrors);
    EXPECT_EQ(2u, f.RequestsAnswered); // the handshake's, too
    EXPECT_EQ(2u, f.RequestsSent);
    EXPECT_EQ(7u, f.MessagesSent);
    EXPECT_EQ(5u, f.FramesRequested);
    EXPECT_EQ(5u, f.FramesComplete);
    EXPECT_EQ(3u * nRows + 2u * nRows / 2, f.PacketsExpected);
    EXPECT_EQ(f.PacketsExpected, f.PacketsReceived);
    EXPECT_EQ(0u, f.PacketsMissing + f.PacketsDuplicate + f.BytesSkipped + f.MessagesBad);
    EXPECT_GE(f.MessagesReceived, f.PacketsReceived + f.HeartBeats + 3);
    EXPECT_EQ(12u * 7 + 8 + 4 + 12 + 12 + 4, f.BytesSent);
    EXPECT_GE(f.BytesReceived, sim->Statistics().framesComplete * nRows * nColumns);
    EXPECT_EQ(0u, f.ConnectionsLost + f.Reconnects);
}

TEST_F(Camera, ReportsWhatItRefuses)
{
    Open();
    ASSERT_EQ(0, VXSetExposure(handle, 100000000));
    ASSERT_TRUE(WaitUntil([&] { return events.Errors().size() == 1; }));
    const auto error = events.Errors()[0];
    EXPECT_EQ(handle, error.handle);
    EXPECT_EQ(3, error.code);
    EXPECT_EQ(0x20, error.subCode);
    EXPECT_THAT(error.text, HasSubstr("SetExposure refused"));
    long exposure = 0;
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure));
    EXPECT_EQ(1000, exposure);
    EXPECT_EQ(1u, sim->Statistics().cameraErrors);
}

TEST_F(Camera, ReportsAnAreaOutsideTheSensor)
{
    Open();
    ASSERT_EQ(0, VXSetCCDArea(handle, 90, 0, 10, 10));
    ASSERT_TRUE(WaitUntil([&] { return events.Errors().size() == 1; }));
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, 1, 0));
    ASSERT_TRUE(WaitUntil([&] { return events.Errors().size() == 2; }));
    EXPECT_EQ(0x36, events.Errors()[1].subCode);
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_EQ(0, VXisCameraReady(handle));
}

TEST_F(Camera, AnswersWithoutAPoll)
{
    Open();
    int quick = 0;
    for (long i = 0; i < 200; ++i) {
        long exposure = 0;
        const auto start = steady_clock::now();
        ASSERT_EQ(0, VXSetExposure(handle, i));
        ASSERT_EQ(0, VXGetExposureTime(handle, &exposure));
        ASSERT_EQ(i, exposure);
        if (ElapsedMs(start) < 50 / 2) ++quick;
    }
    EXPECT_GE(quick, 40) << "a poll of 50 ms would be felt";
}

TEST_F(Camera, SendsUserDefinedMessagesBack)
{
    Open();
    std::string message("\0\0\5\0\0\0\0\0\0\xC7\0\0hello", 17);
    ASSERT_EQ(0, VXSendUserDefined(handle, message.data()));
    ASSERT_TRUE(WaitUntil([&] { return events.Messages().size() == 1; }));
    const auto answer = events.Messages()[0];
    EXPECT_EQ(handle, answer.handle);
    ASSERT_EQ(17u, answer.bytes.size());
    EXPECT_EQ(std::string("\xC7\0\0hello", 8), answer.bytes.substr(9));
}

TEST_F(Camera, ServesOneClientAtATime)
{
    Open();
    const auto start = steady_clock::now();
    EXPECT_EQ(-1, VXOpenENetCamera("127.0.0.1", port)); // for want of an answer, or of the link
    EXPECT_LT(ElapsedMs(start), 15000);
    EXPECT_GE(sim->Statistics().refused, 1u);
    EXPECT_EQ(1u, sim->Statistics().connections);
    long exposure = 0;
    EXPECT_EQ(0, VXGetExposureTime(handle, &exposure)); // the first one is still served
    ASSERT_EQ(0, VXCloseCamera(handle));
    ASSERT_TRUE(WaitUntil([&] { return !sim->Statistics().connected; }));
    handle = VXOpenENetCamera("127.0.0.1", port);
    EXPECT_GE(handle, 0);
}

TEST_F(Camera, IsFoundAgainAfterARestart)
{
    Open();
    sim->Stop();
    tsSimOptions options = Options();
    options.port = port;
    sim = std::make_unique<tcSimServer>(options);
    sim->Start();
    ASSERT_TRUE(WaitUntil([&] { return sim->Statistics().connected; }));
    long exposure = 0;
    EXPECT_TRUE(WaitUntil([&] { return VXGetExposureTime(handle, &exposure) == 0; }));
    const auto image = Expose(1);
    EXPECT_EQ(sim->Frames().back().pixelSum, image.Sum(0, 0, nRows, nColumns));
    EXPECT_EQ(Figures().Reconnects, Figures().ConnectionsLost);
    EXPECT_GE(Figures().Reconnects, 1u);
}

TEST_F(Camera, IsOneOfMany)
{
    Open();
    constexpr int others = 3;
    std::vector<std::unique_ptr<tcSimServer>> sims;
    std::vector<int> handles;
    std::vector<tcImage<uint16_t>> images;
    for (int i = 0; i < others; ++i) {
        tsSimOptions options = Options();
        options.seed = 2 + static_cast<uint64_t>(i);
        sims.push_back(std::make_unique<tcSimServer>(options));
        handles.push_back(VXOpenENetCamera("127.0.0.1", sims.back()->Start()));
        ASSERT_GE(handles.back(), 0);
        images.emplace_back(nRows, nColumns);
        ASSERT_EQ(0, VXSetExposure(handles.back(), 20));
    }
    for (size_t i = 0; i < others; ++i)
        ASSERT_EQ(0, VXReadCCDArea(handles[i], images[i].Data(), 1, 0));
    for (size_t i = 0; i < others; ++i) {
        EXPECT_EQ(0, VXWaitCompletion(handles[i], gnPatienceMs));
        EXPECT_EQ(sims[i]->Frames().back().pixelSum, images[i].Sum(0, 0, nRows, nColumns));
        EXPECT_EQ(0, VXCloseCamera(handles[i]));
    }
    EXPECT_EQ(0, VXisCameraReady(handle));
}

TEST_F(Camera, ClosesQuicklyWhileItReads)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 0, 0));
    ASSERT_TRUE(WaitUntil([&] { return events.Shots().size() >= 5; }));
    const auto start = steady_clock::now();
    EXPECT_EQ(0, VXCloseCamera(handle));
    EXPECT_LT(ElapsedMs(start), Within(900));
    EXPECT_EQ(-3, VXReadCCDArea(handle, image.Data(), 1, 0));
    handle = -1;
}
