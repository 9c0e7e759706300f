// Leftovers of readouts that were given up.
#include "books.h"
#include "framerecord_support.h"
#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

TEST_F(FrameRecord, IsNotMadeOfTheRestOfAFrameThatWasGivenUp)
{
    mCamera.SetCCDArea(0, 0, 16, 8);
    for (int arrived = 1; arrived < 8; ++arrived) {
        for (int between = 0; arrived + between < 8; ++between) {
            SCOPED_TRACE(testing::Message() << arrived << " and " << between);
            tcImage old(e16Bit, 128), image(e16Bit, 128);
            Read(e16Bit, old);
            const auto feed = [&](int from, int to, bool isLast) {
                for (int i = from; i <= to; ++i) {
                    const auto row = static_cast<unsigned>(i - 1);
                    Feed(mCamera, {e16Bit, row + 1, 8, row, 0, 15, isLast});
                }
            };
            feed(1, arrived, true);
            mCamera.AbortRead();
            feed(arrived + 1, arrived + between, true);
            mTold.clear();
            gaFrames.clear();
            Read(e16Bit, image);
            feed(arrived + between + 1, 8, true);
            EXPECT_TRUE(mTold.empty());
            EXPECT_TRUE(gaFrames.empty());
            EXPECT_EQ(Result(), eReadoutRunning);
            EXPECT_EQ(image.Touched(), 0U);
            EXPECT_EQ(mCamera.PercentComplete(nullptr), 0);
            feed(1, 8, true);
            ASSERT_EQ(mTold.size(), 1U);
            EXPECT_EQ(Record().Outcome, eFrameComplete);
            EXPECT_EQ(Result(), eReadoutComplete);
        }
    }
    tsStatistics figures{};
    mCamera.GetStatistics(&figures, sizeof figures);
    ExpectThatTheyAddUp(figures);
}

TEST_F(FrameRecord, LetsTheRestOfAGivenUpFrameNotProlongTheTime)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 15, true});
    mCamera.AbortRead();
    mCamera.SetExposure(60000);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 2, 8, 1, 0, 15, true});
    mCamera.Tick(799);
    EXPECT_EQ(mCamera.numOpsPending(), 1) << "the exposure and 20 s";
    mCamera.Tick();
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

// The packets of a frame that was given up go on where they were.
TEST_F(FrameRecord, TakesAFrameWithoutItsBeginningThatDoesNotGoOnWhereOneWasGivenUp)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 15, true});
    mCamera.AbortRead();
    Read(e16Bit, image);
    FeedRows(e16Bit, 8, {1, 2}, true);
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(Record().PacketsMissing, 2U);
    EXPECT_EQ(Result(), eReadoutIncomplete);
}

TEST_F(FrameRecord, TakesAFrameWithoutItsBeginningThatNoneBeforeExplains)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 15, true});
    mCamera.AbortRead();
    Read(e16Bit, image, 3);
    FeedRows(e16Bit, 4, {1}, false);
    ASSERT_EQ(mTold.size(), 1U) << "of another number of packets";
    EXPECT_EQ(Record().PacketsMissing, 1U);
    FeedRows(e16Bit, 4, {}, false);
    FeedRows(e16Bit, 4, {1, 2}, true);
    ASSERT_EQ(mTold.size(), 3U);
    EXPECT_EQ(Record().PacketsMissing, 2U);
}
