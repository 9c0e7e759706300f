// No pixel goes outside the image, whatever the camera sends.
#include "pixels.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

TEST_F(Placement, StoresNothingOutsideTheImage)
{
    mCamera.TellGeometry(4, 8);
    struct {
        unsigned row, first, last;
        size_t stored;
    } const cases[] = {
        {3, 0, 7, 8},
        {3, 0, 8, 8},
        {3, 7, 7, 1},
        {3, 7, 8, 1},
        {3, 8, 8, 0},
        {4, 0, 7, 0},
        {0, 8, 15, 0},
        {0, 4, 3, 0},
        {0, 65535, 65535, 0},
        {65535, 0, 7, 0},
        {0, 0, 2000, 8},
        {1, 6, 100, 2},
        {65535, 65535, 65535, 0},
        {2, 5, 4, 0},
    };
    for (teWidth width : {e16Bit, e32Bit}) {
        for (const auto& want : cases) {
            SCOPED_TRACE(testing::Message() << NameOf(width) << " row " << want.row << " from "
                                            << want.first << " to " << want.last);
            tcImage image(width, 32), expected(width, 32);
            Read(width, image);
            Feed(mCamera, {width, 1, 2, want.row, want.first, want.last, false});
            for (unsigned i = 0; i < want.stored; ++i) {
                expected.Set(want.row * 8 + want.first + i, i + 1);
            }
            EXPECT_TRUE(image == expected);
            FeedFrame(width, true);
        }
    }
}

TEST_F(Placement, StoresNoMoreThanAPacketCarries)
{
    mCamera.TellGeometry(4, 100);
    for (teWidth width : {e16Bit, e32Bit}) {
        tcImage image(width, 400), expected(width, 400);
        Read(width, image);
        tsPixels pixels{width, 1, 2, 1, 10, 99, false};
        pixels.values = {7, 8, 9};
        Feed(mCamera, pixels);
        for (unsigned i = 0; i < 3; ++i) {
            expected.Set(110 + i, 7 + i);
        }
        EXPECT_TRUE(image == expected);
        // Half a pixel more does not count.
        tBytes payload = pixels.Payload(width == e32Bit);
        payload.push_back(1);
        mCamera.Feed(IdOf(width), payload);
        EXPECT_TRUE(image == expected);
        FeedFrame(width, true);
    }
    EXPECT_EQ(mCamera.PixelsOutside(), 0U);
    // The totals of the two final frames differ, and the short packets are missing.
    EXPECT_EQ(mCamera.Errors().size(), 4U);
}

TEST_F(Placement, ReadsWhatAShortPacketLacksAsZero)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        tcImage image(width, 32);
        Read(width, image, 0);
        const tBytes whole = tsPixels{width, 0, 0, 3, 2, 5, true}.Payload(width == e32Bit);
        for (size_t length = 0; length <= 20; ++length) {
            gaFrames.clear();
            mCamera.Feed(IdOf(width),
                         tBytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            ASSERT_EQ(gaFrames.size(), 1U) << "packet 0 of 0 is the last";
            EXPECT_EQ(gaFrames[0].Columns, length < 9 ? 1 : length < 11 ? -1 : 4);
            EXPECT_TRUE(length >= 16 || image.Touched() == 0);
            mCamera.AbortRead();
            Read(width, image, 0);
        }
        mCamera.AbortRead();
    }
}

TEST_F(Placement, ReportsPixelsOutsideOnceAFrameAndCountsThem)
{
    mCamera.TellGeometry(4, 8);
    tcImage image(e16Bit, 32);
    Read(e16Bit, image, 2);
    const auto wanted = ErrorRecord("tcVXCamera::CompileMessage16 pixels outside the image of 8 x "
                                    "4: row 4, columns 2 to 5");
    for (int i = 0; i < 5; ++i) {
        Feed(mCamera, {e16Bit, 1, 2, 4, 2, 5, false});
    }
    EXPECT_EQ(mCamera.Count(wanted), 1U);
    EXPECT_EQ(mCamera.PixelsOutside(), 20U);
    Feed(mCamera, {e16Bit, 2, 2, 0, 0, 0, false});
    Feed(mCamera, {e16Bit, 1, 2, 4, 2, 5, false});
    EXPECT_EQ(mCamera.Count(wanted), 2U);
    EXPECT_EQ(mCamera.Errors().size(), 2U);
    Feed(mCamera, {e16Bit, 2, 2, 3, 6, 9, true});
    EXPECT_EQ(mCamera.PixelsOutside(), 26U);
    EXPECT_EQ(mCamera.Errors().size(), 2U) << "the same frame";
}

