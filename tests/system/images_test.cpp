// Readouts from the camera's sensor to the application's buffer.
#include "system_support.h"

namespace {

struct tsExpectation {
    int type, rows, columns, areaFirstColumn, areaFirstRow, extra1, extra2, frameIndex;
    unsigned framesDelivered;
    void* buffer;
    unsigned statistic;
};

void ExpectImageData(const tsExpectation& expected, const tsImageData& data)
{
    EXPECT_EQ(expected.type, data.ImageType);
    EXPECT_EQ(expected.rows, data.Rows);
    EXPECT_EQ(expected.columns, data.Columns);
    EXPECT_EQ(expected.areaFirstColumn, data.AreaFirstColumn);
    EXPECT_EQ(expected.areaFirstRow, data.AreaFirstRow);
    EXPECT_EQ(expected.extra1, data.Extra1);
    EXPECT_EQ(expected.extra2, data.Extra2);
    EXPECT_EQ(96, data.SensorColumns);
    EXPECT_EQ(64, data.SensorRows);
    EXPECT_EQ(expected.frameIndex, data.FrameIndex);
    EXPECT_EQ(expected.framesDelivered, data.FramesDelivered);
    EXPECT_EQ(expected.buffer, data.ImageBuffer);
    EXPECT_EQ(expected.statistic, data.Statistic);
}

unsigned StatisticOf32(const tsSimFrame& frame)
{
    return std::min(frame.maximum, 0xFFFFu);
}

unsigned StatisticOf16(const tsSimFrame& frame)
{
    return static_cast<unsigned>(frame.pixelSum / (frame.rows * frame.columns));
}

long* AsLong(tcImage<uint32_t>& image)
{
    return reinterpret_cast<long*>(image.Data());
}

} // namespace

class Images : public Camera
{
protected:
    // Asks for a pattern in which each pixel is the sum of its row, its column and `base`.
    void SetRamp(unsigned short base) { EXPECT_EQ(0, VXSetTestPattern(handle, 4, &base, 1)); }
};

// ---- 16 bits -----------------------------------------------------------------------------------

TEST_F(Images, ReadsAnAreaIn16Bits)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 30));
    ASSERT_EQ(0, VXSetCCDArea(handle, 10, 5, 40, 30));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));

    const auto frames = sim->Frames();
    ASSERT_EQ(1u, frames.size());
    EXPECT_TRUE(frames[0].complete);
    EXPECT_TRUE(frames[0].lastFrame);
    EXPECT_EQ(16u, frames[0].bits);
    EXPECT_DOUBLE_EQ(0.03, frames[0].exposure);
    EXPECT_EQ(frames[0].pixelSum, image.Sum(5, 10, 30, 40));
    EXPECT_TRUE(image.IsUntouchedOutside(5, 10, 30, 40));

    const auto shots = events.Shots();
    ASSERT_EQ(1u, shots.size());
    EXPECT_EQ(handle, shots[0].handle);
    ExpectImageData({0, 30, 40, 10, 5, 0, 0, 1, 1, image.Data(), StatisticOf16(frames[0])},
                    shots[0].data);
    EXPECT_EQ(100, VXGetReadProgress(handle, nullptr));
    EXPECT_EQ(0, VXisCameraReady(handle));
    EXPECT_TRUE(events.Errors().empty());
}

TEST_F(Images, PutsEveryPixelOfAnAreaInItsPlace)
{
    Open();
    SetRamp(1000);
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    ASSERT_EQ(0, VXSetCCDArea(handle, 91, 60, 5, 4)); // the last corner
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    for (uint32_t row = 60; row < nRows; ++row) {
        for (uint32_t column = 91; column < nColumns; ++column)
            ASSERT_EQ(1000 + row + column, image.At(row, column));
    }
    EXPECT_TRUE(image.IsUntouchedOutside(60, 91, 4, 5));
}

TEST_F(Images, ReadsALargeSensor)
{
    tsSimOptions options = Options();
    options.columns = 1280;
    options.rows = 1024;
    Open(options);
    tcImage<uint16_t> image(1024, 1280);
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXSetCCDArea(handle, 0, 0, 1280, 1024));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(sim->Frames().back().pixelSum, image.Sum(0, 0, 1024, 1280));
    EXPECT_TRUE(image.IsUntouchedOutside(0, 0, 1024, 1280));
}

