#include "tcDspParserBase.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

struct tsDelivery {
    int Status;
    std::string Bytes;
    int Length;
    unsigned Checksum;
    const void* Frame;
};

bool Collect(int status, void* frame, int length, unsigned checksum, void* user)
{
    std::string bytes;
    if (length > 0) bytes.assign(static_cast<char*>(frame), static_cast<size_t>(length));
    static_cast<std::vector<tsDelivery>*>(user)->push_back(
        {status, bytes, length, checksum, frame});
    return false;
}

int Feed(tcDspParserBase& parser, std::string text)
{
    return parser.AddData(text.data(), static_cast<int>(text.size()));
}

class tcProbe : public tcDspParserBase
{
public:
    using tcDspParserBase::tcDspParserBase;
    unsigned char* Buffer() const { return buffer; }
    int Size() const { return bufferSize; }
    bool Owns() const { return ownsBuffer; }
    void SetPosition(uint32_t position) { mnPosition = position; }
    uint32_t Position() const { return mnPosition; }
};

} // namespace

TEST(DspParserBase, DeliversAChunkThatFits)
{
    char memory[8];
    std::vector<tsDelivery> deliveries;
    tcDspParserBase parser(memory, sizeof memory);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(Feed(parser, "12345678"), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, 0);
    EXPECT_EQ(deliveries[0].Bytes, "12345678");
    EXPECT_EQ(deliveries[0].Checksum, 0u);
    EXPECT_EQ(deliveries[0].Frame, memory);
    EXPECT_EQ(parser.BytesIn, 8u);
    EXPECT_EQ(parser.BytesFramed, 8u);
    EXPECT_EQ(parser.GoodFrames, 1u);
    EXPECT_EQ(parser.BadFrames, 0u);
    EXPECT_EQ(parser.SkippedBytes, 0u);
    EXPECT_EQ(parser.ChecksumErrors, 0u);
}

TEST(DspParserBase, DeliversTheFirstBytesOfAChunkOneByteTooLong)
{
    char memory[8];
    std::vector<tsDelivery> deliveries;
    tcDspParserBase parser(memory, sizeof memory);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(Feed(parser, "123456789"), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, -4);
    EXPECT_EQ(deliveries[0].Bytes, "12345678");
    EXPECT_EQ(deliveries[0].Checksum, 0u);
    EXPECT_EQ(parser.BytesIn, 9u);
    EXPECT_EQ(parser.BytesFramed, 8u);
    EXPECT_EQ(parser.GoodFrames, 0u);
    EXPECT_EQ(parser.BadFrames, 1u);
}

TEST(DspParserBase, RefusesNullDataAndLengthsBelowOne)
{
    char memory[8] = {};
    tcDspParserBase parser(memory, sizeof memory);
    EXPECT_EQ(parser.AddData(nullptr, 4), 0);
    EXPECT_EQ(parser.AddData(memory, 0), 0);
    EXPECT_EQ(parser.AddData(memory, -1), 0);
    EXPECT_EQ(parser.BytesIn, 0u);
    EXPECT_EQ(parser.GoodFrames, 0u);
}

TEST(DspParserBase, CountsWithoutCallback)
{
    char memory[8];
    tcDspParserBase parser(memory, sizeof memory);
    EXPECT_EQ(Feed(parser, "ab"), 1);
    EXPECT_EQ(Feed(parser, "0123456789"), 1);
    EXPECT_EQ(parser.GoodFrames, 1u);
    EXPECT_EQ(parser.BadFrames, 1u);
}

TEST(DspParserBase, StoresNothingWithoutABuffer)
{
    std::vector<tsDelivery> deliveries;
    tcDspParserBase parser(nullptr, 0);
    parser.RegisterCallback(Collect, &deliveries);
    EXPECT_EQ(Feed(parser, "ab"), 1);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(deliveries[0].Status, -4);
    EXPECT_EQ(deliveries[0].Length, 0);
}

TEST(DspParserBase, HasNeutralFrameOperations)
{
    tcDspParserBase parser(nullptr, 16);
    EXPECT_EQ(parser.ComputeChecksum(nullptr), 0u);
    parser.PrepareOutput(nullptr);
    parser.EnableChecksum(true);
    EXPECT_EQ(Feed(parser, "ab"), 1);
}

