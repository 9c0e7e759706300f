#include "fits/fits_cards.h"

#include "files/ascii.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <random>

using testing::ElementsAre;
using testing::HasSubstr;

namespace vxcam {

TEST(FitsCards, WriteNumbersSoThatTheyAreReadBackAlike)
{
    EXPECT_EQ(fitsNumber(1.5, 3), "1.500");
    EXPECT_EQ(fitsNumber(-19.96, 1), "-20.0");
    EXPECT_EQ(fitsNumber(5, HeaderCard::kAsNeeded), "5.0");
    EXPECT_EQ(fitsNumber(0.1, HeaderCard::kAsNeeded), "0.1");
    EXPECT_EQ(fitsNumber(1e20, HeaderCard::kAsNeeded), "1.0E+20");
    EXPECT_EQ(fitsNumber(std::nan(""), 3), "");
    EXPECT_EQ(fitsNumber(INFINITY, HeaderCard::kAsNeeded), "");
    std::mt19937_64 random(1);
    for (int i = 0; i < 1000; ++i) {
        const uint64_t bits = random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (!std::isfinite(value)) continue;
        EXPECT_EQ(std::strtod(fitsNumber(value, HeaderCard::kAsNeeded).c_str(), nullptr), value);
    }
}

TEST(FitsCards, FillTheirLine)
{
    EXPECT_THAT(fitsCards({"A", std::string("x"), "c"}, nullptr),
                ElementsAre("A       = 'x       '           / c" + std::string(46, ' ')));
    EXPECT_THAT(fitsCards({"A", std::string("x"), std::string(50, 'c')}, nullptr),
                ElementsAre("A       = 'x       '        / " + std::string(50, 'c')));
    EXPECT_THAT(fitsCards({"A", true, "c"}, nullptr),
                ElementsAre("A       =                    T / c" + std::string(46, ' ')));
    EXPECT_THAT(fitsCards({"A", std::string(68, 'x'), "c"}, nullptr),
                ElementsAre("A       = '" + std::string(68, 'x') + "'"));
    EXPECT_THAT(fitsCards({"A", std::string(69, 'x'), ""}, nullptr),
                ElementsAre("A       = '" + std::string(67, 'x') + "&'",
                            "CONTINUE  'xx'" + std::string(66, ' ')));
    EXPECT_TRUE(fitsCards({"A", std::nan(""), "c"}, nullptr).empty());
}

TEST(FitsCards, SayThatACommentIsCut)
{
    std::vector<std::string> warnings;
    const auto lines = fitsCards({"A", std::string("x"), std::string(70, 'c')}, &warnings);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 80u);
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("A: the comment")));
}

TEST(Ascii, WritesOtherCharactersAsGoodAsCanBe)
{
    EXPECT_EQ(asciiOf("plain ~ \\n"), "plain ~ \\n");
    EXPECT_EQ(asciiOf("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F \xC3\xA9\xC3\xB1"), "aeoeuess en");
    EXPECT_EQ(asciiOf("5 \xC2\xB0"
                      "C \xC2\xB5m \xCE\xBCm"),
              "5 degC um um");
    EXPECT_EQ(asciiOf("\xE2\x80\x9Cq\xE2\x80\x9D \xF0\x9F\x94\xAD"), "\"q\" ?");
    EXPECT_EQ(asciiOf(std::string("a\0b\n\x1b\x7f", 6)), "a\\x00b\\n\\x1b\\x7f");
    EXPECT_EQ(asciiOf("\xFF\xC3"), "\\xff\\xc3");
    EXPECT_EQ(asciiOf("\xC2\x85"), "\\xc2\\x85"); // a control character beyond ASCII
}

} // namespace vxcam
