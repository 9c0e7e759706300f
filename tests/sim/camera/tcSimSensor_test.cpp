#include "tcSimSensor.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <numeric>

namespace {

constexpr uint32_t gnRows = 200, gnColumns = 300;

std::vector<uint16_t> Take(const tcSimSensor& sensor, const tsSimConditions& conditions)
{
    std::vector<uint16_t> pixels(size_t{sensor.Rows()} * sensor.Columns());
    for (uint32_t row = 0; row < sensor.Rows(); ++row) {
        sensor.ReadRow(conditions, row, 0, sensor.Columns(), &pixels[row * sensor.Columns()]);
    }
    return pixels;
}

double Mean(const std::vector<uint16_t>& pixels)
{
    return std::accumulate(pixels.begin(), pixels.end(), 0.0) / static_cast<double>(pixels.size());
}

double Median(std::vector<uint16_t> pixels)
{
    std::nth_element(pixels.begin(), pixels.begin() + pixels.size() / 2, pixels.end());
    return pixels[pixels.size() / 2];
}

double Deviation(const std::vector<uint16_t>& pixels)
{
    const double mean = Mean(pixels);
    double sum = 0;
    for (uint16_t pixel : pixels) {
        sum += (pixel - mean) * (pixel - mean);
    }
    return std::sqrt(sum / static_cast<double>(pixels.size()));
}

tsSimConditions Cold(double exposure)
{
    tsSimConditions conditions;
    conditions.exposure = exposure;
    conditions.temperature = -60.0;
    return conditions;
}

} // namespace

TEST(SimSensor, ReadsOffsetAndReadNoiseWithoutExposure)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    const auto pixels = Take(sensor, Cold(0));
    EXPECT_NEAR(Mean(pixels), gnSimOffset, 0.3);
    EXPECT_NEAR(Deviation(pixels), gnSimReadNoise, 0.3);
}

TEST(SimSensor, GathersLightInProportionToTheExposure)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    const double one = Median(Take(sensor, Cold(1))) - gnSimOffset;
    const double four = Median(Take(sensor, Cold(4))) - gnSimOffset;
    EXPECT_GE(one, gnSimSky - 3);
    EXPECT_NEAR(four / one, 4.0, 0.15);
}

TEST(SimSensor, StopsAtTheEndOfTheScaleWhereStarsAreBright)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    const auto pixels = Take(sensor, Cold(1));
    EXPECT_EQ(*std::max_element(pixels.begin(), pixels.end()), 65535);
    EXPECT_EQ(*std::min_element(pixels.begin(), pixels.end()) > 500, true);
    const auto longest = Take(sensor, Cold(86400));
    EXPECT_EQ(*std::min_element(longest.begin(), longest.end()), 65535);
}

TEST(SimSensor, DoublesItsDarkCurrentEverySoManyDegrees)
{
    EXPECT_DOUBLE_EQ(SimDarkCurrent(gnSimDarkCurrentTemperature), gnSimDarkCurrent);
    EXPECT_DOUBLE_EQ(SimDarkCurrent(gnSimDarkCurrentTemperature + gnSimDarkCurrentDoubling),
                     2 * gnSimDarkCurrent);
    EXPECT_DOUBLE_EQ(SimDarkCurrent(gnSimDarkCurrentTemperature - 3 * gnSimDarkCurrentDoubling),
                     gnSimDarkCurrent / 8);
}

TEST(SimSensor, ShowsDarkCurrentAndHotPixelsBehindAClosedShutter)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    tsSimConditions conditions = Cold(10);
    conditions.shutterOpen = false;
    const auto cold = Take(sensor, conditions);
    EXPECT_NEAR(Mean(cold), gnSimOffset, 1.0);
    conditions.temperature = gnSimDarkCurrentTemperature;
    const auto warm = Take(sensor, conditions);
    EXPECT_NEAR(Median(warm), gnSimOffset + 10 * gnSimDarkCurrent, 2.0);
    auto hot = [](const std::vector<uint16_t>& pixels) {
        return std::count_if(pixels.begin(), pixels.end(),
                             [](uint16_t pixel) { return pixel > gnSimOffset + 600; });
    };
    EXPECT_EQ(hot(cold), 0);
    EXPECT_GT(hot(warm), 3);
    conditions.hotPixels = false;
    EXPECT_EQ(hot(Take(sensor, conditions)), 0);
}

