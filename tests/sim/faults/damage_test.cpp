// Faults of messages, seen from the other end of the wire.
#include "RawClient.h"

#include <bitset>

namespace {

struct tsCase {
    const char* name;
    const char* fault;
    tpBytes (*expected)(tpMessages healthy); // two answers, four packets
};

void PrintTo(const tsCase& one, std::ostream* out)
{
    *out << one.fault;
}

tpBytes operator+(tpBytes left, const tpBytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class SimFaultOfMessage : public testing::TestWithParam<tsCase>
{};

constexpr size_t gnFirstPacket = 2; // in what a healthy camera sends

const tsCase gaCases[] = {
    {"Truncate", "truncate:message=1,bytes=3",
     [](tpMessages all) {
         all[0].resize(13);
         return Joined(all);
     }},
    {"OverLong", "over-long:message=2,value=40000",
     [](tpMessages all) {
         PutWord(all[1], 2, 40000);
         return Joined(all);
     }},
    {"ZeroLength", "zero-length:packet=2",
     [](tpMessages all) {
         PutWord(all[gnFirstPacket + 1], 2, 0);
         return Joined(all);
     }},
    {"FlipOneBitOfTheHeader", "flip-header:message=1,bit=75",
     [](tpMessages all) {
         all[0][9] ^= 8;
         return Joined(all);
     }},
    {"FlipOneBitOfThePayload", "flip-payload:packet=4,bit=0",
     [](tpMessages all) {
         all[gnFirstPacket + 3][12] ^= 1;
         return Joined(all);
     }},
    {"WrongVersion", "wrong-version:id=0x7E,value=9",
     [](tpMessages all) {
         all[1][8] = 9;
         return Joined(all);
     }},
    {"UnknownId", "unknown-id:message=1,value=0x1B2A3",
     [](tpMessages all) {
         all[0][9] = 0xA3;
         all[0][10] = 0xB2;
         all[0][11] = 1;
         return Joined(all);
     }},
    {"DuplicateAnswer", "duplicate-answer:message=2,count=2",
     [](tpMessages all) {
         all.insert(all.begin() + 1, 2, tpBytes(all[1]));
         return Joined(all);
     }},
    {"WrongAnswer", "wrong-answer:value=0x7A",
     [](tpMessages all) {
         all[0][9] = 0x7A;
         return Joined(all);
     }},
    {"ShortAnswer", "short-answer:message=2,bytes=1",
     [](tpMessages all) {
         all[1].resize(13);
         PutWord(all[1], 2, 1);
         return Joined(all);
     }},
    {"NoAnswer", "no-answer:id=0x60",
     [](tpMessages all) {
         all.erase(all.begin());
         return Joined(all);
     }},
    {"MissingPacket", "missing-packet:readout=1,frame=1,packet=3",
     [](tpMessages all) {
         all.erase(all.begin() + gnFirstPacket + 2);
         return Joined(all);
     }},
    {"DuplicatePacket", "duplicate-packet:packet=4",
     [](tpMessages all) { return Joined(all) + all.back(); }},
    {"Reorder", "reorder:packet=1,count=2",
     [](tpMessages all) {
         std::rotate(all.begin() + gnFirstPacket, all.begin() + gnFirstPacket + 1,
                     all.begin() + gnFirstPacket + 3);
         return Joined(all);
     }},
    {"ReorderOfTheLastPacket", "reorder:packet=4",
     [](tpMessages all) { return Joined(all); }}, // nothing follows it
    {"OutsideByRow", "outside:packet=2",
     [](tpMessages all) {
         PutWord(all[gnFirstPacket + 1], 18, 65535);
         return Joined(all);
     }},
    {"OutsideByColumn", "outside:packet=2,row=-1,column=5",
     [](tpMessages all) {
         PutWord(all[gnFirstPacket + 1], 20, 5);
         PutWord(all[gnFirstPacket + 1], 22, 12);
         return Joined(all);
     }},
    {"ChangedTotal", "changed-total:packet=3",
     [](tpMessages all) {
         PutWord(all[gnFirstPacket + 2], 16, 5);
         return Joined(all);
     }},
    {"ChangedTotalToAValue", "changed-total:packet=3,value=2",
     [](tpMessages all) {
         PutWord(all[gnFirstPacket + 2], 16, 2);
         return Joined(all);
     }},
    {"NoLastFrame", "no-last-frame",
     [](tpMessages all) {
         for (size_t i = gnFirstPacket; i < all.size(); ++i) {
             EXPECT_EQ(all[i][13], 1);
             all[i][13] = 0;
         }
         return Joined(all);
     }},
    {"FromAByteOn", "wrong-version:byte=31",
     [](tpMessages all) {
         all[1][8] = 2;
         return Joined(all);
     }},
    {"BehindAByte", "wrong-version:byte=32",
     [](tpMessages all) {
         all[2][8] = 2;
         return Joined(all);
     }},
    {"SeveralTimes", "wrong-version:message=2,times=3",
     [](tpMessages all) {
         all[1][8] = 2; // there are no more messages than this
         return Joined(all);
     }},
    {"Always", "wrong-version:times=0",
     [](tpMessages all) {
         for (tpBytes& message : all) {
             message[8] = 2;
         }
         return Joined(all);
     }},
    {"OnAnotherConnection", "no-answer:connection=2", [](tpMessages all) { return Joined(all); }},
    {"InAnotherReadout", "missing-packet:readout=2", [](tpMessages all) { return Joined(all); }},
    {"WithoutAChance", "no-answer:chance=0,times=0", [](tpMessages all) { return Joined(all); }},
};

} // namespace

TEST_P(SimFaultOfMessage, IsSeenOnTheWire)
{
    const tpBytes expected = GetParam().expected(tcFaultyCamera::Healthy());
    std::string fault = GetParam().fault;
    tcFaultyCamera camera({fault});
    camera.Ask();
    EXPECT_EQ(camera.Read(expected.size()).bytes, expected);
    if (fault.find("times=0") == std::string::npos) {
        EXPECT_TRUE(camera.Echoes()) << "and nothing else came";
    }
}

INSTANTIATE_TEST_SUITE_P(All, SimFaultOfMessage, testing::ValuesIn(gaCases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(SimFault, FlipsAsManyBitsAsItIsTold)
{
    const tpBytes healthy = Joined(tcFaultyCamera::Healthy());
    tcFaultyCamera camera({"flip-payload:packet=2,count=5", "flip-header:packet=2,count=3"});
    camera.Ask();
    const tpBytes bytes = camera.Read(healthy.size()).bytes;
    ASSERT_EQ(bytes.size(), healthy.size());
    const size_t start = tcFaultyCamera::nAnswerBytes + tcFaultyCamera::nPacketBytes;
    size_t inHeader = 0, inPayload = 0;
    for (size_t i = 0; i < bytes.size(); ++i) {
        const size_t flipped = std::bitset<8>(bytes[i] ^ healthy[i]).count();
        const bool isHeader = i >= start && i < start + 12;
        const bool isPayload = i >= start + 12 && i < start + tcFaultyCamera::nPacketBytes;
        EXPECT_TRUE(flipped == 0 || isHeader || isPayload) << i;
        (isHeader ? inHeader : inPayload) += flipped;
    }
    EXPECT_EQ(inHeader, 3u);
    EXPECT_EQ(inPayload, 5u);
    EXPECT_EQ(camera.Server().Statistics().faults, 2u);
}

TEST(SimFault, SendsGarbageWithoutAMagicBetweenMessages)
{
    const tpBytes healthy = Joined(tcFaultyCamera::Healthy());
    tcFaultyCamera camera({"garbage:message=2,bytes=500"});
    camera.Ask();
    tpBytes bytes = camera.Read(healthy.size() + 500).bytes;
    ASSERT_EQ(bytes.size(), healthy.size() + 500);
    const auto start = bytes.begin() + 16;
    EXPECT_EQ(std::count(start, start + 500, 0x50), 0);
    EXPECT_LT(std::count(start, start + 500, 0), 100) << "random ones";
    bytes.erase(start, start + 500);
    EXPECT_EQ(bytes, healthy);
    EXPECT_TRUE(camera.Echoes());
}

TEST(SimFault, SendsAnAnswerLateAndTheOthersMeanwhile)
{
    const tpMessages healthy = tcFaultyCamera::Healthy();
    tcFaultyCamera camera({"late-answer:message=1,seconds=0.7"});
    const auto begin = std::chrono::steady_clock::now();
    camera.Ask();
    tpBytes bytes = camera.Read(tcFaultyCamera::nHealthyBytes).bytes;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(bytes,
              Joined({healthy[1], healthy[2], healthy[3], healthy[4], healthy[5], healthy[0]}));
    EXPECT_GE(taken.count(), 0.7);
    EXPECT_TRUE(camera.Echoes());
}

TEST(SimFault, MakesAReadoutEndless)
{
    tcFaultyCamera camera({"endless:readout=1"});
    camera.Ask(2);
    camera.Read(tcFaultyCamera::nAnswerBytes);
    for (int frame = 0; frame < 6; ++frame) {
        const tsArrivedFrame arrived = camera.Client().ReceiveFrame();
        ASSERT_TRUE(arrived.complete);
        ASSERT_FALSE(arrived.lastFlag);
    }
    camera.Client().SendCommand(cmdAbortRead);
    EXPECT_TRUE(Eventually([&] {
        return !camera.Server().Frames().back().complete ||
               camera.Server().Statistics().framesComplete >= 6;
    }));
    camera.Client().Settle();
    camera.Client().SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    EXPECT_TRUE(camera.Client().ReceiveFrame().lastFlag) << "the next one ends";
}

TEST(SimFault, StrikesTheSameInEveryRunOfASeed)
{
    const std::vector<std::string> faults = {
        "missing-packet:chance=0.2,times=0",   "flip-payload:readout=1,chance=0.3,times=0,count=4",
        "duplicate-packet:chance=0.1,times=0", "garbage:readout=1,chance=0.2,times=0,bytes=40",
        "reorder:chance=0.1,times=0",          "truncate:readout=1,chance=0.1,times=0"};
    auto run = [&](uint64_t seed) {
        tcFaultyCamera camera(faults, seed);
        camera.Ask(30);
        EXPECT_TRUE(Eventually([&] { return camera.Server().Statistics().framesComplete == 30; }));
        camera.Client().Send(0x1234, {0xE1, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8});
        const tpBytes mark{0xE5, 0xE6, 0xE7};
        tpBytes all;
        while (std::search(all.begin(), all.end(), mark.begin(), mark.end()) == all.end()) {
            const tsRead more = camera.Read(1);
            if (more.bytes.empty()) break;
            all.push_back(more.bytes[0]);
        }
        // What is held back at the end comes when it comes.
        all.resize(std::min<size_t>(all.size(), 5000));
        return std::make_pair(all, camera.Server().Statistics().faults);
    };
    const auto first = run(7), again = run(7), other = run(8);
    EXPECT_GT(first.second, 20u);
    EXPECT_EQ(first.first, again.first);
    EXPECT_NE(first.first, other.first);
}
