// Frames that come damaged, in the wrong order, or not at all.
#include "fault_support.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A frame with one fault: what the application sees of it.
struct tsDamage {
    const char* name;
    const char* fault;
    std::vector<int> wrongRows;
    int missing;       // packets
    const char* error; // log line; empty: none
};

void PrintTo(const tsDamage& one, std::ostream* out)
{
    *out << one.fault;
}

constexpr int gnQuick = 8000; // ms; what takes longer has waited for a time-out

} // namespace

class FrameFaults : public Faults, public testing::WithParamInterface<tsDamage>
{};

TEST_P(FrameFaults, AreToldByTheBooks)
{
    OpenWith({GetParam().fault});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    EXPECT_LT(Timed([&] { result = Read(image); }), gnQuick);
    EXPECT_EQ(0, result);
    EXPECT_EQ(1u, Struck());
    EXPECT_EQ(GetParam().wrongRows, WrongRows(image));
    const tsStatistics books = Books();
    const bool isWhole = GetParam().missing == 0;
    EXPECT_EQ(1u, books.FramesRequested);
    EXPECT_EQ(isWhole ? 1u : 0u, books.FramesComplete);
    EXPECT_EQ(isWhole ? 0u : 1u, books.FramesIncomplete);
    EXPECT_EQ(static_cast<uint64_t>(GetParam().missing), books.LastFrameMissing);
    EXPECT_EQ(static_cast<uint64_t>(GetParam().missing), books.PacketsMissing);
    EXPECT_EQ(0u, books.ConnectionsLost);
    ASSERT_EQ(1u, events.Shots().size());
    if (*GetParam().error)
        EXPECT_GE(log.Count(GetParam().error), 1u) << testing::PrintToString(log.Texts());
    else
        EXPECT_THAT(log.Texts(), IsEmpty());
    ExpectWhole();
}