TEST(DspParserBase, AllocatesABufferWhenGivenOnlyASize)
{
    tcProbe parser(nullptr, 32);
    EXPECT_TRUE(parser.Owns());
    EXPECT_EQ(parser.Size(), 32);
    EXPECT_EQ(Feed(parser, std::string(32, 'x')), 1);
    EXPECT_EQ(parser.GoodFrames, 1u);
}

TEST(DspParserBase, KeepsAnOwnedBufferAndItsSize)
{
    tcProbe parser(nullptr, 32);
    unsigned char* owned = parser.Buffer();
    EXPECT_EQ(parser.ResetParser(nullptr, 64), 1);
    EXPECT_EQ(parser.Buffer(), owned);
    EXPECT_EQ(parser.Size(), 32);
}

TEST(DspParserBase, ReplacesAnOwnedBufferByTheCallersBuffer)
{
    char memory[8];
    tcProbe parser(nullptr, 32);
    EXPECT_EQ(parser.ResetParser(memory, sizeof memory), 1);
    EXPECT_FALSE(parser.Owns());
    EXPECT_EQ(static_cast<void*>(parser.Buffer()), memory);
    EXPECT_EQ(parser.Size(), 8);
    EXPECT_EQ(parser.ResetParser(nullptr, 16), 1);
    EXPECT_TRUE(parser.Owns());
    EXPECT_EQ(parser.Size(), 16);
}

TEST(DspParserBase, KeepsOwningABufferThatIsGivenBack)
{
    tcProbe parser(nullptr, 32);
    EXPECT_EQ(parser.ResetParser(parser.Buffer(), 16), 1);
    EXPECT_TRUE(parser.Owns());
    EXPECT_EQ(parser.Size(), 16);
}

TEST(DspParserBase, TakesNoBufferOfSizeZeroOrBelow)
{
    char memory[8];
    char other[8];
    tcProbe parser(memory, sizeof memory);
    EXPECT_EQ(parser.ResetParser(other, 0), 0);
    EXPECT_EQ(static_cast<void*>(parser.Buffer()), memory);
    EXPECT_EQ(parser.Size(), 0);
    EXPECT_EQ(parser.ResetParser(other, -5), 0);
    EXPECT_EQ(parser.Size(), -5);
    EXPECT_EQ(Feed(parser, "ab"), 1);
    EXPECT_EQ(parser.BadFrames, 1u);
    EXPECT_EQ(parser.BytesFramed, 0u);
}

TEST(DspParserBase, AllocatesNothingForANegativeSize)
{
    tcProbe parser(nullptr, -1);
    EXPECT_EQ(parser.Buffer(), nullptr);
    EXPECT_EQ(parser.ResetParser(nullptr, -1), 0);
    EXPECT_EQ(Feed(parser, "ab"), 1);
    EXPECT_EQ(parser.BadFrames, 1u);
}

TEST(DspParserBase, ClearsCountersAndPositionAtEveryReset)
{
    char memory[4];
    tcProbe parser(memory, sizeof memory);
    for (void* buffer : {static_cast<void*>(nullptr), static_cast<void*>(memory)}) {
        Feed(parser, "ab");
        Feed(parser, "abcdef");
        parser.SkippedBytes = 5;
        parser.ChecksumErrors = 6;
        parser.SetPosition(7);
        EXPECT_EQ(parser.ResetParser(buffer, buffer == nullptr ? 0 : 4), 1);
        EXPECT_EQ(static_cast<void*>(parser.Buffer()), memory);
        EXPECT_EQ(parser.BytesIn, 0u);
        EXPECT_EQ(parser.BytesFramed, 0u);
        EXPECT_EQ(parser.GoodFrames, 0u);
        EXPECT_EQ(parser.BadFrames, 0u);
        EXPECT_EQ(parser.SkippedBytes, 0u);
        EXPECT_EQ(parser.ChecksumErrors, 0u);
        EXPECT_EQ(parser.Position(), 0u);
    }
}