TEST_F(Images, ReadsThreeFrames)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    events.SetImageBytes(image.Bytes());
    ASSERT_EQ(0, VXSetExposure(handle, 10));
    ASSERT_EQ(0, VXSetCCDArea(handle, 0, 0, nColumns, nRows));
    for (unsigned readout = 0; readout < 2; ++readout) {
        events.Clear();
        ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 3, 0));
        ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));

        const auto frames = sim->Frames();
        const auto shots = events.Shots();
        ASSERT_EQ(3 * (readout + 1), frames.size());
        ASSERT_EQ(3u, shots.size());
        for (unsigned i = 0; i < 3; ++i) {
            const tsSimFrame& frame = frames[3 * readout + i];
            EXPECT_EQ(i + 1, frame.frame);
            EXPECT_EQ(i == 2, frame.lastFrame);
            ExpectImageData({0, nRows, nColumns, 0, 0, 0, 0, static_cast<int>(i + 1),
                             3 * readout + i + 1, image.Data(), StatisticOf16(frame)},
                            shots[i].data);
            memcpy(image.Data(), shots[i].image.data(), image.Bytes());
            EXPECT_EQ(frame.pixelSum, image.Sum(0, 0, nRows, nColumns));
        }
        EXPECT_NE(shots[0].image, shots[1].image); // noise differs
    }
}

TEST_F(Images, ReadsFramesWithoutEndUntilAborted)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXSetCCDArea(handle, 0, 0, nColumns, nRows));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 0, 0));
    ASSERT_TRUE(WaitUntil([&] { return events.Shots().size() >= 20; }));
    EXPECT_EQ(-1, VXisCameraReady(handle));
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_EQ(0, VXisCameraReady(handle));
    const auto shots = events.Shots();
    for (size_t i = 0; i < shots.size(); ++i)
        EXPECT_EQ(static_cast<int>(i + 1), shots[i].data.FrameIndex);
}

TEST_F(Images, RefusesASecondReadoutWhileOneRuns)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns), other(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 200));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    EXPECT_EQ(-1, VXReadCCDArea(handle, other.Data(), 1, 0));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(sim->Frames().back().pixelSum, image.Sum(0, 0, nRows, nColumns));
    EXPECT_TRUE(other.IsUntouched());
    EXPECT_TRUE(events.Errors().empty()); // the camera has heard nothing of it
}

TEST_F(Images, StartsTheNextReadoutInTheCallback)
{
    Open();
    static tcImage<uint16_t> image(nRows, nColumns);
    static std::atomic<int> delivered;
    delivered = 0;
    VXSetImageDataCallback(handle, [](int camera, tsImageData*) {
        if (++delivered < 10) VXReadCCDArea(camera, image.Data(), 1, 0);
    });
    ASSERT_EQ(0, VXSetExposure(handle, 1));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    EXPECT_TRUE(WaitUntil([] { return delivered == 10; }));
    EXPECT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_EQ(10u, sim->Statistics().framesComplete);
}

// ---- 32 bits -----------------------------------------------------------------------------------

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

// ---- Abort and time-out ------------------------------------------------------------------------

TEST_F(Images, AbortsAnExposure)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 60000));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    EXPECT_EQ(-1, VXisCameraReady(handle));
    EXPECT_EQ(0, VXGetReadProgress(handle, nullptr));
    const auto start = steady_clock::now();
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_EQ(0, VXisCameraReady(handle));
    EXPECT_EQ(0, VXWaitCompletion(handle, 0));
    EXPECT_LT(ElapsedMs(start), 100);
    EXPECT_TRUE(events.Shots().empty());
    EXPECT_TRUE(image.IsUntouched());

    // The camera has stopped, too: it takes the next readout.
    const auto next = Expose(1);
    EXPECT_TRUE(events.Errors().empty());
    ASSERT_EQ(1u, events.Shots().size());
    EXPECT_EQ(1u, events.Shots()[0].data.FramesDelivered);
    EXPECT_EQ(sim->Frames().back().pixelSum, next.Sum(0, 0, nRows, nColumns));
}

