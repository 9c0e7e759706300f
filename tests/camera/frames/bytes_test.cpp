// Readouts of 8 bits a pixel.
#include "books.h"
#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

class Readout8 : public Readout
{
protected:
    Readout8() { mCamera.TellGeometry(4, 8); }
    int Read8(tcImage& image, short frames = 1)
    {
        return mCamera.ReadCCDArea8(static_cast<unsigned char*>(image.Pointer()), frames, 0);
    }
    tsStatistics Figures()
    {
        tsStatistics figures{};
        mCamera.GetStatistics(&figures, sizeof figures);
        ExpectThatTheyAddUp(figures);
        return figures;
    }

    tcImage mImage{e8Bit, 32};
};

TEST_F(Readout8, SendsTheAreaReadoutWithItsFlag)
{
    mCamera.SetCCDArea(1, 2, 3, 4);
    EXPECT_EQ(mCamera.ReadCCDArea8(nullptr, 5, 0x8001), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x36U);
    EXPECT_EQ(mCamera.LastSent().payload,
              tcPayload().U16(1).U16(2).U16(3).U16(4).U16(5).U16(0x8009).Take());
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout8, StoresItsFramesAndCompletesWithTheLast)
{
    EXPECT_EQ(Read8(mImage, 2), 0);
    for (bool isLast : {false, true}) {
        EXPECT_EQ(mCamera.numOpsPending(), 1);
        Feed(mCamera, {e8Bit, 1, 2, 1, 2, 4, isLast});
        Feed(mCamera, {e8Bit, 2, 2, 3, 7, 7, isLast});
    }
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    tcImage expected(e8Bit, 32);
    for (unsigned i = 0; i < 3; ++i) {
        expected.Set(10 + i, 1 + i);
    }
    expected.Set(31, 1);
    EXPECT_TRUE(mImage == expected);
    ASSERT_EQ(gaFrames.size(), 2U);
    EXPECT_EQ(gaFrames[1].ImageBuffer, mImage.Pointer());
    EXPECT_EQ(gaFrames[1].FrameIndex, 2);
    EXPECT_TRUE(mCamera.Errors().empty());
    EXPECT_EQ(Figures().FramesComplete, 2U);
}

TEST_F(Readout8, TellsItsProgress)
{
    Read8(mImage);
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 0);
    Feed(mCamera, {e8Bit, 1, 4, 0, 0, 7, true});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 25);
    Feed(mCamera, {e8Bit, 4, 4, 0, 0, 7, true});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100);
}

TEST_F(Readout8, AndOf16BitsAreNotStartedTogether)
{
    tcImage other(e16Bit, 32);
    Read8(mImage);
    mCamera.ForgetRecords();
    EXPECT_EQ(Read(e16Bit, other), -1);
    EXPECT_EQ(Read8(mImage), -1);
    EXPECT_EQ(mCamera.Errors().size(), 2U);
    FeedFrame(e8Bit, true);
    EXPECT_EQ(Read(e16Bit, other), 0);
    EXPECT_EQ(Read8(mImage), -1);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Read8(mImage), 0);
    EXPECT_EQ(mCamera.SentCount(), 3U);
    EXPECT_EQ(Figures().RequestsBusy, 3U);
}

TEST_F(Readout8, EndsByAbortTimeoutAndWaiting)
{
    for (int way = 0; way < 3; ++way) {
        mCamera.ForgetRecords();
        ASSERT_EQ(Read8(mImage, 3), 0);
        if (way == 0) mCamera.AbortRead();
        if (way == 1) mCamera.Tick(200);
        if (way == 2) {
            EXPECT_EQ(mCamera.WaitCompletion(0), -2);
        }
        EXPECT_EQ(mCamera.numOpsPending(), 0) << way;
        gaFrames.clear();
        FeedFrame(e8Bit, false);
        ASSERT_EQ(gaFrames.size(), 1U) << "frames are reported still";
        EXPECT_EQ(gaFrames[0].ImageBuffer, nullptr);
        EXPECT_EQ(mImage.Touched(), 0U);
    }
    const tsStatistics figures = Figures();
    EXPECT_EQ(figures.FramesRequested, 9U);
    EXPECT_EQ(figures.FramesAborted, 3U);
    EXPECT_EQ(figures.FramesFailed, 6U);
    EXPECT_EQ(figures.FramesUnasked, 3U);
}

TEST_F(Readout8, LeavesOrdinaryReadoutsThatAreAnsweredIn8BitsAsTheyAre)
{
    tcImage other(e16Bit, 32);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(Read8(mImage), 0);
        FeedFrame(e8Bit, true);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        ASSERT_EQ(Read(e16Bit, other), 0);
        FeedFrame(e8Bit, true);
        EXPECT_EQ(mCamera.numOpsPending(), 0) << "completed by the 8-bit frame";
    }
    EXPECT_EQ(other.Touched(), 0U);
}

TEST_F(Readout8, WithoutABufferUsesTheCamerasOwn)
{
    EXPECT_NE(Initialize(4, 8), 0);
    EXPECT_EQ(mCamera.ReadCCDArea8(nullptr, 1, 0), 0);
    Feed(mCamera, {e8Bit, 1, 1, 3, 6, 7, true});
    ASSERT_EQ(gaFrames.size(), 1U);
    ASSERT_NE(gaFrames[0].ImageBuffer, nullptr);
    EXPECT_EQ(static_cast<uint8_t*>(gaFrames[0].ImageBuffer)[31], 2);
}

TEST_F(Readout8, StoresNothingOutsideTheImage)
{
    Read8(mImage);
    Feed(mCamera, {e8Bit, 1, 3, 4, 0, 7, true});
    Feed(mCamera, {e8Bit, 2, 3, 3, 6, 9, true});
    EXPECT_EQ(mImage.Touched(), 2U);
    EXPECT_TRUE(mImage.GuardsAreWhole());
}
