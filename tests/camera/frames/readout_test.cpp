// Readouts: how they start, and the buffers that they use.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

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
