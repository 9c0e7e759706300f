#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// ---- Starting

TEST_F(Readout, OfAnAreaSendsAreaFramesAndFlags)
{
    uint16_t image[64];
    mCamera.SetCCDArea(1, 2, 3, 4);
    EXPECT_EQ(mCamera.ReadCCDArea(image, 5, 0x8001), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x36U);
    EXPECT_EQ(mCamera.LastSent().payload,
              tcPayload().U16(1).U16(2).U16(3).U16(4).U16(5).U16(0x8001).Take());
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, OfBinnedImagesSendsFramesAndMode)
{
    EXPECT_EQ(mCamera.ReadCCDBinned(nullptr, nullptr, 7, 9), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x37U);
    EXPECT_EQ(mCamera.LastSent().payload, tcPayload().U16(7).U16(9).U32(0).U32(0).Take());
    mCamera.AbortRead();
    EXPECT_EQ(mCamera.ReadCCDMaskBinned(nullptr, nullptr, 7, 9), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x45U);
    EXPECT_EQ(mCamera.LastSent().payload, tcPayload().U16(7).U16(9).Take());
}

TEST_F(Readout, OfABusyAreaFailsWithAnErrorLineAndSendsNothing)
{
    mCamera.TellGeometry(4, 8);
    tcImage running(e16Bit, 32), refused(e16Bit, 32);
    EXPECT_EQ(Read(e16Bit, running), 0);
    mCamera.ForgetRecords();
    EXPECT_EQ(Read(e16Bit, refused), -1);
    EXPECT_EQ(mCamera.SentCount(), 1U);
    EXPECT_EQ(mCamera.Records(), std::vector<tsLogRecord>{ErrorRecord(
                                     "tcVXCamera::ReadCCDArea already in progress! 1,0")});
    FeedFrame(e16Bit, true);
    EXPECT_EQ(running.At(0), 1U);
    EXPECT_EQ(refused.Touched(), 0U);
}

TEST_F(Readout, OfBusyBinnedImagesFailsWithoutAWord)
{
    unsigned short maximum = 77;
    EXPECT_EQ(mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0), 0);
    mCamera.ForgetRecords();
    EXPECT_EQ(mCamera.ReadCCDBinned(nullptr, &maximum, 1, 0), -1);
    EXPECT_EQ(mCamera.ReadCCDMaskBinned(nullptr, &maximum, 1, 0), -1);
    EXPECT_EQ(maximum, 77);
    EXPECT_EQ(mCamera.SentCount(), 1U);
    EXPECT_TRUE(mCamera.Records().empty());
}

