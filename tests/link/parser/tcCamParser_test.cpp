#include "parser_support.h"
#include "tcCamParser.h"

#include "vxmessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

tBytes Join(std::initializer_list<tBytes> parts)
{
    tBytes all;
    for (const tBytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

} // namespace

TEST(CamParser, DeliversAWholeFrame)
{
    tDeliveries deliveries;
    unsigned char memory[64];
    tcCamParser parser(memory, sizeof memory, false);
    parser.RegisterCallback(Collect, &deliveries);
    const tBytes frame = Frame({1, 2, 3});
    EXPECT_EQ(Feed(parser, frame), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0], (tsDelivery{0, 0, frame}));
    EXPECT_TRUE((Counters(parser) == tsCounters{15, 15, 1, 0, 0, 0}));
}

TEST(CamParser, HandsOutTheStartOfItsBuffer)
{
    unsigned char memory[64];
    void* seen = nullptr;
    tcCamParser parser(memory, sizeof memory, false);
    parser.RegisterCallback(
        [](int, void* frame, int, unsigned, void* user) {
            *static_cast<void**>(user) = frame;
            return true;
        },
        &seen);
    Feed(parser, Join({{9, 9, 9}, Frame({1})}));
    EXPECT_EQ(seen, memory);
    EXPECT_EQ(static_cast<tsMsgHeader*>(seen)->MsgId, 0x85u);
}

TEST(CamParser, StartsFrameAtSecondByteWhenMagicIsDoubled)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 64, false);
    parser.RegisterCallback(Collect, &deliveries);
    const tBytes frame = Frame({5});
    EXPECT_EQ(Feed(parser, Join({{0x50}, frame})), 1);
    EXPECT_EQ(parser.SkippedBytes, 1u);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Bytes, frame);
}

TEST(CamParser, DeliversAFrameFedByteByByteOnItsLastByte)
{
    tcCamParser parser(nullptr, 64, true);
    const tBytes frame = Frame({1, 2, 3, 4});
    for (size_t i = 0; i < frame.size(); ++i) {
        EXPECT_EQ(Feed(parser, {frame[i]}), i + 1 == frame.size() ? 1 : 0) << i;
    }
    EXPECT_EQ(parser.GoodFrames, 1u);
}

TEST(CamParser, DeliversTwoFramesOfOneChunkInOrder)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 64, false);
    parser.RegisterCallback(Collect, &deliveries);
    const tBytes first = Frame({1});
    const tBytes second = Frame({2, 2});
    EXPECT_EQ(Feed(parser, Join({first, second})), 2);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].Bytes, first);
    EXPECT_EQ(deliveries[1].Bytes, second);
}

TEST(CamParser, DeliversAnEmptyPayloadUncheckedWithChecksumOn)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 64, true);
    parser.RegisterCallback(Collect, &deliveries);
    const tBytes frame = HeaderBytes(0, 0x123456);
    EXPECT_EQ(Feed(parser, frame), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0], (tsDelivery{0, 0, frame}));
    EXPECT_EQ(parser.ChecksumErrors, 0u);
}

TEST(CamParser, AcceptsTheLargestPayload)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 112, false);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(Feed(parser, Frame(tBytes(100, 1))), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, 0);
    EXPECT_EQ(deliveries[0].Bytes.size(), 112u);
}

TEST(CamParser, DeliversOnlyTheHeaderOfAPayloadOneByteTooLong)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 112, false);
    parser.RegisterCallback(Collect, &deliveries);
    const tBytes frame = Frame(tBytes(101, 1));
    EXPECT_EQ(Feed(parser, frame), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0],
              (tsDelivery{-4, 0xFFFFFFFF, tBytes(frame.begin(), frame.begin() + 12)}));
    EXPECT_TRUE((Counters(parser) == tsCounters{113, 12, 0, 1, 100, 0}));
}

TEST(CamParser, FindsAFrameInsideThePayloadOfOneTooLong)
{
    tcCamParser parser(nullptr, 112, false);
    EXPECT_EQ(Feed(parser, Join({HeaderBytes(5000, 0), {7, 7}, Frame({1}), {8}})), 2);
    EXPECT_EQ(parser.GoodFrames, 1u);
    EXPECT_EQ(parser.BadFrames, 1u);
    EXPECT_EQ(parser.SkippedBytes, 2u);
}

TEST(CamParser, ReportsAFlippedPayloadBitWithChecksumOn)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 64, true);
    parser.RegisterCallback(Collect, &deliveries);
    tBytes frame = Frame({1, 2, 3});
    frame[13] ^= 4;
    EXPECT_EQ(Feed(parser, frame), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0], (tsDelivery{-1, 10, frame}));
    EXPECT_TRUE((Counters(parser) == tsCounters{15, 15, 0, 1, 0, 1}));
}

