#include "usual_program.h"

#include <vxcamkit/stars.h>

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <random>

namespace vxcam {

namespace {

constexpr double kFwhmOfSigma = 2.354820045;
constexpr double kPi = 3.141592653589793;

// What a star is made of: a gaussian, `sigma` along its long axis.
struct Source {
    double column, row, height, sigma;
    double elongation = 1, angle = 0;
};

struct Scene {
    int rows = 256, columns = 256;
    double level = 1000, noise = 10;
    double slopeX = 0, slopeY = 0; // of the level, across the frame
    std::vector<Source> sources;
    unsigned seed = 1;
};

double lightOf(const Source& source, double column, double row)
{
    const double x = column - source.column, y = row - source.row;
    const double along = x * std::cos(source.angle) + y * std::sin(source.angle);
    const double across = y * std::cos(source.angle) - x * std::sin(source.angle);
    const double narrow = source.sigma / source.elongation;
    return source.height * std::exp(-along * along / (2 * source.sigma * source.sigma) -
                                    across * across / (2 * narrow * narrow));
}

size_t indexOf(const Scene& scene, int column, int row)
{
    return static_cast<size_t>(row) * static_cast<size_t>(scene.columns) +
           static_cast<size_t>(column);
}

template <class Pixel>
Frame drawn(const Scene& scene)
{
    std::mt19937 random(scene.seed);
    std::normal_distribution<double> noise(0, scene.noise > 0 ? scene.noise : 1);
    std::vector<double> values(static_cast<size_t>(scene.rows * scene.columns));
    for (int row = 0; row < scene.rows; ++row) {
        for (int column = 0; column < scene.columns; ++column) {
            double value = scene.level + scene.slopeX * column / scene.columns +
                           scene.slopeY * row / scene.rows;
            if (scene.noise > 0) value += noise(random);
            values[indexOf(scene, column, row)] = value;
        }
    }
    for (const Source& source : scene.sources) {
        const int reach = static_cast<int>(8 * source.sigma) + 2;
        for (int row = std::max(0, static_cast<int>(source.row) - reach);
             row <= std::min(scene.rows - 1, static_cast<int>(source.row) + reach); ++row) {
            for (int column = std::max(0, static_cast<int>(source.column) - reach);
                 column <= std::min(scene.columns - 1, static_cast<int>(source.column) + reach);
                 ++column) {
                values[indexOf(scene, column, row)] += lightOf(source, column, row);
            }
        }
    }
    std::vector<Pixel> pixels(values.size());
    std::transform(values.begin(), values.end(), pixels.begin(), [](double value) {
        const double most = std::numeric_limits<Pixel>::max();
        return static_cast<Pixel>(std::clamp(std::round(value), 0.0, most));
    });
    return frameOf<Pixel>(scene.rows, scene.columns, pixels);
}

// Stars that keep apart, on a grid that is shaken.
std::vector<Source> scattered(int rows, int columns, int step, double least, double most,
                              double sigma)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> shake(-0.3 * step, 0.3 * step), unit(0, 1);
    std::vector<Source> sources;
    for (int row = step; row < rows - step / 2; row += step) {
        for (int column = step; column < columns - step / 2; column += step) {
            const double height = least * std::pow(most / least, unit(random));
            sources.push_back({column + shake(random), row + shake(random), height, sigma});
        }
    }
    return sources;
}

Star onlyStar(const Frame& frame)
{
    const StarField field = findStars(frame);
    EXPECT_EQ(field.stars.size(), 1u);
    return field.stars.empty() ? Star() : field.stars[0];
}

} // namespace

