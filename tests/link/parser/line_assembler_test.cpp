#include "tcDspParserBase.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

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

const std::string sCrLine("AB\0", 3);

} // namespace

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