TEST_F(Placement, StoresNothingBeyondWhatWasToldWhereOneSizeIsOpen)
{
    mCamera.TellGeometry(65535, 8);
    tcImage tall(e16Bit, 65535 * 8);
    Read(e16Bit, tall);
    Feed(mCamera, {e16Bit, 1, 3, 65535, 0, 0, false});
    Feed(mCamera, {e16Bit, 2, 3, 0, 8, 8, false});
    EXPECT_EQ(tall.Touched(), 0U);
    Feed(mCamera, {e16Bit, 3, 3, 65534, 7, 7, true});
    EXPECT_EQ(tall.At(65535 * 8 - 1), 1U);

    mCamera.TellGeometry(4, 65535);
    tcImage wide(e16Bit, 4 * 65535);
    Read(e16Bit, wide);
    Feed(mCamera, {e16Bit, 1, 2, 4, 0, 0, false});
    EXPECT_EQ(wide.Touched(), 0U);
    Feed(mCamera, {e16Bit, 2, 2, 3, 65534, 65534, true});
    EXPECT_EQ(wide.At(4 * 65535 - 1), 1U);
    EXPECT_TRUE(tall.GuardsAreWhole() && wide.GuardsAreWhole());
}

TEST_F(Placement, StoresNothingBeyondTheAreaWhereTheRowsAreOpen)
{
    mCamera.TellGeometry(65535, 8);
    mCamera.SetCCDArea(0, 2, 8, 3);
    tcImage image(e16Bit, 5 * 8);
    Read(e16Bit, image);
    for (unsigned row : {5U, 6U, 65534U, 65535U}) {
        Feed(mCamera, {e16Bit, 1, 9, row, 0, 7, false});
    }
    EXPECT_EQ(image.Touched(), 0U);
    Feed(mCamera, {e16Bit, 9, 9, 4, 0, 7, true});
    EXPECT_EQ(image.At(39), 8U);
    EXPECT_TRUE(image.GuardsAreWhole());
}

TEST_F(Placement, BoundsNoBinnedReadoutByTheAreaWhereTheRowsAreOpen)
{
    mCamera.TellGeometry(65535, 8);
    mCamera.SetCCDArea(0, 0, 8, 3);
    tcImage image(e32Bit, 65535 * 8);
    Read(e32Bit, image, 2);
    for (unsigned row : {3U, 100U, 65534U}) {
        Feed(mCamera, {e32Bit, 1, 9, row, 0, 7, false});
        EXPECT_EQ(image.At(row * 8 + 7), 8U);
    }
    Feed(mCamera, {e32Bit, 1, 9, 65535, 0, 7, false});
    EXPECT_TRUE(image.GuardsAreWhole());
    EXPECT_EQ(mCamera.PixelsOutside(), 8U);
}

TEST_F(Placement, BoundsRegionsByTheirRowsWhereTheRowsAreOpen)
{
    mCamera.TellGeometry(65535, 64);
    int rows[] = {0, 100}, columns[] = {0, 0}, heights[] = {50, 50}, widths[] = {64, 64};
    mCamera.SetAreaEx(2, rows, columns, heights, widths);
    tcImage image(e16Bit, 150 * 64);
    Read(e16Bit, image);
    for (unsigned row : {0U, 63U, 64U, 149U}) {
        Feed(mCamera, {e16Bit, 1, 9, row, 0, 63, false});
        EXPECT_EQ(image.At(row * 64 + 63), 64U) << row;
    }
    EXPECT_EQ(mCamera.PixelsOutside(), 0U);
    for (unsigned row : {150U, 65534U}) {
        Feed(mCamera, {e16Bit, 1, 9, row, 0, 63, false});
    }
    EXPECT_EQ(mCamera.PixelsOutside(), 128U);
    EXPECT_TRUE(image.GuardsAreWhole());
}

