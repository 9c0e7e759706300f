// Readouts from the camera's sensor to the application's buffer.
#include "images_support.h"
#include "system_support.h"

namespace {

unsigned StatisticOf16(const tsSimFrame& frame)
{
    return static_cast<unsigned>(frame.pixelSum / (frame.rows * frame.columns));
}

} // namespace

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
    EXPECT_LT(ElapsedMs(start), Within(1000)); // of a minute
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
    options.lineRate = 10; // six seconds for the frame
    Open(options);
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 0));
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 1, 0));
    unsigned frame = 0;
    ASSERT_TRUE(WaitUntil([&] { return VXGetReadProgress(handle, &frame) >= 10; }));
    EXPECT_EQ(1u, frame);
    const auto start = steady_clock::now();
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_LT(ElapsedMs(start), 2000);
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
    EXPECT_LT(ElapsedMs(start), Within(3000)); // not the 80 s of a readout left to itself
    EXPECT_TRUE(events.Shots().empty());
    EXPECT_TRUE(image.IsUntouched());
    EXPECT_EQ(0, VXAbortRead(handle));
}

TEST_F(Images, GivesAReadoutUpWhenTheWaitEnds)
{
    Open();
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXSetExposure(handle, 3000));
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