TEST_F(Readout, OfBothWidthsRunsSideBySide)
{
    mCamera.TellGeometry(4, 8);
    tcImage area(e16Bit, 32), binned(e32Bit, 32);
    EXPECT_EQ(Read(e16Bit, area), 0);
    EXPECT_EQ(Read(e32Bit, binned), 0);
    EXPECT_EQ(mCamera.numOpsPending(), 2);
    FeedFrame(e32Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    EXPECT_EQ(binned.At(0), 1U);
    EXPECT_EQ(area.Touched(), 0U);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(area.At(0), 1U);
}

TEST_F(Readout, ThatCannotBeSentIsReportedAndEndsByItsTimeout)
{
    mCamera.RefuseToSend(true);
    EXPECT_EQ(mCamera.ReadCCDArea(nullptr, 1, 0), 0);
    EXPECT_EQ(mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0), 0);
    EXPECT_EQ(mCamera.Errors().size(), 2U);
    EXPECT_EQ(mCamera.numOpsPending(), 2);
    mCamera.Tick(200);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

// ---- Buffers

TEST_F(Readout, WithoutABufferUsesTheCamerasOwn)
{
    EXPECT_NE(Initialize(4, 8), 0);
    for (teWidth width : {e16Bit, e32Bit}) {
        gaFrames.clear();
        EXPECT_EQ(ReadOwn(width), 0);
        tsPixels pixels{width, 1, 1, 3, 4, 7, true};
        Feed(mCamera, pixels);
        ASSERT_EQ(gaFrames.size(), 1U);
        ASSERT_NE(gaFrames[0].ImageBuffer, nullptr);
        uint32_t value = 0;
        memcpy(&value, static_cast<char*>(gaFrames[0].ImageBuffer) + 31 * BytesOf(width),
               BytesOf(width));
        EXPECT_EQ(value, 4U);
    }
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Readout, HasNoBufferOfItsOwnWhereTheGeometryIsUnknown)
{
    for (const auto& [rows, columns] : {std::pair<uint16_t, uint16_t>{65535, 8}, {4, 65535}}) {
        tcTestCamera camera;
        gaFrames.clear();
        camera.SetImageDataCallback(KeepFrame);
        camera.AnswerTo(0x34, 0x64, tcTestCamera::HardwareBytes(rows, columns));
        EXPECT_NE(camera.Initialize(), 0);
        EXPECT_EQ(camera.ReadCCDArea(nullptr, 1, 0), 0);
        Feed(camera, {e16Bit, 1, 1, 0, 0, 0, true});
        ASSERT_EQ(gaFrames.size(), 1U);
        EXPECT_EQ(gaFrames[0].ImageBuffer, nullptr);
        EXPECT_EQ(camera.Errors(), std::vector<std::string>{
                                       "tcVXCamera::CompileMessage16 NULL Image Buffer Pointer!"});
        EXPECT_EQ(camera.numOpsPending(), 0);
    }
}

TEST_F(Readout, ReportsFramesWithoutABufferAtEveryWidth)
{
    for (teWidth width : gaWidths) {
        gaFrames.clear();
        mCamera.ForgetRecords();
        FeedFrame(width, true);
        EXPECT_EQ(mCamera.Errors(),
                  std::vector<std::string>{std::string("tcVXCamera::") + NameOf(width) +
                                           " NULL Image Buffer Pointer!"});
        ASSERT_EQ(gaFrames.size(), 1U);
        EXPECT_EQ(gaFrames[0].ImageBuffer, nullptr);
        EXPECT_EQ(gaFrames[0].FrameIndex, width + 1) << "counted all the same";
    }
}

TEST_F(Readout, OpeningFailsWithoutAnAnswer)
{
    mCamera.RefuseToSend(true);
    EXPECT_EQ(mCamera.Initialize(), 0);
    mCamera.RefuseToSend(false);
    mCamera.SetScript([&](const tsSentMessage&) { mCamera.Tick(100); });
    EXPECT_EQ(mCamera.Initialize(), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x34U);
}

TEST_F(Readout, OpeningASecondTimeKeepsLatePacketsInMemoryOfTheCamera)
{
    EXPECT_NE(Initialize(4, 8), 0);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedFrame(e16Bit, true);
    const void* before = gaFrames.back().ImageBuffer;
    EXPECT_NE(Initialize(40, 80), 0);
    gaFrames.clear();
    FeedFrame(e16Bit, true);
    EXPECT_NE(Initialize(2, 2), 0);
    Feed(mCamera, {e16Bit, 1, 1, 39, 0, 79, true});
    ASSERT_EQ(gaFrames.size(), 2U);
    EXPECT_NE(gaFrames[0].ImageBuffer, nullptr);
    EXPECT_NE(gaFrames[0].ImageBuffer, before) << "that one is gone";
}

TEST_F(Readout, OwnBufferIsNeverOverrunWhateverTheCameraTellsLater)
{
    EXPECT_NE(Initialize(4, 8), 0);
    for (const auto& [rows, columns] :
         {std::pair<uint16_t, uint16_t>{400, 800}, {65535, 65535}, {1, 1}, {2, 3000}}) {
        mCamera.TellGeometry(rows, columns);
        for (teWidth width : {e16Bit, e32Bit}) {
            EXPECT_EQ(ReadOwn(width), 0);
            for (unsigned row : {0, 3, 4, 100, 65535}) {
                Feed(mCamera, {width, 1, 2, row, 0, 2000, false});
                Feed(mCamera, {width, 1, 2, row, 65000, 65535, false});
            }
            FeedFrame(width, true);
        }
    }
}

// ---- Finished frames

TEST_F(Readout, DescribesA16BitFrame)
{
    mCamera.TellGeometry(40, 80);
    mCamera.SetCCDArea(11, 12, 13, 14);
    tcImage image(e16Bit, 3200);
    Read(e16Bit, image, 2);
    tsPixels pixels{e16Bit, 5, 5, 4, 10, 29, false, 2, 1234};
    Feed(mCamera, pixels);
    ASSERT_EQ(gaFrames.size(), 1U);
    EXPECT_EQ(gnFrameHandle, mCamera.GetHandle());
    const tsImageData& frame = gaFrames[0];
    EXPECT_EQ(frame.ImageType, 3);
    EXPECT_EQ(frame.Rows, 5);
    EXPECT_EQ(frame.Columns, 20);
    EXPECT_EQ(frame.AreaFirstColumn, 11);
    EXPECT_EQ(frame.AreaFirstRow, 12);
    EXPECT_EQ(frame.Extra1, 0);
    EXPECT_EQ(frame.Extra2, 0);
    EXPECT_EQ(frame.SensorColumns, 80);
    EXPECT_EQ(frame.SensorRows, 40);
    EXPECT_EQ(frame.FrameIndex, 1);
    EXPECT_EQ(frame.FramesDelivered, 1U);
    EXPECT_EQ(frame.ImageBuffer, image.Pointer());
    EXPECT_EQ(frame.Statistic, 1234);
}

TEST_F(Readout, DescribesA32BitFrame)
{
    mCamera.TellGeometry(40, 80);
    mCamera.SetCCDArea(11, 12, 13, 14);
    tcImage image(e32Bit, 3200);
    Read(e32Bit, image, 2);
    tsPixels pixels{e32Bit, 5, 5, 4, 10, 29, false, 2, 1234, 600, 700};
    Feed(mCamera, pixels);
    ASSERT_EQ(gaFrames.size(), 1U);
    const tsImageData& frame = gaFrames[0];
    EXPECT_EQ(frame.ImageType, 1);
    EXPECT_EQ(frame.Rows, 5);
    EXPECT_EQ(frame.Columns, 20);
    EXPECT_EQ(frame.AreaFirstColumn, 0);
    EXPECT_EQ(frame.AreaFirstRow, 0);
    EXPECT_EQ(frame.Extra1, 600);
    EXPECT_EQ(frame.Extra2, 700);
    EXPECT_EQ(frame.SensorColumns, 80);
    EXPECT_EQ(frame.SensorRows, 40);
    EXPECT_EQ(frame.FrameIndex, 1);
    EXPECT_EQ(frame.FramesDelivered, 1U);
    EXPECT_EQ(frame.ImageBuffer, image.Pointer());
    EXPECT_EQ(frame.Statistic, 1234);
}

TEST_F(Readout, DescribesAn8BitFrame)
{
    mCamera.TellGeometry(40, 80);
    mCamera.SetCCDArea(11, 12, 13, 14);
    tsPixels pixels{e8Bit, 5, 5, 4, 10, 29, false, 3, 1234};
    Feed(mCamera, pixels);
    ASSERT_EQ(gaFrames.size(), 1U);
    const tsImageData& frame = gaFrames[0];
    EXPECT_EQ(frame.ImageType, 2);
    EXPECT_EQ(frame.Rows, 40);
    EXPECT_EQ(frame.Columns, 80);
    EXPECT_EQ(frame.AreaFirstColumn, 11);
    EXPECT_EQ(frame.AreaFirstRow, 12);
    EXPECT_EQ(frame.Extra1, 0);
    EXPECT_EQ(frame.Extra2, 0);
    EXPECT_EQ(frame.SensorColumns, 80);
    EXPECT_EQ(frame.SensorRows, 40);
    EXPECT_EQ(frame.FrameIndex, 1);
    EXPECT_EQ(frame.FramesDelivered, 1U);
    EXPECT_EQ(frame.ImageBuffer, nullptr);
    EXPECT_EQ(frame.Statistic, 0);
}

TEST_F(Readout, MapsTheImageType)
{
    const std::pair<unsigned, int> types[] = {{0, 0}, {1, 1}, {2, 3}, {3, 2},
                                              {4, 4}, {5, 5}, {6, 4}, {255, 4}};
    for (const auto& [code, type] : types) {
        for (teWidth width : gaWidths) {
            gaFrames.clear();
            Feed(mCamera, {width, 1, 1, 0, 0, 0, false, code});
            ASSERT_EQ(gaFrames.size(), 1U);
            EXPECT_EQ(gaFrames[0].ImageType, width == e32Bit ? 1 : type) << code;
        }
    }
}

TEST_F(Readout, DeliversAFrameWithItsNumberedLastPacketOnly)
{
    for (teWidth width : gaWidths) {
        gaFrames.clear();
        Feed(mCamera, {width, 1, 3, 0, 0, 0, true});
        Feed(mCamera, {width, 2, 3, 0, 0, 0, true});
        EXPECT_TRUE(gaFrames.empty());
        Feed(mCamera, {width, 3, 3, 0, 0, 0, true});
        EXPECT_EQ(gaFrames.size(), 1U);
    }
}

TEST_F(Readout, CompletesWithTheLastPacketOfTheFinalFrame)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        tcImage image(width, 32);
        Read(width, image, 2);
        FeedFrame(width, false);
        EXPECT_EQ(mCamera.numOpsPending(), 1);
        Feed(mCamera, {width, 1, 2, 0, 0, 0, true});
        EXPECT_EQ(mCamera.numOpsPending(), 1);
        Feed(mCamera, {width, 2, 2, 0, 0, 0, true});
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        FeedFrame(width, true); // a surplus frame completes nothing
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    }
}

