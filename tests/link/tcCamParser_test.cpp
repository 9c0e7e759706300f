#include "tcCamParser.h"

#include "vxmessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using tBytes = std::vector<unsigned char>;

struct tsDelivery {
    int Status;
    unsigned Checksum;
    tBytes Bytes;

    bool operator==(const tsDelivery& other) const
    {
        return Status == other.Status && Checksum == other.Checksum && Bytes == other.Bytes;
    }
};

using tDeliveries = std::vector<tsDelivery>;

bool Collect(int status, void* frame, int length, unsigned checksum, void* user)
{
    const auto* bytes = static_cast<const unsigned char*>(frame);
    static_cast<tDeliveries*>(user)->push_back({status, checksum, tBytes(bytes, bytes + length)});
    return true;
}

unsigned Sum(const tBytes& payload)
{
    unsigned sum = 0;
    for (unsigned char byte : payload) {
        sum += byte;
    }
    return sum;
}

tBytes HeaderBytes(unsigned length, unsigned checksum, unsigned sequence = 7)
{
    auto byte = [](unsigned value, int n) { return static_cast<unsigned char>(value >> (8 * n)); };
    return {0x50,
            0xFA,
            byte(length, 0),
            byte(length, 1),
            byte(sequence, 0),
            byte(checksum, 0),
            byte(checksum, 1),
            byte(checksum, 2),
            3,
            0x85,
            0,
            0};
}

