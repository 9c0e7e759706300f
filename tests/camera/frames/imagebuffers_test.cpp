// Readouts into the application's buffers, one after another.
#include "books.h"
#include "imagebuffers_support.h"
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

// ---- Setting and giving back

TEST_F(ImageBuffers, AreRefusedWhereTheyCannotServe)
{
    void* const good[] = {mImages[0].Pointer(), mImages[1].Pointer()};
    void* const null[] = {mImages[0].Pointer(), nullptr};
    void* const twice[] = {mImages[0].Pointer(), mImages[1].Pointer(), mImages[0].Pointer()};
    void* const overlapping[] = {mImages[0].Pointer(), mImages[0].Shorts() + 8};
    EXPECT_EQ(VXSetImageBuffers(Handle(), nullptr, 2, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), good, -1, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), good, 4097, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), good, 2, 0), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), null, 2, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), twice, 3, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle(), overlapping, 2, gnBytes), -5);
    EXPECT_EQ(VXSetImageBuffers(Handle() + 100, good, 2, gnBytes), -3);
    EXPECT_EQ(VXSetImageBuffers(Handle(), good, 2, gnBytes), 0);
    EXPECT_EQ(VXSetImageBuffers(Handle(), nullptr, 0, 0), 0);
}

TEST_F(ImageBuffers, StayWhileAReadoutRuns)
{
    EXPECT_EQ(Set(2), 0);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    EXPECT_EQ(Set(3), -1);
    mCamera.AbortRead();
    EXPECT_EQ(Set(3), 0);
    mCamera.ReadCCDArea8(nullptr, 1, 0);
    EXPECT_EQ(Set(3), -1);
    mCamera.AbortRead();
    mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0);
    EXPECT_EQ(Set(0), -1);
}

TEST_F(ImageBuffers, AreTakenBackOnlyFromTheApplication)
{
    SetArea();
    Set(2);
    EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[0]), -5) << "free";
    EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[2]), -5) << "not one of them";
    EXPECT_EQ(VXReturnImageBuffer(Handle(), nullptr), -5);
    EXPECT_EQ(VXReturnImageBuffer(Handle() + 100, maPointers[0]), -3);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedArea(true);
    EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[0]), 0);
    EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[0]), -5);
}

// ---- Frames

