// Progress of readouts, how they end, and what may be done in their callbacks.
#include "pixels.h"
#include "vxcamiface.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// ---- Progress

TEST_F(Readout, ProgressIs100WithNothingPending)
{
    unsigned frame = 0;
    EXPECT_EQ(mCamera.PercentComplete(&frame), 100);
    EXPECT_EQ(frame, 1U);
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    mCamera.InitReqStackItem(eItemImage8, 1);
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100) << "8-bit readouts are not considered";
}

TEST_F(Readout, ProgressFollowsThePacketsOfTheFrame)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        tcImage image(width, 2048);
        Read(width, image, 2);
        unsigned frame = 0;
        EXPECT_EQ(mCamera.PercentComplete(&frame), 0);
        EXPECT_EQ(frame, 1U);
        Feed(mCamera, {width, 1, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 33);
        Feed(mCamera, {width, 2, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 66);
        EXPECT_EQ(frame, 1U);
        Feed(mCamera, {width, 3, 3, 0, 0, 0, false});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 0);
        EXPECT_EQ(frame, 2U);
        Feed(mCamera, {width, 3, 3, 0, 0, 0, true});
        EXPECT_EQ(mCamera.PercentComplete(&frame), 100);
    }
}

TEST_F(Readout, ProgressOfRepeatedPacketsEndsAt100)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    for (int i = 0; i < 15; ++i) {
        Feed(mCamera, {e16Bit, 1, 3});
        EXPECT_LE(mCamera.PercentComplete(nullptr), 100);
    }
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 100);
}

TEST_F(Readout, ProgressIsThatOfTheAreaWhenBothRun)
{
    tcImage area(e16Bit, 2048), binned(e32Bit, 2048);
    Read(e32Bit, binned);
    Read(e16Bit, area);
    Feed(mCamera, {e16Bit, 1, 4, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 25);
    mCamera.AbortRead();
    Read(e32Bit, binned);
    Read(e16Bit, area);
    Feed(mCamera, {e32Bit, 1, 4, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 0) << "nothing is known of the area yet";
}

TEST_F(Readout, ProgressOfNoPacketsAtAllIsZero)
{
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 0, 0, 0, 0, false});
    EXPECT_EQ(mCamera.PercentComplete(nullptr), 0);
}

// ---- Time-outs and abort

TEST_F(Readout, TimeoutStartsAnewWithEveryPacket)
{
    for (teWidth width : {e16Bit, e32Bit}) {
        tcTestCamera camera;
        camera.SetExposure(60000);
        if (width == e16Bit) camera.ReadCCDArea(nullptr, 1, 0);
        if (width == e32Bit) camera.ReadCCDBinned(nullptr, nullptr, 1, 0);
        camera.Tick(799); // the exposure and 20 s
        EXPECT_EQ(camera.numOpsPending(), 1);
        for (int i = 0; i < 3; ++i) {
            Feed(camera, {width, 1, 2, 0, 0, 0, false});
            camera.Tick(199);
            EXPECT_EQ(camera.numOpsPending(), 1);
        }
        camera.Tick();
        EXPECT_EQ(camera.numOpsPending(), 0);
    }
}

TEST_F(Readout, TimeoutBetweenPacketsIsTheOverride)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.OverrideImageTimout(300);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    mCamera.Tick(2);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
    mCamera.Tick();
    EXPECT_EQ(mCamera.numOpsPending(), 0);

    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.OverrideImageTimout(-300);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, false});
    mCamera.Tick(20000);
    EXPECT_EQ(mCamera.numOpsPending(), 1);
}

TEST_F(Readout, ThatTimedOutNeverTouchesTheCallersBufferAgain)
{
    mCamera.TellGeometry(4, 8);
    for (teWidth width : {e16Bit, e32Bit}) {
        gaFrames.clear();
        tcImage image(width, 32);
        unsigned short maximum = 0;
        if (width == e16Bit) mCamera.ReadCCDArea(image.Shorts(), 2, 0);
        if (width == e32Bit) mCamera.ReadCCDBinned(image.Longs(), &maximum, 2, 0);
        mCamera.Tick(200);
        EXPECT_EQ(mCamera.numOpsPending(), 0);
        mCamera.ForgetRecords();
        for (int i = 1; i <= 3; ++i) {
            Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
            ASSERT_EQ(gaFrames.size(), static_cast<size_t>(i)) << "but frames are still reported";
            EXPECT_EQ(gaFrames.back().ImageBuffer, nullptr);
            EXPECT_EQ(gaFrames.back().FrameIndex, i) << "and the frame limit is forgotten";
        }
        EXPECT_EQ(mCamera.Errors().size(), 3U);
        EXPECT_EQ(image.Touched(), 0U);
        EXPECT_EQ(maximum, 0);
    }
}

