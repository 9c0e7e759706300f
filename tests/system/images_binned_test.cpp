// Binned readouts from the camera's sensor to the application's buffer.
#include "images_support.h"
#include "system_support.h"

namespace {

unsigned StatisticOf32(const tsSimFrame& frame)
{
    return std::min(frame.maximum, 0xFFFFu);
}

long* AsLong(tcImage<uint32_t>& image)
{
    return reinterpret_cast<long*>(image.Data());
}

} // namespace

TEST_F(Images, ReadsBinnedIn32Bits)
{
    Open();
    tcImage<uint32_t> image(nRows, nColumns);
    unsigned short maximum = 77;
    ASSERT_EQ(0, VXSetExposure(handle, 30));
    ASSERT_EQ(0, VXSetCCDArea(handle, 10, 5, 40, 30)); // does not matter to binned readouts
    ASSERT_EQ(0, VXReadCCDBinned(handle, AsLong(image), &maximum, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));

    const auto frames = sim->Frames();
    ASSERT_EQ(1u, frames.size());
    EXPECT_TRUE(frames[0].complete);
    EXPECT_EQ(32u, frames[0].bits);
    EXPECT_EQ(frames[0].pixelSum, image.Sum(0, 0, 32, 48));
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, 32, 48));
    const auto shots = events.Shots();
    ASSERT_EQ(1u, shots.size());
    ExpectImageData({1, 32, 48, 0, 0, 2, 2, 1, 1, image.Data(), StatisticOf32(frames[0])},
                    shots[0].data);
    EXPECT_EQ(StatisticOf32(frames[0]), maximum);
}

TEST_F(Images, SumsThePixelsOfEachBin)
{
    Open();
    SetRamp(1000);
    tcImage<uint32_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    ASSERT_EQ(0, VXSetSimpleBinning(handle, 4, 3, 1.0f, 0.0f));
    ASSERT_EQ(0, VXReadCCDBinned(handle, AsLong(image), nullptr, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    for (uint32_t row = 0; row < nRows / 4; ++row) {
        for (uint32_t column = 0; column < nColumns / 3; ++column) {
            const uint32_t rows = 16 * row + 6, columns = 9 * column + 3; // sums of 4 and of 3
            ASSERT_EQ(12 * 1000 + 3 * rows + 4 * columns, image.At(row, column));
        }
    }
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, nRows / 4, nColumns / 3));
    ASSERT_EQ(1u, events.Shots().size());
    EXPECT_EQ(4, events.Shots()[0].data.Extra1);
    EXPECT_EQ(3, events.Shots()[0].data.Extra2);
}

TEST_F(Images, BinsByTables)
{
    Open();
    unsigned short value = 100;
    ASSERT_EQ(0, VXSetTestPattern(handle, 1, &value, 1)); // every pixel the same
    std::vector<unsigned char> rows(nRows, 0), columns(nColumns, 0);
    rows[9] = rows[29] = 1;                       // groups of 10, 20 and 34 rows
    columns[0] = columns[47] = columns[95] = 255; // groups of 1, 47 and 48 columns
    ASSERT_EQ(0, VXSetBinParam(handle, rows.data(), 3));
    ASSERT_EQ(0, VXSetHorBinParam(handle, columns.data(), 3));
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    tcImage<uint32_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDBinned(handle, AsLong(image), nullptr, 1, 3));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const uint32_t heights[] = {10, 20, 34}, widths[] = {1, 47, 48};
    for (uint32_t row = 0; row < 3; ++row) {
        for (uint32_t column = 0; column < 3; ++column)
            EXPECT_EQ(100 * heights[row] * widths[column], image.At(row, column));
    }
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, 3, 3));
    const auto shots = events.Shots();
    ASSERT_EQ(1u, shots.size());
    ExpectImageData({1, 3, 3, 0, 0, 10, 1, 1, 1, image.Data(), 0xFFFF}, shots[0].data);
}

TEST_F(Images, ReadsMaskBinnedIn32Bits)
{
    Open();
    unsigned short value = 100;
    ASSERT_EQ(0, VXSetTestPattern(handle, 1, &value, 1));
    std::vector<unsigned char> mask(nRows * nColumns, 0);
    std::fill_n(mask.begin(), 500, 1);
    std::fill_n(mask.begin() + 600, 7, 2);
    mask.back() = 4; // bin 3 stays empty
    ASSERT_EQ(0, VXSetBinMaskParam(handle, mask.data(), 0));
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    tcImage<uint32_t> image(nRows, nColumns);
    unsigned short maximum = 0;
    ASSERT_EQ(0, VXReadCCDMaskBinned(handle, AsLong(image), &maximum, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(50000u, image.At(0, 0));
    EXPECT_EQ(700u, image.At(0, 1));
    EXPECT_EQ(0u, image.At(0, 2));
    EXPECT_EQ(100u, image.At(0, 3));
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, 1, 4));
    EXPECT_EQ(50800u, sim->Frames().back().pixelSum);
    const auto shots = events.Shots();
    ASSERT_EQ(1u, shots.size());
    ExpectImageData({1, 1, 4, 0, 0, 0, 0, 1, 1, image.Data(), 50000}, shots[0].data);
    EXPECT_EQ(50000, maximum);
}

TEST_F(Images, ReadsThreeBinnedFramesOfWhichTheMaximumIsKept)
{
    Open();
    tcImage<uint32_t> image(nRows, nColumns);
    events.SetImageBytes(image.Bytes());
    unsigned short maximum = 0;
    ASSERT_EQ(0, VXSetExposure(handle, 10));
    ASSERT_EQ(0, VXReadCCDBinned(handle, AsLong(image), &maximum, 3, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto frames = sim->Frames();
    const auto shots = events.Shots();
    ASSERT_EQ(3u, frames.size());
    ASSERT_EQ(3u, shots.size());
    unsigned largest = 0;
    for (unsigned i = 0; i < 3; ++i) {
        ExpectImageData({1, 32, 48, 0, 0, 2, 2, static_cast<int>(i + 1), i + 1, image.Data(),
                         StatisticOf32(frames[i])},
                        shots[i].data);
        memcpy(image.Data(), shots[i].image.data(), image.Bytes());
        EXPECT_EQ(frames[i].pixelSum, image.Sum(0, 0, 32, 48));
        largest = std::max(largest, StatisticOf32(frames[i]));
    }
    EXPECT_EQ(largest, maximum);
}

TEST_F(Images, CountsTheFramesOfAllReadoutsTogether)
{
    Open();
    tcImage<uint16_t> narrow(nRows, nColumns);
    tcImage<uint32_t> wide(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXReadCCDArea(handle, narrow.Data(), 2, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    ASSERT_EQ(0, VXReadCCDBinned(handle, AsLong(wide), nullptr, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    const auto shots = events.Shots();
    ASSERT_EQ(3u, shots.size());
    EXPECT_EQ(1, shots[2].data.FrameIndex);
    EXPECT_EQ(3u, shots[2].data.FramesDelivered);
}

TEST_F(Images, UsesABufferOfTheCamerasOwn)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    events.SetImageBytes(image.Bytes());
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXReadCCDArea(handle, nullptr, 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    ASSERT_EQ(1u, events.Shots().size());
    ASSERT_NE(nullptr, events.Shots()[0].data.ImageBuffer);
    memcpy(image.Data(), events.Shots()[0].image.data(), image.Bytes());
    EXPECT_EQ(sim->Frames().back().pixelSum, image.Sum(0, 0, nRows, nColumns));
}