TEST_F(Images, AbortsAFrameThatIsArriving)
{
    tsSimOptions options = Options();
    options.lineRate = 200;
    Open(options);
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    unsigned frame = 0;
    ASSERT_TRUE(WaitUntil([&] { return VXGetReadProgress(handle, &frame) >= 10; }));
    EXPECT_EQ(1u, frame);
    const auto start = steady_clock::now();
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_LT(ElapsedMs(start), 100);
    const tcImage<uint16_t> after = image;
    EXPECT_EQ(100, VXGetReadProgress(handle, nullptr));
    EXPECT_EQ(0, VXisCameraReady(handle));

    long exposure = -1; // whatever was under way has arrived before the answer
    ASSERT_EQ(0, VXGetExposureTime(handle, &exposure));
    EXPECT_TRUE(image == after);
    EXPECT_TRUE(events.Shots().empty());
    ASSERT_TRUE(WaitUntil([&] { return sim->Statistics().framesAborted == 1; }));
    const auto frames = sim->Frames();
    EXPECT_TRUE(frames.back().aborted);
    EXPECT_LT(frames.back().packets, frames.back().totalPackets);
}

TEST_F(Images, TimesAReadoutOutThatDoesNotCome)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXOverrideImageTimout(handle, 300));
    ASSERT_EQ(0, VXSetExposure(handle, 60000));
    const auto start = steady_clock::now();
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    EXPECT_EQ(-1, VXisCameraReady(handle));
    ASSERT_EQ(0, VXWaitCompletion(handle, gnPatienceMs));
    EXPECT_GE(ElapsedMs(start), 200); // three steps of 100 ms, of which the first has begun
    EXPECT_LT(ElapsedMs(start), 1000);
    EXPECT_TRUE(events.Shots().empty());
    EXPECT_TRUE(image.IsUntouched());
    EXPECT_EQ(0, VXAbortRead(handle));
}

TEST_F(Images, GivesAReadoutUpWhenTheWaitEnds)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 400));
    ASSERT_EQ(0, VXSetCCDArea(handle, 0, 0, nColumns, nRows));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    const auto start = steady_clock::now();
    EXPECT_EQ(-2, VXWaitCompletion(handle, 100));
    EXPECT_GE(ElapsedMs(start), 100);
    EXPECT_EQ(0, VXisCameraReady(handle));

    // The frame comes all the same, and is reported, but not to the application's buffer.
    ASSERT_TRUE(WaitUntil([&] { return events.Shots().size() == 1; }));
    const auto frames = sim->Frames();
    ExpectImageData({0, nRows, nColumns, 0, 0, 0, 0, 1, 1, nullptr, StatisticOf16(frames.back())},
                    events.Shots()[0].data);
    EXPECT_TRUE(image.IsUntouched());

    const auto next = Expose(1);
    EXPECT_EQ(sim->Frames().back().pixelSum, next.Sum(0, 0, nRows, nColumns));
}

// ---- What the picture shows --------------------------------------------------------------------

TEST_F(Images, GrowBrighterWithTheExposure)
{
    tsSimOptions options = Options();
    options.timeScale = 100;
    Open(options);
    const double bias = Mean(Expose(0)), shortly = Mean(Expose(20)), longly = Mean(Expose(200));
    EXPECT_NEAR(1000, bias, 5);
    EXPECT_GT(shortly, bias + 1); // sky and dark current alone
    EXPECT_LT(sim->Frames().back().maximum, 0xFFFFu);
    EXPECT_NEAR(10.0, (longly - bias) / (shortly - bias), 1.0);
}

TEST_F(Images, GrowDarkerWithTheCooling)
{
    tsSimOptions options = Options();
    options.timeScale = 100;
    options.heartbeatSeconds = 0.02;
    Open(options);
    constexpr unsigned short dark = 1; // the shutter stays closed
    const double warm = Mean(Expose(10000, dark)) - 1000;
    ASSERT_EQ(0, VXSetCCDTargetTemp(handle, -20.0f));
    ASSERT_EQ(0, VXSetCooling(handle, 1));
    short tenths = 0;
    ASSERT_TRUE(WaitUntil([&] { return VXGetCCDTemp(handle, &tenths) == 0 && tenths <= -195; }));
    const double cold = Mean(Expose(10000, dark)) - 1000;
    EXPECT_GT(warm, 150);
    EXPECT_LT(cold, warm / 20);
}