INSTANTIATE_TEST_SUITE_P(
    All, FrameFaults,
    testing::Values(
        tsDamage{"Truncated", "truncate:packet=11", {10, 11}, 2, "is incomplete"},
        tsDamage{"OverLong", "over-long:packet=11", {10}, 1, "is incomplete"},
        tsDamage{"FlippedMagic", "flip-header:packet=11,bit=3", {10}, 1, "is incomplete"},
        tsDamage{"FlippedPixel", "flip-payload:packet=11,bit=200", {10}, 0, ""},
        tsDamage{"WrongVersion",
                 "wrong-version:packet=11",
                 {10},
                 1,
                 "CallbackParser IDD Error - Received 0x02, Expected 0x03, Dropping Message."},
        tsDamage{"UnknownId",
                 "unknown-id:packet=11",
                 {10},
                 1,
                 "CallBackParser unknown message id received - 0x62 (98)"},
        tsDamage{"Garbage", "garbage:packet=11,bytes=5000", {}, 0, ""},
        tsDamage{"MissingPacket", "missing-packet:packet=11", {10}, 1, "1 of 64 packets"},
        tsDamage{"DuplicatePacket", "duplicate-packet:packet=11,count=3", {}, 0, ""},
        tsDamage{"Reordered", "reorder:packet=11,count=7", {}, 0, ""},
        tsDamage{"OutsideByRow",
                 "outside:packet=11,row=64",
                 {10},
                 0,
                 "pixels outside the image of 96 x 64: row 64, columns 0 to 95"},
        tsDamage{"OutsideByColumn",
                 "outside:packet=11,row=10,column=40",
                 {10},
                 0,
                 "pixels outside the image of 96 x 64: row 10, columns 40 to 135"},
        tsDamage{"ChangedTotal",
                 "changed-total:packet=11",
                 {},
                 1,
                 "Bad Total Number of Packets (expected 64, got 65)"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(Faults, OfSkippedBytesAreCounted)
{
    OpenWith({"garbage:packet=11,bytes=5000"});
    ExpectWhole();
    EXPECT_EQ(5000u, Books().BytesSkipped);
}

TEST_F(Faults, OfRepeatedPacketsAreCounted)
{
    OpenWith({"duplicate-packet:packet=11,count=3"});
    ExpectWhole();
    EXPECT_EQ(3u, Books().PacketsDuplicate);
    EXPECT_EQ(64u + 3u, Books().PacketsReceived);
}

TEST_F(Faults, OfPlaceAreCountedInPixels)
{
    OpenWith({"outside:packet=11", "outside:packet=12,row=11,column=90"});
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    EXPECT_THAT(WrongRows(image), ElementsAre(10, 11));
    EXPECT_EQ(2u, Books().PacketsOutside);
    EXPECT_EQ(96u + 90u, Books().PixelsOutside);
    EXPECT_EQ(1u, log.Count("pixels outside the image")) << "once a frame";
}

TEST_F(Faults, OfLengthAreCountedAsBadMessages)
{
    OpenWith({"over-long:packet=11"});
    tcImage<uint16_t> image(nRows, nColumns);
    EXPECT_EQ(0, Read(image));
    EXPECT_EQ(1u, Books().MessagesBad);
}

// A packet that is told to be longer than it is takes those behind it along.
TEST_F(Faults, OfALengthThatFitsCostTheNextPackets)
{
    OpenWith({"over-long:packet=11,value=600"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    EXPECT_LT(Timed([&] { result = Read(image); }), gnQuick);
    EXPECT_EQ(0, result);
    EXPECT_THAT(WrongRows(image), ElementsAre(11, 12));
    EXPECT_EQ(2u, Books().LastFrameMissing);
    EXPECT_EQ(1u, Books().FramesIncomplete);
    ExpectWhole();
}

// A header that tells no payload stands for a packet without a number, which the payload behind it
// does not change.
TEST_F(Faults, OfAPacketWithoutPayloadAreSurvived)
{
    OpenWith({"zero-length:packet=11"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    EXPECT_LT(Timed([&] { result = Read(image); }), gnQuick);
    EXPECT_EQ(0, result);
    EXPECT_THAT(WrongRows(image), ElementsAre(10));
    const tsStatistics books = Books();
    EXPECT_EQ(1u, books.FramesIncomplete);
    EXPECT_EQ(0u, books.FramesComplete);
    EXPECT_EQ(180u + 28u, books.BytesSkipped + 0u);
    ExpectWhole();
}

TEST_F(Faults, OfTheLastPacketLoseTheFrameWhenTimeIsUp)
{
    OpenWith({"missing-packet:packet=64"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    const int ms = Timed([&] { result = Lose(image); });
    EXPECT_EQ(0, result) << "nothing is pending any more";
    EXPECT_GE(ms, nImageTimeout - 100);
    EXPECT_LT(ms, gnQuick);
    EXPECT_EQ(1u, log.Count("tcVXCamera::MonitorStack Timing Out ID 6"));
    const tsStatistics books = Books();
    EXPECT_EQ(1u, books.FramesFailed);
    EXPECT_EQ(1u, books.PacketsMissing);
    EXPECT_EQ(63u, books.PacketsReceived);
    EXPECT_THAT(events.Shots(), IsEmpty());
    ExpectWhole();
}

// Row 62 comes behind the packet that ends the frame.
TEST_F(Faults, OfOrderAtTheEndLeaveAFrameIncomplete)
{
    OpenWith({"reorder:packet=63"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    EXPECT_LT(Timed([&] { result = Read(image); }), gnQuick);
    EXPECT_EQ(0, result);
    EXPECT_THAT(WrongRows(image), ElementsAre(62));
    EXPECT_TRUE(WaitUntil([&] { return Books().PacketsReceived == 64; }));
    EXPECT_EQ(1u, Books().FramesIncomplete);
    EXPECT_THAT(WrongRows(image), ElementsAre(62)) << "the buffer was given back";
}

TEST_F(Faults, OfTheLastFrameFlagEndInATimeOut)
{
    OpenWith({"no-last-frame:readout=1"});
    tcImage<uint16_t> image(nRows, nColumns);
    int result = -1;
    const int ms = Timed([&] { result = Lose(image); });
    EXPECT_EQ(0, result);
    EXPECT_GE(ms, nImageTimeout - 100);
    EXPECT_LT(ms, gnQuick);
    EXPECT_THAT(WrongRows(image), IsEmpty());
    EXPECT_EQ(1u, log.Count("tcVXCamera::MonitorStack Timing Out ID 6"));
    EXPECT_EQ(1u, Books().FramesComplete);
    EXPECT_EQ(0u, Books().FramesFailed);
    ExpectWhole();
}

TEST_F(Faults, OfReadoutsWithoutEndAreEndedByAnAbort)
{
    OpenWith({"endless:readout=1"});
    tcImage<uint16_t> image(nRows, nColumns);
    ASSERT_EQ(0, VXReadCCDArea(handle, image.Data(), 2, 0));
    ASSERT_TRUE(WaitUntil([&] { return events.Shots().size() >= 2; })); // the ones asked for
    int result = 0;
    const int ms = Timed([&] { result = VXWaitCompletion(handle, 200); });
    EXPECT_EQ(-2, result);
    EXPECT_GE(ms, 200);
    EXPECT_LT(ms, gnQuick);
    ASSERT_TRUE(WaitUntil([&] { return events.Shots().size() >= 5; }));
    EXPECT_EQ(0, VXAbortRead(handle));
    EXPECT_EQ(1u, log.Count("WaitCompletion timeout event!"));
    const tsStatistics books = Books();
    EXPECT_EQ(2u, books.FramesRequested);
    EXPECT_EQ(2u, books.FramesComplete);
    EXPECT_GE(books.FramesUnasked, 3u);
    ASSERT_TRUE(AwaitUnderstanding());
    ExpectWhole();
}
