// Checksums, and what goes into the header of a message that is sent.
#include "parser_support.h"
#include "tcCamParser.h"

#include "vxmessages.h"

#include <gtest/gtest.h>

#include <vector>

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