TEST(SimSensor, HasShotNoise)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    tsSimConditions conditions = Cold(100);
    conditions.temperature = gnSimDarkCurrentTemperature;
    conditions.shutterOpen = conditions.hotPixels = false;
    const double charge = 100 * gnSimDarkCurrent;
    EXPECT_NEAR(Deviation(Take(sensor, conditions)),
                std::sqrt(charge + gnSimReadNoise * gnSimReadNoise), 1.5);
}

TEST(SimSensor, MultipliesByTheGainAboveTheOffset)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    tsSimConditions conditions = Cold(1);
    const double one = Median(Take(sensor, conditions)) - gnSimOffset;
    conditions.gain = 4;
    conditions.offset = 2000;
    EXPECT_NEAR(Median(Take(sensor, conditions)) - 2000, 4 * one, 4);
}

TEST(SimSensor, RepeatsItselfForTheSameSeedAndKey)
{
    const tcSimSensor first(gnRows, gnColumns, 7), second(gnRows, gnColumns, 7);
    const tcSimSensor other(gnRows, gnColumns, 8);
    tsSimConditions conditions = Cold(1);
    conditions.noiseKey = 99;
    const auto pixels = Take(first, conditions);
    EXPECT_EQ(pixels, Take(second, conditions));
    EXPECT_NE(pixels, Take(other, conditions));
    conditions.noiseKey = 100;
    EXPECT_NE(pixels, Take(first, conditions));
}

TEST(SimSensor, ReadsPartOfARowAsItReadsTheWhole)
{
    const tcSimSensor sensor(50, 1500, 3);
    tsSimConditions conditions;
    conditions.exposure = 5;
    std::vector<uint16_t> whole(1500), part(900);
    for (bool mirror : {false, true}) {
        conditions.mirrorHorizontal = mirror;
        sensor.ReadRow(conditions, 20, 0, 1500, whole.data());
        sensor.ReadRow(conditions, 20, 501, 900, part.data());
        EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + 501)) << mirror;
    }
}

TEST(SimSensor, MirrorsThePicture)
{
    const tcSimSensor sensor(gnRows, gnColumns, 1);
    tsSimConditions conditions = Cold(1);
    const auto plain = Take(sensor, conditions);
    conditions.mirrorHorizontal = true;
    const auto horizontal = Take(sensor, conditions);
    conditions.mirrorVertical = true;
    const auto both = Take(sensor, conditions);
    for (uint32_t row = 0; row < gnRows; row += 13) {
        for (uint32_t column = 0; column < gnColumns; column += 7) {
            const uint16_t pixel = plain[row * gnColumns + column];
            ASSERT_EQ(horizontal[row * gnColumns + gnColumns - 1 - column], pixel);
            ASSERT_EQ(both[(gnRows - 1 - row) * gnColumns + gnColumns - 1 - column], pixel);
        }
    }
}

TEST(SimSensor, ShowsItsTestPatternsExactly)
{
    const tcSimSensor sensor(40, 50, 1);
    tsSimConditions conditions = Cold(1);
    for (size_t i = 0; i < conditions.patternValues.size(); ++i) {
        conditions.patternValues[i] = static_cast<uint16_t>(60000 + 1000 * i);
    }
    conditions.patternValues[2] = 3; // side of the checkerboard's fields
    auto pixel = [&](uint32_t mode, uint32_t row, uint32_t column) {
        conditions.pattern = mode;
        uint16_t result = 0;
        sensor.ReadRow(conditions, row, column, 1, &result);
        return result;
    };
    EXPECT_EQ(pixel(1, 17, 23), 60000);
    EXPECT_EQ(pixel(2, 17, 23), 60023);
    EXPECT_EQ(pixel(3, 17, 23), 60017);
    EXPECT_EQ(pixel(4, 17, 23), 60040);
    EXPECT_EQ(pixel(5, 2, 2), 60000);
    EXPECT_EQ(pixel(5, 2, 3), 61000);
    EXPECT_EQ(pixel(5, 3, 3), 60000);
    EXPECT_EQ(pixel(6, 17, 2), 3);
    EXPECT_EQ(pixel(6, 17, 31 + 1), 61000);
    conditions.patternValues[0] = 65535;
    EXPECT_EQ(pixel(2, 0, 1), 0) << "sums wrap at 16 bits";
    conditions.mirrorHorizontal = true;
    EXPECT_EQ(pixel(2, 0, 49), 65535) << "patterns are mirrored, too";
}

TEST(SimSensor, TakesTheSmallestAndOddSizes)
{
    for (uint32_t side : {1u, 2u, 9u}) {
        const tcSimSensor sensor(side, side, 1);
        EXPECT_EQ(Take(sensor, Cold(0)).size(), side * side);
    }
}