TEST_F(Readout, GivenUpByWaitCompletionNeverTouchesTheCallersBufferAgain)
{
    mCamera.TellGeometry(4, 8);
    tcImage area(e16Bit, 32), binned(e32Bit, 32);
    unsigned short maximum = 0;
    Read(e16Bit, area);
    mCamera.ReadCCDBinned(binned.Longs(), &maximum, 1, 0);
    EXPECT_EQ(mCamera.WaitCompletion(0), -2);
    for (teWidth width : gaWidths) {
        Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
    }
    EXPECT_EQ(area.Touched(), 0U);
    EXPECT_EQ(binned.Touched(), 0U);
    EXPECT_EQ(maximum, 0);
}

TEST_F(Readout, AbortSendsItsMessageAndEndsBothReadouts)
{
    EXPECT_NE(Initialize(4, 8), 0);
    tcImage area(e16Bit, 32), binned(e32Bit, 32);
    unsigned short maximum = 0;
    Read(e16Bit, area);
    mCamera.ReadCCDBinned(binned.Longs(), &maximum, 1, 0);
    mCamera.InitReqStackItem(eItemTrigger, 1);
    mCamera.ForgetRecords();
    EXPECT_EQ(mCamera.AbortRead(), 0);
    EXPECT_EQ(mCamera.LastSent().id, 0x4CU);
    EXPECT_TRUE(mCamera.LastSent().payload.empty());
    EXPECT_EQ(mCamera.Records(),
              std::vector<tsLogRecord>{DebugRecord(4, "tcVXCamera::AbortRead Entered")});
    EXPECT_EQ(mCamera.numOpsPending(), 1) << "other requests stay";
    gaFrames.clear();
    for (teWidth width : gaWidths) {
        Feed(mCamera, {width, 1, 1, 0, 0, 3, true, 0, 500});
    }
    EXPECT_EQ(area.Touched(), 0U);
    EXPECT_EQ(binned.Touched(), 0U);
    EXPECT_EQ(maximum, 0);
    EXPECT_EQ(gaFrames.size(), 3U);
    EXPECT_EQ(Read(e16Bit, area), 0);
    EXPECT_EQ(Read(e32Bit, binned), 0);
}

TEST_F(Readout, AbortReturnsTheResultOfTheSendAndEndsTheReadoutsAllTheSame)
{
    mCamera.ReadCCDArea(nullptr, 1, 0);
    mCamera.RefuseToSend(true);
    EXPECT_EQ(mCamera.AbortRead(), -1);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
}

TEST_F(Readout, AbortLeavesTheStatusOfAWaitingRequest)
{
    mCamera.SetScript([&](const tsSentMessage& sent) {
        if (sent.id == 0x36) mCamera.AbortRead();
    });
    tcMessage request(0x36, tcPayload().Fill(12, 0));
    tcImage image(e16Bit, 2048);
    EXPECT_EQ(mCamera.SendAndWait(request.get(), eItemImage16, image.Longs(), nullptr, 1), 0);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(image.Touched(), 0U);
}

TEST_F(Readout, CanBeWaitedForLikeAnyRequest)
{
    mCamera.SetScript([&](const tsSentMessage&) { FeedFrame(e16Bit, true); });
    tcMessage request(0x36, tcPayload().Fill(12, 0));
    tcImage image(e16Bit, 2048);
    EXPECT_EQ(mCamera.SendAndWait(request.get(), eItemImage16, image.Longs(), nullptr, 1), 0);
    EXPECT_EQ(image.At(0), 1U);
}

