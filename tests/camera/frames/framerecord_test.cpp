// What the application is told of frames and readouts beside the pixels.
#include "framerecord_support.h"
#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// ---- Frames

TEST_F(FrameRecord, DescribesACompleteFrame)
{
    tcImage image(e16Bit, 128);
    mCamera.SetExposure(125);
    mCamera.SetCCDArea(2, 3, 10, 4);
    const tsMoment before = {};
    Read(e16Bit, image, 2);
    for (unsigned i = 0; i < 4; ++i) {
        Feed(mCamera, {e16Bit, i + 1, 4, 3 + i, 2, 11, false, 2, 777});
    }
    ASSERT_EQ(mTold.size(), 1U);
    const tsFrameRecord& record = Record();
    EXPECT_EQ(record.Size, sizeof record);
    EXPECT_EQ(record.Kind, eReadoutArea);
    EXPECT_EQ(record.Bits, 16U);
    EXPECT_EQ(record.Outcome, eFrameComplete);
    EXPECT_EQ(record.Readout, 1U);
    EXPECT_EQ(record.Frame, 1U);
    EXPECT_EQ(record.IsLast, 0U);
    EXPECT_EQ(record.ImageType, 3U);
    EXPECT_EQ(record.Buffer, image.Pointer());
    EXPECT_EQ(record.Room, 128U);
    EXPECT_EQ(record.Rows, 4U);
    EXPECT_EQ(record.Columns, 10U);
    EXPECT_EQ(record.FirstRow, 3U);
    EXPECT_EQ(record.FirstColumn, 2U);
    EXPECT_EQ(record.Stride, 16U);
    EXPECT_EQ(record.Statistic, 777U);
    EXPECT_EQ(record.Area[0], 2);
    EXPECT_EQ(record.Area[1], 3);
    EXPECT_EQ(record.Area[2], 10);
    EXPECT_EQ(record.Area[3], 4);
    EXPECT_EQ(record.SensorRows, 8U);
    EXPECT_EQ(record.SensorColumns, 16U);
    EXPECT_EQ(record.PacketsExpected, 4U);
    EXPECT_EQ(record.PacketsMissing, 0U);
    EXPECT_EQ(record.PacketsMisplaced, 0U);
    EXPECT_EQ(record.PacketsDamaged, 0U);
    EXPECT_EQ(record.MissingBits, nullptr);
    EXPECT_EQ(record.MissingRows, nullptr);
    EXPECT_EQ(record.Exposure, 125U);
    EXPECT_LT(before.Monotonic, record.CommandBegun.Monotonic);
    const tsMoment* const order[] = {&record.CommandBegun, &record.CommandSent, &record.FirstPacket,
                                     &record.LastPacket};
    for (int i = 0; i < 3; ++i) {
        EXPECT_LE(order[i]->Monotonic, order[i + 1]->Monotonic) << i;
        EXPECT_LE(order[i]->Realtime, order[i + 1]->Realtime) << i;
    }
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Record().Frame, 2U);
    EXPECT_EQ(Record().IsLast, 1U);
}

TEST_F(FrameRecord, TellsTheTimesOfBothClocks)
{
    const auto now = [](clockid_t clock) {
        timespec time;
        clock_gettime(clock, &time);
        return int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
    };
    const int64_t monotonic = now(CLOCK_MONOTONIC), realtime = now(CLOCK_REALTIME);
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    Feed(mCamera, {e16Bit, 1, 2, 0, 0, 15, true});
    const int64_t between = now(CLOCK_MONOTONIC);
    Feed(mCamera, {e16Bit, 2, 2, 0, 0, 15, true});
    EXPECT_LE(monotonic, Record().CommandBegun.Monotonic);
    EXPECT_LE(realtime, Record().CommandBegun.Realtime);
    EXPECT_LE(Record().FirstPacket.Monotonic, between);
    EXPECT_GE(Record().LastPacket.Monotonic, between);
    EXPECT_LE(Record().LastPacket.Monotonic, now(CLOCK_MONOTONIC));
    EXPECT_LE(Record().LastPacket.Realtime, now(CLOCK_REALTIME));
}

// The first packet may be there before the thread that sent the command has come to look at the
// clock.
TEST_F(FrameRecord, HasTheCommandSentBeforeTheFirstPacketHoweverLateThatIsNoted)
{
    tcImage image(e16Bit, 128);
    mCamera.SetScript([this](const tsSentMessage&) {
        Feed(mCamera, {e16Bit, 1, 2, 0, 0, 15, true}); // within the call that sends
    });
    Read(e16Bit, image);
    mCamera.SetScript(nullptr);
    Feed(mCamera, {e16Bit, 2, 2, 0, 0, 15, true});
    ASSERT_EQ(mTold.size(), 1U);
    EXPECT_LE(Record().CommandBegun.Monotonic, Record().CommandSent.Monotonic);
    EXPECT_LE(Record().CommandSent.Monotonic, Record().FirstPacket.Monotonic);
    EXPECT_LE(Record().CommandSent.Realtime, Record().FirstPacket.Realtime);
}

