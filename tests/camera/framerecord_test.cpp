// What the application is told of frames and readouts beside the pixels.
#include "books.h"
#include "pixels.h"
#include "vxcamext.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

// A frame's record, and copies of what it points to.
struct tsTold {
    tsFrameRecord record;
    std::vector<uint8_t> bits;
    std::vector<uint32_t> rows;
    bool rowsTold;
};

class FrameRecord : public Readout
{
protected:
    FrameRecord()
    {
        mCamera.TellGeometry(8, 16);
        EXPECT_EQ(VXSetFrameCallback(mCamera.GetHandle(), Keep, this), 0);
    }
    static void Keep(int handle, const tsFrameRecord* frame, void* user)
    {
        auto& self = *static_cast<FrameRecord*>(user);
        EXPECT_EQ(handle, self.mCamera.GetHandle());
        EXPECT_EQ(frame->PacketsExpected, frame->PacketsReceived + frame->PacketsMissing);
        tsTold told{*frame, {}, {}, frame->MissingRows != nullptr};
        if (frame->MissingBits != nullptr) {
            told.bits.assign(frame->MissingBits,
                             frame->MissingBits + (frame->PacketsExpected + 7) / 8);
        }
        EXPECT_EQ(told.rowsTold, frame->MissingRowCount > 0);
        if (told.rowsTold) {
            told.rows.assign(frame->MissingRows, frame->MissingRows + frame->MissingRowCount);
        }
        self.mTold.push_back(told);
        if (self.mDo) self.mDo();
    }
    // Rows from `first` on, of `pieces` packets of `columns` columns each; without the packets that
    // are left out.
    void FeedRows(teWidth width, unsigned rows, const std::vector<unsigned>& leftOut,
                  bool isLast = true, unsigned first = 0, unsigned pieces = 1,
                  unsigned columns = 16, unsigned firstColumn = 0)
    {
        const unsigned total = rows * pieces;
        for (unsigned i = 0; i < total; ++i) {
            if (std::count(leftOut.begin(), leftOut.end(), i + 1) != 0) continue;
            const unsigned column = firstColumn + i % pieces * columns;
            Feed(mCamera,
                 {width, i + 1, total, first + i / pieces, column, column + columns - 1, isLast});
        }
    }
    const tsFrameRecord& Record() const { return mTold.back().record; }
    const std::vector<uint32_t>& Rows() const { return mTold.back().rows; }
    int Result() { return VXReadoutResult(mCamera.GetHandle()); }

    std::vector<tsTold> mTold;
    std::function<void()> mDo; // in the callback
};

using tRows = std::vector<uint32_t>;
using tBits = std::vector<uint8_t>;

} // namespace

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

// ---- What is missing

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

// ---- Leftovers of readouts that were given up

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
