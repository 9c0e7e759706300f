#include <string.h>

#include "StringTokenizer.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

TEST(StringTokenizer, SplitsAtRunsOfDelimiters)
{
    StringTokenizer tokens(",,a,,b,", ",");
    EXPECT_EQ(2, tokens.countTokens());
    EXPECT_EQ("a", tokens.nextToken());
    EXPECT_EQ(1, tokens.countTokens());
    EXPECT_EQ("b", tokens.nextToken());
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_EQ(0, tokens.countTokens());
}

TEST(StringTokenizer, TakesEachCharacterOfTheSetAsADelimiter)
{
    EXPECT_THAT(StringTokenizer::BuildTokenList("udp://1.2.3.4:5", ":/"),
                ElementsAre("udp", "1.2.3.4", "5"));
    EXPECT_THAT(StringTokenizer::BuildTokenList("  ", " "), ElementsAre());
}

TEST(StringTokenizer, YieldsNothingForEmptyDelimiters)
{
    StringTokenizer tokens("abc", "");
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_EQ(0, tokens.countTokens());
    EXPECT_EQ("", tokens.nextToken());
    EXPECT_EQ("", tokens.nextToken(","));
    EXPECT_EQ("", tokens.remainingString());
}

TEST(StringTokenizer, YieldsNothingForEmptyText)
{
    StringTokenizer tokens("", ",");
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_EQ("", tokens.nextToken());
}

TEST(StringTokenizer, KeepsATextOfDelimitersOnlyAndYieldsNothing)
{
    StringTokenizer tokens("  ", " ");
    EXPECT_EQ("  ", tokens.remainingString());
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_EQ(0, tokens.countTokens());
    EXPECT_EQ("", tokens.nextToken());
    EXPECT_EQ("  ", tokens.remainingString());
}

TEST(StringTokenizer, StartsTheRemainingTextAtTheFirstToken)
{
    EXPECT_EQ("a b", StringTokenizer("  a b", " ").remainingString());
    EXPECT_EQ("b", StringTokenizer("  b", " ").remainingString());
}

TEST(StringTokenizer, StartsTheRemainingTextAtTheNextTokenAfterEachOne)
{
    StringTokenizer tokens("set   CAM 3 ", " ");
    EXPECT_EQ("set", tokens.nextToken());
    EXPECT_EQ("CAM 3 ", tokens.remainingString());
}

TEST(StringTokenizer, LeavesTrailingDelimitersBehindTheLastToken)
{
    StringTokenizer tokens("a,,", ",");
    EXPECT_EQ("a", tokens.nextToken());
    EXPECT_EQ(",,", tokens.remainingString());
    EXPECT_FALSE(tokens.hasMoreTokens());
    EXPECT_EQ("", tokens.nextToken());
    EXPECT_EQ(",,", tokens.remainingString());
}

TEST(StringTokenizer, CountingLeavesTheTokensAlone)
{
    const StringTokenizer tokens("a b c", " ");
    EXPECT_EQ(3, tokens.countTokens());
    EXPECT_EQ(3, tokens.countTokens());
    EXPECT_EQ("a b c", tokens.remainingString());
}

TEST(StringTokenizer, UsesAnotherDelimiterSetForOneCall)
{
    StringTokenizer tokens("!env NAME=value", " ");
    EXPECT_EQ("!env", tokens.nextToken());
    EXPECT_EQ("NAME", tokens.nextToken("="));
    EXPECT_EQ("value", tokens.remainingString());
    EXPECT_EQ("value", tokens.nextToken());
    EXPECT_EQ("", tokens.remainingString());
}

TEST(StringTokenizer, KeepsOtherDelimitersInTokensOfAnotherSet)
{
    StringTokenizer tokens("!env NAME = a value", " ");
    tokens.nextToken();
    EXPECT_EQ("NAME ", tokens.nextToken("="));
    EXPECT_EQ(" a value", tokens.remainingString());
    EXPECT_EQ("a", tokens.nextToken());
}

TEST(StringTokenizer, TakesItsOwnSetWhenTheOtherIsEmpty)
{
    StringTokenizer tokens("a b", " ");
    EXPECT_EQ("a", tokens.nextToken(""));
    EXPECT_EQ("b", tokens.nextToken(nullptr));
}

TEST(StringTokenizer, ReadsDecimalNumbers)
{
    StringTokenizer tokens("0x10 42abc -7 x 010", " ");
    EXPECT_EQ(0, tokens.nextIntToken());
    EXPECT_EQ(42, tokens.nextIntToken());
    EXPECT_EQ(-7, tokens.nextIntToken());
    EXPECT_EQ(0, tokens.nextIntToken());
    EXPECT_EQ(10, tokens.nextIntToken());
    EXPECT_EQ(0, tokens.nextIntToken());
}

TEST(StringTokenizer, ReadsFloatingNumbers)
{
    StringTokenizer tokens("1.5 -2e3 x", " ");
    EXPECT_DOUBLE_EQ(1.5, tokens.nextFloatToken());
    EXPECT_DOUBLE_EQ(-2000, tokens.nextFloatToken());
    EXPECT_DOUBLE_EQ(0, tokens.nextFloatToken());
    EXPECT_DOUBLE_EQ(0, tokens.nextFloatToken());
}

TEST(PathHelpers, BasenameIsWhatFollowsTheLastSlash)
{
    char path[] = "dir/sub/file";
    EXPECT_EQ(path + 8, basename(path));
    EXPECT_STREQ("dir/sub/file", path);
    char plain[] = "file";
    EXPECT_EQ(plain, basename(plain));
    char ending[] = "a/b/";
    EXPECT_EQ(ending + 4, basename(ending));
    EXPECT_STREQ("", basename(ending));
    EXPECT_STREQ("a/b/", ending);
    // Through a pointer, since the system's header declares its own one for texts only.
    char* (*const volatile callee)(char*) = basename;
    EXPECT_EQ(nullptr, callee(nullptr));
}

static std::string DirnameOf(std::string path)
{
    EXPECT_EQ(path.data(), dirname(path.data()));
    return path.c_str();
}

TEST(PathHelpers, DirnameCutsInPlaceBeforeTheLastSlash)
{
    EXPECT_EQ("dir/sub", DirnameOf("dir/sub/file"));
    EXPECT_EQ("a/b", DirnameOf("a/b/"));
    EXPECT_EQ(nullptr, dirname(nullptr));
}

TEST(PathHelpers, DirnameOfABareOrATopNameIsEmpty)
{
    EXPECT_EQ("", DirnameOf("file"));
    EXPECT_EQ("", DirnameOf("/file"));
    EXPECT_EQ("", DirnameOf(""));
    EXPECT_EQ("", DirnameOf("/"));
}