TEST(CamParser, HandsTheComputedChecksumToTheCallback)
{
    tDeliveries deliveries;
    tcCamParser parser(nullptr, 1024, true);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(Feed(parser, Frame(tBytes(1000, 255))), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, 0);
    EXPECT_EQ(deliveries[0].Checksum, 255000u);
}

TEST(CamParser, ChecksNothingWithChecksumOff)
{
    tcCamParser parser(nullptr, 64, true);
    tBytes frame = Frame({1, 2, 3});
    frame[13] ^= 4;
    parser.EnableChecksum(false);
    EXPECT_EQ(Feed(parser, frame), 1);
    EXPECT_EQ(parser.GoodFrames, 1u);
    parser.EnableChecksum(true);
    EXPECT_EQ(Feed(parser, frame), 1);
    EXPECT_EQ(parser.BadFrames, 1u);
}

TEST(CamParser, CountsFramesWithoutCallback)
{
    tcCamParser parser(nullptr, 64, true);
    tBytes bad = Frame({1});
    bad[12] = 2;
    EXPECT_EQ(Feed(parser, Join({Frame({1}), bad, HeaderBytes(60, 0)})), 3);
    EXPECT_EQ(parser.GoodFrames, 1u);
    EXPECT_EQ(parser.BadFrames, 2u);
}

TEST(CamParser, RefusesNullDataAndLengthsBelowOne)
{
    unsigned char byte = 0x50;
    tcCamParser parser(nullptr, 64, false);
    EXPECT_EQ(parser.AddData(nullptr, 5), 0);
    EXPECT_EQ(parser.AddData(&byte, 0), 0);
    EXPECT_EQ(parser.AddData(&byte, -7), 0);
    EXPECT_EQ(parser.BytesIn, 0u);
}

TEST(CamParser, DropsTheFrameUnderWayAtReset)
{
    tcCamParser parser(nullptr, 64, false);
    const tBytes frame = Frame({1, 2, 3});
    Feed(parser, tBytes(frame.begin(), frame.end() - 1));
    EXPECT_EQ(parser.ResetParser(nullptr, 0), 1);
    EXPECT_EQ(parser.BytesIn, 0u);
    EXPECT_EQ(Feed(parser, {3}), 0);
    EXPECT_EQ(Feed(parser, frame), 1);
    EXPECT_EQ(parser.SkippedBytes, 1u);
}

namespace {

// Tells of each frame delivered whether it spans a break.
struct tsBreakProbe {
    explicit tsBreakProbe(bool checksum = false) : Parser(nullptr, 1024, checksum)
    {
        Parser.RegisterCallback(
            [](int, void*, int, unsigned, void* user) {
                auto& self = *static_cast<tsBreakProbe*>(user);
                self.Spans.push_back(self.Parser.SpansBreak());
                return true;
            },
            this);
    }

    tcCamParser Parser;
    std::vector<bool> Spans;
};

} // namespace

TEST(CamParser, TellsThatAFrameSpansABreakWhereverItIsCut)
{
    const tBytes frame = Frame({1, 2, 3, 4, 5, 6, 7, 8});
    for (size_t cut = 0; cut <= frame.size(); ++cut) {
        tsBreakProbe probe;
        const auto middle = frame.begin() + static_cast<long>(cut);
        Feed(probe.Parser, tBytes(frame.begin(), middle));
        probe.Parser.MarkBreak();
        Feed(probe.Parser, tBytes(middle, frame.end()));
        Feed(probe.Parser, frame);
        const bool isInside = cut > 0 && cut < frame.size();
        EXPECT_EQ((std::vector<bool>{isInside, false}), probe.Spans) << cut;
        EXPECT_FALSE(probe.Parser.SpansBreak());
    }
}

TEST(CamParser, TellsOfABreakBeforeABadFrame)
{
    tsBreakProbe probe(true);
    tBytes frame = Frame({1, 2, 3});
    Feed(probe.Parser, tBytes(frame.begin(), frame.begin() + 13));
    probe.Parser.MarkBreak();
    Feed(probe.Parser, {9, 9});
    const tBytes tooLong = HeaderBytes(2000, 0);
    Feed(probe.Parser, tBytes(tooLong.begin(), tooLong.begin() + 5));
    probe.Parser.MarkBreak();
    Feed(probe.Parser, tBytes(tooLong.begin() + 5, tooLong.end()));
    Feed(probe.Parser, frame);
    EXPECT_EQ((std::vector<bool>{true, true, false}), probe.Spans);
    EXPECT_EQ(1u, probe.Parser.ChecksumErrors);
}