TEST_F(Readout, CountsFramesWithinTheReadoutFromOne)
{
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image, 3);
    for (int i = 0; i < 5; ++i) {
        FeedFrame(e16Bit, i == 2);
    }
    ASSERT_EQ(gaFrames.size(), 5U);
    const int indices[] = {1, 2, 3, 1, 2};
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(gaFrames[i].FrameIndex, indices[i]);
        EXPECT_EQ(gaFrames[i].FramesDelivered, i + 1);
    }
    Read(e16Bit, image, 3);
    FeedFrame(e16Bit, false);
    EXPECT_EQ(gaFrames[5].FrameIndex, 1);
    EXPECT_EQ(gaFrames[5].FramesDelivered, 6U);
}

TEST_F(Readout, CountsFramesOnWithoutALimit)
{
    tcImage image(e32Bit, 2048);
    Read(e32Bit, image, 0);
    for (int i = 1; i <= 300; ++i) {
        FeedFrame(e32Bit, false);
        ASSERT_EQ(gaFrames.back().FrameIndex, i);
    }
}

TEST_F(Readout, TakesANegativeNumberOfFramesAsItsLow16Bits)
{
    Read(e16Bit, *std::make_unique<tcImage>(e16Bit, 2048), -1);
    mCamera.AbortRead();
    EXPECT_EQ(mCamera.Sent()[0].Short(4), 65535);
    for (int i = 1; i <= 65536; ++i) {
        FeedFrame(e16Bit, false);
        if (i % 4096 == 0) mCamera.ForgetRecords();
    }
    EXPECT_EQ(gaFrames[65534].FrameIndex, 65535);
    EXPECT_EQ(gaFrames[65535].FrameIndex, 1);
}

