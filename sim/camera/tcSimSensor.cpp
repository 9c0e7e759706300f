#include "tcSimSensor.h"

#include "random.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr uint32_t gnNoiseValues = 1u << 18;
constexpr uint32_t gnBlock = 512;
constexpr double gnHotFraction = 0.0002;

// Each pattern is exact: a pixel depends on its row and column on the sensor and on the values.
uint16_t PatternPixel(const tsSimConditions& conditions, uint32_t row, uint32_t column)
{
    const auto& values = conditions.patternValues;
    const uint32_t field = std::max<uint32_t>(values[2], 1);
    const uint32_t pixels[gnSimPatterns + 1] = {0,
                                                values[0],
                                                column + values[0],
                                                row + values[0],
                                                row + column + values[0],
                                                values[(row / field + column / field) % 2],
                                                values[column % gnSimPatternValues]};
    return static_cast<uint16_t>(pixels[std::min(conditions.pattern, gnSimPatterns)]);
}

// Charge to counts: shot and read noise, gain, offset, and the end of the scale.
void Digitise(const float* charge, const float* noise, uint32_t count,
              const tsSimConditions& conditions, uint16_t* pixels)
{
    const auto readVariance = static_cast<float>(conditions.readNoise * conditions.readNoise);
    const auto gain = static_cast<float>(conditions.gain);
    const float offset = conditions.offset;
    for (uint32_t i = 0; i < count; ++i) {
        float value = charge[i] + noise[i] * std::sqrt(charge[i] + readVariance);
        float counts = offset + gain * value + 0.5f;
        counts = counts < 0.0f ? 0.0f : counts;
        counts = counts > 65535.0f ? 65535.0f : counts;
        pixels[i] = static_cast<uint16_t>(static_cast<int32_t>(counts));
    }
}

} // namespace

double SimDarkCurrent(double celsius)
{
    return gnSimDarkCurrent *
           std::exp2((celsius - gnSimDarkCurrentTemperature) / gnSimDarkCurrentDoubling);
}

tcSimSensor::tcSimSensor(uint32_t rows, uint32_t columns, uint64_t seed, int32_t stars)
    : mnRows(rows), mnColumns(columns), mnStars(stars), mnSeed(seed),
      maScene(size_t{rows} * columns, static_cast<float>(gnSimSky)), maNoise(gnNoiseValues)
{
    tcSimRandom random(MixBits(seed, 1));
    for (float& value : maNoise) {
        value = static_cast<float>(random.Normal());
    }
    AddNebula(MixBits(seed, 2));
    FindStars(MixBits(seed, 3));
    Draw();
    SpreadHotPixels(MixBits(seed, 4));
}

void tcSimSensor::SpreadHotPixels(uint64_t seed)
{
    tcSimRandom random(seed);
    maHotRows.reserve(mnRows + 1);
    for (uint32_t row = 0; row < mnRows; ++row) {
        maHotRows.push_back(static_cast<uint32_t>(maHotPixels.size()));
        std::vector<uint32_t> columns(
            static_cast<size_t>(gnHotFraction * mnColumns + random.Uniform()));
        for (uint32_t& column : columns) {
            column = static_cast<uint32_t>(random.Uniform() * mnColumns);
        }
        std::sort(columns.begin(), columns.end());
        for (uint32_t column : columns) {
            maHotPixels.push_back({column, static_cast<float>(std::exp(random.Uniform(2.0, 7.0)))});
        }
    }
    maHotRows.push_back(static_cast<uint32_t>(maHotPixels.size()));
}

void tcSimSensor::ReadRow(const tsSimConditions& conditions, uint32_t row, uint32_t firstColumn,
                          uint32_t count, uint16_t* pixels) const
{
    if (conditions.mirrorVertical) row = mnRows - 1 - row;
    if (conditions.mirrorHorizontal) firstColumn = mnColumns - firstColumn - count;
    if (conditions.pattern != 0) {
        for (uint32_t i = 0; i < count; ++i) {
            pixels[i] = PatternPixel(conditions, row, firstColumn + i);
        }
    } else {
        Expose(conditions, row, firstColumn, count, pixels);
    }
    if (conditions.mirrorHorizontal) std::reverse(pixels, pixels + count);
}

void tcSimSensor::Expose(const tsSimConditions& conditions, uint32_t row, uint32_t firstColumn,
                         uint32_t count, uint16_t* pixels) const
{
    const float dark =
        static_cast<float>(SimDarkCurrent(conditions.temperature) * conditions.exposure);
    const float light = conditions.shutterOpen ? static_cast<float>(conditions.exposure) : 0.0f;
    const float moreSky = static_cast<float>(conditions.sky - gnSimSky);
    const float* scene = &maScene[size_t{row} * mnColumns];
    const uint32_t start = static_cast<uint32_t>(MixBits(conditions.noiseKey, row) %
                                                 (gnNoiseValues - gnSimLargestSide));
    auto hot = maHotPixels.begin() + maHotRows[row];
    const auto hotEnd = maHotPixels.begin() + maHotRows[row + 1];

    float charge[gnBlock];
    for (uint32_t done = 0; done < count; done += gnBlock) {
        const uint32_t size = std::min(gnBlock, count - done);
        const uint32_t column = firstColumn + done;
        for (uint32_t i = 0; i < size; ++i) {
            charge[i] = (scene[column + i] + moreSky) * light + dark;
        }
        for (; conditions.hotPixels && hot != hotEnd && hot->column < column + size; ++hot) {
            if (hot->column >= column) charge[hot->column - column] += dark * hot->factor;
        }
        Digitise(charge, &maNoise[start + column], size, conditions, pixels + done);
    }
}