tBytes Frame(const tBytes& payload)
{
    tBytes frame = HeaderBytes(static_cast<unsigned>(payload.size()), Sum(payload));
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

tBytes Join(std::initializer_list<tBytes> parts)
{
    tBytes all;
    for (const tBytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

int Feed(tcCamParser& parser, const tBytes& bytes)
{
    tBytes copy(bytes); // exactly as long as told, so that a read past the end is found
    return parser.AddData(copy.data(), static_cast<int>(copy.size()));
}

struct tsCounters {
    uint32_t BytesIn, BytesFramed, GoodFrames, BadFrames, SkippedBytes, ChecksumErrors;

    bool operator==(const tsCounters& o) const
    {
        return BytesIn == o.BytesIn && BytesFramed == o.BytesFramed && GoodFrames == o.GoodFrames &&
               BadFrames == o.BadFrames && SkippedBytes == o.SkippedBytes &&
               ChecksumErrors == o.ChecksumErrors;
    }
};

tsCounters Counters(const tcDspParserBase& parser)
{
    return {parser.BytesIn,   parser.BytesFramed,  parser.GoodFrames,
            parser.BadFrames, parser.SkippedBytes, parser.ChecksumErrors};
}

// The frame rules taken one byte at a time, with nothing in common with the parser.
class tcReference
{
public:
    tcReference(uint32_t largest, bool checksum) : mnLargest(largest), mbChecksum(checksum) {}

    int Add(const tBytes& bytes)
    {
        int delivered = 0;
        mnChecksum = 0;
        for (unsigned char byte : bytes) {
            ++Counts.BytesIn;
            maFrame.push_back(byte);
            delivered += Take() ? 1 : 0;
        }
        return delivered;
    }

    tsCounters Counts{};
    tDeliveries Deliveries;

private:
    bool Take()
    {
        const size_t held = maFrame.size();
        if (held == 1) return false;
        if (held == 2) {
            if (maFrame[0] == 0x50 && maFrame[1] == 0xFA) {
                Counts.BytesFramed += 2;
            } else {
                maFrame.erase(maFrame.begin());
                ++Counts.SkippedBytes;
            }
            return false;
        }
        ++Counts.BytesFramed;
        const uint32_t length = maFrame.size() < 4 ? 0u : maFrame[2] + 256u * maFrame[3];
        if (held < 12) return false;
        if (held == 12 && length == 0) return Good(0);
        if (held == 12 && length > mnLargest) return Bad(-4, 0xFFFFFFFF);
        if (held < 12 + length) return false;
        if (!mbChecksum) return Good(mnChecksum);
        const unsigned sum = Sum(tBytes(maFrame.begin() + 12, maFrame.end()));
        if (sum == maFrame[5] + 256u * maFrame[6] + 65536u * maFrame[7]) return Good(sum);
        ++Counts.ChecksumErrors;
        return Bad(-1, sum);
    }
    bool Good(unsigned checksum)
    {
        ++Counts.GoodFrames;
        return Finish(0, checksum);
    }
    bool Bad(int status, unsigned checksum)
    {
        ++Counts.BadFrames;
        return Finish(status, checksum);
    }
    bool Finish(int status, unsigned checksum)
    {
        mnChecksum = checksum;
        Deliveries.push_back({status, checksum, maFrame});
        maFrame.clear();
        return true;
    }

    uint32_t mnLargest;
    bool mbChecksum;
    unsigned mnChecksum = 0;
    tBytes maFrame;
};

class tcStream
{
public:
    explicit tcStream(unsigned seed) : mEngine(seed) {}

    unsigned Below(unsigned limit)
    {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(mEngine);
    }

    // Frames good and bad, false starts and garbage rich in the two magic bytes.
    tBytes Make(int pieces, unsigned largest)
    {
        tBytes stream;
        for (int i = 0; i < pieces; ++i) {
            const tBytes piece = Piece(largest);
            stream.insert(stream.end(), piece.begin(), piece.end());
        }
        return stream;
    }

private:
    tBytes Garbage(unsigned longest)
    {
        static const unsigned char aCommon[] = {0x50, 0x50, 0x50, 0xFA, 0xFA, 0, 1, 3, 0x51, 0xFB};
        tBytes bytes(Below(longest + 1));
        for (unsigned char& byte : bytes) {
            byte = Below(4) != 0 ? aCommon[Below(sizeof aCommon)]
                                 : static_cast<unsigned char>(Below(256));
        }
        return bytes;
    }
    tBytes Piece(unsigned largest)
    {
        tBytes frame = Frame(Garbage(largest));
        switch (Below(8)) {
        case 0:
            return Garbage(20);
        case 1:
            return HeaderBytes(largest + 1 + Below(1000), 0);
        case 2:
            return {0x50};
        case 3:
            frame[12 + Below(static_cast<unsigned>(frame.size()) - 11) - 1] ^= 1;
            return frame;
        case 4:
            return Frame({});
        default:
            return frame;
        }
    }

    std::mt19937 mEngine;
};

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

TEST(CamParser, ComputesTheSumOfThePayload)
{
    tcCamParser parser(nullptr, 112, false);
    tBytes frame = Frame({255, 255, 3});
    EXPECT_EQ(parser.ComputeChecksum(reinterpret_cast<tsMsgHeader*>(frame.data())), 513u);
}

TEST(CamParser, ComputesZeroForWhatHasNoChecksum)
{
    tcCamParser parser(nullptr, 112, false);
    EXPECT_EQ(parser.ComputeChecksum(nullptr), 0u);
    tBytes wrong = Frame({1});
    wrong[0] = 0x51;
    EXPECT_EQ(parser.ComputeChecksum(reinterpret_cast<tsMsgHeader*>(wrong.data())), 0u);
    tBytes empty = Frame({});
    EXPECT_EQ(parser.ComputeChecksum(reinterpret_cast<tsMsgHeader*>(empty.data())), 0u);
    tBytes largest = Frame(tBytes(100, 1));
    EXPECT_EQ(parser.ComputeChecksum(reinterpret_cast<tsMsgHeader*>(largest.data())), 100u);
    tBytes longer = Frame(tBytes(101, 1));
    EXPECT_EQ(parser.ComputeChecksum(reinterpret_cast<tsMsgHeader*>(longer.data())), 0u);
}

TEST(CamParser, StampsSequenceMagicAndVersionOnly)
{
    tcCamParser parser(nullptr, 112, false);
    tBytes frame(14, 0xEE);
    frame[2] = 2;
    frame[3] = 0;
    auto* header = reinterpret_cast<tsMsgHeader*>(frame.data());
    parser.PrepareOutput(header);
    EXPECT_EQ(frame,
              (tBytes{0x50, 0xFA, 2, 0, 0, 0xEE, 0xEE, 0xEE, 3, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    parser.PrepareOutput(nullptr);
}

TEST(CamParser, StampsTheChecksumWhenEnabled)
{
    tcCamParser parser(nullptr, 70000, true);
    tBytes frame(12 + 65535, 255);
    parser.PrepareOutput(reinterpret_cast<tsMsgHeader*>(frame.data()));
    EXPECT_EQ(frame[5], 0x01); // 65535 * 255 = 0xFEFF01
    EXPECT_EQ(frame[6], 0xFF);
    EXPECT_EQ(frame[7], 0xFE);
    EXPECT_EQ(frame[8], 3);
    EXPECT_EQ(frame[9], 0xFF);
}

TEST(CamParser, StampsWhatItAccepts)
{
    tcCamParser sender(nullptr, 112, true);
    tcCamParser receiver(nullptr, 112, true);
    tBytes frame = Frame({1, 2, 3});
    frame[0] = frame[5] = frame[8] = 0;
    sender.PrepareOutput(reinterpret_cast<tsMsgHeader*>(frame.data()));
    EXPECT_EQ(Feed(receiver, frame), 1);
    EXPECT_EQ(receiver.GoodFrames, 1u);
}

TEST(CamParser, ChecksAndStampsWhatADerivedParserComputes)
{
    struct tcOwnChecksum : tcCamParser {
        using tcCamParser::tcCamParser;
        unsigned ComputeChecksum(tsMsgHeader* frame) override
        {
            return 0x12340000u + frame->Length;
        }
    };
    tcOwnChecksum parser(nullptr, 112, true);
    tBytes frame = Frame({1, 2, 3});
    EXPECT_EQ(Feed(parser, frame), 1);
    EXPECT_EQ(parser.ChecksumErrors, 1u) << "its sum is none any more";
    parser.PrepareOutput(reinterpret_cast<tsMsgHeader*>(frame.data()));
    EXPECT_EQ(tBytes(frame.begin() + 5, frame.begin() + 8), (tBytes{3, 0, 0x34}));
}

TEST(CamParser, WrapsTheSequenceNumberAfter256Frames)
{
    tcCamParser parser(nullptr, 112, false);
    tBytes frame = Frame({});
    auto* header = reinterpret_cast<tsMsgHeader*>(frame.data());
    for (unsigned i = 0; i < 256; ++i) {
        parser.PrepareOutput(header);
        EXPECT_EQ(header->SeqNo, i);
    }
    parser.PrepareOutput(header);
    EXPECT_EQ(header->SeqNo, 0u);
}

TEST(CamParser, KeepsTheSequenceNumberAtReset)
{
    tcCamParser parser(nullptr, 112, false);
    tBytes frame = Frame({});
    auto* header = reinterpret_cast<tsMsgHeader*>(frame.data());
    parser.PrepareOutput(header);
    parser.ResetParser(nullptr, 0);
    parser.PrepareOutput(header);
    EXPECT_EQ(header->SeqNo, 1u);
}

TEST(CamParser, WalksThroughItsStates)
{
    struct tcProbe : tcCamParser {
        using tcCamParser::count;
        using tcCamParser::state;
        using tcCamParser::tcCamParser;
    };
    tcProbe parser(nullptr, 112, false);
    EXPECT_EQ(parser.state, Hunting);
    Feed(parser, {0x50});
    EXPECT_EQ(parser.state, Hunting);
    EXPECT_EQ(parser.count, 1);
    Feed(parser, {0xFA, 2});
    EXPECT_EQ(parser.state, Header);
    Feed(parser, {0, 0, 0, 0, 0, 3, 1, 0, 0});
    EXPECT_EQ(parser.state, Payload);
    EXPECT_EQ(parser.count, 12);
    Feed(parser, {1, 2});
    EXPECT_EQ(parser.state, Hunting);
    EXPECT_EQ(parser.count, 0);
}

TEST(CamParser, GivesTheReferencesResultsInEveryChunking)
{
    for (unsigned seed = 0; seed < 400; ++seed) {
        tcStream random(seed);
        const unsigned largest = 1 + random.Below(60);
        const bool checksum = seed % 2 == 1;
        const tBytes stream = random.Make(12, largest);
        const unsigned longest = 1 + random.Below(seed % 8 == 0 ? 1 : 80);
        tDeliveries deliveries;
        tcCamParser parser(nullptr, static_cast<int>(largest) + 12, checksum);
        parser.RegisterCallback(Collect, &deliveries);
        tcReference reference(largest, checksum);
        for (size_t start = 0; start < stream.size();) {
            const size_t n = std::min<size_t>(1 + random.Below(longest), stream.size() - start);
            const auto first = stream.begin() + static_cast<std::ptrdiff_t>(start);
            const tBytes chunk(first, first + static_cast<std::ptrdiff_t>(n));
            ASSERT_EQ(Feed(parser, chunk), reference.Add(chunk)) << "seed " << seed;
            ASSERT_TRUE(Counters(parser) == reference.Counts) << "seed " << seed;
            start += n;
        }
        ASSERT_TRUE(deliveries == reference.Deliveries) << "seed " << seed;
    }
}

TEST(CamParser, GivesTheReferencesResultsForEverySplitIntoThree)
{
    tcStream random(4711);
    const unsigned largest = 9;
    const tBytes stream = random.Make(9, largest);
    for (size_t a = 0; a <= stream.size(); ++a) {
        for (size_t b = a; b <= stream.size(); ++b) {
            tDeliveries deliveries;
            tcCamParser parser(nullptr, largest + 12, true);
            parser.RegisterCallback(Collect, &deliveries);
            tcReference reference(largest, true);
            const size_t cuts[] = {0, a, b, stream.size()};
            for (int i = 0; i < 3; ++i) {
                const tBytes chunk(stream.begin() + static_cast<std::ptrdiff_t>(cuts[i]),
                                   stream.begin() + static_cast<std::ptrdiff_t>(cuts[i + 1]));
                ASSERT_EQ(Feed(parser, chunk), reference.Add(chunk)) << a << ' ' << b;
                ASSERT_TRUE(Counters(parser) == reference.Counts) << a << ' ' << b;
            }
            ASSERT_TRUE(deliveries == reference.Deliveries) << a << ' ' << b;
        }
    }
}

TEST(CamParser, MeetsGoodAndBadFramesInTheRandomStreams)
{
    tsCounters all{};
    for (unsigned seed = 0; seed < 50; ++seed) {
        tcStream random(seed);
        tcReference reference(40, true);
        reference.Add(random.Make(20, 40));
        all.GoodFrames += reference.Counts.GoodFrames;
        all.ChecksumErrors += reference.Counts.ChecksumErrors;
        all.BadFrames += reference.Counts.BadFrames - reference.Counts.ChecksumErrors;
        all.SkippedBytes += reference.Counts.SkippedBytes;
    }
    EXPECT_GT(all.GoodFrames, 100u);
    EXPECT_GT(all.ChecksumErrors, 20u);
    EXPECT_GT(all.BadFrames, 20u);
    EXPECT_GT(all.SkippedBytes, 500u);
}
