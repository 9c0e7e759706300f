#include "files_support.h"

#include <vxcamkit/header.h>

#include <gmock/gmock.h>

using testing::HasSubstr;

namespace vxcam {

namespace {

std::string refused(const std::string& text)
{
    return refusalOf([&] { parseCard(text); }, ErrorKind::Usage);
}

template <class Type>
Type valueOf(const std::string& text)
{
    const HeaderCard card = parseCard(text);
    EXPECT_TRUE(std::holds_alternative<Type>(card.value)) << text;
    const Type* const value = std::get_if<Type>(&card.value);
    return value != nullptr ? *value : Type();
}

} // namespace

TEST(UserCard, KnowsNumbersTextsAndLogicals)
{
    EXPECT_EQ(valueOf<int64_t>("A=5"), 5);
    EXPECT_EQ(valueOf<int64_t>("A=+5"), 5);
    EXPECT_EQ(valueOf<int64_t>("A=-123456789012345678"), -123456789012345678);
    EXPECT_EQ(valueOf<double>("A=-1.5e3"), -1500);
    EXPECT_EQ(valueOf<double>("A=.5"), 0.5);
    EXPECT_TRUE(valueOf<bool>("A=T"));
    EXPECT_EQ(parseCard("A=F").value, HeaderCard::Value(false));
    EXPECT_EQ(valueOf<std::string>("A=true"), "true");
    EXPECT_EQ(valueOf<std::string>("A=12h30m"), "12h30m");
    EXPECT_EQ(valueOf<std::string>("A="), "");
    EXPECT_EQ(valueOf<std::string>("A=nan"), "nan");
    EXPECT_EQ(valueOf<std::string>("A=inf"), "inf");
    EXPECT_EQ(valueOf<std::string>("A=0x10"), "0x10");
    EXPECT_EQ(valueOf<std::string>("A=1e999"), "1e999");
}

TEST(UserCard, HasACommentBehindASlash)
{
    EXPECT_EQ(valueOf<std::string>("OBSERVER = Tycho Brahe / on duty "), "Tycho Brahe");
    EXPECT_EQ(parseCard("OBSERVER = Tycho Brahe / on duty ").comment, "on duty");
    EXPECT_EQ(parseCard("A=5/a/b").comment, "a/b");
    EXPECT_EQ(parseCard("A=5").comment, "");
}

TEST(UserCard, TakesQuotedTextAsItStands)
{
    EXPECT_EQ(valueOf<std::string>("A='5'"), "5");
    EXPECT_EQ(valueOf<std::string>("A=' a/b ' / c"), " a/b ");
    EXPECT_EQ(parseCard("A=' a/b ' / c").comment, "c");
    EXPECT_EQ(valueOf<std::string>("A='O''Neill'"), "O'Neill");
    EXPECT_THAT(refused("A='open"), HasSubstr("no end"));
    EXPECT_THAT(refused("A='a' b"), HasSubstr("behind the text"));
}

TEST(UserCard, TakesNamesForTexts)
{
    EXPECT_EQ(valueOf<std::string>("OBJECT=31"), "31");
    EXPECT_EQ(valueOf<std::string>("FILTER=T"), "T");
}

TEST(UserCard, WritesItsWordInCapitals)
{
    EXPECT_EQ(parseCard("my-wor_1=1").keyword, "MY-WOR_1");
}

TEST(UserCard, RefusesWordsThatFitsCannotHave)
{
    for (const char* text : {"=1", "ABCDEFGHI=1", "A B=1", "A.B=1", "\xC3\xA4=1"}) {
        EXPECT_THAT(refused(text), HasSubstr("1 to 8 letters")) << text;
    }
    EXPECT_THAT(refused("OBSERVER"), HasSubstr("write KEY=VALUE"));
}

TEST(UserCard, RefusesWordsThatFilesHave)
{
    for (const char* text : {"SIMPLE=T", "naxis=1", "NAXIS3=1", "BZERO=1", "END=1", "EXPTIME=1",
                             "GAIN=1", "DATE-OBS=x", "CHECKSUM=1", "COMMENT=x", "CONTINUE=x",
                             "TFORM12=1", "REGION3=x", "LTM1_1=2", "HIERARCH=1"}) {
        EXPECT_THAT(refused(text), HasSubstr("of their own")) << text;
    }
    for (const char* text : {"NAXISX=1", "REGION=1", "LTM1_=1", "XPIXSZ=3.76", "TELESCOP=x"}) {
        EXPECT_EQ(refused(text), "") << text;
    }
}

} // namespace vxcam
