// What the sensor looks at, behind the stars: a faint nebula.
#include "random.h"
#include "tcSimSensor.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double gnNebula = 45.0; // electrons a pixel and second at its brightest
constexpr uint32_t gnCell = 8;    // pixels between the nebula's points

// Smooth noise of 0 to 1 over the plane, one value for each whole-numbered point.
double SmoothNoise(uint64_t seed, double x, double y)
{
    double column = std::floor(x), row = std::floor(y);
    auto corner = [&](double dx, double dy) {
        uint64_t point = static_cast<uint64_t>(static_cast<int64_t>(column + dx)) * 0x10001ull +
                         static_cast<uint64_t>(static_cast<int64_t>(row + dy));
        return static_cast<double>(MixBits(seed, point) >> 11) * 0x1p-53;
    };
    auto smooth = [](double t) { return t * t * (3.0 - 2.0 * t); };
    double fx = smooth(x - column), fy = smooth(y - row);
    double top = corner(0, 0) * (1 - fx) + corner(1, 0) * fx;
    double bottom = corner(0, 1) * (1 - fx) + corner(1, 1) * fx;
    return top * (1 - fy) + bottom * fy;
}

double Clouds(uint64_t seed, double x, double y)
{
    double sum = 0, weight = 0.5, scale = 4.0;
    for (uint64_t octave = 0; octave < 5; ++octave) {
        sum += weight * SmoothNoise(seed + octave, x * scale, y * scale);
        weight *= 0.5;
        scale *= 2.1;
    }
    return sum;
}

} // namespace

// Computed at every gnCell-th pixel and drawn out between.
void tcSimSensor::AddNebula(uint64_t seed)
{
    const uint32_t width = mnColumns / gnCell + 2, height = mnRows / gnCell + 2;
    const double side = std::max(mnRows, mnColumns);
    std::vector<float> points(size_t{width} * height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            double u = x * gnCell / side, v = y * gnCell / side;
            double across = (v - 0.5) - 0.55 * (u - 0.5); // a band across the field
            double cloud = std::max(0.0, Clouds(seed, u, v) - 0.38) * 2.2;
            points[size_t{y} * width + x] =
                static_cast<float>(gnNebula * cloud * std::exp(-across * across / 0.06));
        }
    }
    for (uint32_t row = 0; row < mnRows; ++row) {
        const float* above = &points[size_t{row / gnCell} * width];
        const float* below = above + width;
        const float down = static_cast<float>(row % gnCell) / gnCell;
        float* scene = &maScene[size_t{row} * mnColumns];
        for (uint32_t column = 0; column < mnColumns; ++column) {
            const uint32_t x = column / gnCell;
            const float right = static_cast<float>(column % gnCell) / gnCell;
            scene[column] += (above[x] * (1 - right) + above[x + 1] * right) * (1 - down) +
                             (below[x] * (1 - right) + below[x + 1] * right) * down;
        }
    }
}