TEST_F(Readout, DeliversToNobodyWithoutACallback)
{
    mCamera.SetImageDataCallback(nullptr);
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image, 2);
    FeedFrame(e16Bit, false);
    unsigned index = 0;
    mCamera.PercentComplete(&index);
    EXPECT_EQ(index, 2U);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

// ---- Maximum of 32-bit frames

TEST_F(Readout, FollowsTheMaximumOf32BitFrames)
{
    unsigned short maximum = 999;
    tcImage image(e32Bit, 2048);
    for (bool masked : {false, true}) {
        maximum = 999;
        if (masked) mCamera.ReadCCDMaskBinned(image.Longs(), &maximum, 0, 0);
        if (!masked) mCamera.ReadCCDBinned(image.Longs(), &maximum, 0, 0);
        EXPECT_EQ(maximum, 0);
        Feed(mCamera, {e32Bit, 1, 2, 0, 0, 0, false, 0, 500});
        EXPECT_EQ(maximum, 0) << "only a frame's last packet counts";
        Feed(mCamera, {e32Bit, 2, 2, 0, 0, 0, false, 0, 300});
        EXPECT_EQ(maximum, 300);
        Feed(mCamera, {e32Bit, 2, 2, 0, 0, 0, false, 0, 200});
        EXPECT_EQ(maximum, 300);
        Feed(mCamera, {e32Bit, 2, 2, 0, 0, 0, true, 0, 65535});
        EXPECT_EQ(maximum, 65535);
        maximum = 5;
        Feed(mCamera, {e32Bit, 2, 2, 0, 0, 0, true, 0, 65535});
        EXPECT_EQ(maximum, 5) << "the readout is over";
    }
}

