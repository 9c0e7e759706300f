#include "preview.h"

#include "tool_support.h"

#include <png.h>

#include <random>

namespace {

constexpr int gnSize = 400;
constexpr double gnSky = 1000, gnNoise = 10;

// A sky with its noise and one star of 20 x 20 pixels.
tsFrame SkyFrame(int bits, uint32_t star)
{
    tsFrame frame = SmallFrame(gnSize, gnSize, bits);
    std::mt19937 random(1);
    std::normal_distribution<double> sky(gnSky, gnNoise);
    for (size_t i = 0; i < frame.Pixels(); ++i) {
        const size_t row = i / gnSize, column = i % gnSize;
        const bool isStar = row < 20 && column < 20;
        const uint32_t value = isStar ? star : static_cast<uint32_t>(sky(random));
        if (bits == 16) {
            frame.pixels16[i] = static_cast<uint16_t>(value);
        } else {
            frame.pixels32[i] = value;
        }
    }
    return frame;
}

struct tsPicture {
    unsigned width = 0, height = 0;
    std::vector<uint8_t> grays;
};

tsPicture Decode(const std::vector<char>& bytes)
{
    tsPicture picture;
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

TEST(Preview, SkyIsDarkAndStarsAreWhite)
{
    const tsStretch stretch = FindStretch(SkyFrame(16, 60000));
    EXPECT_NEAR(stretch.Gray(gnSky), 0.09 * 255, 4);
    EXPECT_EQ(stretch.Gray(60000), 255);
    EXPECT_EQ(stretch.Gray(0), 0);
}

TEST(Preview, FaintStarsStandOutFromTheNoise)
{
    const tsStretch stretch = FindStretch(SkyFrame(16, 60000));
    EXPECT_GT(stretch.Gray(gnSky + 10 * gnNoise), stretch.Gray(gnSky + gnNoise) + 30);
}

TEST(Preview, GrayRisesWithTheValue)
{
    const tsStretch stretch = FindStretch(SkyFrame(16, 30000));
    for (int value = 0; value < 65535; ++value) {
        ASSERT_LE(stretch.Gray(value), stretch.Gray(value + 1)) << value;
    }
}

TEST(Preview, AFewHotPixelsChangeLittle)
{
    tsFrame frame = SkyFrame(16, 1200);
    const tsStretch before = FindStretch(frame);
    for (size_t i = 0; i < 20; ++i) {
        frame.pixels16[gnSize * 100 + 17 * i] = 65535;
    }
    const tsStretch after = FindStretch(frame);
    EXPECT_EQ(after.white, before.white);
    EXPECT_NEAR(after.black, before.black, 1);
}

TEST(Preview, LargeValuesStretchLikeSmallOnes)
{
    tsFrame frame = SkyFrame(32, 60000);
    const uint8_t gray = FindStretch(frame).Gray(gnSky);
    for (uint32_t& value : frame.pixels32) {
        value *= 60000;
    }
    EXPECT_NEAR(FindStretch(frame).Gray(gnSky * 60000), gray, 3);
}

TEST(Preview, FlatFramesAreDark)
{
    tsFrame frame = SmallFrame(10, 10);
    std::fill(frame.pixels16.begin(), frame.pixels16.end(), static_cast<uint16_t>(65535));
    EXPECT_LT(FindStretch(frame).Gray(65535), 64);
    std::fill(frame.pixels16.begin(), frame.pixels16.end(), static_cast<uint16_t>(0));
    EXPECT_LT(FindStretch(frame).Gray(0), 64);
}

TEST(Preview, PictureHasTheFirstRowOnTop)
{
    const tsPicture picture = Decode(MakePreview(SkyFrame(16, 60000)));
    EXPECT_EQ(picture.width, static_cast<unsigned>(gnSize));
    EXPECT_EQ(picture.height, static_cast<unsigned>(gnSize));
    EXPECT_EQ(picture.grays[0], 255);
    EXPECT_LT(picture.grays[gnSize * (gnSize - 1)], 128);
}

TEST(Preview, PictureFollowsTheStretchExactly)
{
    for (int bits : {16, 32}) {
        const tsFrame frame = SkyFrame(bits, 3000);
        const tsStretch stretch = FindStretch(frame);
        const tsPicture picture = Decode(MakePreview(frame));
        for (size_t i = 0; i < frame.Pixels(); ++i) {
            ASSERT_EQ(picture.grays[i], stretch.Gray(frame.Pixel(i))) << i;
        }
    }
}

TEST(Preview, SmallestFrameIsAPicture)
{
    EXPECT_EQ(Decode(MakePreview(SmallFrame(1, 1))).grays.size(), 1u);
}
