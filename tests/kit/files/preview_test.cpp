#include "files_support.h"

#include <vxcamkit/preview.h>
#include <vxcamkit/stretch.h>

#include <png.h>

#include <random>

namespace vxcam {

namespace {

constexpr int kSize = 400;
constexpr double kSky = 1000, kNoise = 10;

// A sky with its noise and one star of 20 x 20 pixels.
template <class Pixel>
std::vector<Pixel> skyPixels(Pixel star, double scale = 1)
{
    std::mt19937 random(1);
    std::normal_distribution<double> sky(kSky, kNoise);
    std::vector<Pixel> pixels(size_t{kSize} * kSize);
    for (size_t i = 0; i < pixels.size(); ++i) {
        const bool isStar = i / kSize < 20 && i % kSize < 20;
        pixels[i] = isStar ? star : static_cast<Pixel>(scale * sky(random));
    }
    return pixels;
}

template <class Pixel>
Frame skyFrame(Pixel star, double scale = 1)
{
    return frameOf(kSize, kSize, skyPixels(star, scale));
}

struct Picture {
    unsigned width = 0, height = 0;
    std::vector<uint8_t> grays;
};

Picture decoded(const FileBytes& bytes)
{
    Picture picture;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()), 0);
    image.format = PNG_FORMAT_GRAY;
    picture.width = image.width;
    picture.height = image.height;
    picture.grays.resize(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.grays.data(), 0, nullptr), 0);
    return picture;
}

} // namespace

TEST(Stretch, MakesTheSkyDarkAndStarsWhite)
{
    const Stretch stretch = findStretch(skyFrame<uint16_t>(60000));
    EXPECT_NEAR(stretch.gray(kSky), 0.09 * 255, 4);
    EXPECT_EQ(stretch.gray(60000), 255);
    EXPECT_EQ(stretch.gray(0), 0);
}

TEST(Stretch, LiftsFaintStarsOutOfTheNoise)
{
    const Stretch stretch = findStretch(skyFrame<uint16_t>(60000));
    EXPECT_GT(stretch.gray(kSky + 10 * kNoise), stretch.gray(kSky + kNoise) + 30);
}

TEST(Stretch, RisesWithTheValue)
{
    const Stretch stretch = findStretch(skyFrame<uint16_t>(30000));
    for (int value = 0; value < 65535; ++value) {
        ASSERT_LE(stretch.gray(value), stretch.gray(value + 1)) << value;
    }
}

TEST(Stretch, IsHardlyMovedByAFewHotPixels)
{
    std::vector<uint16_t> pixels = skyPixels<uint16_t>(1200);
    const Stretch before = findStretch(frameOf(kSize, kSize, pixels));
    for (size_t i = 0; i < 20; ++i) {
        pixels[kSize * 100 + 17 * i] = 65535;
    }
    const Stretch after = findStretch(frameOf(kSize, kSize, pixels));
    EXPECT_EQ(after.white, before.white);
    EXPECT_NEAR(after.black, before.black, 1);
}

TEST(Stretch, IsNotMovedByRowsThatDidNotCome)
{
    const std::vector<uint16_t> pixels = skyPixels<uint16_t>(1200);
    std::vector<uint16_t> part = pixels;
    FrameFacts facts = factsOf(kSize, kSize);
    for (int row = 100; row < 350; ++row) {
        facts.missingRows.push_back(row);
        std::fill_n(part.begin() + row * kSize, kSize, uint16_t{0});
    }
    EXPECT_NEAR(findStretch(frameOf(facts, part)).black,
                findStretch(frameOf(kSize, kSize, pixels)).black, 1);
}

TEST(Stretch, TreatsLargeValuesLikeSmallOnes)
{
    const uint8_t gray = findStretch(skyFrame<uint32_t>(60000)).gray(kSky);
    const Frame large = skyFrame<uint32_t>(3600000000U, 60000);
    EXPECT_NEAR(findStretch(large).gray(kSky * 60000), gray, 3);
}

TEST(Stretch, LeavesFlatFramesDark)
{
    const Frame white = frameOf(10, 10, std::vector<uint16_t>(100, 65535));
    EXPECT_LT(findStretch(white).gray(65535), 64);
    EXPECT_LT(findStretch(Frame(factsOf(10, 10))).gray(0), 64);
}

TEST(Stretch, RunsStraightBetweenPercentiles)
{
    std::vector<uint16_t> pixels(1001);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<uint16_t>(10 * i);
    }
    const Stretch stretch = percentileStretch(frameOf(1, 1001, pixels), 0.1, 0.9);
    EXPECT_EQ(stretch.black, 1000);
    EXPECT_EQ(stretch.white, 9000);
    EXPECT_EQ(stretch.gray(999), 0);
    EXPECT_EQ(stretch.gray(5000), 128);
    EXPECT_EQ(stretch.gray(9001), 255);
    const Stretch flat = percentileStretch(Frame(factsOf(2, 2)), 0, 1);
    EXPECT_GT(flat.white, flat.black);
}

TEST(Preview, HasTheFirstRowOnTop)
{
    const Picture picture = decoded(makePreview(skyFrame<uint16_t>(60000)));
    EXPECT_EQ(picture.width, static_cast<unsigned>(kSize));
    EXPECT_EQ(picture.height, static_cast<unsigned>(kSize));
    EXPECT_EQ(picture.grays[0], 255);
    EXPECT_LT(picture.grays[size_t{kSize} * (kSize - 1)], 128);
}

TEST(Preview, FollowsTheStretchExactlyAtEachWidth)
{
    for (const Frame& frame :
         {skyFrame<uint16_t>(3000), skyFrame<uint32_t>(3000), skyFrame<uint8_t>(250, 0.1)}) {
        const Stretch stretch = findStretch(frame);
        const Picture picture = decoded(makePreview(frame));
        for (int row = 0; row < kSize; ++row) {
            for (int column = 0; column < kSize; ++column) {
                ASSERT_EQ(picture.grays[static_cast<size_t>(row * kSize + column)],
                          stretch.gray(frame.pixel(row, column)));
            }
        }
    }
}

TEST(Preview, OfTheSmallestFrameIsAPicture)
{
    EXPECT_EQ(decoded(makePreview(Frame(factsOf(1, 1)))).grays.size(), 1u);
}

} // namespace vxcam
