// Readouts over a connection.
#include "SimClient.h"
#include "readouts_support.h"
#include "tcSimServer.h"

TEST(SimReadouts, SendTheWholeSensorRowByRow)
{
    tsRig rig;
    const tsArrivedFrame frame = rig.Take();
    ASSERT_TRUE(frame.complete);
    EXPECT_EQ(frame.packets, gnRows);
    EXPECT_EQ(frame.total, gnRows);
    EXPECT_EQ(frame.rows, gnRows);
    EXPECT_EQ(frame.lastColumn, gnColumns - 1u);
    EXPECT_EQ(frame.id, ansPixels16.id);
    EXPECT_EQ(frame.imageType, 0);
    EXPECT_TRUE(frame.lastFlag);
    EXPECT_TRUE(frame.flagsAgree);
    EXPECT_TRUE(frame.numbersInOrder);
    EXPECT_NEAR(static_cast<double>(frame.sum) / (gnRows * gnColumns), 1000, 1);
}

TEST(SimReadouts, TellWhatWasSent)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetExposure, {20});
    const tsArrivedFrame frame = rig.Take();
    const std::vector<tsSimFrame> frames = rig.server.Frames(); // no waiting: it is there already
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].readout, 1u);
    EXPECT_EQ(frames[0].frame, 1u);
    EXPECT_EQ(frames[0].rows, gnRows);
    EXPECT_EQ(frames[0].columns, gnColumns);
    EXPECT_EQ(frames[0].bits, 16u);
    EXPECT_EQ(frames[0].pixelSum, frame.sum);
    EXPECT_EQ(frames[0].minimum, *std::min_element(frame.pixels.begin(), frame.pixels.end()));
    EXPECT_EQ(frames[0].maximum, *std::max_element(frame.pixels.begin(), frame.pixels.end()));
    EXPECT_EQ(frames[0].packets, frame.packets);
    EXPECT_EQ(frames[0].exposure, 0.02);
    EXPECT_EQ(frames[0].temperature, 20.0);
    EXPECT_TRUE(frames[0].complete);
    EXPECT_TRUE(frames[0].lastFrame);
    EXPECT_FALSE(frames[0].aborted);
    EXPECT_EQ(frame.statistic, frame.sum / (gnRows * gnColumns));
}

TEST(SimReadouts, CarrySensorCoordinatesOfTheArea)
{
    tsRig rig;
    rig.Diagonal();
    rig.client.SendCommand(cmdReadCCDArea, {10, 20, 30, 5, 1, 0});
    const tsArrivedFrame frame = rig.client.ReceiveFrame();
    EXPECT_EQ(frame.rows, 5u);
    EXPECT_EQ(frame.firstRow, 20u);
    EXPECT_EQ(frame.lastRow, 24u);
    EXPECT_EQ(frame.firstColumn, 10u);
    EXPECT_EQ(frame.lastColumn, 39u);
    ASSERT_EQ(frame.pixels.size(), 150u);
    EXPECT_EQ(frame.pixels.front(), 30u);
    EXPECT_EQ(frame.pixels.back(), 24u + 39u);
}

TEST(SimReadouts, FlagOnlyTheFinalFrameAsLast)
{
    tsRig rig;
    rig.Read(4);
    for (int i = 1; i <= 4; ++i) {
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        ASSERT_TRUE(frame.complete);
        EXPECT_EQ(frame.lastFlag, i == 4);
        EXPECT_TRUE(frame.flagsAgree);
        EXPECT_EQ(rig.server.Frames().at(static_cast<size_t>(i - 1)).pixelSum, frame.sum);
        EXPECT_EQ(rig.server.Frames().at(static_cast<size_t>(i - 1)).frame,
                  static_cast<uint32_t>(i));
    }
    EXPECT_TRUE(rig.client.Settle().empty());
}

TEST(SimReadouts, DifferInTheirNoiseButRepeatOnAnotherCameraOfTheSameSeed)
{
    tsRig first, second;
    const tsArrivedFrame a1 = first.Take(), a2 = first.Take();
    const tsArrivedFrame b1 = second.Take(), b2 = second.Take();
    EXPECT_NE(a1.pixels, a2.pixels);
    EXPECT_EQ(a1.pixels, b1.pixels);
    EXPECT_EQ(a2.pixels, b2.pixels);
    tsSimOptions other = Options();
    other.seed = 2;
    tsRig third(other);
    EXPECT_NE(third.Take().pixels, a1.pixels);
}

TEST(SimReadouts, GoOnWithoutAFrameCountUntilAborted)
{
    tsRig rig;
    rig.Read(0);
    for (int i = 0; i < 20; ++i) {
        const tsArrivedFrame frame = rig.client.ReceiveFrame();
        ASSERT_TRUE(frame.complete);
        EXPECT_FALSE(frame.lastFlag);
    }
    rig.client.SendCommand(cmdAbortRead);
    rig.client.Settle();
    EXPECT_TRUE(rig.Take().lastFlag) << "and the next readout starts afresh";
}