// ---- 8-bit frames

TEST_F(Readout, IsCompletedByAFinal8BitFrameInTheSumOfWhatIsPending)
{
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image);
    FeedFrame(e8Bit, false);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    FeedFrame(e8Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    EXPECT_EQ(VXisCameraReady(mCamera.GetHandle()), 0);
    FeedFrame(e8Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 0) << "as many as item 6 needs, and no more";
    FeedFrame(e16Bit, true);
    EXPECT_EQ(image.Touched(), 0U) << "the readout was over";
}

TEST_F(Readout, RecoversFrom8BitFramesByWaitCompletion)
{
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image);
    FeedFrame(e8Bit, true);
    mCamera.Tick(200);
    EXPECT_EQ(mCamera.numOpsPending(), -1);
    mCamera.ForgetRecords();
    EXPECT_EQ(mCamera.WaitCompletion(0), -2);
    EXPECT_EQ(mCamera.Errors(), (std::vector<std::string>{"WaitCompletion timeout event!",
                                                          "WaitCompletion timing out 29"}));
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(Read(e16Bit, image), 0);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, OfAnAreaAnsweredIn8BitsDoesNotSpoilTheNext)
{
    mCamera.TellGeometry(4, 8);
    tcImage image(e16Bit, 32);
    for (int round = 0; round < 4; ++round) {
        Read(e16Bit, image);
        FeedFrame(e8Bit, true);
        EXPECT_EQ(mCamera.WaitCompletion(0), 0);
        if (round % 2 == 1) mCamera.AbortRead();
        ASSERT_EQ(mCamera.numOpsPending(), 0) << "after " << round;
        ASSERT_EQ(Read(e16Bit, image), 0);
        EXPECT_EQ(mCamera.numOpsPending(), 1) << "waits for its own frame";
        image.Set(0, 0);
        FeedFrame(e16Bit, true);
        EXPECT_EQ(image.At(0), 1U);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
    }
    mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, RecoversFrom8BitFramesThatNobodyAskedFor)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.Tick(200);
    FeedFrame(e8Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), -1);
    mCamera.AbortRead();
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Readout, IsNotTouchedBy8BitFramesWhereNoneRan)
{
    FeedFrame(e8Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0);
    FeedFrame(e8Bit, true);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, Of8BitFramesCountsItsIndexWithoutALimit)
{
    mCamera.ReadCCDArea(nullptr, 2, 0);
    for (int i = 1; i <= 5; ++i) {
        FeedFrame(e8Bit, false);
        EXPECT_EQ(gaFrames.back().FrameIndex, i);
    }
}

