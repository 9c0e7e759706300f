// Finished frames of every width.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

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