TEST_F(Readout, BufferMayGoAsSoonAsAbortReturns)
{
    mCamera.TellGeometry(8, 64);
    std::atomic<bool> stop{false};
    std::thread receiver([&] {
        for (unsigned row = 0; !stop; ++row) {
            Feed(mCamera, {e16Bit, 1 + row % 8, 8, row % 8, 0, 63, row % 3 == 0});
            if (row % 64 == 0) mCamera.ForgetRecords();
        }
    });
    for (int i = 0; i < 300; ++i) {
        auto image = std::make_unique<uint16_t[]>(8 * 64);
        mCamera.ReadCCDArea(image.get(), 1, 0);
        if (i % 2 == 0) mCamera.AbortRead();
        if (i % 2 == 1) mCamera.WaitCompletion(0);
    }
    stop = true;
    receiver.join();
}

// ---- In the callback

TEST_F(Readout, NextOneMayBeStartedInTheCallback)
{
    static tcTestCamera* camera;
    static uint16_t images[6][2048];
    static int started;
    camera = &mCamera;
    started = 0;
    memset(images, 0, sizeof images);
    mCamera.SetImageDataCallback([](int handle, tsImageData* image) {
        KeepFrame(handle, image);
        EXPECT_EQ(camera->numOpsPending(), 0);
        EXPECT_EQ(camera->PercentComplete(nullptr), 100);
        if (++started == 6) return;
        EXPECT_EQ(camera->ReadCCDArea(images[started], 1, 0), 0);
        EXPECT_EQ(camera->PercentComplete(nullptr), 0);
    });
    mCamera.ReadCCDArea(images[0], 1, 0);
    for (unsigned i = 0; i < 6; ++i) {
        Feed(mCamera, {e16Bit, 1, 2, 0, 0, 0, true});
        EXPECT_EQ(mCamera.PercentComplete(nullptr), 50);
        Feed(mCamera, {e16Bit, 2, 2, 0, i, i, true});
    }
    ASSERT_EQ(gaFrames.size(), 6U);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(gaFrames[i].FrameIndex, 1);
        EXPECT_EQ(gaFrames[i].ImageBuffer, images[i]);
        EXPECT_EQ(images[i][i], 1);
    }
    EXPECT_EQ(mCamera.SentCount(), 6U);
    EXPECT_EQ(mCamera.WaitCompletion(0), 0);
    EXPECT_TRUE(mCamera.Errors().empty());
}

TEST_F(Readout, StartedAnewInTheCallbackBeginsAtFrameOne)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData* image) {
        if (image->FramesDelivered != 1) return;
        camera->AbortRead();
        camera->ReadCCDArea(nullptr, 5, 0);
    });
    mCamera.ReadCCDArea(nullptr, 5, 0);
    unsigned index = 0;
    for (unsigned expected : {1, 2, 3}) {
        FeedFrame(e16Bit, false);
        mCamera.PercentComplete(&index);
        EXPECT_EQ(index, expected);
    }
}

TEST_F(Readout, OfTheOtherWidthMayBeStartedInTheCallback)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        if (camera->numOpsPending() == 0) camera->ReadCCDBinned(nullptr, nullptr, 3, 0);
    });
    mCamera.ReadCCDArea(nullptr, 1, 0);
    FeedFrame(e16Bit, true);
    unsigned index = 0;
    EXPECT_EQ(mCamera.PercentComplete(&index), 0);
    EXPECT_EQ(index, 1U);
    FeedFrame(e32Bit, false);
    mCamera.PercentComplete(&index);
    EXPECT_EQ(index, 2U);
}

TEST_F(Readout, MayBeAbortedAndFollowedBySettersInTheCallback)
{
    static tcTestCamera* camera;
    camera = &mCamera;
    mCamera.SetImageDataCallback([](int, tsImageData*) {
        EXPECT_EQ(camera->SetExposure(5), 0);
        EXPECT_EQ(camera->SetCCDArea(1, 2, 3, 4), 0);
        EXPECT_EQ(camera->AbortRead(), 0);
        EXPECT_EQ(camera->OverrideImageTimout(100), 0);
        EXPECT_EQ(camera->SetImageDataCallback(nullptr), 0);
    });
    tcImage image(e16Bit, 2048);
    Read(e16Bit, image, 5);
    FeedFrame(e16Bit, false);
    EXPECT_EQ(mCamera.numOpsPending(), 0);
    EXPECT_EQ(mCamera.SentCount(), 4U);
    const size_t touched = image.Touched();
    FeedFrame(e16Bit, false);
    EXPECT_EQ(image.Touched(), touched);
    EXPECT_TRUE(
        mCamera.Logged(ErrorRecord("tcVXCamera::CompileMessage16 NULL Image Buffer Pointer!")));
}