// The greatest width of the regions is told to cameras where the rows used to be; it says nothing
// of the rows.
TEST_F(Placement, BoundsNarrowRegionsNotByTheirWidth)
{
    mCamera.TellGeometry(65535, 64);
    int rows[] = {2}, columns[] = {0}, heights[] = {3}, widths[] = {64};
    mCamera.SetAreaEx(1, rows, columns, heights, widths);
    tcImage image(e16Bit, 5 * 64);
    Read(e16Bit, image);
    for (unsigned row : {5U, 10U, 63U}) {
        Feed(mCamera, {e16Bit, 1, 9, row, 0, 63, false});
    }
    EXPECT_EQ(image.Touched(), 0U);
    mCamera.AbortRead();
    mCamera.SetCCDArea(0, 6, 64, 4);
    tcImage larger(e16Bit, 10 * 64);
    Read(e16Bit, larger);
    Feed(mCamera, {e16Bit, 1, 9, 9, 0, 63, false});
    EXPECT_EQ(larger.At(9 * 64), 1U) << "an area replaces the regions";
}

TEST_F(Placement, BoundsAnAreaAsTheCommandTellsIt)
{
    mCamera.TellGeometry(65535, 8);
    mCamera.SetCCDArea(0, 65536 + 2, 8, 65536 + 3);
    tcImage image(e16Bit, 5 * 8);
    Read(e16Bit, image);
    EXPECT_EQ(mCamera.LastSent().Short(1), 2);
    EXPECT_EQ(mCamera.LastSent().Short(3), 3);
    Feed(mCamera, {e16Bit, 1, 9, 5, 0, 7, false});
    EXPECT_EQ(image.Touched(), 0U);
    Feed(mCamera, {e16Bit, 1, 9, 4, 0, 7, false});
    EXPECT_EQ(image.Touched(), 16U);
}

TEST_F(Placement, TellsWhatTheBufferHasAlsoWhenTheGeometryChanges)
{
    EXPECT_NE(Initialize(4, 8), 0);
    for (bool isOwn : {false, true}) {
        for (teWidth width : gaWidths) {
            SCOPED_TRACE(NameOf(width));
            tcImage image(width, 32);
            void* const buffer = isOwn ? nullptr : image.Pointer();
            mCamera.AbortRead();
            if (width == e16Bit) mCamera.ReadCCDArea(static_cast<uint16_t*>(buffer), 2, 0);
            if (width == e32Bit) {
                mCamera.ReadCCDBinned(static_cast<long*>(buffer), nullptr, 2, 0);
            }
            if (width == e8Bit) mCamera.ReadCCDArea8(static_cast<uint8_t*>(buffer), 2, 0);
            mCamera.TellGeometry(400, 800);
            gaFrames.clear();
            Feed(mCamera, {width, 400, 400, 0, 0, 799, false});
            ASSERT_EQ(gaFrames.size(), 1U);
            EXPECT_NE(gaFrames[0].ImageBuffer, nullptr);
            EXPECT_EQ(gaFrames[0].SensorRows, 4);
            EXPECT_EQ(gaFrames[0].SensorColumns, 8);
            EXPECT_EQ(gaFrames[0].Rows, 4);
            EXPECT_EQ(gaFrames[0].Columns, 8);
            EXPECT_TRUE(image.GuardsAreWhole());
            mCamera.TellGeometry(4, 8);
        }
    }
}