TEST(Stars, AreMeasuredAsTheyWereDrawn)
{
    for (const double sigma : {1.2, 1.5, 2.0, 3.0, 5.0}) {
        Scene scene;
        scene.noise = 2;
        scene.sources = {{120.3, 99.75, 30000, sigma}};
        const Star star = onlyStar(drawn<uint16_t>(scene));
        EXPECT_NEAR(star.column, 120.3, 0.02) << sigma;
        EXPECT_NEAR(star.row, 99.75, 0.02) << sigma;
        EXPECT_NEAR(star.hfd, kFwhmOfSigma * sigma, 0.02 * kFwhmOfSigma * sigma) << sigma;
        EXPECT_NEAR(star.fwhm, kFwhmOfSigma * sigma, 0.02 * kFwhmOfSigma * sigma) << sigma;
        EXPECT_NEAR(star.flux, 2 * kPi * sigma * sigma * 30000,
                    0.02 * 2 * kPi * sigma * sigma * 30000)
            << sigma;
        EXPECT_NEAR(star.elongation, 1, 0.02) << sigma;
        EXPECT_FALSE(star.isSaturated);
    }
}

TEST(Stars, AreMeasuredAtEachWidth)
{
    Scene scene;
    scene.noise = 2;
    scene.level = 20;
    scene.sources = {{60, 70.5, 200, 2.5}};
    const Star small = onlyStar(drawn<uint8_t>(scene));
    const Star large = onlyStar(drawn<uint32_t>(scene));
    EXPECT_NEAR(small.hfd, kFwhmOfSigma * 2.5, 0.3);
    EXPECT_NEAR(small.hfd, large.hfd, 1e-9);
    EXPECT_NEAR(small.row, 70.5, 0.1);
}

TEST(Stars, KnowHowLongTheyAre)
{
    for (const double angle : {0.0, 0.5, 1.2}) {
        Scene scene;
        scene.noise = 2;
        scene.sources = {{128, 128, 20000, 4, 2, angle}};
        const Star star = onlyStar(drawn<uint16_t>(scene));
        EXPECT_NEAR(star.elongation, 2, 0.1) << angle;
        EXPECT_NEAR(star.fwhm, kFwhmOfSigma * std::sqrt(4.0 * 2.0), 0.3) << angle;
    }
}

TEST(Stars, StandOnASkyThatIsNotFlat)
{
    Scene scene;
    scene.rows = scene.columns = 512;
    scene.slopeX = 3000;
    scene.slopeY = -800;
    scene.sources = scattered(512, 512, 64, 2000, 20000, 2);
    const StarField field = findStars(drawn<uint16_t>(scene));
    EXPECT_EQ(field.stars.size(), scene.sources.size());
    EXPECT_NEAR(field.hfd(), kFwhmOfSigma * 2, 0.1);
    EXPECT_NEAR(field.background.level, 1000 + 1500 - 400, 50);
}

TEST(Stars, AreNoBackgroundHoweverWideTheyAre)
{
    Scene scene;
    scene.rows = scene.columns = 512;
    scene.sources = {{224, 288, 5000, 10}}; // in the middle of a tile, whose median it moves
    const Star star = onlyStar(drawn<uint16_t>(scene));
    EXPECT_NEAR(star.hfd, kFwhmOfSigma * 10, 0.03 * kFwhmOfSigma * 10);
    EXPECT_NEAR(star.flux, 2 * kPi * 100 * 5000, 0.05 * 2 * kPi * 100 * 5000);
}

TEST(Stars, AreTheBrightOnesFirst)
{
    Scene scene;
    scene.sources = {{50, 50, 500, 2}, {150, 50, 20000, 2}, {50, 150, 3000, 2}};
    const StarField field = findStars(drawn<uint16_t>(scene));
    ASSERT_EQ(field.stars.size(), 3u);
    EXPECT_NEAR(field.stars[0].column, 150, 0.5);
    EXPECT_NEAR(field.stars[1].row, 150, 0.5);
    StarOptions options;
    options.most = 1;
    EXPECT_EQ(findStars(drawn<uint16_t>(scene), options).stars.size(), 1u);
}

TEST(Stars, AreNotSeenInNoiseAlone)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        Scene scene;
        scene.rows = scene.columns = 512;
        scene.seed = seed;
        const StarField field = findStars(drawn<uint16_t>(scene));
        EXPECT_TRUE(field.stars.empty());
        EXPECT_EQ(field.hfd(), 0);
        EXPECT_NEAR(field.background.level, 1000, 1);
        EXPECT_NEAR(field.background.noise, 10, 0.5);
    }
}