TEST_F(FrameRecord, ComesBehindTheImageCallbackWithAllOfTheFrame)
{
    static const std::vector<tsTold>* told;
    static size_t toldBefore;
    told = &mTold;
    toldBefore = 99;
    mCamera.SetImageDataCallback([](int, tsImageData*) { toldBefore = told->size(); });
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(toldBefore, 0U);
    EXPECT_EQ(mTold.size(), 1U);
}

TEST_F(FrameRecord, OfABinnedFrameCountsItsRowsFromTheFirst)
{
    tcImage image(e32Bit, 128);
    Read(e32Bit, image);
    for (unsigned i = 0; i < 4; ++i) {
        Feed(mCamera, {e32Bit, i + 1, 4, i, 0, 7, true, 0, 500, 2, 3});
    }
    EXPECT_EQ(Record().Kind, eReadoutBinned);
    EXPECT_EQ(Record().Bits, 32U);
    EXPECT_EQ(Record().Rows, 4U);
    EXPECT_EQ(Record().Columns, 8U);
    EXPECT_EQ(Record().FirstRow, 0U);
    EXPECT_EQ(Record().Stride, 16U);
    EXPECT_EQ(Record().Extra1, 2U);
    EXPECT_EQ(Record().Extra2, 3U);
    EXPECT_EQ(Record().Area[2], 0);
    mCamera.ReadCCDMaskBinned(image.Longs(), nullptr, 1, 0);
    Feed(mCamera, {e32Bit, 1, 1, 0, 0, 4, true});
    EXPECT_EQ(Record().Kind, eReadoutMaskBinned);
    EXPECT_EQ(Record().Readout, 2U);
    EXPECT_EQ(Record().Rows, 1U);
    EXPECT_EQ(Record().Columns, 5U);
}

TEST_F(FrameRecord, OfAnUnsetAreaTellsWhatCame)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    FeedRows(e16Bit, 4, {1}, true, 2, 2, 3, 5);
    EXPECT_EQ(Record().FirstRow, 2U);
    EXPECT_EQ(Record().FirstColumn, 5U);
    EXPECT_EQ(Record().Rows, 4U);
    EXPECT_EQ(Record().Columns, 6U);
    EXPECT_EQ(Rows(), tRows{0});
}

TEST_F(FrameRecord, Of8BitsSaysSo)
{
    tcImage image(e8Bit, 128);
    mCamera.ReadCCDArea8(static_cast<unsigned char*>(image.Pointer()), 1, 0);
    FeedRows(e8Bit, 8, {});
    EXPECT_EQ(Record().Kind, eReadoutArea);
    EXPECT_EQ(Record().Bits, 8U);
    EXPECT_EQ(Record().Buffer, image.Pointer());
    EXPECT_EQ(Record().IsLast, 1U);
    mCamera.ReadCCDArea(nullptr, 1, 0x0008);
    FeedRows(e8Bit, 8, {});
    EXPECT_EQ(Record().Bits, 8U) << "an ordinary readout that is answered so";
    EXPECT_EQ(Record().Readout, 2U);
    EXPECT_EQ(Record().Buffer, nullptr);
    EXPECT_EQ(Record().IsLast, 1U);
    EXPECT_EQ(Result(), eReadoutComplete);
}

TEST_F(FrameRecord, IsNotToldOfFramesThatNoReadoutAskedFor)
{
    FeedFrame(e16Bit, true);
    mCamera.ReadCCDArea(nullptr, 2, 0);
    FeedFrame(e32Bit, true);
    FeedFrame(e16Bit, false);
    EXPECT_EQ(mTold.size(), 1U);
    mCamera.AbortRead();
    FeedFrame(e16Bit, true);
    EXPECT_EQ(mTold.size(), 1U);
    EXPECT_EQ(gaFrames.size(), 4U);
}

TEST_F(FrameRecord, KeepsToTheGeometryItStartedWith)
{
    tcImage image(e16Bit, 128);
    Read(e16Bit, image);
    mCamera.TellGeometry(800, 1600);
    FeedRows(e16Bit, 8, {});
    EXPECT_EQ(Record().Room, 128U);
    EXPECT_EQ(Record().Rows, 8U);
    EXPECT_EQ(Record().Columns, 16U);
    EXPECT_EQ(Record().Stride, 16U);
    EXPECT_EQ(Record().SensorRows, 8U);
}

