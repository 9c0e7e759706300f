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

// The line assembling subclass that the library leaves to others.
class tcLineParser : public tcDspParserBase
{
public:
    explicit tcLineParser(int capacity)
        : tcDspParserBase(nullptr, 0), msMemory(static_cast<size_t>(capacity), '~')
    {
        mpLineBuffer = msMemory.data();
        mnLineCapacity = capacity;
    }

    int Take(const std::string& chunk)
    {
        std::string copy = chunk;
        return AssembleLine(copy.data(), static_cast<int>(copy.size()), Done);
    }
    std::string Line() const { return msMemory.substr(0, static_cast<size_t>(mnLineLength)); }
    std::string Memory() const { return msMemory; }
    int Length() const { return mnLineLength; }

    bool Done = false;

private:
    std::string msMemory;
};

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

const std::string sCrLine("AB\0", 3);

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

TEST(LineAssembler, ConsumesEverythingWithoutALineBuffer)
{
    tcDspParserBase parser(nullptr, 16);
    char text[] = "AB\r\n";
    bool complete = true;
    EXPECT_EQ(parser.AssembleLine(text, 4, complete), 4);
    EXPECT_FALSE(complete);
}

TEST(LineAssembler, EndsALineAtLf)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("AB\nCD"), 3);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), sCrLine);
}

TEST(LineAssembler, LeavesALineOpenUntilItsEndArrives)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("A"), 1);
    EXPECT_FALSE(parser.Done);
    EXPECT_EQ(parser.Take("B"), 1);
    EXPECT_FALSE(parser.Done);
    EXPECT_EQ(parser.Take("\n"), 1);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), sCrLine);
}

TEST(LineAssembler, SkipsTheLfOfACrLfPairInTheNextChunk)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("AB\r"), 3);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), sCrLine);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take("\n"), 1);
    EXPECT_FALSE(parser.Done);
    EXPECT_EQ(parser.Length(), 0);
}

TEST(LineAssembler, SkipsTheLfOfACrLfPairInTheSameChunk)
{
    tcLineParser parser(16);
    const std::string text = "AB\r\nCD\n";
    EXPECT_EQ(parser.Take(text), 3);
    EXPECT_EQ(parser.Line(), sCrLine);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take(text.substr(3)), 4);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), std::string("CD\0", 3));
}

TEST(LineAssembler, SkipsOnlyOneLfAfterACr)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("A\r"), 2);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take("\n\n"), 2);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), std::string("\0", 1));
}

TEST(LineAssembler, ForgetsTheCrWithTheNextByteWhateverItIs)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("A\r"), 2);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take("B"), 1);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take("\n"), 1);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), std::string("\0", 1));
}

TEST(LineAssembler, TakesTwoLfsAsTwoLines)
{
    tcLineParser parser(16);
    EXPECT_EQ(parser.Take("A\n"), 2);
    parser.ResetParser(nullptr, 0);
    EXPECT_EQ(parser.Take("\n"), 1);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), std::string("\0", 1));
}

TEST(LineAssembler, RemembersTheCrForEveryParserOfTheProcess)
{
    tcLineParser first(16);
    tcLineParser second(16);
    EXPECT_EQ(first.Take("A\r"), 2);
    EXPECT_EQ(second.Take("\nB"), 2);
    EXPECT_FALSE(second.Done);
    EXPECT_EQ(second.Line(), "B");
}

TEST(LineAssembler, ForgetsTheCrWhenTheLineIsNoLongerEmpty)
{
    tcLineParser open(16);
    tcLineParser other(16);
    EXPECT_EQ(open.Take("X"), 1);
    EXPECT_EQ(other.Take("A\r"), 2);
    EXPECT_EQ(open.Take("\n"), 1);
    EXPECT_TRUE(open.Done);
    EXPECT_EQ(open.Line(), std::string("X\0", 2));
}

TEST(LineAssembler, CompletesAFullLineWithoutNul)
{
    tcLineParser parser(4);
    EXPECT_EQ(parser.Take("ABCDEF\n"), 4);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), "ABCD");
}

TEST(LineAssembler, CompletesALineThatFillsWithTheLastByteOfTheInput)
{
    tcLineParser parser(4);
    EXPECT_EQ(parser.Take("ABCD"), 4);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), "ABCD");
}

TEST(LineAssembler, ReportsALineThatIsStillFullAgain)
{
    tcLineParser parser(4);
    EXPECT_EQ(parser.Take("ABCD"), 4);
    EXPECT_EQ(parser.Take("E"), 0);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Take(""), 0);
    EXPECT_FALSE(parser.Done);
}

TEST(LineAssembler, CountsTheNulInTheLastFreeByte)
{
    tcLineParser parser(3);
    EXPECT_EQ(parser.Take("AB\n"), 3);
    EXPECT_TRUE(parser.Done);
    EXPECT_EQ(parser.Line(), sCrLine);
}

TEST(LineAssembler, TakesNothingFromNull)
{
    tcLineParser parser(8);
    bool complete = true;
    EXPECT_EQ(parser.AssembleLine(nullptr, 5, complete), 0);
    EXPECT_FALSE(complete);
}

TEST(AsciiHexDigits, HaveTheirValueInEitherCase)
{
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(tcDspParserBase::AsciiHexDigitVal(lower[static_cast<size_t>(i)]), i);
        EXPECT_EQ(tcDspParserBase::AsciiHexDigitVal(upper[static_cast<size_t>(i)]), i);
    }
}

TEST(AsciiHexDigits, AreZeroForEverythingElse)
{
    const std::string digits = "0123456789abcdefABCDEF";
    tcDspParserBase parser(nullptr, 0);
    EXPECT_EQ(parser.AsciiHexDigitVal('g'), 0);
    for (int c = 0; c < 256; ++c) {
        if (digits.find(static_cast<char>(c)) != std::string::npos) continue;
        EXPECT_EQ(parser.AsciiHexDigitVal(static_cast<char>(c)), 0) << c;
    }
}