// ---- Progress

TEST_F(Readout, ProgressIs100WithNothingPending)
{
    unsigned frame = 0;
    EXPECT_EQ(mCamera.PercentComplete(&frame), 100);
    EXPECT_EQ(frame, 1U);
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    mCamera.InitReqStackItem(eItemImage8, 1);
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100) << "8-bit readouts are not considered";
}

TEST_F(Readout, ProgressFollowsThePacketsOfTheFrame)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        tcImage image(width, 2048);
        Read(width, image, 2);
        unsigned frame = 0;
        EXPECT_EQ(mCamera.PercentComplete(&frame), 0);
        EXPECT_EQ(frame, 1U);
        Feed(mCamera, {width, 1, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 33);
        Feed(mCamera, {width, 2, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 66);
        EXPECT_EQ(frame, 1U);
        Feed(mCamera, {width, 3, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 0);
        EXPECT_EQ(frame, 2U);
        Feed(mCamera, {width, 3, 3, 0, 0, 0, true});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 100);
    }
}

TEST_F(Readout, ProgressOfRepeatedPacketsEndsAt100)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (int i = 0; i < 15; ++i) {
        Feed(mCamera, {e16Bit, 1, 3});
        EXPECT_LE(mCamera.PercentComplete(nullptr), 100);
    }
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100);
}

TEST_F(Readout, ProgressIsThatOfTheAreaWhenBothRun)
{
    tcImage area(e16Bit, 2048), binned(e32Bit, 2048);
    Read(e32Bit, binned);
    Read(e16Bit, area);
    Feed(mCamera, {e16Bit, 1, 4, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 25);
    mCamera.AbortRead();
    Read(e32Bit, binned);
    Read(e16Bit, area);
    Feed(mCamera, {e32Bit, 1, 4, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 0) << "nothing is known of the area yet";
}

TEST_F(Readout, ProgressOfNoPacketsAtAllIsZero)
{
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 0, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 0);
}

// ---- Time-outs and abort

TEST_F(Readout, TimeoutStartsAnewWithEveryPacket)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        tcTestCamera camera;
        camera.SetExposure(60000);
        if (width == e16Bit) camera.ReadCCDArea(nullptr, 1, 0);
        if (width == e32Bit) camera.ReadCCDBinned(nullptr, nullptr, 1, 0);
        camera.Tick(799); // the exposure and 20 s
        EXPECT_EQ(camera.numOpsPending(), 1);
        for (int i = 0; i < 3; ++i) {
            Feed(camera, {width, 1, 2, 0, 0, 0, false});
            camera.Tick(199);
            EXPECT_EQ(camera.numOpsPending(), 1);
        }
        camera.Tick();
        EXPECT_EQ(camera.numOpsPending(), 0);
    }
}

TEST_F(Readout, TimeoutBetweenPacketsIsTheOverride)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.OverrideImageTimout(300);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    mCamera.Tick(2);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    mCamera.Tick();
    EXPECT_EQ(mCamera.numOpsPending(), 0);

    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.OverrideImageTimout(-300);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    mCamera.Tick(20000);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, ThatTimedOutNeverTouchesTheCallersBufferAgain)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        gaFrames.clear();
        tcImage image(width, 32);
        unsigned short maximum = 0;
        if (width == e16Bit) mCamera.ReadCCDArea(image.Shorts(), 2, 0);
        if (width == e32Bit) mCamera.ReadCCDBinned(image.Longs(), &maximum, 2, 0);
        mCamera.Tick(200);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        mCamera.ForgetRecords();
        for (int i = 1; i <= 3; ++i) {
            Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
            ASSERT_EQ(gaFrames.size(), static_cast<size_t>(i)) << "but frames are still reported";
            EXPECT_EQ(gaFrames.back().ImageBuffer, nullptr);
            EXPECT_EQ(gaFrames.back().FrameIndex, i) << "and the frame limit is forgotten";
        }
        EXPECT_EQ(mCamera.Errors().size(), 3U);
        EXPECT_EQ(image.Touched(), 0U);
        EXPECT_EQ(maximum, 0);
    }
}