TEST_F(Placement, TellsTheNewGeometryOfBuffersThatAreGivenLater)
{
    EXPECT_NE(Initialize(4, 8), 0);
    mCamera.TellGeometry(40, 80);
    tcImage image(e16Bit, 3200);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 40, 40, 39, 0, 79, true});
    EXPECT_EQ(gaFrames.back().SensorRows, 40);
    EXPECT_EQ(gaFrames.back().Columns, 80);
    EXPECT_EQ(image.At(3199), 80U);
    mCamera.ReadCCDArea(nullptr, 1, 0);
    Feed(mCamera, {e16Bit, 40, 40, 39, 0, 79, true});
    EXPECT_EQ(gaFrames.back().SensorRows, 4) << "the camera's own has the size it was made with";
    EXPECT_EQ(gaFrames.back().Rows, 4);
}

TEST_F(Placement, KeepsToTheGeometryItStartedWith)
{
    mCamera.TellGeometry(4, 8);
    tcImage area(e16Bit, 32), expectedArea(e16Bit, 32);
    Read(e16Bit, area);
    mCamera.TellGeometry(40, 80);
    tcImage binned(e32Bit, 3200), expectedBinned(e32Bit, 3200);
    Read(e32Bit, binned);
    mCamera.TellGeometry(2, 2);
    for (teWidth width : {e16Bit, e32Bit}) {
        Feed(mCamera, {width, 1, 2, 3, 7, 8, false});
        Feed(mCamera, {width, 1, 2, 39, 79, 79, false});
    }
    expectedArea.Set(31, 1);
    expectedBinned.Set(3 * 80 + 7, 1);
    expectedBinned.Set(3 * 80 + 8, 2);
    expectedBinned.Set(3199, 1);
    EXPECT_TRUE(area == expectedArea);
    EXPECT_TRUE(binned == expectedBinned);
}

TEST_F(Placement, KeepsToAGeometryToldWhileItRuns)
{
    tcImage image(e16Bit, 32);
    Read(e16Bit, image);
    mCamera.TellGeometry(4, 8);
    Feed(mCamera, {e16Bit, 1, 2, 1, 0, 9, false});
    Feed(mCamera, {e16Bit, 1, 2, 4, 0, 9, false});
    EXPECT_EQ(image.Touched(), 16U);
    EXPECT_TRUE(image.GuardsAreWhole());
}

TEST_F(Placement, OldStridesKeepWithinTheImageToo)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        for (unsigned version : {1, 2}) {
            tcImage image(width, 32);
            Compile({width, 1, 2, 0, 0, 9, false}, version, image.Pointer());
            Compile({width, 1, 2, 1, 0, 9, false}, version, image.Pointer());
            EXPECT_EQ(image.Touched(), 8 * BytesOf(width));
            EXPECT_TRUE(image.GuardsAreWhole());
        }
    }
}

// A buffer of another readout may lie where one did that is gone, and be smaller.
TEST_F(Placement, LooksAtNoPixelsOfAnEarlierReadout)
{
    constexpr size_t page = 4096;
    mCamera.TellGeometry(4, page / 2); // a row is a page
    void* const memory =
        mmap(nullptr, 4 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const pixels = static_cast<unsigned short*>(memory);
    mCamera.ReadCCDArea(pixels, 1, 0);
    Feed(mCamera, {e16Bit, 1, 4, 3, 0, 7, true});
    EXPECT_EQ(pixels[3 * page / 2 + 7], 8U);
    mCamera.AbortRead();
    mCamera.SetCCDArea(0, 0, page / 2, 1);
    ASSERT_EQ(mprotect(static_cast<char*>(memory) + page, 3 * page, PROT_NONE), 0);
    mCamera.ReadCCDArea(pixels, 1, 0);
    tsPixels backwards{e16Bit, 1, 3, 0, 7, 0, true};
    backwards.values.assign(8, 1);
    const tBytes garbage(20, 0x77);
    const tBytes bytes = backwards.Message().Bytes();
    mCamera.FeedParser(bytes, bytes.size());
    mCamera.FeedParser(garbage, garbage.size());
    Feed(mCamera, {e16Bit, 2, 3, 0, 0, 7, true}); // read what had been stored last
    EXPECT_EQ(pixels[7], 8U);
    mCamera.AbortRead();
    EXPECT_EQ(munmap(memory, 4 * page), 0);
}