TEST_F(FrameRecord, NeverTellsMoreThanTheBufferHas)
{
    tcImage image(e16Bit, 128);
    mCamera.SetCCDArea(4, 6, 100, 200);
    Read(e16Bit, image, 2);
    FeedRows(e16Bit, 2, {}, false, 6, 1, 12, 4);
    EXPECT_EQ(Record().Rows, 2U);
    EXPECT_EQ(Record().Columns, 12U);
    mCamera.AbortRead();
    mCamera.SetCCDArea(40, 60, 100, 200);
    Read(e16Bit, image, 2);
    FeedFrame(e16Bit, true);
    EXPECT_LE(Record().FirstRow + Record().Rows, 8U);
    EXPECT_LE(Record().FirstColumn + Record().Columns, 16U);
}

// ---- Areas that change

// Whatever another thread sets meanwhile.
TEST_F(FrameRecord, TellsTheAreaThatTheCommandAskedFor)
{
    mCamera.Log().setDbgLevel(0);
    tcImage image(e16Bit, 128);
    std::atomic<bool> isOver{false};
    std::thread other([&] {
        for (int i = 0; !isOver; ++i) {
            mCamera.SetCCDArea(0, 0, 8 + i % 8, 1 + i % 8);
        }
    });
    std::atomic<int> columns{0};
    mCamera.SetScript([&](const tsSentMessage& sent) {
        if (sent.id == 0x36) columns = sent.Short(2);
    });
    for (int i = 0; i < 3000 && !HasFailure(); ++i) {
        EXPECT_EQ(Read(e16Bit, image), 0);
        FeedFrame(e16Bit, true);
        EXPECT_EQ(Record().Area[2], columns) << "readout " << i;
    }
    isOver = true;
    other.join();
}

// ---- How a readout ended

TEST_F(FrameRecord, TellsHowAReadoutEnded)
{
    tcImage image(e16Bit, 128);
    EXPECT_EQ(Result(), eReadoutNone);
    Read(e16Bit, image, 2);
    EXPECT_EQ(Result(), eReadoutRunning);
    FeedFrame(e16Bit, false);
    EXPECT_EQ(Result(), eReadoutRunning);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Result(), eReadoutComplete);
    Read(e16Bit, image, 2);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Result(), eReadoutIncomplete) << "a frame was left out";
    Read(e16Bit, image, 2);
    FeedRows(e16Bit, 8, {3}, false);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Result(), eReadoutIncomplete);
    Read(e16Bit, image);
    mCamera.Tick(200);
    EXPECT_EQ(Result(), eReadoutTimedOut);
    mCamera.AbortRead();
    EXPECT_EQ(Result(), eReadoutTimedOut);
    Read(e16Bit, image);
    mCamera.WaitCompletion(0);
    EXPECT_EQ(Result(), eReadoutTimedOut);
    Read(e16Bit, image);
    mCamera.AbortRead();
    EXPECT_EQ(Result(), eReadoutAborted);
    mCamera.RefuseToSend(true);
    Read(e16Bit, image);
    EXPECT_EQ(Result(), eReadoutNotSent);
    mCamera.AbortRead();
    EXPECT_EQ(Result(), eReadoutNotSent);
    mCamera.RefuseToSend(false);
    Read(e16Bit, image);
    EXPECT_EQ(Result(), eReadoutRunning);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Result(), eReadoutComplete);
    EXPECT_EQ(VXReadoutResult(mCamera.GetHandle() + 100), -3);
}

TEST_F(FrameRecord, TellsTheEndOfTheReadoutThatWasStartedLast)
{
    tcImage area(e16Bit, 128), binned(e32Bit, 128);
    Read(e16Bit, area);
    Read(e32Bit, binned);
    FeedFrame(e16Bit, true);
    EXPECT_EQ(Result(), eReadoutRunning);
    FeedFrame(e32Bit, true);
    EXPECT_EQ(Result(), eReadoutComplete);
}

TEST_F(FrameRecord, EndsItsReadoutBeforeTheCallback)
{
    tcImage image(e16Bit, 128);
    std::vector<int> results;
    mDo = [&] {
        results.push_back(Result());
        if (mTold.size() < 3) Read(e16Bit, image);
    };
    Read(e16Bit, image);
    for (int i = 0; i < 3; ++i) {
        FeedFrame(e16Bit, true);
    }
    EXPECT_EQ(results, std::vector<int>(3, eReadoutComplete));
    EXPECT_EQ(Record().Readout, 3U);
    EXPECT_EQ(Record().Frame, 1U);
}