TEST_F(Readout, GivenUpByWaitCompletionNeverTouchesTheCallersBufferAgain)
{
    mCamera.TellGeometry(4, 8);
    tcImage area(e16Bit, 32), binned(e32Bit, 32);
    unsigned short maximum = 0;
    Read(e16Bit, area);
    mCamera.ReadCCDBinned(binned.Longs(), &maximum, 1, 0);
    EXPECT_EQ(mCamera.WaitCompletion(0), -2);
    for (teWidth width : gaWidths) {
        Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
    }
    EXPECT_EQ(area.Touched(), 0U);
    EXPECT_EQ(binned.Touched(), 0U);
    EXPECT_EQ(maximum, 0);
}

TEST_F(Readout, AbortSendsItsMessageAndEndsBothReadouts)
{
    EXPECT_NE(Initialize(4, 8), 0);
    tcImage area(e16Bit, 32), binned(e32Bit, 32);
    unsigned short maximum = 0;
    Read(e16Bit, area);
    mCamera.ReadCCDBinned(binned.Longs(), &maximum, 1, 0);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    mCamera.ForgetRecords();
    EXPECT_EQ(mCamera.AbortRead(), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x4CU);
    EXPECT_TRUE(mCamera.LastSent().payload.empty());
    EXPECT_EQ(mCamera.Records(),
              std::vector<tsLogRecord>{DebugRecord(4, "tcVXCamera::AbortRead Entered")});
    EXPECT_EQ(mCamera.numOpsPending(), 1) << "other requests stay";
    gaFrames.clear();
    for (teWidth width : gaWidths) {
        Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
    }
    EXPECT_EQ(area.Touched(), 0U);
    EXPECT_EQ(binned.Touched(), 0U);
    EXPECT_EQ(maximum, 0);
    EXPECT_EQ(gaFrames.size(), 3U);
    EXPECT_EQ(Read(e16Bit, area), 0);
    EXPECT_EQ(Read(e32Bit, binned), 0);
}

TEST_F(Readout, AbortReturnsTheResultOfTheSendAndEndsTheReadoutsAllTheSame)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.RefuseToSend(true);
    EXPECT_EQ(mCamera.AbortRead(), -1);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Readout, AbortLeavesTheStatusOfAWaitingRequest)
{
    mCamera.SetScript([&](const tsSentMessage& sent) {
        if (sent.id == 0x36) mCamera.AbortRead();
    });
    tcMessage request(0x36, tcPayload().Fill(12, 0));
    tcImage image(e16Bit, 2048);
    EXPECT_EQ(mCamera.SendAndWait(request.get(), eItemImage16, image.Longs(), nullptr, 1), 0);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(image.Touched(), 0U);
}

TEST_F(Readout, CanBeWaitedForLikeAnyRequest)
{
    mCamera.SetScript([&](const tsSentMessage&) { FeedFrame(e16Bit, true); });
    tcMessage request(0x36, tcPayload().Fill(12, 0));
    tcImage image(e16Bit, 2048);
    EXPECT_EQ(mCamera.SendAndWait(request.get(), eItemImage16, image.Longs(), nullptr, 1), 0);
    EXPECT_EQ(image.At(0), 1U);
}

