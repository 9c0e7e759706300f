// What the application is told of packets that are missing, misplaced or damaged.
#include "books.h"
#include "framerecord_support.h"
#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

namespace {

using tBits = std::vector<uint8_t>;

} // namespace

TEST_F(FrameRecord, TellsTheMissingPacketsAndRows)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    struct {
        std::vector<unsigned> leftOut;
        tBits bits;
        tRows rows;
    } const cases[] = {
        {{1}, {0x01}, {0}},
        {{2}, {0x02}, {1}},
        {{1, 2, 3}, {0x07}, {0, 1, 2}},
        {{7}, {0x40}, {6}},
        {{2, 4, 5, 7}, {0x5A}, {1, 3, 4, 6}},
        {{1, 2, 3, 4, 5, 6, 7}, {0x7F}, {0, 1, 2, 3, 4, 5, 6}},
    };
    for (const auto& want : cases) {
        Read(e16Bit, image);
        FeedRows(e16Bit, 8, want.leftOut);
        EXPECT_EQ(Record().Outcome, eFrameIncomplete);
        EXPECT_EQ(Record().PacketsMissing, want.leftOut.size());
        EXPECT_EQ(mTold.back().bits, want.bits);
        EXPECT_EQ(Rows(), want.rows);
    }
}

TEST_F(FrameRecord, TellsTheRowsOfAnAreaFromItsFirst)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(2, 3, 10, 4);
    Read(e16Bit, image);
    FeedRows(e16Bit, 4, {1, 3}, true, 3, 1, 10, 2);
    EXPECT_EQ(Rows(), (tRows{0, 2}));
}

TEST_F(FrameRecord, TellsTheRowsOfSeveralPacketsEach)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 3);
    struct {
        std::vector<unsigned> leftOut;
        tRows rows;
    } const cases[] = {
        {{1}, {0}},       {{2}, {0}},          {{3}, {0}},       {{4}, {0}},
        {{4, 5}, {0, 1}}, {{5, 6, 7, 8}, {1}}, {{2, 7}, {0, 1}}, {{1, 2, 3, 4, 5}, {0, 1}},
        {{11}, {2}},
    };
    for (const auto& want : cases) {
        Read(e16Bit, image);
        FeedRows(e16Bit, 3, want.leftOut, true, 0, 4, 4);
        EXPECT_EQ(Rows(), want.rows);
        EXPECT_EQ(mTold.back().bits.size(), 2U);
    }
}

TEST_F(FrameRecord, TellsTheRowsOfRegions)
{
    tcImage image(e16Bit, 128);
    int rows[] = {1, 5}, columns[] = {0, 8}, heights[] = {2, 3}, widths[] = {16, 4};
    mCamera.SetAreaEx(2, rows, columns, heights, widths);
    struct {
        std::vector<unsigned> leftOut;
        tRows rows; // from row 1 of the sensor
    } const cases[] = {
        {{1}, {0}}, {{2}, {1}}, {{2, 3}, {1, 4}}, {{1, 2, 3, 4}, {0, 1, 4, 5}}, {{4}, {5}},
    };
    for (const auto& want : cases) {
        Read(e16Bit, image);
        for (unsigned i = 1; i <= 5; ++i) {
            if (std::count(want.leftOut.begin(), want.leftOut.end(), i) != 0) continue;
            const bool isFirst = i <= 2;
            Feed(mCamera,
                 {e16Bit, i, 5, isFirst ? i : i + 2, isFirst ? 0U : 8U, isFirst ? 15U : 11U, true});
        }
        EXPECT_EQ(Record().FirstRow, 1U);
        EXPECT_EQ(Record().Rows, 7U);
        EXPECT_EQ(Record().Columns, 16U);
        EXPECT_EQ(Record().Area[1], 1);
        EXPECT_EQ(Record().Area[3], 7);
        EXPECT_EQ(Rows(), want.rows);
    }
}

TEST_F(FrameRecord, TellsTheRowsOfBinnedFrames)
{
    tcImage image(e32Bit, 128);
    for (unsigned missing = 1; missing < 4; ++missing) {
        Read(e32Bit, image);
        FeedRows(e32Bit, 4, {missing}, true, 0, 1, 8);
        EXPECT_EQ(Rows(), tRows{missing - 1});
        EXPECT_EQ(Record().Rows, 4U);
    }
}

TEST_F(FrameRecord, TellsNoRowsWhereTheyCannotBeKnown)
{
    tcImage image(e32Bit, 128);
    Read(e32Bit, image);
    Feed(mCamera, {e32Bit, 1, 4, 0, 0, 7, true});
    Feed(mCamera, {e32Bit, 3, 4, 5, 0, 7, true}); // as if two rows had been in between
    Feed(mCamera, {e32Bit, 4, 4, 6, 0, 7, true});
    EXPECT_EQ(Record().PacketsMissing, 1U);
    EXPECT_EQ(mTold.back().bits, tBits{0x02});
    EXPECT_FALSE(mTold.back().rowsTold);
}

