#include "files_support.h"

#include <vxcamkit/fits.h>
#include <vxcamkit/measures.h>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace vxcam {

namespace {

std::vector<std::string> keywordsOf(const Measures& measures)
{
    std::vector<std::string> keywords;
    for (const HeaderCard& card : cardsOf(measures)) {
        keywords.push_back(card.keyword);
    }
    return keywords;
}

} // namespace

TEST(Measures, AreThoseOfAllPixels)
{
    const Measures measures =
        measuresOf(frameOf<uint16_t>(3, 3, {1, 2, 3, 4, 100, 65535, 65535, 7, 8}));
    EXPECT_EQ(measures.least, 1u);
    EXPECT_EQ(measures.most, 65535u);
    EXPECT_DOUBLE_EQ(measures.mean, (1 + 2 + 3 + 4 + 100 + 65535 + 65535 + 7 + 8) / 9.0);
    EXPECT_EQ(measures.median, 7);
    EXPECT_EQ(measures.saturated, 2u);
    EXPECT_EQ(measures.stars, 0u);
    EXPECT_EQ(measures.hfd, 0);
}

TEST(Measures, AreThoseOfRowsThatCame)
{
    FrameFacts facts = factsOf(4, 2);
    facts.missingRows = {1, 3};
    const Measures measures = measuresOf(frameOf<uint16_t>(facts, {10, 20, 0, 0, 30, 50, 0, 0}));
    EXPECT_EQ(measures.least, 10u);
    EXPECT_EQ(measures.most, 50u);
    EXPECT_EQ(measures.mean, 27.5);
    EXPECT_EQ(measures.median, 20);
    facts.missingRows = {0, 1, 2, 3};
    EXPECT_EQ(measuresOf(frameOf<uint16_t>(facts, std::vector<uint16_t>(8))).median, 0);
}

TEST(Measures, TheMedianOfWidePixelsIsOneOfThem)
{
    EXPECT_EQ(measuresOf(frameOf<uint32_t>(1, 5, {5, 4000000000u, 1000001, 7, 3000000000u})).median,
              1000001);
}

TEST(Measures, FullScaleIsThatOfTheWidth)
{
    EXPECT_EQ(measuresOf(frameOf<uint8_t>(1, 3, {255, 254, 255})).saturated, 2u);
    EXPECT_EQ(measuresOf(frameOf<uint16_t>(1, 3, {255, 65534, 65535})).saturated, 1u);
    EXPECT_EQ(measuresOf(frameOf<uint32_t>(1, 3, {65535, 65536, ~0u})).saturated, 1u);
}

TEST(Measures, CountMoreStarsThanAreListed)
{
    // Small pyramids, 20 pixels apart.
    constexpr size_t kSide = 840, kStep = 20;
    std::vector<uint16_t> pixels(kSide * kSide, 100);
    for (size_t row = 9; row < kSide; row += kStep) {
        for (size_t column = 9; column < kSide; column += kStep) {
            for (size_t i = 0; i < 9; ++i) {
                const size_t away = (i / 3 == 1 ? 0 : 1) + (i % 3 == 1 ? 0 : 1);
                pixels[(row + i / 3) * kSide + column + i % 3] =
                    static_cast<uint16_t>(1100 >> away);
            }
        }
    }
    const Frame frame = frameOf<uint16_t>(840, 840, pixels);
    EXPECT_EQ(findStars(frame).stars.size(), 1000u);
    const Measures measures = measuresOf(frame);
    EXPECT_EQ(measures.stars, 42u * 42u);
    EXPECT_NEAR(measures.elongation, 1, 0.01);
    EXPECT_GT(measures.hfd, 1);
    EXPECT_LT(measures.hfd, 3);
}

TEST(Measures, CardsTellOfTheWidthOfStarsWhereThereAreSome)
{
    Measures measures;
    EXPECT_THAT(keywordsOf(measures), ElementsAre("DATAMIN", "DATAMAX", "NSTARS"));
    measures.stars = 3;
    measures.hfd = 2.345;
    measures.fwhm = 2.5;
    EXPECT_THAT(keywordsOf(measures), ElementsAre("DATAMIN", "DATAMAX", "NSTARS", "HFD", "FWHM"));
}

TEST(Measures, CardsGoIntoAFile)
{
    Measures measures;
    measures.most = 4000000000;
    measures.stars = 3;
    measures.hfd = 2.345;
    HeaderOptions options;
    options.cards = cardsOf(measures);
    const FileBytes file = makeFits(Frame(factsOf(1, 1)), options);
    const std::string text(file.data(), file.size());
    EXPECT_THAT(text, HasSubstr("DATAMAX =           4000000000"));
    EXPECT_THAT(text, HasSubstr("HFD     =                 2.35"));
    EXPECT_THAT(text, HasSubstr("NSTARS  =                    3"));
}

// A user's card with these words would say what nobody measured.
TEST(Measures, WordsOfTheirOwnAreNotTheUsers)
{
    EXPECT_NE(refusalOf([] { parseCard("DATAMAX=3"); }, ErrorKind::Usage), "");
    HeaderOptions options;
    options.cards = cardsOf(Measures());
    options.cards.push_back(parseCard("NSTARS=3"));
    EXPECT_THAT(refusalOf([&] { makeHeader(Frame(factsOf(1, 1)), options); }, ErrorKind::Usage),
                HasSubstr("NSTARS is given twice"));
}

} // namespace vxcam