TEST_F(Readout, BufferMayGoAsSoonAsAbortReturns)
{
    mCamera.TellGeometry(8, 64);
    std::atomic<bool> stop{false};
    std::thread receiver([&] {
        for (unsigned row = 0; !stop; ++row) {
            Feed(mCamera, {e16Bit, 1 + row % 8, 8, row % 8, 0, 63, row % 3 == 0});
            if (row % 64 == 0) mCamera.ForgetRecords();
        }
    });
    for (int i = 0; i < 300; ++i) {
        auto image = std::make_unique<uint16_t[]>(8 * 64);
        mCamera.ReadCCDArea(image.get(), 1, 0);
        if (i % 2 == 0) mCamera.AbortRead();
        if (i % 2 == 1) mCamera.WaitCompletion(0);
    }
    stop = true;
    receiver.join();
}

// ---- In the callback

TEST_F(Readout, NextOneMayBeStartedInTheCallback)
{
    static tcTestCamera* camera;
    static uint16_t images[6][2048];
    static int started;
    camera = &mCamera;
    started = 0;
    memset(images, 0, sizeof images);
    mCamera.SetImageDataCallback([](int handle, tsImageData* image) {
        KeepFrame(handle, image);
        EXPECT_EQ(camera->numOpsPending(), 0);
        EXPECT_EQ(camera->PercentComplete(nullptr), 100);
        if (++started == 6) return;
        EXPECT_EQ(camera->ReadCCDArea(images[started], 1, 0), 0);
        EXPECT_EQ(camera->PercentComplete(nullptr), 0);
    });
    mCamera.ReadCCDArea(images[0], 1, 0);
    for (unsigned i = 0; i < 6; ++i) {
        Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, true});
        EXPECT_EQ(mCamera.PercentComplete(nullptr), 50);
        Feed(mCamera, {e16Bit, 2, 2, 0, i, i, true});
    }
    ASSERT_EQ(gaFrames.size(), 6U);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(gaFrames[i].FrameIndex, 1);
        EXPECT_EQ(gaFrames[i].ImageBuffer, images[i]);
        EXPECT_EQ(images[i][i], 1);
    }
    EXPECT_EQ(mCamera.SentCount(), 6U);
    EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Readout, StartedAnewInTheCallbackBeginsAtFrameOne)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData* image) {
        if (image->FramesDelivered != 1) return;
        camera->AbortRead();
        camera->ReadCCDArea(nullptr, 5, 0);
    });
    mCamera.ReadCCDArea(nullptr, 5, 0);
    unsigned index = 0;
    for (unsigned expected : {1, 2, 3}) {
        FeedFrame(e16Bit, false);
        mCamera.PercentComplete(&index);
        EXPECT_EQ(index, expected);
    }
}

TEST_F(Readout, OfTheOtherWidthMayBeStartedInTheCallback)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        if (camera->numOpsPending() == 0) camera->ReadCCDBinned(nullptr, nullptr, 3, 0);
    });
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedFrame(e16Bit, true);
    unsigned index = 0;
    EXPECT_EQ(mCamera.PercentComplete(&index), 0);
    EXPECT_EQ(index, 1U);
    FeedFrame(e32Bit, false);
    mCamera.PercentComplete(&index);
    EXPECT_EQ(index, 2U);
}

TEST_F(Readout, MayBeAbortedAndFollowedBySettersInTheCallback)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        EXPECT_EQ(camera->SetExposure(5), 0);
        EXPECT_EQ(camera->SetCCDArea(1, 2, 3, 4), 0);
        EXPECT_EQ(camera->AbortRead(), 0);
        EXPECT_EQ(camera->OverrideImageTimout(100), 0);
        EXPECT_EQ(camera->SetImageDataCallback(nullptr), 0);
    });
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image, 5);
    FeedFrame(e16Bit, false);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(mCamera.SentCount(), 4U);
    const size_t touched = image.Touched();
    FeedFrame(e16Bit, false);
    EXPECT_EQ(image.Touched(), touched);
    EXPECT_TRUE(
        mCamera.Logged(ErrorRecord("tcVXCamera::CompileMessage16 NULL Image Buffer Pointer!")));
}