TEST_F(FrameRecord, TellsMisplacedPackets)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 8, i == 4 ? 9U : i, 0, 15, true});
    }
    EXPECT_EQ(Record().Outcome, eFrameIncomplete);
    EXPECT_EQ(Record().PacketsMissing, 0U);
    EXPECT_EQ(Record().PacketsMisplaced, 1U);
    EXPECT_EQ(mTold.back().bits, tBits{});
    EXPECT_EQ(Rows(), tRows{4});
    EXPECT_EQ(Result(), eReadoutIncomplete);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        const unsigned column = i == 4 ? 8 : 0;
        Feed(mCamera, {e16Bit, i + 1, 8, i == 4 ? 2U : i, column, column + 15, true});
    }
    EXPECT_EQ(Rows(), (tRows{2, 4})) << "part of it was stored in row 2";
}

// A header that was changed on its way; all numbers are there.
TEST_F(FrameRecord, TellsPacketsWhosePlacesContradictTheOthers)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 8, i == 4 ? 6U : i, 0, 15, true});
    }
    EXPECT_EQ(Record().Outcome, eFrameIncomplete) << "a row came twice";
    EXPECT_EQ(Record().PacketsMissing, 0U);
    EXPECT_EQ(Record().PacketsMisplaced, 1U);
    EXPECT_EQ(Rows(), (tRows{4, 6}));
    EXPECT_EQ(Result(), eReadoutIncomplete);

    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 8, i, i == 7 ? 4U : 0, 15, true});
    }
    EXPECT_EQ(Record().Outcome, eFrameIncomplete) << "a row is shorter than the others";
    EXPECT_EQ(Record().PacketsMisplaced, 1U);
    EXPECT_EQ(Rows(), tRows{7});

    mCamera.SetCCDArea(4, 2, 8, 4);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 4; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 4, i == 0 ? 7U : 2 + i, 4, 11, true});
    }
    EXPECT_EQ(Record().Outcome, eFrameIncomplete) << "a row is none of the area's";
    EXPECT_EQ(Record().PacketsMisplaced, 1U);

    Read(e16Bit, image);
    FeedRows(e16Bit, 4, {}, true, 2, 1, 8, 4);
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Result(), eReadoutComplete);
}

TEST_F(FrameRecord, OfACameraThatSendsItsRowsInAnotherOrderIsComplete)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 16; ++i) { // from both ends, by halves of rows
        const unsigned row = i / 2 % 2 != 0 ? 7 - i / 4 : i / 4, column = i % 2 * 8;
        Feed(mCamera, {e16Bit, i + 1, 16, row, column, column + 7, true});
    }
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Record().PacketsMisplaced, 0U);
}

TEST_F(FrameRecord, OfACameraThatShowsSomethingElseIsComplete)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 4, 4);
    Read(e16Bit, image);
    FeedRows(e16Bit, 8, {});
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Record().Rows, 8U);
}

TEST_F(FrameRecord, TellsPacketsThatCarryLessThanTheyTell)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        tsPixels pixels{e16Bit, i + 1, 8, i, 0, 15, true};
        if (i == 6) pixels.values = {1, 2, 3};
        Feed(mCamera, pixels);
    }
    EXPECT_EQ(Record().PacketsDamaged, 1U);
    EXPECT_EQ(Record().PacketsMissing, 1U);
    EXPECT_EQ(mTold.back().bits, tBits{0x40});
    EXPECT_EQ(Rows(), tRows{6});
}

TEST_F(FrameRecord, TellsPacketsWhosePixelsHaveNoColumns)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        SCOPED_TRACE(NameOf(width));
        tcImage image(width, 128);
        mCamera.SetCCDArea(0, 0, 16, 2);
        Read(width, image);
        tsPixels backwards{width, 1, 2, 0, 15, 0, true};
        backwards.values.assign(16, 7);
        Feed(mCamera, backwards);
        Feed(mCamera, {width, 2, 2, 1, 0, 15, true});
        EXPECT_EQ(image.Touched(), 16 * BytesOf(width));
        EXPECT_EQ(Record().Outcome, eFrameIncomplete);
        EXPECT_EQ(Record().PacketsDamaged, 1U);
        EXPECT_EQ(Record().PacketsMissing, 1U);
        EXPECT_EQ(Rows(), tRows{0});
        EXPECT_EQ(Result(), eReadoutIncomplete);
    }
    EXPECT_EQ(mCamera.Errors().size(), 2U);
}

TEST_F(FrameRecord, TakesADamagedPacketThatComesOnceMoreForWhole)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    tsPixels damaged{e16Bit, 1, 2, 0, 0, 15, true};
    damaged.values = {1};
    Feed(mCamera, damaged);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 15, true});
    Feed(mCamera, {e16Bit, 2, 2, 1, 0, 15, true});
    EXPECT_EQ(Record().PacketsMissing, 0U);
    EXPECT_EQ(Record().PacketsDamaged, 1U);
}

