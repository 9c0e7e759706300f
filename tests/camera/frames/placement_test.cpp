// Where pixels go in the image.
#include "pixels.h"

#include <gtest/gtest.h>

TEST_F(Placement, PlacesARowAtItsColumnsOnASensorOf1280)
{
    mCamera.TellGeometry(1024, 1280);
    tcImage image(e16Bit, 1024 * 1280);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 2, 2, 10, 19, false});
    for (unsigned i = 0; i < 10; ++i) {
        EXPECT_EQ(image.At(2 * 1280 + 10 + i), i + 1);
    }
    EXPECT_EQ(image.Touched(), 20U);
}

TEST_F(Placement, PlacesByTheInterfaceVersion)
{
    mCamera.TellGeometry(1000, 2000);
    for (teWidth width : gaWidths) {
        for (unsigned version : {0, 1, 2, 3, 4, 255}) {
            SCOPED_TRACE(testing::Message() << NameOf(width) << " of version " << version);
            tcImage image(width, 5000);
            tsPixels pixels{width, 1, 2, 2, 10, 14, false};
            EXPECT_EQ(Compile(pixels, version, image.Pointer()), 0);
            const size_t stride = width == e8Bit || version > 2 ? 2000 : 1024;
            tcImage expected(width, 5000);
            for (unsigned i = 0; i < 5; ++i) {
                expected.Set(2 * stride + 10 + i, i + 1);
            }
            EXPECT_TRUE(image == expected);
        }
    }
}

TEST_F(Placement, PlacesByTheFirstAssumptionUntilTheCameraToldItsGeometry)
{
    for (teWidth width : gaWidths) {
        tcImage image(width, 8000), expected(width, 8000);
        EXPECT_EQ(Compile({width, 1, 2, 7, 3, 4, false}, 3, image.Pointer()), 0);
        expected.Set(7 * 1024 + 3, 1);
        expected.Set(7 * 1024 + 4, 2);
        EXPECT_TRUE(image == expected) << NameOf(width);
    }
}

TEST_F(Placement, KeepsAll32BitsOfAPixel)
{
    mCamera.TellGeometry(4, 8);
    tcImage image(e32Bit, 32);
    Read(e32Bit, image);
    tsPixels pixels{e32Bit, 1, 1, 1, 2, 3, true};
    pixels.values = {0xDEADBEEF, 0x80000001};
    Feed(mCamera, pixels);
    EXPECT_EQ(image.At(10), 0xDEADBEEF);
    EXPECT_EQ(image.At(11), 0x80000001);
    EXPECT_EQ(image.Touched(), 8U);
}

TEST_F(Placement, LogsEveryPacketAndTheFirstTotal)
{
    mCamera.TellGeometry(100, 100);
    for (teWidth width : gaWidths) {
        SCOPED_TRACE(NameOf(width));
        mCamera.AbortRead();
        tcImage image(width, 10000);
        const std::string received =
            std::string("tcVXCamera::") + NameOf(width) + " Received Cols (3 though 5), Row 9";
        if (width != e8Bit) Read(width, image);
        if (width == e8Bit) mCamera.ReadCCDArea(nullptr, 1, 0); // its count of packets is shared
        mCamera.ForgetRecords();
        Compile({width, 1, 6, 9, 3, 5, false}, 3, image.Pointer());
        Compile({width, 2, 6, 9, 3, 5, false}, 3, image.Pointer());
        std::vector<tsLogRecord> expected{DebugRecord(10, received)};
        if (width != e32Bit) expected.push_back(DebugRecord(1, "Number of image packets is 6"));
        expected.push_back(DebugRecord(10, received));
        EXPECT_EQ(mCamera.Records(), expected);
    }
}

TEST_F(Placement, PlacesAndReportsPacketsOfAnotherTotalAndKeepsTheFirst)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        SCOPED_TRACE(NameOf(width));
        tcImage image(width, 32);
        Read(width, image);
        mCamera.ForgetRecords();
        Feed(mCamera, {width, 1, 4, 0, 0, 0, false});
        Feed(mCamera, {width, 2, 5, 1, 0, 0, false});
        EXPECT_EQ(image.At(8), 1U);
        EXPECT_EQ(mCamera.Errors(),
                  std::vector<std::string>{std::string("tcVXCamera::") + NameOf(width) +
                                           " Bad Total Number of Packets (expected 4, got 5)"});
        EXPECT_EQ(mCamera.PercentComplete(nullptr), 50);
        Feed(mCamera, {width, 3, 4, 1, 0, 0, false});
        EXPECT_EQ(mCamera.Errors().size(), 1U);
        FeedFrame(width, true);
    }
}

TEST_F(Placement, ExpectsTheFirstTotalThroughoutAReadoutAndANewOneInTheNext)
{
    mCamera.TellGeometry(4, 8);
    tcImage image(e16Bit, 32);
    Read(e16Bit, image, 2);
    Feed(mCamera, {e16Bit, 1, 1, 0, 0, 0, false});
    const auto wanted =
        ErrorRecord("tcVXCamera::CompileMessage16 Bad Total Number of Packets (expected 1, got 2)");
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    EXPECT_EQ(mCamera.Count(wanted), 1U);
    Feed(mCamera, {e16Bit, 2, 2, 0, 0, 0, true});
    EXPECT_EQ(mCamera.Count(wanted), 2U);
    EXPECT_EQ(mCamera.Errors().size(), 2U);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 3, 0, 0, 0, false});
    EXPECT_EQ(mCamera.Errors().size(), 2U);
}