TEST(Stars, AreNoHotPixels)
{
    Scene scene;
    Frame frame = drawn<uint16_t>(scene);
    static_cast<uint16_t*>(frame.mutableData())[100 * 256 + 100] = 60000;
    EXPECT_TRUE(findStars(frame).stars.empty());
}

TEST(Stars, SayThatTheyAreSaturated)
{
    Scene scene;
    scene.sources = {{100, 100, 90000, 2}, {180, 180, 20000, 2}};
    const StarField field = findStars(drawn<uint16_t>(scene));
    ASSERT_EQ(field.stars.size(), 2u);
    EXPECT_TRUE(field.stars[0].isSaturated);
    EXPECT_FALSE(field.stars[1].isSaturated);
    EXPECT_EQ(field.hfd(), field.stars[1].hfd);
    StarOptions options;
    options.saturation = 15000;
    EXPECT_TRUE(findStars(drawn<uint16_t>(scene), options).stars[1].isSaturated);
}

TEST(Stars, AreLeftOutWhereTheirLightIsCut)
{
    Scene scene;
    scene.sources = {{2, 100, 20000, 2}, {254.5, 30, 20000, 2}, {100, 100, 20000, 2}};
    EXPECT_EQ(findStars(drawn<uint16_t>(scene)).stars.size(), 1u);
    const Frame whole = drawn<uint16_t>(scene);
    FrameFacts facts = whole.facts();
    facts.missingRows = {98, 99};
    std::vector<uint16_t> pixels(whole.pixels<uint16_t>().begin(), whole.pixels<uint16_t>().end());
    std::fill_n(pixels.begin() + 98 * 256, 512, uint16_t{0});
    EXPECT_TRUE(findStars(frameOf(facts, pixels)).stars.empty());
}

TEST(Stars, CanBeLookedForInAnyFrame)
{
    EXPECT_TRUE(findStars(Frame(factsOf(1, 1))).stars.empty());
    EXPECT_TRUE(findStars(Frame(factsOf(3, 500, 8))).stars.empty());
    FrameFacts facts = factsOf(2, 2);
    facts.missingRows = {0, 1};
    EXPECT_TRUE(findStars(Frame(facts)).stars.empty());
    const Frame white = frameOf(64, 64, std::vector<uint16_t>(64 * 64, 65535));
    EXPECT_TRUE(findStars(white).stars.empty());
    StarOptions options;
    options.threshold = 0;
    EXPECT_NE(refusalOf([&] { findStars(white, options); }, ErrorKind::Usage), "");
}

// A third party's program measures the same frame.
TEST(Stars, AreWhatTheUsualProgramSees)
{
    Scene scene;
    scene.rows = scene.columns = 1024;
    scene.sources = scattered(1024, 1024, 48, 120, 20000, 2); // from 12 times the noise
    const Frame frame = drawn<uint16_t>(scene);
    std::vector<double> radii;
    for (const ListedStar& star : starsOfTheUsualProgram("source-extractor", frame)) {
        const bool isInside = star.x > 20 && star.y > 20 && star.x < 1004 && star.y < 1004;
        if (isInside && star.peak > 100) radii.push_back(star.radius); // ten times the noise
    }
    ASSERT_GT(radii.size(), 100u);
    std::nth_element(radii.begin(), radii.begin() + static_cast<long>(radii.size() / 2),
                     radii.end());
    const double theirs = 2 * radii[radii.size() / 2];
    const StarField field = findStars(frame);
    const auto found = static_cast<double>(
        std::count_if(field.stars.begin(), field.stars.end(), [](const Star& star) {
            return star.peak > 100 && star.column > 19 && star.row > 19 && star.column < 1003 &&
                   star.row < 1003;
        }));
    EXPECT_NEAR(found, static_cast<double>(radii.size()), 0.05 * static_cast<double>(radii.size()));
    EXPECT_NEAR(field.hfd(), theirs, 0.05 * theirs);
    RecordProperty("theirs", std::to_string(theirs));
    RecordProperty("ours", std::to_string(field.hfd()));
}

} // namespace vxcam