TEST_F(ImageBuffers, TakeSuccessiveFramesPacked)
{
    SetArea();
    Set(3);
    mCamera.ReadCCDArea(nullptr, 3, 0);
    for (unsigned i = 0; i < 3; ++i) {
        FeedArea(i == 2, {}, 1000 * i);
        ASSERT_EQ(mTold.size(), i + 1);
        const tsFrameRecord& record = mTold.back();
        EXPECT_EQ(record.Outcome, eFrameComplete);
        EXPECT_EQ(record.Buffer, maPointers[i]);
        EXPECT_EQ(record.Room, 40U);
        EXPECT_EQ(record.Rows, 4U);
        EXPECT_EQ(record.Columns, 10U);
        EXPECT_EQ(record.FirstRow, 0U);
        EXPECT_EQ(record.FirstColumn, 0U);
        EXPECT_EQ(record.Stride, 10U);
        EXPECT_EQ(record.Area[0], 2);
        EXPECT_EQ(record.Area[1], 3);
        EXPECT_EQ(record.SensorRows, 8U);
        EXPECT_TRUE(mImages[i] == Packed(1000 * i));
    }
    EXPECT_EQ(Result(), eReadoutComplete);
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(ImageBuffers, AreDescribedToTheImageCallbackAsTheyAre)
{
    SetArea();
    Set(1);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedArea(true);
    ASSERT_EQ(gaFrames.size(), 1U);
    EXPECT_EQ(gaFrames[0].ImageBuffer, maPointers[0]);
    EXPECT_EQ(gaFrames[0].SensorRows, 4);
    EXPECT_EQ(gaFrames[0].SensorColumns, 10);
    EXPECT_EQ(gaFrames[0].AreaFirstRow, 0);
    EXPECT_EQ(gaFrames[0].AreaFirstColumn, 0);
    EXPECT_EQ(gaFrames[0].Rows, 4);
    EXPECT_EQ(gaFrames[0].Columns, 10);
}

TEST_F(ImageBuffers, ServeAgainInTheOrderInWhichTheyAreGivenBack)
{
    SetArea();
    Set(3);
    mCamera.ReadCCDArea(nullptr, 0, 0);
    for (int i = 0; i < 3; ++i) {
        FeedArea(false);
    }
    for (size_t i : {1, 2, 0}) {
        EXPECT_EQ(VXReturnImageBuffer(Handle(), maPointers[i]), 0);
    }
    for (size_t i : {1, 2, 0}) {
        FeedArea(false);
        EXPECT_EQ(mTold.back().Buffer, maPointers[i]);
    }
    mbReturning = true;
    VXReturnImageBuffer(Handle(), maPointers[3]);
    VXReturnImageBuffer(Handle(), maPointers[2]);
    for (int i = 0; i < 10; ++i) {
        FeedArea(false);
        EXPECT_EQ(mTold.back().Buffer, maPointers[2]);
    }
    EXPECT_EQ(Figures().FramesUnderrun, 0U);
}

TEST_F(ImageBuffers, WithNoneFreeLeaveOutAFrameAndSaySo)
{
    SetArea();
    Set(1);
    mCamera.ReadCCDArea(nullptr, 4, 0);
    FeedArea(false, {}, 1000);
    FeedArea(false, {}, 2000);
    EXPECT_EQ(mTold.back().Outcome, eFrameUnderrun);
    EXPECT_EQ(mTold.back().Frame, 2U);
    EXPECT_EQ(mTold.back().Buffer, nullptr);
    EXPECT_EQ(mTold.back().Room, 0U);
    EXPECT_EQ(gaFrames.back().ImageBuffer, nullptr);
    EXPECT_TRUE(mImages[0] == Packed(1000)) << "it is in use";
    EXPECT_EQ(mCamera.Errors(),
              std::vector<std::string>{"tcVXCamera::BeginFrame no image buffer is free: frame 2 of "
                                       "the readout is lost"});
    VXReturnImageBuffer(Handle(), maPointers[0]);
    FeedArea(false, {}, 3000);
    EXPECT_EQ(mTold.back().Outcome, eFrameComplete);
    EXPECT_TRUE(mImages[0] == Packed(3000));
    FeedRow(0, true, 4000);
    VXReturnImageBuffer(Handle(), maPointers[0]);
    for (unsigned i = 1; i < 4; ++i) {
        FeedRow(i, true, 4000);
    }
    EXPECT_EQ(mTold.back().Outcome, eFrameUnderrun) << "none was free at its first packet";
    EXPECT_TRUE(mImages[0] == Packed(3000));
    EXPECT_EQ(Result(), eReadoutIncomplete);
    const tsStatistics figures = Figures();
    EXPECT_EQ(figures.FramesUnderrun, 2U);
    EXPECT_EQ(figures.FramesFailed, 2U);
    EXPECT_EQ(figures.FramesComplete, 2U);
}

TEST_F(ImageBuffers, TakeAFrameOfWhichPacketsAreMissing)
{
    SetArea();
    Set(1);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedArea(true, {1, 3});
    EXPECT_EQ(mTold.back().Outcome, eFrameIncomplete);
    EXPECT_EQ(mRows, (tRows{0, 2}));
    EXPECT_EQ(mImages[0].At(10), 200U);
    EXPECT_EQ(mImages[0].Touched(), 40U);
}

TEST_F(ImageBuffers, TakeNothingFromOutsideTheArea)
{
    SetArea();
    Set(1, 79);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    Feed(mCamera, {e16Bit, 1, 5, 2, 2, 11, true});
    Feed(mCamera, {e16Bit, 2, 5, 7, 2, 11, true});
    Feed(mCamera, {e16Bit, 3, 5, 4, 1, 11, true});
    Feed(mCamera, {e16Bit, 4, 5, 4, 8, 12, true});
    Feed(mCamera, {e16Bit, 5, 5, 6, 2, 11, true});
    EXPECT_EQ(mTold.back().PacketsMisplaced, 5U);
    EXPECT_EQ(mTold.back().Outcome, eFrameIncomplete);
    EXPECT_EQ(mImages[0].Touched(), 8U + 18U) << "the room ends one pixel before the area";
    EXPECT_EQ(mTold.back().Room, 39U);
    EXPECT_EQ(mTold.back().Rows, 3U);
    EXPECT_EQ(Figures().PixelsOutside, 10U + 10U + 11U + 1U + 1U);
}

TEST_F(ImageBuffers, TakeRegionsBelowEachOther)
{
    int rows[] = {1, 5}, columns[] = {0, 8}, heights[] = {2, 3}, widths[] = {16, 4};
    mCamera.SetAreaEx(2, rows, columns, heights, widths);
    Set(2);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    for (int frame = 0; frame < 2; ++frame) {
        for (unsigned i = 1; i <= 5; ++i) {
            if (frame == 1 && (i == 2 || i == 4)) continue;
            const bool isFirst = i <= 2;
            Feed(mCamera, {e16Bit, i, 5, isFirst ? i : i + 2, isFirst ? 0U : 8U,
                           isFirst ? 15U : 11U, frame == 1});
        }
    }
    tcImage expected(e16Bit, 128);
    for (unsigned row = 0; row < 5; ++row) {
        for (unsigned i = 0; i < (row < 2 ? 16U : 4U); ++i) {
            expected.Set(row * 16 + i, i + 1);
        }
    }
    EXPECT_TRUE(mImages[0] == expected);
    EXPECT_EQ(mTold[0].Rows, 5U);
    EXPECT_EQ(mTold[0].Columns, 16U);
    EXPECT_EQ(mTold[0].Stride, 16U);
    EXPECT_EQ(mTold[0].FirstRow, 0U);
    EXPECT_EQ(mRows, (tRows{1, 3}));
}

TEST_F(ImageBuffers, TakeRegionsThatOverlap)
{
    int rows[] = {0, 2}, columns[] = {0, 0}, heights[] = {4, 4}, widths[] = {8, 8};
    mCamera.SetAreaEx(2, rows, columns, heights, widths);
    Set(1);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (unsigned i = 0; i < 8; ++i) {
        tsPixels pixels{e16Bit, i + 1, 8, i < 4 ? i : i - 2, 0, 7, true};
        pixels.values.assign(8, i + 1);
        Feed(mCamera, pixels);
    }
    EXPECT_EQ(mTold.back().Outcome, eFrameComplete);
    for (unsigned i = 0; i < 64; ++i) {
        EXPECT_EQ(mImages[0].At(i), i / 8 + 1) << i;
    }
}

// Their rows are told apart by the columns alone.
TEST_F(ImageBuffers, TakeRegionsThatOverlapWithinARow)
{
    struct tsPiece {
        unsigned row, first, last, element; // which is the first of the frame that it goes to
    };
    struct {
        int rows[2], columns[2], heights[2], widths[2];
        std::vector<tsPiece> pieces;
    } cases[] = {
        {{5, 7},
         {4, 8},
         {3, 1},
         {8, 3},
         {{5, 4, 11, 0}, {6, 4, 11, 8}, {7, 4, 11, 16}, {7, 8, 10, 24}}},
        {{5, 5}, {4, 8}, {1, 1}, {8, 8}, {{5, 4, 11, 0}, {5, 8, 15, 8}}},
        {{5, 5}, {4, 8}, {1, 1}, {8, 8}, {{5, 8, 15, 8}}}, // it alone
        {{5, 5}, {0, 2}, {1, 1}, {8, 6}, {{5, 0, 3, 0}, {5, 4, 7, 4}, {5, 2, 4, 8}, {5, 5, 7, 11}}},
    };
    for (auto& regions : cases) {
        mCamera.SetAreaEx(2, regions.rows, regions.columns, regions.heights, regions.widths);
        Set(1);
        mCamera.ReadCCDArea(nullptr, 1, 0);
        tcImage expected = mImages[0];
        const auto total = static_cast<unsigned>(regions.pieces.size());
        for (unsigned i = 0; i < total; ++i) {
            const tsPiece& piece = regions.pieces[i];
            tsPixels pixels{e16Bit, i + 1, total, piece.row, piece.first, piece.last, true};
            pixels.values.assign(piece.last - piece.first + 1, 7 + i);
            Feed(mCamera, pixels);
            for (unsigned k = 0; k < pixels.values.size(); ++k) {
                expected.Set(piece.element + k, 7 + i);
            }
        }
        EXPECT_EQ(mTold.back().Outcome, eFrameComplete);
        EXPECT_TRUE(mImages[0] == expected) << "case " << &regions - cases;
    }
}

TEST_F(ImageBuffers, TakeBinnedFramesWithTheStrideOfTheSensor)
{
    Set(1);
    mCamera.ReadCCDBinned(nullptr, nullptr, 1, 0);
    for (unsigned i = 0; i < 4; ++i) {
        Feed(mCamera, {e32Bit, i + 1, 4, i, 0, 7, true});
    }
    const tsFrameRecord& record = mTold.back();
    EXPECT_EQ(record.Stride, 16U);
    EXPECT_EQ(record.Room, 64U) << "what the buffer holds of them";
    EXPECT_EQ(record.Rows, 4U);
    EXPECT_EQ(record.Columns, 8U);
    EXPECT_EQ(record.Outcome, eFrameComplete);
    uint32_t value = 0;
    memcpy(&value, static_cast<char*>(maPointers[0]) + (3 * 16 + 7) * 4, 4);
    EXPECT_EQ(value, 8U);
}

TEST_F(ImageBuffers, TakeAnUnsetAreaWhereItLiesOnTheSensor)
{
    Set(1);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedArea(true);
    EXPECT_EQ(mTold.back().Stride, 16U);
    EXPECT_EQ(mTold.back().FirstRow, 3U);
    EXPECT_EQ(mTold.back().FirstColumn, 2U);
    EXPECT_EQ(mTold.back().Rows, 4U);
    EXPECT_EQ(mImages[0].At(3 * 16 + 2), 100U);
}

TEST_F(ImageBuffers, TakeFramesOf8Bits)
{
    SetArea();
    Set(2, 40);
    mCamera.ReadCCDArea8(nullptr, 2, 0);
    for (bool isLast : {false, true}) {
        for (unsigned i = 0; i < 4; ++i) {
            Feed(mCamera, {e8Bit, i + 1, 4, 3 + i, 2, 11, isLast});
        }
    }
    for (const tcImage& image : {mImages[0], mImages[1]}) {
        EXPECT_EQ(image.Touched(), 40U);
        EXPECT_EQ(image.At(19), 10U * 256 + 9U) << "elements 38 and 39";
    }
    EXPECT_EQ(Result(), eReadoutComplete);
}

// None is made for the pixels of another width.
TEST_F(ImageBuffers, ThatAreNotFilledLeaveNoFrameComplete)
{
    SetArea();
    Set(1);
    mCamera.ReadCCDArea(nullptr, 1, 0x0008);
    for (unsigned i = 0; i < 4; ++i) {
        Feed(mCamera, {e8Bit, i + 1, 4, 3 + i, 2, 11, true});
    }
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_EQ(mTold[0].Buffer, nullptr);
    EXPECT_EQ(mTold[0].Outcome, eFrameIncomplete);
    EXPECT_EQ(mTold[0].PacketsMissing, 0U);
    EXPECT_EQ(Result(), eReadoutIncomplete);
    EXPECT_EQ(mImages[0].Touched(), 0U);
}

TEST_F(ImageBuffers, DoNotServeReadoutsIntoAnotherBuffer)
{
    SetArea();
    Set(1);
    tcImage own(e16Bit, 128);
    Read(e16Bit, own);
    FeedArea(true);
    EXPECT_EQ(mTold.back().Buffer, own.Pointer());
    EXPECT_EQ(mTold.back().Stride, 16U);
    EXPECT_EQ(mImages[0].Touched(), 0U);
}