TEST(SimReadouts, StopAtAPacketBoundaryWhenAborted)
{
    tsSimOptions options = Options();
    options.lineRate = 10; // six seconds for the frame
    tsRig rig(options);
    rig.Diagonal();
    rig.Read();
    ASSERT_EQ(rig.client.Receive().id, ansPixels16.id);
    rig.client.SendCommand(cmdAbortRead);
    const size_t more = rig.client.Settle().size();
    EXPECT_LT(more, gnRows / 2u);
    const tsSimFrame frame = rig.server.Frames().back();
    EXPECT_TRUE(frame.aborted);
    EXPECT_FALSE(frame.complete);
    EXPECT_EQ(frame.packets, 1 + more);
    uint64_t sum = 0;
    for (uint32_t row = 0; row < frame.packets; ++row) {
        sum += row * gnColumns + gnColumns * (gnColumns - 1) / 2;
    }
    EXPECT_EQ(frame.pixelSum, sum) << "of the rows that went out";
    rig.client.SendCommand(cmdReadCCDArea, {0, 0, 5, 2, 1, 0});
    EXPECT_TRUE(rig.client.ReceiveFrame().complete);
}

TEST(SimReadouts, CanBeAbortedDuringTheExposure)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetExposure, {3600000});
    rig.Read();
    rig.client.SendCommand(cmdAbortRead);
    EXPECT_TRUE(rig.client.Settle().empty());
    EXPECT_TRUE(rig.server.Frames().empty());
    rig.client.SendCommand(cmdSetExposure, {0});
    EXPECT_TRUE(rig.Take().complete);
}

TEST(SimReadouts, RefuseASecondOneMeanwhile)
{
    tsRig rig;
    rig.client.SendCommand(cmdSetExposure, {3600000});
    rig.Read();
    rig.client.SendCommand(cmdReadCCDBinned, {1, 0, {}});
    const auto messages = rig.client.Settle();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].id, ansCameraError.id);
    EXPECT_EQ(messages[0].payload[0], 2);
    EXPECT_EQ(messages[0].payload[1], 1);
    EXPECT_STREQ(reinterpret_cast<const char*>(messages[0].payload.data() + 2),
                 "a readout is running");
}

TEST(SimReadouts, TakeTheExposuresTime)
{
    tsSimOptions options = Options();
    options.timeScale = 100;
    tsRig rig(options);
    rig.client.SendCommand(cmdSetExposure, {10000});
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(rig.Take().complete);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken.count(), 0.099) << "10 s of camera time at a hundred times the speed";
    EXPECT_LT(taken.count(), 8.0);
}

TEST(SimReadouts, AnswerAndBeatWhileTheyExposeAndSend)
{
    tsSimOptions options = Options();
    options.heartbeatSeconds = 0.01;
    options.lineRate = 200; // a third of a second for the frame
    tsRig rig(options);
    rig.Read();
    ASSERT_EQ(rig.client.Await(ansPixels16.id).id, ansPixels16.id);
    rig.client.SendCommand(cmdGetExposureTime);
    int packets = 1, heartbeats = 0, answers = 0;
    uint8_t sequence = 0;
    bool inOrder = true, first = true;
    while (packets < gnRows) {
        const tsReceived message = rig.client.Receive();
        ASSERT_NE(message.id, 0u);
        inOrder &= first || message.sequence == static_cast<uint8_t>(sequence + 1);
        first = false;
        sequence = message.sequence;
        packets += message.id == ansPixels16.id;
        heartbeats += message.id == ansHeartBeat.id;
        answers += message.id == ansExposure.id;
    }
    EXPECT_EQ(answers, 1);
    EXPECT_GE(heartbeats, 3);
    EXPECT_TRUE(inOrder);
}

TEST(SimReadouts, KeepTheLineRate)
{
    tsSimOptions options = Options();
    options.lineRate = 320;
    tsRig rig(options);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(rig.Take().complete);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken.count(), 0.18) << "64 rows at 320 a second, less one burst";
    EXPECT_LT(taken.count(), Within(2.0));
}

TEST(SimReadouts, SplitRowsThatAreTooWide)
{
    tsSimOptions options = Options();
    options.columns = 9000;
    options.rows = 3;
    tsRig rig(options);
    rig.Diagonal();
    const tsArrivedFrame frame = rig.Take();
    EXPECT_EQ(frame.packets, 6u);
    EXPECT_EQ(frame.rows, 3u);
    EXPECT_EQ(frame.lastColumn, 8999u);
    ASSERT_EQ(frame.pixels.size(), 27000u);
    EXPECT_EQ(frame.pixels[26999], 2u + 8999u);
}

TEST(SimReadouts, KeepTheMost64Frames)
{
    tsRig rig;
    rig.client.SendCommand(cmdReadCCDArea, {0, 0, 1, 1, 70, 0});
    for (int i = 0; i < 70; ++i) {
        ASSERT_TRUE(rig.client.ReceiveFrame().complete);
    }
    const auto frames = rig.server.Frames();
    ASSERT_EQ(frames.size(), 64u);
    EXPECT_EQ(frames.front().frame, 7u);
    EXPECT_EQ(frames.back().frame, 70u);
    EXPECT_EQ(rig.server.Statistics().framesComplete, 70u);
}