TEST_F(FrameRecord, TellsACutFrameWhenTheNextBegins)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image, 3);
    FeedRows(e16Bit, 8, {6, 7, 8}, false);
    EXPECT_TRUE(mTold.empty());
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 15, false});
    EXPECT_TRUE(mTold.empty()) << "it may be repeated";
    Feed(mCamera, {e16Bit, 2, 8, 1, 0, 15, false});
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(Record().Outcome, eFrameCut);
    EXPECT_EQ(Record().Frame, 1U);
    EXPECT_EQ(Record().PacketsMissing, 3U);
    EXPECT_EQ(mTold.back().bits, tBits{0xE0});
    EXPECT_EQ(Rows(), (tRows{0, 5, 6, 7})) << "the next frame has written row 0";
    EXPECT_EQ(Record().LastPacket.Monotonic, 0);
    const tsMoment first = Record().FirstPacket;
    FeedRows(e16Bit, 8, {1, 2}, false);
    ASSERT_EQ(mTold.size(), 2U);
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Record().Frame, 2U);
    EXPECT_GT(Record().FirstPacket.Monotonic, first.Monotonic);
    FeedRows(e16Bit, 8, {}, true);
    EXPECT_EQ(Record().Frame, 3U);
    EXPECT_EQ(Result(), eReadoutIncomplete);
}

// Areas and binned images may be read at the same time.
TEST_F(FrameRecord, KeepsThePacketWhereTheCallbackStartsAReadoutOfAnotherKind)
{
    tcImage image(e16Bit, 128), binned(e32Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    mDo = [&] {
        if (mTold.size() == 1) Read(e32Bit, binned);
    };
    Read(e16Bit, image, 3);
    FeedRows(e16Bit, 8, {6, 7, 8}, false);
    image.Set(16, 0);
    FeedRows(e16Bit, 8, {}, false);
    ASSERT_EQ(mTold.size(), 2U);
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(image.At(16), 1U) << "the packet that told the frame's end";
}

TEST_F(FrameRecord, ForgetsThePacketOfAReadoutThatTheCallbackEnded)
{
    tcImage image(e16Bit, 128);
    mDo = [&] { mCamera.AbortRead(); };
    Read(e16Bit, image, 3);
    FeedRows(e16Bit, 8, {6, 7, 8}, false);
    Feed(mCamera, {e16Bit, 1, 8, 0, 0, 15, false});
    image.Set(16, 0);
    Feed(mCamera, {e16Bit, 2, 8, 1, 0, 15, false});
    EXPECT_EQ(mTold.size(), 1U);
    EXPECT_EQ(image.At(16), 0U);
    EXPECT_EQ(Result(), eReadoutAborted);
}

TEST_F(FrameRecord, IsRightAgainAfterAnIncompleteFrame)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    Read(e16Bit, image, 0);
    FeedRows(e16Bit, 8, {2, 3}, false);
    Feed(mCamera, {e16Bit, 1, 8, 9, 0, 15, false});
    mCamera.AbortRead();
    Read(e16Bit, image, 0);
    FeedRows(e16Bit, 8, {}, false);
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Record().PacketsMisplaced, 0U);
}

// All packets of the last frame say so; there are no others in it.
TEST_F(FrameRecord, IsNotMadeOfALastFrameAndTheOneBefore)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(0, 0, 16, 8);
    for (bool isRepeated : {false, true}) {
        Read(e16Bit, image, 2);
        FeedRows(e16Bit, 8, {6, 7, 8}, false);
        if (isRepeated) Feed(mCamera, {e16Bit, 3, 8, 2, 0, 15, false});
        FeedRows(e16Bit, 8, {1, 2, 3, 4, 5}, true);
        ASSERT_EQ(mTold.size(), 2U);
        EXPECT_EQ(mTold[0].record.Outcome, eFrameCut);
        EXPECT_EQ(mTold[0].bits, tBits{0xE0});
        EXPECT_EQ(mTold[1].record.Outcome, eFrameIncomplete);
        EXPECT_EQ(mTold[1].bits, tBits{0x1F});
        EXPECT_EQ(Rows(), (tRows{0, 1, 2, 3, 4}));
        EXPECT_EQ(Result(), eReadoutIncomplete);
        mTold.clear();
    }
    tsStatistics figures{};
    mCamera.GetStatistics(&figures, sizeof figures);
    ExpectThatTheyAddUp(figures);
    EXPECT_EQ(figures.FramesFailed, 2U);
    EXPECT_EQ(figures.FramesIncomplete, 2U);
    EXPECT_EQ(figures.PacketsDuplicate, 1U);
}

// Cameras may say it in the very last packet only.
TEST_F(FrameRecord, IsWholeWhereOnlyItsLastPacketSaysThatItIsTheLast)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    for (unsigned i = 0; i < 8; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 8, i, 0, 15, i == 7});
    }
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(Record().Outcome, eFrameComplete);
    EXPECT_EQ(Result(), eReadoutComplete);
}