TEST(CamParser, ForgetsABreakWithWhatItSkipsAndWithAReset)
{
    const tBytes frame = Frame({1, 2, 3});
    tsBreakProbe probe;
    Feed(probe.Parser, {0x11, 0x50}); // the second may begin a frame
    probe.Parser.MarkBreak();
    Feed(probe.Parser, frame);
    Feed(probe.Parser, {0x50});
    probe.Parser.MarkBreak();
    Feed(probe.Parser, {0x50}); // is not the magic, but may begin it in turn
    Feed(probe.Parser, tBytes(frame.begin() + 1, frame.end()));
    Feed(probe.Parser, {0x50, 0xFA, 1});
    probe.Parser.MarkBreak();
    probe.Parser.ResetParser(nullptr, 0);
    Feed(probe.Parser, frame);
    EXPECT_EQ((std::vector<bool>{false, false, false}), probe.Spans);
}

TEST(CamParser, KeepsAMarkUntilTheFrameIsWhole)
{
    const tBytes frame = Frame(tBytes(100, 7));
    tsBreakProbe probe;
    for (size_t i = 0; i < frame.size(); i += 10) {
        Feed(probe.Parser,
             tBytes(frame.begin() + static_cast<long>(i),
                    frame.begin() + static_cast<long>(std::min(i + 10, frame.size()))));
        if (i == 0) probe.Parser.MarkBreak();
    }
    EXPECT_EQ(std::vector<bool>{true}, probe.Spans);
}

TEST(CamParser, ReturnsTheBasesResultFromReset)
{
    unsigned char memory[64];
    tcCamParser parser(nullptr, 64, false);
    EXPECT_EQ(parser.ResetParser(memory, sizeof memory), 1);
    EXPECT_EQ(parser.ResetParser(memory, 0), 0);
}

TEST(CamParser, KeepsTheLargestPayloadAtReset)
{
    tDeliveries deliveries;
    unsigned char memory[512];
    tcCamParser parser(nullptr, 112, false);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(parser.ResetParser(memory, sizeof memory), 1);
    EXPECT_EQ(Feed(parser, Frame(tBytes(101, 1))), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, -4);
}

TEST(CamParser, NeverOverrunsASmallerBufferGivenAtReset)
{
    tDeliveries deliveries;
    tBytes memory(20);
    tcCamParser parser(nullptr, 112, false);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(parser.ResetParser(memory.data(), 20), 1);
    EXPECT_EQ(Feed(parser, Frame(tBytes(8, 1))), 1);
    EXPECT_EQ(Feed(parser, Frame(tBytes(9, 1))), 1);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_EQ(deliveries[0].Status, 0);
    EXPECT_EQ(deliveries[1].Status, -4);
}

TEST(CamParser, SkipsEverythingWithLessRoomThanAHeader)
{
    for (int size = -3; size < 12; ++size) {
        tBytes memory(static_cast<size_t>(std::max(size, 1)));
        tcCamParser parser(memory.data(), size, true);
        EXPECT_EQ(Feed(parser, Join({Frame({}), Frame(tBytes(300, 9))})), 0) << size;
        EXPECT_TRUE((Counters(parser) == tsCounters{324, 0, 0, 0, 324, 0})) << size;
    }
    tcCamParser bare(nullptr, 0, false);
    EXPECT_EQ(Feed(bare, Frame({1})), 0);
    tcCamParser smallest(nullptr, 12, false);
    EXPECT_EQ(Feed(smallest, Join({Frame({}), HeaderBytes(1, 0)})), 2);
    EXPECT_EQ(smallest.GoodFrames, 1u);
    EXPECT_EQ(smallest.BadFrames, 1u);
}

TEST(CamParser, TakesTheLongestFrameThereIs)
{
    tcCamParser parser(nullptr, 65547, true);
    EXPECT_EQ(Feed(parser, Frame(tBytes(65535, 255))), 1);
    EXPECT_EQ(parser.GoodFrames, 1u);
}

TEST(CamParser, LetsTheCallbackResetIt)
{
    tcCamParser parser(nullptr, 64, false);
    parser.RegisterCallback(
        [](int, void*, int, unsigned, void* user) {
            return static_cast<tcCamParser*>(user)->ResetParser(nullptr, 0) == 1;
        },
        &parser);
    EXPECT_EQ(Feed(parser, Join({Frame({1}), Frame({2}), Frame({3})})), 3);
    EXPECT_EQ(parser.GoodFrames, 1u);
}
